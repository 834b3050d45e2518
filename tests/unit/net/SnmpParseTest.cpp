// SNMP messages, parsed: what anybody may send.
#include "vox/drivers/net/NetworkComm/wnxsnmp.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "tests/support/SnmpMessage.h"

namespace vox {
namespace {

using namespace test;

Bytes ValueOf(const snmp_val_list& binding) {
  const std::uint8_t* bytes = binding.uniVal.pbyData;
  return bytes ? Bytes(bytes, bytes + binding.nValSize) : Bytes{};
}

TEST(SnmpParse, GetRequest) {
  const PduOwner pdu = Parse(kGetRequest, 0x0100007F);
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
      .Binding(kIso3, 0x06, MemoryOf({1, 3, 6, 1, 32473}))
      .Binding(kIso3, 0x40, {10, 1, 2, 3})
      .Binding(kIso3, 0x41, Memory<std::uint32_t>(0xFF7FFFFF))
      .Binding(kIso3, 0x42, Memory<std::uint32_t>(0x80000000))
      .Binding(kIso3, 0x43, Memory<std::uint32_t>(0))
      .Binding(kIso3, 0x04)
      .Binding(kIso3, 0x05);
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
  const Bytes oid = Item(0x06, Bytes(200, 1));
  const PduOwner pdu = Parse(Response(BindingItem(oid, oid)));
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->lpSnmpValList->nOidLen, 128);
  EXPECT_EQ(pdu->lpSnmpValList->nValSize, 4 * 128);
  const PduOwner trap = Parse(MessageItem(
      0xA4, oid + Hex("40 04 01 02 03 04 02 01 06 02 01 00 43 01 00") + Item(0x30, {})));
  ASSERT_TRUE(trap);
  EXPECT_EQ(trap->nEntOidLen, 128);
}

// Each header bounds what it holds; what a sender leaves behind that is no part of the message.
TEST(SnmpParse, BytesBehindAnItemAreIgnored) {
  const Bytes more = Hex("DE AD"), null = Hex("05 00");
  const Bytes fields = Integer(1) + Integer(0) + Integer(0);
  const Bytes list = Item(0x30, BindingItem(kSysNameItem, null));
  const Bytes front = Integer(0) + Item(0x04, Text("public"));
  const std::pair<Bytes, const char*> rows[] = {
      {kGetRequest + more, "the message"},
      {Item(0x30, front + Item(0xA2, fields + list) + more), "the PDU"},
      {MessageItem(0xA2, fields + list + more), "the binding list"},
      {Response(BindingItem(kSysNameItem, null + more)), "a value in its binding"},
  };
  for (const auto& [message, behind] : rows) {
    const PduOwner pdu = Parse(message);
    ASSERT_TRUE(pdu) << behind;
    ASSERT_TRUE(pdu->lpSnmpValList) << behind;
    EXPECT_EQ(pdu->lpSnmpValList->byDataType, 0x05) << behind;
    EXPECT_FALSE(pdu->lpSnmpValList->lpNextSnmpValList) << behind;
  }
}

TEST(SnmpParse, BindingsKeepTheirOrder) {
  Bytes bindings;
  for (std::uint8_t i = 0; i < 5; ++i) {
    bindings = bindings + BindingItem(Item(0x06, {0x2B, i}), Integer(i));
  }
  const PduOwner pdu = Parse(Response(bindings));
  ASSERT_TRUE(pdu);
  std::uint32_t next = 0;
  for (const snmp_val_list* got = pdu->lpSnmpValList; got; got = got->lpNextSnmpValList) {
    EXPECT_EQ(got->pdwOid[2], next);
    EXPECT_EQ(*got->uniVal.pnInt, static_cast<std::int32_t>(next++));
  }
  EXPECT_EQ(next, 5u);
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
  const Bytes message = kGetRequest;
  for (std::size_t length = 0; length < message.size(); ++length) {
    const Bytes cut(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_FALSE(Parse(cut)) << length;
  }
}

// Whatever one wrong byte does to a message, it is refused or makes a record that can be walked.
TEST(SnmpParse, EveryChangeOfOneByteIsSafe) {
  const Bytes message = kGetRequest;
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
      .Binding(kIso3, 0x06, MemoryOf({1, 3, 6}))
      .Binding(kIso3, 0x42, Memory<std::uint32_t>(1));
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
