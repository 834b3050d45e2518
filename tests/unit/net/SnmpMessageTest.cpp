// Whole SNMP messages, built and parsed.
#include "vox/drivers/net/NetworkComm/wnxsnmp.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/support/SnmpMessage.h"
#include "tests/unit/net/Allocations.h"

namespace vox {
namespace {

using namespace test;

// GetRequest of sysName, community "public", request-id 1.
const char* const kGetRequest =
    "30 82 00 28 02 01 00 04 06 70 75 62 6C 69 63 A0 1B 02 01 01 02 01 00 02 01 00 "
    "30 10 30 82 00 0C 06 08 2B 06 01 02 01 01 05 00 05 00";

const Arcs kShort = {1, 3};  // one octet on the wire

Bytes ValueOf(const snmp_val_list& binding) {
  const std::uint8_t* bytes = binding.uniVal.pbyData;
  return bytes ? Bytes(bytes, bytes + binding.nValSize) : Bytes{};
}

// ---- building

TEST(SnmpBuild, GetRequest) {
  Message request(0xA0);
  request.Binding(kSysName, 0x05);
  EXPECT_EQ(ToHex(request.Built()), kGetRequest);
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
    Bytes wanted = Hex(kGetRequest);
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
    set.Binding(kShort, row.tag, row.value);
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
    set.Binding(kShort, row.tag, row.value);
    EXPECT_TRUE(set.Built().empty()) << row.reason;
  }
}

TEST(SnmpBuild, SizeWithoutBytesIsRefused) {
  Message set(0xA3);
  set.Binding(kShort, 0x04);
  for (const std::int32_t size : {1, -1}) {
    set.LastBinding().nValSize = size;
    EXPECT_TRUE(set.Built().empty()) << size;
  }
  Message oidless(0xA0);
  oidless.Binding(kShort, 0x05);
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
    return probe.Binding(kShort, 0x04, Bytes(1000)).Built().size() - 1000;
  }();
  set.Binding(kShort, 0x04, Bytes(1536 - overhead));
  EXPECT_EQ(set.Built(4096).size(), 1536u);
  larger.Binding(kShort, 0x04, Bytes(1536 - overhead + 1));
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
      snmp_build_var_op(buffer.data(), &left, kShort.data(),
                        static_cast<std::int32_t>(kShort.size()), 0x04, value.data(), Size(value));
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

// ---- parsing

TEST(SnmpParse, GetRequest) {
  const PduOwner pdu = Parse(Hex(kGetRequest), 0x0100007F);
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->nVersion, 0);
  EXPECT_EQ(pdu->IPAddress.ulAddress, 0x0100007Fu);
  EXPECT_STREQ(pdu->pcComName, "public");
  EXPECT_EQ(pdu->nComnameLen, 6);
  EXPECT_EQ(pdu->byCommand, 0xA0);
  EXPECT_EQ(pdu->nReqID, 1);
  EXPECT_EQ(pdu->nErrStat, 0);
  EXPECT_EQ(pdu->nErrIndex, 0);
  const snmp_val_list* const binding = pdu->lpSnmpValList;
  ASSERT_TRUE(binding);
  EXPECT_EQ(Arcs(binding->pdwOid, binding->pdwOid + binding->nOidLen), kSysName);
  EXPECT_EQ(binding->byDataType, 0x05);
  EXPECT_EQ(binding->nValSize, 0);
  EXPECT_EQ(binding->lpNextSnmpValList, nullptr);
}

