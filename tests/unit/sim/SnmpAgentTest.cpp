// The agent, spoken to with messages that are put together here byte by byte.
#include "sim/SnmpAgent.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

namespace vox::sim {
namespace {

Bytes FromHex(const std::string& text) {
  std::istringstream stream(text);
  Bytes bytes;
  for (std::string pair; stream >> pair;) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(pair, nullptr, 16)));
  }
  return bytes;
}

std::string ToHex(const Bytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    static const char digits[] = "0123456789ABCDEF";
    if (!text.empty()) text += ' ';
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

// An agent with 1.3.6.1.2.1.1.5.0 "dev" (writable, at most 4 octets), 1.3.6.1.2.1.1.6.0 300 and
// 1.3.6.1.4.1.32473.405.1 -1.
class SmallAgent : public ::testing::Test {
 protected:
  SmallAgent() : agent_("public") {
    agent_.Add("1.3.6.1.4.1.32473.405.1", {[] { return IntegerValue(-1); }, nullptr, nullptr});
    agent_.Add("1.3.6.1.2.1.1.6.0", {[] { return IntegerValue(300); }, nullptr, nullptr});
    agent_.Add(
        "1.3.6.1.2.1.1.5.0",
        {[this] { return TextValue(name_); },
         [](const MibValue& v) { return v.tag == kBerOctetString && v.contents.size() <= 4; },
         [this](const MibValue& v) { name_.assign(v.contents.begin(), v.contents.end()); }});
  }
  std::string Ask(const std::string& request) {
    const auto answer = agent_.Answer(FromHex(request));
    return answer ? ToHex(*answer) : "none";
  }
  std::string name_ = "dev";
  SnmpAgent agent_;
};

const char kNameQuestion[] =
    "30 26 02 01 00 04 06 70 75 62 6C 69 63 A0 19 02 01 05 02 01 00 02 01 00"
    " 30 0E 30 0C 06 08 2B 06 01 02 01 01 05 00 05 00";

TEST_F(SmallAgent, GetGivesTheValue) {
  EXPECT_EQ(Ask(kNameQuestion),
            "30 29 02 01 00 04 06 70 75 62 6C 69 63 A2 1C 02 01 05 02 01 00 02 01 00"
            " 30 11 30 0F 06 08 2B 06 01 02 01 01 05 00 04 03 64 65 76");
}

TEST_F(SmallAgent, GetTakesTheLongFormOfLengths) {
  // The same request with three-octet lengths (X.690 8.1.3.5 allows them); the answer is short.
  EXPECT_EQ(Ask("30 82 00 28 02 01 00 04 06 70 75 62 6C 69 63 A0 1B 02 01 05 02 01 00 02 01 00"
                " 30 10 30 82 00 0C 06 08 2B 06 01 02 01 01 05 00 05 00"),
            Ask(kNameQuestion));
}

TEST_F(SmallAgent, GetNextWalksInOrderOfTheArcs) {
  // From 1.3.6.1.2.1.1.5.0 to .6.0, INTEGER 300.
  EXPECT_EQ(Ask("30 26 02 01 00 04 06 70 75 62 6C 69 63 A1 19 02 01 05 02 01 00 02 01 00"
                " 30 0E 30 0C 06 08 2B 06 01 02 01 01 05 00 05 00"),
            "30 28 02 01 00 04 06 70 75 62 6C 69 63 A2 1B 02 01 05 02 01 00 02 01 00"
            " 30 10 30 0E 06 08 2B 06 01 02 01 01 06 00 02 02 01 2C");
  // From 1.3.6.1.2.1.1.6.0 into the private tree; arc 32473 is 81 FD 59.
  EXPECT_EQ(Ask("30 26 02 01 00 04 06 70 75 62 6C 69 63 A1 19 02 01 05 02 01 00 02 01 00"
                " 30 0E 30 0C 06 08 2B 06 01 02 01 01 06 00 05 00"),
            "30 2A 02 01 00 04 06 70 75 62 6C 69 63 A2 1D 02 01 05 02 01 00 02 01 00"
            " 30 12 30 10 06 0B 2B 06 01 04 01 81 FD 59 83 15 01 02 01 FF");
}

TEST_F(SmallAgent, GetNextBehindTheLastObjectIsNoSuchName) {
  // 1.3.6.1.4.1.32473.405.1 comes back as it was asked, with error-status 2 and error-index 1.
  EXPECT_EQ(Ask("30 29 02 01 00 04 06 70 75 62 6C 69 63 A1 1C 02 01 05 02 01 00 02 01 00"
                " 30 11 30 0F 06 0B 2B 06 01 04 01 81 FD 59 83 15 01 05 00"),
            "30 29 02 01 00 04 06 70 75 62 6C 69 63 A2 1C 02 01 05 02 01 02 02 01 01"
            " 30 11 30 0F 06 0B 2B 06 01 04 01 81 FD 59 83 15 01 05 00");
}

TEST_F(SmallAgent, TheSecondBindingAtFaultIsNamedByIndex2) {
  // .5.0 and .9.0: none of the two is answered.
  EXPECT_EQ(Ask("30 34 02 01 00 04 06 70 75 62 6C 69 63 A0 27 02 01 05 02 01 00 02 01 00"
                " 30 1C 30 0C 06 08 2B 06 01 02 01 01 05 00 05 00"
                " 30 0C 06 08 2B 06 01 02 01 01 09 00 05 00"),
            "30 34 02 01 00 04 06 70 75 62 6C 69 63 A2 27 02 01 05 02 01 02 02 01 02"
            " 30 1C 30 0C 06 08 2B 06 01 02 01 01 05 00 05 00"
            " 30 0C 06 08 2B 06 01 02 01 01 09 00 05 00");
}

TEST_F(SmallAgent, SetWritesAndEchoes) {
  EXPECT_EQ(Ask("30 28 02 01 00 04 06 70 75 62 6C 69 63 A3 1B 02 01 05 02 01 00 02 01 00"
                " 30 10 30 0E 06 08 2B 06 01 02 01 01 05 00 04 02 68 69"),
            "30 28 02 01 00 04 06 70 75 62 6C 69 63 A2 1B 02 01 05 02 01 00 02 01 00"
            " 30 10 30 0E 06 08 2B 06 01 02 01 01 05 00 04 02 68 69");
  EXPECT_EQ(name_, "hi");
}

TEST_F(SmallAgent, SetOfAWrongTypeIsBadValueAndChangesNothing) {
  EXPECT_EQ(Ask("30 27 02 01 00 04 06 70 75 62 6C 69 63 A3 1A 02 01 05 02 01 00 02 01 00"
                " 30 0F 30 0D 06 08 2B 06 01 02 01 01 05 00 02 01 07"),
            "30 27 02 01 00 04 06 70 75 62 6C 69 63 A2 1A 02 01 05 02 01 03 02 01 01"
            " 30 0F 30 0D 06 08 2B 06 01 02 01 01 05 00 02 01 07");
  EXPECT_EQ(name_, "dev");
}

TEST_F(SmallAgent, SetWithOneReadOnlyObjectWritesNone) {
  // .5.0 := "hi", .6.0 := 7; the second is read-only.
  EXPECT_EQ(Ask("30 37 02 01 00 04 06 70 75 62 6C 69 63 A3 2A 02 01 05 02 01 00 02 01 00"
                " 30 1F 30 0E 06 08 2B 06 01 02 01 01 05 00 04 02 68 69"
                " 30 0D 06 08 2B 06 01 02 01 01 06 00 02 01 07"),
            "30 37 02 01 00 04 06 70 75 62 6C 69 63 A2 2A 02 01 05 02 01 02 02 01 02"
            " 30 1F 30 0E 06 08 2B 06 01 02 01 01 05 00 04 02 68 69"
            " 30 0D 06 08 2B 06 01 02 01 01 06 00 02 01 07");
  EXPECT_EQ(name_, "dev");
}

TEST_F(SmallAgent, WhatIsNoRequestOfOursIsNotAnswered) {
  const struct {
    const char* why;
    const char* message;
  } rows[] = {
      {"version 1 is SNMPv2c",
       "30 26 02 01 01 04 06 70 75 62 6C 69 63 A0 19 02 01 05 02 01 00 02 01 00"
       " 30 0E 30 0C 06 08 2B 06 01 02 01 01 05 00 05 00"},
      {"another community",
       "30 26 02 01 00 04 06 50 75 62 6C 69 63 A0 19 02 01 05 02 01 00 02 01 00"
       " 30 0E 30 0C 06 08 2B 06 01 02 01 01 05 00 05 00"},
      {"a response",
       "30 26 02 01 00 04 06 70 75 62 6C 69 63 A2 19 02 01 05 02 01 00 02 01 00"
       " 30 0E 30 0C 06 08 2B 06 01 02 01 01 05 00 05 00"},
      {"indefinite length",
       "30 80 02 01 00 04 06 70 75 62 6C 69 63 A0 19 02 01 05 02 01 00 02 01 00"
       " 30 0E 30 0C 06 08 2B 06 01 02 01 01 05 00 05 00 00 00"},
      {"a request-id of five octets",
       "30 2A 02 01 00 04 06 70 75 62 6C 69 63 A0 1D 02 05 00 00 00 00 05 02 01 00 02 01 00"
       " 30 0E 30 0C 06 08 2B 06 01 02 01 01 05 00 05 00"},
      {"an OID that ends in the middle of an arc",
       "30 26 02 01 00 04 06 70 75 62 6C 69 63 A0 19 02 01 05 02 01 00 02 01 00"
       " 30 0E 30 0C 06 08 2B 06 01 02 01 01 05 80 05 00"},
      {"an empty OID",
       "30 1E 02 01 00 04 06 70 75 62 6C 69 63 A0 11 02 01 05 02 01 00 02 01 00"
       " 30 06 30 04 06 00 05 00"},
      {"nothing", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(Ask(row.message), "none") << row.why;
}

TEST_F(SmallAgent, NoTruncationAndNoChangedByteIsReadPastItsEnd) {
  const Bytes whole = FromHex(kNameQuestion);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    // Of exactly its size, so that the sanitizers see any read past it.
    const std::unique_ptr<std::uint8_t[]> cut(new std::uint8_t[size]);
    std::copy_n(whole.begin(), size, cut.get());
    EXPECT_FALSE(agent_.Answer({cut.get(), size})) << size;
  }
  std::size_t answered = 0;
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (int value = 0; value < 256; ++value) {
      Bytes changed = whole;
      changed[i] = static_cast<std::uint8_t>(value);
      answered += agent_.Answer(changed).has_value();
    }
  }
  EXPECT_GT(answered, whole.size());  // at least the unchanged ones
}

TEST_F(SmallAgent, AnAnswerThatIsTooLargeIsTooBig) {
  agent_.Add("1.3.6.1.2.1.1.1.0",
             {[] { return TextValue(std::string(2000, 'x')); }, nullptr, nullptr});
  EXPECT_EQ(Ask("30 26 02 01 00 04 06 70 75 62 6C 69 63 A0 19 02 01 05 02 01 00 02 01 00"
                " 30 0E 30 0C 06 08 2B 06 01 02 01 01 01 00 05 00"),
            "30 26 02 01 00 04 06 70 75 62 6C 69 63 A2 19 02 01 05 02 01 01 02 01 00"
            " 30 0E 30 0C 06 08 2B 06 01 02 01 01 01 00 05 00");
}

TEST(BerVectors, Integers) {
  const struct {
    std::int32_t value;
    const char* contents;
  } rows[] = {{0, "00"},
              {127, "7F"},
              {128, "00 80"},
              {255, "00 FF"},
              {256, "01 00"},
              {-1, "FF"},
              {-128, "80"},
              {-129, "FF 7F"},
              {32768, "00 80 00"},
              {-32769, "FF 7F FF"},
              {2147483647, "7F FF FF FF"},
              {-2147483647 - 1, "80 00 00 00"}};
  for (const auto& row : rows) {
    EXPECT_EQ(ToHex(BerIntegerContents(row.value)), row.contents) << row.value;
    EXPECT_EQ(ParseBerInteger(FromHex(row.contents)), row.value) << row.contents;
  }
  EXPECT_FALSE(ParseBerInteger({}));
  EXPECT_FALSE(ParseBerInteger(FromHex("00 00 00 00 01")));
  EXPECT_EQ(ToHex(BerUnsignedContents(0x80000000)), "00 80 00 00 00");
  EXPECT_EQ(ToHex(BerUnsignedContents(0xFFFFFFFF)), "00 FF FF FF FF");
}

TEST(BerVectors, Oids) {
  const struct {
    const char* text;
    const char* contents;
  } rows[] = {{"1.3.6.1.4.1.32473.405.1.1.1.3", "2B 06 01 04 01 81 FD 59 83 15 01 01 01 03"},
              {"1.3.127", "2B 7F"},
              {"1.3.128", "2B 81 00"},
              {"2.999.3", "88 37 03"},
              {"0.39", "27"},
              {"1.3.4294967295", "2B 8F FF FF FF 7F"}};
  for (const auto& row : rows) {
    const auto oid = ParseDottedOid(row.text);
    ASSERT_TRUE(oid) << row.text;
    EXPECT_EQ(ToHex(BerOidContents(*oid)), row.contents) << row.text;
    EXPECT_EQ(ParseBerOid(FromHex(row.contents)), *oid) << row.text;
  }
  EXPECT_FALSE(ParseBerOid(FromHex("2B 90 80 80 80 00")));  // an arc of 33 bits
  EXPECT_FALSE(ParseBerOid(Bytes(200, 1)));                 // more than 128 arcs
  for (const char* bad :
       {"", "1", "1.", ".1.3", "1..3", "3.1", "1.40", "1.3.4294967296", "1.3.x"}) {
    EXPECT_FALSE(ParseDottedOid(bad)) << bad;
  }
}

TEST(BerVectors, Lengths) {
  const struct {
    std::size_t length;
    const char* header;
  } rows[] = {{0, "04 00"},           {127, "04 7F"},
              {128, "04 81 80"},      {200, "04 81 C8"},
              {255, "04 81 FF"},      {256, "04 82 01 00"},
              {65535, "04 82 FF FF"}, {65536, "04 84 00 01 00 00"}};
  for (const auto& row : rows) {
    Bytes built;
    AppendBerItem(built, kBerOctetString, Bytes(row.length, 0xAA));
    const Bytes header = FromHex(row.header);
    EXPECT_EQ(ToHex({built.begin(), built.begin() + static_cast<std::ptrdiff_t>(header.size())}),
              row.header);
    ByteReader reader(built.data(), built.size());
    const auto item = TakeBerItem(reader);
    ASSERT_TRUE(item) << row.length;
    EXPECT_EQ(item->contents.size(), row.length);
    EXPECT_EQ(reader.Left(), 0u);
  }
  const char* const bad[] = {"1F 01 00", "04 80 00 00",       "04 85 00 00 00 00 00",
                             "04 02 00", "04 84 FF FF FF FF", "04",
                             "04 82 01"};
  for (const char* message : bad) {
    const Bytes bytes = FromHex(message);
    ByteReader reader(bytes.data(), bytes.size());
    EXPECT_FALSE(TakeBerItem(reader)) << message;
  }
}

}  // namespace
}  // namespace vox::sim
