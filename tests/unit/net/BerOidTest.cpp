// Object identifiers as BER items; the vectors run both ways where the encoding is canonical.
#include <gtest/gtest.h>

#include "tests/unit/net/BerItem.h"
#include "vox/drivers/net/NetworkComm/wnxber.h"

namespace vox {
namespace {

using namespace test;

Builder Oid(const std::vector<std::uint32_t>& arcs) {
  return [=](std::uint8_t* data, std::int32_t* left) {
    return asn_build_oid(data, left, 0x06, arcs.data(), static_cast<std::int32_t>(arcs.size()));
  };
}

Parsed<std::vector<std::uint32_t>> ParseOid(const std::string& hex, std::size_t capacity = 128) {
  const Bytes item = Hex(hex);
  Parsed<std::vector<std::uint32_t>> parsed;
  parsed.got.resize(capacity);
  parsed.got.shrink_to_fit();
  parsed.left = Size(item);
  auto count = static_cast<std::int32_t>(capacity);
  parsed.ok = asn_parse_oid(item.data(), &parsed.left, &parsed.tag, parsed.got.data(), &count);
  parsed.got.resize(static_cast<std::size_t>(count));
  return parsed;
}

struct OidVector {
  std::vector<std::uint32_t> arcs;
  const char* hex;
};

TEST(ObjectIdentifier, ThereAndBack) {
  const OidVector vectors[] = {
      {{1, 3, 6, 1, 2, 1, 1, 1, 0}, "06 08 2B 06 01 02 01 01 01 00"},
      {{1, 3, 6, 1, 4, 1, 32473, 405, 1, 1, 1, 3},
       "06 0E 2B 06 01 04 01 81 FD 59 83 15 01 01 01 03"},
      {{0, 0}, "06 01 00"},
      {{1, 3}, "06 01 2B"},
      {{1, 3, 126}, "06 02 2B 7E"},
      {{1, 3, 127}, "06 02 2B 7F"},
      {{1, 3, 128}, "06 03 2B 81 00"},
      {{1, 3, 203}, "06 03 2B 81 4B"},
      {{1, 3, 300}, "06 03 2B 82 2C"},
      {{1, 3, 16383}, "06 03 2B FF 7F"},
      {{1, 3, 16384}, "06 04 2B 81 80 00"},
      {{1, 3, 0xFFFFFFFF}, "06 06 2B 8F FF FF FF 7F"},
  };
  for (const auto& [arcs, hex] : vectors) {
    EXPECT_EQ(Built(Oid(arcs)), hex);
    NeedsItsExactRoom(Oid(arcs));
    const auto parsed = ParseOid(hex);
    EXPECT_TRUE(parsed.ok) << hex;
    EXPECT_EQ(parsed.got, arcs) << hex;
    EXPECT_EQ(parsed.tag, 0x06);
    EXPECT_EQ(parsed.left, 0);
  }
}

TEST(ObjectIdentifier, FewerThanTwoArcsAreOneZero) {
  EXPECT_EQ(Built(Oid({})), "06 01 00");
  EXPECT_EQ(Built(Oid({1})), "06 01 00");
}

// The first sub-identifier is divided by 40 whatever its root, so joint-iso-itu-t arcs come out
// differently; they build to the same bytes again.
TEST(ObjectIdentifier, FirstSubIdentifierIsDividedByForty) {
  const auto parsed = ParseOid("06 02 88 37");
  EXPECT_EQ(parsed.got, (std::vector<std::uint32_t>{26, 39}));
  EXPECT_EQ(Built(Oid({26, 39})), "06 02 88 37");
  EXPECT_EQ(Built(Oid({2, 999})), "06 02 88 37");
  EXPECT_EQ(ParseOid("06 01 2B").got, (std::vector<std::uint32_t>{1, 3}));
}

TEST(ObjectIdentifier, FirstTwoArcsBeyond32BitsAreRefused) {
  EXPECT_EQ(Built(Oid({0xFFFFFFFF, 1})), "none");
  EXPECT_EQ(Built(Oid({107374182, 16})), "none");
  EXPECT_EQ(Built(Oid({107374182, 15})), "06 05 8F FF FF FF 7F");
}

TEST(ObjectIdentifier, MalformedIsRefused) {
  const std::pair<const char*, const char*> vectors[] = {
      {"06 00", "no sub-identifier"},
      {"06 01 80", "the first sub-identifier is cut off"},
      {"06 02 2B 81", "the last sub-identifier is cut off"},
      {"06 02 2B 81 00", "it does not go on behind the item"},
      {"06 06 2B 90 80 80 80 00", "a sub-identifier above 32 bits"},
      {"06 03 2B 06", "passes the bytes left"},
  };
  for (const auto& [hex, reason] : vectors) EXPECT_FALSE(ParseOid(hex).ok) << reason;
}

TEST(ObjectIdentifier, ArcsBeyondTheCapacityAreDropped) {
  const char* const oid = "06 04 2B 06 01 02";
  EXPECT_EQ(ParseOid(oid, 0).got, (std::vector<std::uint32_t>{}));
  EXPECT_EQ(ParseOid(oid, 1).got, (std::vector<std::uint32_t>{1}));
  EXPECT_EQ(ParseOid(oid, 2).got, (std::vector<std::uint32_t>{1, 3}));
  EXPECT_EQ(ParseOid(oid, 4).got, (std::vector<std::uint32_t>{1, 3, 6, 1}));
  const Bytes long_oid = Hex("06 81 C8") + Bytes(200, 0x01);
  const auto parsed = ParseOid(ToHex(long_oid));
  EXPECT_TRUE(parsed.ok);
  EXPECT_EQ(parsed.got.size(), 128u);
}

TEST(ObjectIdentifier, NegativeCountsAreRefused) {
  Bytes buffer(16);
  std::int32_t left = Size(buffer);
  const std::uint32_t arc = 1;
  EXPECT_EQ(asn_build_oid(buffer.data(), &left, 0x06, &arc, -1), nullptr);
  EXPECT_EQ(asn_build_oid(buffer.data(), &left, 0x06, nullptr, 3), nullptr);
  const Bytes item = Hex("06 01 2B");
  std::int32_t count = -1, item_left = Size(item);
  std::uint8_t tag = 0;
  std::uint32_t arcs[2] = {};
  EXPECT_EQ(asn_parse_oid(item.data(), &item_left, &tag, arcs, &count), nullptr);
}

TEST(ObjectIdentifier, ContentsOf512BytesAreTheMost) {
  std::vector<std::uint32_t> arcs(2 + 511, 1);
  EXPECT_EQ(Hex(Built(Oid(arcs))).size(), 512u + 4u);
  arcs.push_back(1);
  EXPECT_EQ(Built(Oid(arcs)), "none");
  // 128 arcs of five octets each would need 631.
  EXPECT_EQ(Built(Oid(std::vector<std::uint32_t>(128, 0x1FFFFFFF))), "none");
}

}  // namespace
}  // namespace vox