TEST(SnmpParse, WhatWasBuiltComesBack) {
  Message built(0xA2);
  built.Id(-70000)
      .Binding(kSysName, 0x04, Text("a name"))
      .Binding({1, 3, 127, 4294967295u}, 0x02, Memory<std::int32_t>(-5))
      .Binding(kShort, 0x06, MemoryOf({1, 3, 6, 1, 32473}))
      .Binding(kShort, 0x40, {10, 1, 2, 3})
      .Binding(kShort, 0x41, Memory<std::uint32_t>(0xFF7FFFFF))
      .Binding(kShort, 0x42, Memory<std::uint32_t>(0x80000000))
      .Binding(kShort, 0x43, Memory<std::uint32_t>(0))
      .Binding(kShort, 0x04)
      .Binding(kShort, 0x05);
  built.Record().nErrStat = 5;
  built.Record().nErrIndex = 2;
  const PduOwner pdu = Parse(built.Built());
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->nReqID, -70000);
  EXPECT_EQ(pdu->nErrStat, 5);
  EXPECT_EQ(pdu->nErrIndex, 2);
  const snmp_val_list* wanted = built.Record().lpSnmpValList;
  for (const snmp_val_list* got = pdu->lpSnmpValList; got; got = got->lpNextSnmpValList) {
    ASSERT_TRUE(wanted);
    EXPECT_EQ(Arcs(got->pdwOid, got->pdwOid + got->nOidLen),
              Arcs(wanted->pdwOid, wanted->pdwOid + wanted->nOidLen));
    EXPECT_EQ(got->byDataType, wanted->byDataType);
    EXPECT_EQ(got->nValSize, wanted->nValSize);
    EXPECT_EQ(ToHex(ValueOf(*got)), ToHex(ValueOf(*wanted)));
    wanted = wanted->lpNextSnmpValList;
  }
  EXPECT_EQ(wanted, nullptr);
}

TEST(SnmpParse, StringsGetANulThatIsNotCounted) {
  for (const std::uint8_t tag : {0x04, 0x40}) {
    const PduOwner pdu = Parse(Response(BindingItem(kSysNameItem, Item(tag, Text("abc")))));
    ASSERT_TRUE(pdu);
    EXPECT_EQ(pdu->lpSnmpValList->nValSize, 3);
    EXPECT_EQ(pdu->lpSnmpValList->uniVal.pbyData[3], 0);
  }
}

TEST(SnmpParse, Trap) {
  const Bytes trap = MessageItem(
      0xA4, Hex("06 02 2B 06 40 02 C0 A8 02 01 06 02 01 03 43 04 80 00 00 00") + Item(0x30, {}));
  const PduOwner pdu = Parse(trap);
  ASSERT_TRUE(pdu);
  EXPECT_EQ(Arcs(pdu->pdwEntOid, pdu->pdwEntOid + pdu->nEntOidLen), (Arcs{1, 3, 6}));
  EXPECT_EQ(ToHex(pdu->AgentAddress.byAgentAddress, 4), "C0 A8 00 00") << "the rest is zero";
  EXPECT_EQ(pdu->nTrapType, 6);
  EXPECT_EQ(pdu->nSpecificType, 3);
  EXPECT_EQ(pdu->ulTime, 0x80000000u);
}

TEST(SnmpParse, OwnTrapComesBack) {
  Message trap(0xA4);
  Arcs enterprise{1, 3, 6};
  trap.Record().pdwEntOid = enterprise.data();
  trap.Record().nEntOidLen = 3;
  trap.Record().ulTime = 4000000000u;
  const PduOwner pdu = Parse(trap.Built());
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->ulTime, 4000000000u);
  EXPECT_EQ(pdu->nEntOidLen, 3);
}

TEST(SnmpParse, AnyPduTagIsAccepted) {
  const Bytes fields = Integer(1) + Integer(0) + Integer(0) + Item(0x30, {});
  for (const std::uint8_t tag : {0xA0, 0xA3, 0xA7, 0x30, 0x04}) {
    const PduOwner pdu = Parse(MessageItem(tag, fields));
    ASSERT_TRUE(pdu) << int{tag};
    EXPECT_EQ(pdu->byCommand, tag);
  }
}

TEST(SnmpParse, OtherTypesKeepTagAndSizeWithoutBytes) {
  for (const std::uint8_t tag : {0x44, 0x46, 0x80, 0x81, 0x82, 0x03}) {
    const PduOwner pdu = Parse(Response(BindingItem(kSysNameItem, Item(tag, Bytes(7, 0xAB)))));
    ASSERT_TRUE(pdu) << int{tag};
    EXPECT_EQ(pdu->lpSnmpValList->byDataType, tag);
    EXPECT_EQ(pdu->lpSnmpValList->nValSize, 7);
    EXPECT_EQ(pdu->lpSnmpValList->uniVal.pbyData, nullptr);
  }
}

