// BER items, built and parsed: the vectors run both ways where the encoding is canonical; every
// buffer is a heap block of the exact size, so that the sanitizers see a byte too many.
#include "vox/drivers/net/NetworkComm/wnxber.h"

#include <limits>
#include <numeric>

#include <gtest/gtest.h>

#include "tests/unit/net/BerItem.h"

namespace vox {
namespace {

using namespace test;

constexpr std::int32_t kInt = 4;  // the size of a number in memory

Builder Int(std::int32_t value) {
  return [=](std::uint8_t* data, std::int32_t* left) {
    return asn_build_int(data, left, 0x02, &value, kInt);
  };
}
Builder Unsigned(std::uint32_t value) {
  return [=](std::uint8_t* data, std::int32_t* left) {
    return asn_build_unsigned_int(data, left, 0x42, &value, kInt);
  };
}
Builder TextItem(const Bytes& bytes) {
  return [=](std::uint8_t* data, std::int32_t* left) {
    return asn_build_string(data, left, 0x04, bytes.data(), Size(bytes));
  };
}
Builder Length(std::int32_t length) {
  return
      [=](std::uint8_t* data, std::int32_t* left) { return asn_build_length(data, left, length); };
}

template <typename value, typename parser>
Parsed<value> ParseNumber(parser parse, const std::string& hex, std::int32_t size) {
  const Bytes item = Hex(hex);
  Parsed<value> parsed;
  parsed.left = Size(item);
  const std::uint8_t* next = parse(item.data(), &parsed.left, &parsed.tag, &parsed.got, size);
  parsed.ok = next != nullptr;
  if (!next) {
    EXPECT_EQ(parsed.left, Size(item)) << "bytes left changed by a refusal: " << hex;
  } else {
    EXPECT_EQ(next, item.data() + item.size() - parsed.left);
  }
  return parsed;
}
Parsed<std::int32_t> ParseInt(const std::string& hex, std::int32_t size = kInt) {
  return ParseNumber<std::int32_t>(asn_parse_int, hex, size);
}
Parsed<std::uint32_t> ParseUnsigned(const std::string& hex, std::int32_t size = kInt) {
  return ParseNumber<std::uint32_t>(asn_parse_unsigned_int, hex, size);
}

// ---- lengths and headers

TEST(Length, ShortestForm) {
  const std::pair<std::int32_t, const char*> vectors[] = {
      {0, "00"},      {10, "0A"},        {127, "7F"},       {128, "81 80"},     {200, "81 C8"},
      {255, "81 FF"}, {256, "82 01 00"}, {300, "82 01 2C"}, {65535, "82 FF FF"}};
  for (const auto& [length, hex] : vectors) {
    EXPECT_EQ(Built(Length(length)), hex);
    NeedsItsExactRoom(Length(length));
    std::uint32_t parsed = 0;
    const Bytes octets = Hex(hex);
    EXPECT_EQ(asn_parse_length(octets.data(), &parsed), octets.data() + octets.size()) << hex;
    EXPECT_EQ(parsed, static_cast<std::uint32_t>(length));
  }
}

TEST(Length, OutsideTheProfileIsRefused) {
  EXPECT_EQ(Built(Length(65536)), "none");
  EXPECT_EQ(Built(Length(-1)), "none");
}

TEST(Length, OneToFourOctetsAreRead) {
  const std::pair<const char*, std::uint32_t> vectors[] = {
      {"81 05", 5}, {"82 00 05", 5}, {"83 01 00 00", 65536}, {"84 FF FF FF F8", 0xFFFFFFF8u}};
  for (const auto& [hex, length] : vectors) {
    std::uint32_t parsed = 0;
    const Bytes octets = Hex(hex);
    EXPECT_EQ(asn_parse_length(octets.data(), &parsed), octets.data() + octets.size()) << hex;
    EXPECT_EQ(parsed, length) << hex;
  }
}

TEST(Length, IndefiniteAndMoreThanFourOctetsAreRefused) {
  for (const char* hex : {"80 00 00", "85 00 00 00 00 01", "FF 01"}) {
    std::uint32_t parsed = 0;
    EXPECT_EQ(asn_parse_length(Hex(hex).data(), &parsed), nullptr) << hex;
  }
}

TEST(Header, LengthBecomesThatOfTheContents) {
  const Bytes item = Hex("30 02 05 00 AA BB");
  std::int32_t left = Size(item);
  std::uint8_t tag = 0;
  EXPECT_EQ(asn_parse_header(item.data(), &left, &tag), item.data() + 2);
  EXPECT_EQ(left, 2);
  EXPECT_EQ(tag, 0x30);
}

TEST(Header, MalformedIsRefused) {
  const std::pair<const char*, const char*> vectors[] = {
      {"", "nothing there"},
      {"30", "no length"},
      {"30 81", "no length octet behind 81"},
      {"30 82 00", "one length octet of two"},
      {"30 84 00 00 00", "three length octets of four"},
      {"30 01", "contents pass the bytes left by one"},
      {"30 81 03 00 00", "the same in the long form"},
      {"30 80 00 00", "indefinite form"},
      {"30 85 00 00 00 00 00", "five length octets"},
      {"30 84 80 00 00 00 00", "2^31 must not turn negative"},
      {"30 84 FF FF FF FF 00", "2^32 - 1 must not turn into -1"},
      {"1F 01 00", "identifier of more than one octet"},
      {"BF 01 00", "the same, constructed"},
  };
  for (const auto& [hex, reason] : vectors) {
    const Bytes item = Hex(hex);
    std::int32_t left = Size(item);
    std::uint8_t tag = 0;
    EXPECT_EQ(asn_parse_header(item.data(), &left, &tag), nullptr) << reason << ": " << hex;
    EXPECT_EQ(left, Size(item)) << reason;
  }
}

TEST(Header, NegativeBytesLeftAreRefused) {
  const Bytes item = Hex("30 00");
  std::int32_t left = -1;
  std::uint8_t tag = 0;
  EXPECT_EQ(asn_parse_header(item.data(), &left, &tag), nullptr);
}

TEST(Header, BuiltInTheShortestFormWithoutItsContents) {
  const Builder header = [](std::uint8_t* data, std::int32_t* left) {
    return asn_build_header(data, left, 0x30, 300);
  };
  EXPECT_EQ(Built(header), "30 82 01 2C");
  NeedsItsExactRoom(header);
}

TEST(Sequence, AlwaysFourBytes) {
  const std::pair<std::int32_t, const char*> vectors[] = {
      {0, "30 82 00 00"}, {10, "30 82 00 0A"}, {300, "30 82 01 2C"}, {65535, "30 82 FF FF"}};
  for (const auto& [length, hex] : vectors) {
    const Builder sequence = [&, size = length](std::uint8_t* data, std::int32_t* left) {
      return asn_build_sequence(data, left, 0x30, size);
    };
    EXPECT_EQ(Built(sequence), hex);
    NeedsItsExactRoom(sequence);
  }
}

TEST(Sequence, LengthOutsideTwoOctetsIsRefused) {
  Bytes buffer(8);
  for (const std::int32_t length : {65536, -1}) {
    std::int32_t left = Size(buffer);
    EXPECT_EQ(asn_build_sequence(buffer.data(), &left, 0x30, length), nullptr) << length;
    EXPECT_EQ(left, Size(buffer));
    EXPECT_EQ(asn_build_header(buffer.data(), &left, 0x30, length), nullptr) << length;
    EXPECT_EQ(left, Size(buffer));
  }
}

// The tag is the caller's affair: a builder writes the one it is given, a parser tells what it met.
TEST(Tag, IsWrittenAsGivenAndReadAsMet) {
  const std::int32_t number = 5;
  const std::uint32_t count = 5, arcs[] = {1, 3};
  const std::uint8_t text[] = {0x41};
  const std::pair<Builder, const char*> builders[] = {
      {[&](auto* at, auto* left) { return asn_build_header(at, left, 0x87, 0); }, "87 00"},
      {[&](auto* at, auto* left) { return asn_build_sequence(at, left, 0x87, 0); }, "87 82 00 00"},
      {[&](auto* at, auto* left) { return asn_build_int(at, left, 0x87, &number, kInt); },
       "87 01 05"},
      {[&](auto* at, auto* left) { return asn_build_unsigned_int(at, left, 0x87, &count, kInt); },
       "87 01 05"},
      {[&](auto* at, auto* left) { return asn_build_string(at, left, 0x87, text, 1); }, "87 01 41"},
      {[&](auto* at, auto* left) { return asn_build_oid(at, left, 0x87, arcs, 2); }, "87 01 2B"},
      {[&](auto* at, auto* left) { return asn_build_null(at, left, 0x87); }, "87 00"},
  };
  for (const auto& [builder, hex] : builders) EXPECT_EQ(Built(builder), hex);

  const Bytes item = Hex("87 01 05"), empty = Hex("87 00");
  std::int32_t left = 0, value = 0, room = 1;
  std::uint32_t large = 0;
  std::uint8_t byte = 0, tag = 0;
  const auto met = [&](const Bytes& from, const auto& parse) {
    left = Size(from);
    tag = 0;
    EXPECT_EQ(parse(from.data()), from.data() + from.size());
    EXPECT_EQ(tag, 0x87);
  };
  met(item, [&](auto* at) { return asn_parse_int(at, &left, &tag, &value, kInt); });
  met(item, [&](auto* at) { return asn_parse_unsigned_int(at, &left, &tag, &large, kInt); });
  met(item, [&](auto* at) { return asn_parse_string(at, &left, &tag, &byte, &room); });
  met(item, [&](auto* at) { return asn_parse_oid(at, &left, &tag, &large, &room); });
  met(empty, [&](auto* at) { return asn_parse_null(at, &left, &tag); });
}

// ---- numbers

struct IntVector {
  std::int32_t value;
  const char* hex;
};
const IntVector kInts[] = {
    {0, "02 01 00"},
    {1, "02 01 01"},
    {-1, "02 01 FF"},
    {127, "02 01 7F"},
    {128, "02 02 00 80"},
    {255, "02 02 00 FF"},
    {256, "02 02 01 00"},
    {-128, "02 01 80"},
    {-129, "02 02 FF 7F"},
    {32767, "02 02 7F FF"},
    {32768, "02 03 00 80 00"},
    {-32768, "02 02 80 00"},
    {-32769, "02 03 FF 7F FF"},
    {8388607, "02 03 7F FF FF"},
    {8388608, "02 04 00 80 00 00"},
    {std::numeric_limits<std::int32_t>::max(), "02 04 7F FF FF FF"},
    {std::numeric_limits<std::int32_t>::min(), "02 04 80 00 00 00"},
};

TEST(Integer, ThereAndBack) {
  for (const auto& [value, hex] : kInts) {
    EXPECT_EQ(Built(Int(value)), hex);
    NeedsItsExactRoom(Int(value));
    const auto parsed = ParseInt(std::string(hex) + " EE EE");
    EXPECT_TRUE(parsed.ok) << hex;
    EXPECT_EQ(parsed.got, value);
    EXPECT_EQ(parsed.tag, 0x02);
    EXPECT_EQ(parsed.left, 2);
  }
}

TEST(Integer, LongerThanNeededIsReadWithItsSign) {
  EXPECT_EQ(ParseInt("02 04 FF FF FF FF").got, -1);
  EXPECT_EQ(ParseInt("02 02 00 01").got, 1);
  EXPECT_EQ(ParseInt("02 82 00 01 05").got, 5);
}

TEST(Integer, MalformedIsRefused) {
  const std::pair<const char*, const char*> vectors[] = {
      {"02 00", "no octet to take the sign from"},
      {"02 00 FF", "the byte behind is not its sign"},
      {"02 05 00 00 00 00 01", "more than four octets"},
      {"02 04 00 00 01", "passes the bytes left"},
  };
  for (const auto& [hex, reason] : vectors) EXPECT_FALSE(ParseInt(hex).ok) << reason;
}

TEST(Integer, SizeInMemoryMustBeFour) {
  const std::int32_t value = 5;
  Bytes buffer(8);
  for (const std::int32_t size : {0, 1, 3, 5, 8, -4}) {
    std::int32_t left = Size(buffer);
    EXPECT_EQ(asn_build_int(buffer.data(), &left, 0x02, &value, size), nullptr) << size;
    EXPECT_FALSE(ParseInt("02 01 05", size).ok) << size;
    EXPECT_FALSE(ParseUnsigned("42 01 05", size).ok) << size;
  }
  const std::uint32_t number = 5;
  std::int32_t left = Size(buffer);
  EXPECT_EQ(asn_build_unsigned_int(buffer.data(), &left, 0x42, &number, 8), nullptr);
}

TEST(UnsignedInteger, ThereAndBack) {
  const std::pair<std::uint32_t, const char*> vectors[] = {
      {0, "42 01 00"},
      {0x7F, "42 01 7F"},
      {0x80, "42 02 00 80"},
      {0x7FFFFFFF, "42 04 7F FF FF FF"},
      {0x80000000, "42 05 00 80 00 00 00"},
      {0xFF7FFFFF, "42 05 00 FF 7F FF FF"},
  };
  for (const auto& [value, hex] : vectors) {
    EXPECT_EQ(Built(Unsigned(value)), hex);
    NeedsItsExactRoom(Unsigned(value));
    const auto parsed = ParseUnsigned(hex);
    EXPECT_TRUE(parsed.ok) << hex;
    EXPECT_EQ(parsed.got, value);
    EXPECT_EQ(parsed.tag, 0x42);
  }
}

// The rule that drops redundant octets does not know of the zero in front.
TEST(UnsignedInteger, LargestValuesAreWrittenShort) {
  const std::pair<std::uint32_t, const char*> vectors[] = {
      {0xFF800000, "42 04 00 80 00 00"},
      {0xFFFF0000, "42 04 00 FF 00 00"},
      {0xFFFFFFFF, "42 02 00 FF"},
  };
  for (const auto& [value, hex] : vectors) {
    EXPECT_EQ(Built(Unsigned(value)), hex);
    NeedsItsExactRoom(Unsigned(value));
  }
}

TEST(UnsignedInteger, ShortEncodingIsExtendedWithItsSign) {
  const std::pair<const char*, std::uint32_t> vectors[] = {
      {"42 01 FF", 0xFFFFFFFF},
      {"42 01 80", 0xFFFFFF80},
      {"42 02 00 FF", 255},
      {"42 03 80 00 00", 0xFF800000},
      {"42 04 80 00 00 00", 0x80000000},
      {"42 05 00 FF FF FF FF", 0xFFFFFFFF},
  };
  for (const auto& [hex, value] : vectors) {
    const auto parsed = ParseUnsigned(hex);
    EXPECT_TRUE(parsed.ok) << hex;
    EXPECT_EQ(parsed.got, value) << hex;
  }
}

TEST(UnsignedInteger, MalformedIsRefused) {
  const std::pair<const char*, const char*> vectors[] = {
      {"42 00", "no octet to take the sign from"},
      {"42 00 FF", "the byte behind is not its sign"},
      {"42 05 01 00 00 00 00", "five octets that do not begin with zero"},
      {"42 06 00 00 00 00 00 01", "more than five octets"},
      {"42 05 00 80 00 00", "passes the bytes left"},
  };
  for (const auto& [hex, reason] : vectors) EXPECT_FALSE(ParseUnsigned(hex).ok) << reason;
}

// ---- strings and null

TEST(OctetString, ThereAndBack) {
  for (const char* contents : {"", "41", "70 75 62 6C 69 63", "00 FF 00"}) {
    const Bytes bytes = Hex(contents);
    const std::string hex = Built(TextItem(bytes));
    EXPECT_EQ(Hex(hex), (Bytes{0x04, static_cast<std::uint8_t>(bytes.size())} + bytes));
    NeedsItsExactRoom(TextItem(bytes));
    const Bytes item = Hex(hex);
    Bytes out(bytes.size());
    std::int32_t left = Size(item), count = Size(out);
    std::uint8_t tag = 0;
    EXPECT_EQ(asn_parse_string(item.data(), &left, &tag, out.data(), &count),
              item.data() + item.size());
    EXPECT_EQ(count, Size(bytes));
    EXPECT_EQ(out, bytes);
    EXPECT_EQ(tag, 0x04);
    EXPECT_EQ(left, 0);
  }
}

TEST(OctetString, LongerThanTheCapacityIsRefused) {
  const Bytes item = Hex("04 03 41 42 43");
  Bytes out(2);
  std::int32_t left = Size(item), count = Size(out);
  std::uint8_t tag = 0;
  EXPECT_EQ(asn_parse_string(item.data(), &left, &tag, out.data(), &count), nullptr);
  EXPECT_EQ(left, Size(item));
  EXPECT_EQ(out, Bytes(2));
}

TEST(OctetString, LongContentsTakeALongLength) {
  EXPECT_EQ(Built(TextItem(Bytes(200, 0x20))).substr(0, 11), "04 81 C8 20");
  EXPECT_EQ(Built(TextItem(Bytes(300, 0x20))).substr(0, 14), "04 82 01 2C 20");
  NeedsItsExactRoom(TextItem(Bytes(300, 0x20)));
}

TEST(OctetString, NegativeOrMissingBytesAreRefused) {
  Bytes buffer(16);
  std::int32_t left = Size(buffer);
  EXPECT_EQ(asn_build_string(buffer.data(), &left, 0x04, buffer.data(), -1), nullptr);
  EXPECT_EQ(asn_build_string(buffer.data(), &left, 0x04, nullptr, 1), nullptr);
  EXPECT_EQ(left, Size(buffer));
}

TEST(Null, ThereAndBack) {
  const Builder null = [](std::uint8_t* data, std::int32_t* left) {
    return asn_build_null(data, left, 0x05);
  };
  EXPECT_EQ(Built(null), "05 00");
  NeedsItsExactRoom(null);
  const Bytes item = Hex("05 00 EE");
  std::int32_t left = Size(item);
  std::uint8_t tag = 0;
  EXPECT_EQ(asn_parse_null(item.data(), &left, &tag), item.data() + 2);
  EXPECT_EQ(tag, 0x05);
  EXPECT_EQ(left, 1);
}

TEST(Null, ContentsAreRefused) {
  const Bytes item = Hex("05 01 00");
  std::int32_t left = Size(item);
  std::uint8_t tag = 0;
  EXPECT_EQ(asn_parse_null(item.data(), &left, &tag), nullptr);
}

}  // namespace
}  // namespace vox
