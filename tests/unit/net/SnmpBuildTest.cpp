// SNMP messages and their bindings, built.
#include "vox/drivers/net/NetworkComm/wnxsnmp.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "tests/support/SnmpMessage.h"

namespace vox {
namespace {

using namespace test;

TEST(SnmpBuild, GetRequest) {
  Message request(0xA0);
  request.Binding(kSysName, 0x05);
  EXPECT_EQ(ToHex(request.Built()), ToHex(kGetRequest));
}

TEST(SnmpBuild, NeedsNoMoreRoomThanTheMessage) {
  Message request(0xA0);
  request.Binding(kSysName, 0x05);
  EXPECT_EQ(request.Built(44).size(), 44u);
  for (std::int32_t capacity = 1; capacity < 44; ++capacity) {
    EXPECT_TRUE(request.Built(capacity).empty()) << capacity;
  }
}

TEST(SnmpBuild, EveryOtherTagHasTheRequestLayout) {
  for (const std::uint8_t tag : {0xA1, 0xA2, 0xA3, 0xA5, 0x41}) {
    Message request(tag);
    request.Binding(kSysName, 0x05);
    Bytes wanted = kGetRequest;
    wanted[15] = tag;
    EXPECT_EQ(ToHex(request.Built()), ToHex(wanted));
  }
}

TEST(SnmpBuild, StatusAndIndexFollowTheId) {
  Message response(0xA2);
  response.Id(-2).Record().nErrStat = 2;
  response.Record().nErrIndex = 300;
  EXPECT_EQ(ToHex(response.Built()),
            "30 82 00 19 02 01 00 04 06 70 75 62 6C 69 63 A2 0C 02 01 FE 02 01 02 02 02 01 2C "
            "30 00");
}

// The time-stamp goes out as an INTEGER, not as TimeTicks.
TEST(SnmpBuild, TrapHasItsOwnLayout) {
  Message trap(0xA4);
  Arcs enterprise{1, 3, 6, 1, 4, 1, 32473};
  trap.Record().pdwEntOid = enterprise.data();
  trap.Record().nEntOidLen = static_cast<std::int32_t>(enterprise.size());
  const std::uint8_t address[] = {192, 168, 0, 5};
  std::memcpy(trap.Record().AgentAddress.byAgentAddress, address, 4);
  trap.Record().nTrapType = 6;
  trap.Record().nSpecificType = 3;
  trap.Record().ulTime = 0x80000000;
  EXPECT_EQ(ToHex(trap.Built()),
            "30 82 00 2C 02 01 00 04 06 70 75 62 6C 69 63 A4 1F 06 08 2B 06 01 04 01 81 FD 59 "
            "40 04 C0 A8 00 05 02 01 06 02 01 03 02 05 00 80 00 00 00 30 00");
}

TEST(SnmpBuild, EveryTypeOfValue) {
  struct Row {
    std::uint8_t tag;
    Bytes value;
    const char* item;
  };
  const Row rows[] = {
      {0x02, Memory<std::int32_t>(-129), "02 02 FF 7F"},
      {0x04, Text("abc"), "04 03 61 62 63"},
      {0x04, {}, "04 00"},
      {0x05, {}, "05 00"},
      {0x05, Text("ignored"), "05 00"},
      {0x06, MemoryOf({1, 3, 127}), "06 02 2B 7F"},
      {0x06, MemoryOf({1, 3, 127}) + Bytes{9, 9, 9}, "06 02 2B 7F"},
      {0x06, {}, "06 01 00"},
      {0x40, {10, 0, 0, 1}, "40 04 0A 00 00 01"},
      {0x41, Memory<std::uint32_t>(255), "41 02 00 FF"},
      {0x42, Memory<std::uint32_t>(0x80000000), "42 05 00 80 00 00 00"},
      {0x43, Memory<std::uint32_t>(7), "43 01 07"},
  };
  for (const Row& row : rows) {
    Message set(0xA3);
    set.Binding(kIso3, row.tag, row.value);
    const std::string built = ToHex(set.Built());
    const std::string item = std::string("06 01 2B ") + row.item;
    ASSERT_GE(built.size(), item.size());
    EXPECT_EQ(built.substr(built.size() - item.size()), item);
  }
}

TEST(SnmpBuild, ValueThatCannotBeBuiltIsRefused) {
  struct Row {
    std::uint8_t tag;
    Bytes value;
    const char* reason;
  };
  const Row rows[] = {
      {0x02, {1}, "an INTEGER is four bytes in memory"},
      {0x02, Bytes(8), "an INTEGER is four bytes in memory"},
      {0x02, {}, "an INTEGER has a value"},
      {0x42, {1, 2}, "a Gauge32 is four bytes in memory"},
      {0x43, {}, "TimeTicks have a value"},
      {0x44, {1}, "Opaque is not built"},
      {0x46, Bytes(8), "Counter64 is not of version 1"},
      {0x00, {}, "no type"},
      {0x06, Bytes(4 * 600, 1), "more than 512 octets of OID"},
  };
  for (const Row& row : rows) {
    Message set(0xA3);
    set.Binding(kIso3, row.tag, row.value);
    EXPECT_TRUE(set.Built().empty()) << row.reason;
  }
}

TEST(SnmpBuild, SizeWithoutBytesIsRefused) {
  Message set(0xA3);
  set.Binding(kIso3, 0x04);
  for (const std::int32_t size : {1, -1}) {
    set.LastBinding().nValSize = size;
    EXPECT_TRUE(set.Built().empty()) << size;
  }
  Message oidless(0xA0);
  oidless.Binding(kIso3, 0x05);
  oidless.LastBinding().pdwOid = nullptr;
  EXPECT_TRUE(oidless.Built().empty());
}

TEST(SnmpBuild, MissingArgumentsAreRefused) {
  Message request(0xA0);
  std::uint8_t buffer[64];
  std::int32_t length = sizeof buffer;
  EXPECT_EQ(snmp_build(nullptr, buffer, &length), -1);
  EXPECT_EQ(snmp_build(&request.Record(), nullptr, &length), -1);
  EXPECT_EQ(snmp_build(&request.Record(), buffer, nullptr), -1);
  for (std::int32_t none : {0, -1}) EXPECT_EQ(snmp_build(&request.Record(), buffer, &none), -1);
  EXPECT_EQ(snmp_build(&request.Record(), buffer, &length), 0);
}

TEST(SnmpBuild, OnlyVersionOne) {
  Message request(0xA0);
  request.Record().nVersion = 1;
  EXPECT_TRUE(request.Built().empty());
}

TEST(SnmpBuild, WithoutMemoryIsRefused) {
  Message request(0xA0);
  std::uint8_t buffer[64];
  std::int32_t length = sizeof buffer;
  const FailingAllocation failing(0);
  EXPECT_EQ(snmp_build(&request.Record(), buffer, &length), -1);
  EXPECT_TRUE(failing.HasFailed());
}

TEST(SnmpBuild, CommunityOf127IsTheLongest) {
  Message request(0xA0);
  EXPECT_FALSE(request.Community(std::string(127, 'c')).Built().empty());
  EXPECT_TRUE(request.Community(std::string(128, 'c')).Built().empty());
  EXPECT_FALSE(request.Community("").Built().empty());
  request.Record().nComnameLen = -1;
  EXPECT_TRUE(request.Built().empty());
  request.Record().pcComName = nullptr;
  request.Record().nComnameLen = 3;
  EXPECT_TRUE(request.Built().empty());
}

TEST(SnmpBuild, MessageOf1536BytesIsTheLargest) {
  // Everything but the string's bytes takes 52 bytes in a message of this size.
  Message set(0xA3), larger(0xA3);
  const std::size_t overhead = [] {
    Message probe(0xA3);
    return probe.Binding(kIso3, 0x04, Bytes(1000)).Built().size() - 1000;
  }();
  set.Binding(kIso3, 0x04, Bytes(1536 - overhead));
  EXPECT_EQ(set.Built(4096).size(), 1536u);
  larger.Binding(kIso3, 0x04, Bytes(1536 - overhead + 1));
  EXPECT_TRUE(larger.Built(4096).empty());
}

// ---- bindings

// BuiltBinding gives a binding of an OCTET STRING of `size` zeros, whose contents are size + 5
// bytes up to 127, size + 6 up to 255 and size + 7 above.
Bytes BuiltBinding(std::size_t size, std::int32_t room = 2000) {
  Bytes buffer(static_cast<std::size_t>(room), 0xEE);
  buffer.shrink_to_fit();
  const Bytes value(size);
  std::int32_t left = room;
  const std::uint8_t* const end =
      snmp_build_var_op(buffer.data(), &left, kIso3.data(), static_cast<std::int32_t>(kIso3.size()),
                        0x04, value.data(), Size(value));
  if (!end) {
    EXPECT_EQ(left, room);
    return {};
  }
  EXPECT_EQ(end - buffer.data(), room - left);
  buffer.resize(static_cast<std::size_t>(room - left));
  return buffer;
}

TEST(Binding, Contents127StayBehindTheHeader) {
  const Bytes built = BuiltBinding(122);
  EXPECT_EQ(built.size(), 4u + 127u);
  EXPECT_EQ(ToHex(built.data(), 10), "30 82 00 7F 06 01 2B 04 7A 00");
}

// A habit that is kept: the contents move up by one byte, the header does not count it.
TEST(Binding, Contents128MoveUpByOne) {
  const Bytes built = BuiltBinding(123);
  EXPECT_EQ(built.size(), 4u + 1u + 128u);
  EXPECT_EQ(ToHex(built.data(), 10), "30 82 00 80 06 06 01 2B 04 7B");
}

TEST(Binding, Contents255MoveUpByOne) {
  const Bytes built = BuiltBinding(249);
  EXPECT_EQ(built.size(), 4u + 1u + 255u);
  EXPECT_EQ(ToHex(built.data(), 11), "30 82 00 FF 06 06 01 2B 04 81 F9");
}

TEST(Binding, Contents256MoveUpByTwo) {
  const Bytes built = BuiltBinding(250);
  EXPECT_EQ(built.size(), 4u + 2u + 256u);
  EXPECT_EQ(ToHex(built.data(), 12), "30 82 01 00 06 01 06 01 2B 04 81 FA");
}

TEST(Binding, TheMoveNeedsRoomToo) {
  for (const std::size_t size : {10u, 122u, 123u, 249u, 250u}) {
    const std::int32_t needed = Size(BuiltBinding(size));
    EXPECT_EQ(BuiltBinding(size, needed), BuiltBinding(size));
    for (std::int32_t room = 0; room < needed; room += room < needed - 8 ? 7 : 1) {
      EXPECT_TRUE(BuiltBinding(size, room).empty()) << size << " bytes in " << room;
    }
  }
}

TEST(Binding, ValueCursorStandsAtTheItem) {
  const Bytes binding = Hex("30 08 06 01 2B 42 03 01 02 03 EE");
  std::uint32_t arcs[4];
  std::int32_t left = Size(binding), count = 4, size = 0;
  std::uint8_t tag = 0;
  const std::uint8_t* value = nullptr;
  EXPECT_EQ(snmp_parse_var_op(binding.data(), &left, arcs, &count, &tag, &size, &value),
            binding.data() + 10);
  EXPECT_EQ(left, 1);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(tag, 0x42);
  EXPECT_EQ(size, 3);
  EXPECT_EQ(value, binding.data() + 5);
}

// ---- the message header

TEST(MessageHeader, CommunityGetsANulWhereThereIsRoom) {
  const Bytes message = Hex("30 0A 02 01 00 04 03 61 62 63 A0 00");
  std::uint8_t community[8];
  std::memset(community, 0xEE, sizeof community);
  std::int32_t left = Size(message), count = 4, version = -1;
  EXPECT_EQ(snmp_auth_parse(message.data(), &left, community, &count, &version),
            message.data() + 10);
  EXPECT_EQ(left, 2);
  EXPECT_EQ(version, 0);
  EXPECT_EQ(ToHex(community, 5), "61 62 63 00 EE");
  count = 3;
  left = Size(message);
  community[3] = 0xEE;
  ASSERT_TRUE(snmp_auth_parse(message.data(), &left, community, &count, &version));
  EXPECT_EQ(community[3], 0xEE) << "no byte past the capacity";
  count = 2;
  left = Size(message);
  EXPECT_EQ(snmp_auth_parse(message.data(), &left, community, &count, &version), nullptr);
}

TEST(MessageHeader, LengthCountsThreeOctetsOfVersionAndTwoOfTheCommunityHeader) {
  std::uint8_t buffer[32];
  const Bytes community = Text("public");
  std::int32_t left = sizeof buffer;
  EXPECT_EQ(snmp_auth_build(buffer, &left, community.data(), 6, 0, 29), buffer + 15);
  EXPECT_EQ(left, 17);
  EXPECT_EQ(ToHex(buffer, 15), "30 82 00 28 02 01 00 04 06 70 75 62 6C 69 63");
  const auto refused = [&](std::int32_t count, std::int32_t version, std::int32_t pdu_length) {
    std::int32_t room = sizeof buffer;
    const bool none = !snmp_auth_build(buffer, &room, community.data(), count, version, pdu_length);
    return none && room == static_cast<std::int32_t>(sizeof buffer);
  };
  EXPECT_TRUE(refused(6, 200, 29)) << "a version of two octets";
  EXPECT_TRUE(refused(6, 0, -1));
  EXPECT_TRUE(refused(6, 0, 65535)) << "the sum passes two octets of length";
  EXPECT_TRUE(refused(-1, 0, 29));
  EXPECT_TRUE(refused(128, 0, 29));
}

}  // namespace
}  // namespace vox