TEST(SnmpParse, CommunityOf128BytesIsTheLongest) {
  const auto message = [](std::size_t length) {
    return MessageItem(0xA2, Integer(1) + Integer(0) + Integer(0) + Item(0x30, {}), Integer(0),
                       Item(0x04, Bytes(length, 'c')));
  };
  const PduOwner pdu = Parse(message(128));
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->nComnameLen, 128);
  EXPECT_EQ(std::string(pdu->pcComName), std::string(128, 'c'));
  EXPECT_FALSE(Parse(message(129)));
}

TEST(SnmpParse, ArcsBeyond128AreDropped) {
  const PduOwner pdu = Parse(Response(BindingItem(Item(0x06, Bytes(200, 1)), Hex("05 00"))));
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->lpSnmpValList->nOidLen, 128);
}

TEST(SnmpParse, BytesBehindTheMessageAreIgnored) {
  EXPECT_TRUE(Parse(Hex(kGetRequest) + Hex("DE AD")));
}

TEST(SnmpParse, MalformedGivesNone) {
  const Bytes fields = Integer(1) + Integer(0) + Integer(0);
  const Bytes binding = BindingItem(kSysNameItem, Hex("05 00"));
  const std::pair<Bytes, const char*> rows[] = {
      {{}, "empty"},
      {Item(0x31, Integer(0) + Item(0x04, {}) + Item(0xA2, fields + Item(0x30, binding))),
       "the outer tag is no SEQUENCE"},
      {MessageItem(0xA2, fields + Item(0x30, binding), Integer(1)), "SNMPv2c"},
      {MessageItem(0xA2, fields + Item(0x30, binding), Item(0x04, {0})), "the version is text"},
      {MessageItem(0xA2, fields + Item(0x30, binding), Integer(0), Integer(5)),
       "the community is a number"},
      {Item(0x30, Integer(0) + Item(0x04, {})), "no PDU"},
      {MessageItem(0xA2, Integer(1) + Integer(0)), "error-index is missing"},
      {MessageItem(0xA2, Item(0x04, {1}) + Integer(0) + Integer(0) + Item(0x30, binding)),
       "the request-id is text"},
      {MessageItem(0xA2, fields), "no binding list"},
      {MessageItem(0xA2, fields + Item(0x31, binding)), "the binding list is no SEQUENCE"},
      {MessageItem(0xA2, fields + Item(0x30, {0x30})), "a binding of one byte"},
      {MessageItem(0xA2, fields + Item(0x30, Item(0x31, kSysNameItem + Hex("05 00")))),
       "a binding is no SEQUENCE"},
      {Response(BindingItem(Item(0x04, {1}), Hex("05 00"))), "a binding without an OID"},
      {Response(BindingItem(kSysNameItem, {})), "a binding without a value"},
      {Response(BindingItem(kSysNameItem, Hex("02 00"))), "an INTEGER without octets"},
      {Response(BindingItem(kSysNameItem, Hex("02 05 00 00 00 00 01"))), "an INTEGER of five"},
      {Response(BindingItem(kSysNameItem, Hex("42 05 01 00 00 00 00"))), "a Gauge32 above 32 bits"},
      {Response(BindingItem(kSysNameItem, Hex("06 01 80"))), "an OID value that is cut off"},
      {Response(BindingItem(kSysNameItem, Hex("05 01 00"))), "a NULL with contents"},
      {Response(BindingItem(kSysNameItem, Hex("04 05 61"))), "a value that passes its binding"},
      {Response(binding + Hex("30 00")), "a second binding that is empty"},
      {MessageItem(0xA4, Hex("06 01 2B 40 05 01 02 03 04 05 02 01 06 02 01 00 43 01 00 30 00")),
       "an agent address of five bytes"},
      {MessageItem(0xA4, Hex("06 01 2B 04 04 01 02 03 04 02 01 06 02 01 00 43 01 00 30 00")),
       "an agent address that is no IpAddress"},
      {MessageItem(0xA4, Hex("04 01 2B 40 04 01 02 03 04 02 01 06 02 01 00 43 01 00 30 00")),
       "an enterprise that is no OID"},
      {MessageItem(0xA4, Hex("06 01 2B 40 04 01 02 03 04 02 01 06 02 01 00 30 00")),
       "a trap without time-stamp"},
      {NameResponse(std::string(1600, 'n')), "more than 1,536 bytes"},
  };
  for (const auto& [message, reason] : rows) {
    EXPECT_FALSE(Parse(message)) << reason << ": " << ToHex(message).substr(0, 300);
  }
  EXPECT_FALSE(PduOwner(snmp_parse(nullptr, 10, 0)));
  const std::uint8_t byte = 0x30;
  for (const std::int32_t length : {0, -1}) EXPECT_FALSE(PduOwner(snmp_parse(&byte, length, 0)));
}

TEST(SnmpParse, EveryTruncationGivesNone) {
  const Bytes message = Hex(kGetRequest);
  for (std::size_t length = 0; length < message.size(); ++length) {
    const Bytes cut(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_FALSE(Parse(cut)) << length;
  }
}

// Whatever one wrong byte does to a message, it is refused or makes a record that can be walked.
TEST(SnmpParse, EveryChangeOfOneByteIsSafe) {
  const Bytes message = Hex(kGetRequest);
  int parsed = 0;
  for (std::size_t at = 0; at < message.size(); ++at) {
    for (int value = 0; value < 256; ++value) {
      Bytes changed = message;
      changed[at] = static_cast<std::uint8_t>(value);
      const PduOwner pdu = Parse(changed);
      if (!pdu) continue;
      ++parsed;
      for (const snmp_val_list* got = pdu->lpSnmpValList; got; got = got->lpNextSnmpValList) {
        EXPECT_EQ(Arcs(got->pdwOid, got->pdwOid + got->nOidLen).size(),
                  static_cast<std::size_t>(got->nOidLen));
        EXPECT_EQ(Size(ValueOf(*got)), got->uniVal.pbyData ? got->nValSize : 0);
      }
    }
  }
  EXPECT_GT(parsed, 1000) << "names and numbers may be anything";
}

TEST(SnmpParse, EveryFailedAllocationGivesNone) {
  Message built(0xA2);
  built.Binding(kSysName, 0x04, Text("name"))
      .Binding(kShort, 0x06, MemoryOf({1, 3, 6}))
      .Binding(kShort, 0x42, Memory<std::uint32_t>(1));
  const Bytes message = built.Built();
  int failures = 0;
  for (;; ++failures) {
    const FailingAllocation failing(failures);
    const PduOwner pdu(snmp_parse(message.data(), Size(message), 0));
    if (!failing.HasFailed()) break;
    EXPECT_FALSE(pdu) << "allocation " << failures;
  }
  EXPECT_EQ(failures, 2 + 3 * 3) << "record, community; per binding the element, arcs and value";
}

// ---- memory

TEST(ShiftArray, MovesOverlappingRangesBothWays) {
  Bytes bytes = Hex("01 02 03 04 05 00 00");
  shift_array(bytes.data(), 5, 2);
  EXPECT_EQ(ToHex(bytes), "01 02 01 02 03 04 05");
  shift_array(bytes.data() + 2, 5, -2);
  EXPECT_EQ(ToHex(bytes), "01 02 03 04 05 04 05");
  shift_array(bytes.data(), 0, 5);
  EXPECT_EQ(ToHex(bytes), "01 02 03 04 05 04 05");
}

TEST(FreePdu, ReleasesTheReservedArraysAndAcceptsNone) {
  free_snmp_pdu(nullptr);
  snmp_pdu* const pdu = get_pdu_memory();
  ASSERT_TRUE(pdu);
  std::memset(pdu, 0, sizeof *pdu);
  const std::uint32_t arc = 1;
  for (std::uint32_t** arcs : {&pdu->pdwOidSrc, &pdu->pdwOidDst, &pdu->pdwOidContext}) {
    *arcs = static_cast<std::uint32_t*>(wnx_copy(&arc, sizeof arc));
  }
  free_snmp_pdu(pdu);  // the leak checker tells
}

}  // namespace
}  // namespace vox
