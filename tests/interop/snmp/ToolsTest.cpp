// net-snmp's tools query an agent made of our codec, and send what our codec builds.
#include <string>

#include <gtest/gtest.h>

#include "tests/interop/snmp/Canonical.h"
#include "tests/interop/snmp/NetSnmp.h"
#include "tests/interop/snmp/TestAgent.h"
#include "vox/drivers/net/NetworkComm/wnxsimple.h"

namespace vox {
namespace {

using namespace test;

const Arcs kBase = {1, 3, 6, 1, 4, 1, 32473, 1};
const std::string kTree = ".1.3.6.1.4.1.32473.1";

Arcs Below(const Arcs& arcs, std::uint32_t arc) {
  Arcs below = arcs;
  below.insert(below.end(), {arc, 0});
  return below;
}

Objects OneOfEach() {
  return {
      {Below(kBase, 1), {0x02, Memory<std::int32_t>(-129)}},
      {Below(kBase, 2), {0x42, Memory<std::uint32_t>(4000000000)}},
      {Below(kBase, 3), {0x04, Text("QD-7100")}},
      {Below(kBase, 4), {0x06, MemoryOf({1, 3, 6, 1, 4, 1, 32473, 405})}},
      {Below(kBase, 5), {0x41, Memory<std::uint32_t>(2147483648)}},
      {Below(kBase, 6), {0x43, Memory<std::uint32_t>(123456)}},
      {Below(kBase, 7), {0x40, {10, 1, 2, 3}}},
  };
}

const char* const kWalk =
    ".1.3.6.1.4.1.32473.1.1.0 = INTEGER: -129\n"
    ".1.3.6.1.4.1.32473.1.2.0 = Gauge32: 4000000000\n"
    ".1.3.6.1.4.1.32473.1.3.0 = STRING: \"QD-7100\"\n"
    ".1.3.6.1.4.1.32473.1.4.0 = OID: .1.3.6.1.4.1.32473.405\n"
    ".1.3.6.1.4.1.32473.1.5.0 = Counter32: 2147483648\n"
    ".1.3.6.1.4.1.32473.1.6.0 = Timeticks: (123456) 0:20:34.56\n"
    ".1.3.6.1.4.1.32473.1.7.0 = IpAddress: 10.1.2.3";

// OurMessage builds the request that a tool sent from a flat record, with the tool's request-id.
Bytes OurMessage(std::uint8_t command, const std::string& community, const std::string& oid,
                 std::uint8_t tag, const Bytes& value, std::int32_t id) {
  const SimpleOwner simple = Asking(oid, community, command);
  simple->lpSnmpSimpleVal[0].byDataType = tag;
  simple->lpSnmpSimpleVal[0].nValSize = Size(value);
  if (!value.empty()) {
    std::memcpy(simple->lpSnmpSimpleVal[0].SnmpValBuf, value.data(), value.size());
  }
  const PduOwner pdu(snmp_simple2standard(simple.get()));
  Bytes message(1536);
  std::int32_t length = Size(message);
  if (!pdu) return {};
  pdu->nReqID = id;
  if (snmp_build(pdu.get(), message.data(), &length) != 0) return {};
  message.resize(static_cast<std::size_t>(length));
  return message;
}

// IsWhatWeSend compares a tool's request with ours for the same question.
void IsWhatWeSend(const Bytes& theirs, std::uint8_t command, const std::string& community,
                  const std::string& oid, std::uint8_t tag = 0, const Bytes& value = {}) {
  const PduOwner parsed = Parse(theirs);
  ASSERT_TRUE(parsed) << ToHex(theirs);
  const Bytes ours = OurMessage(command, community, oid, tag, value, parsed->nReqID);
  EXPECT_FALSE(Canonical(ours).empty());
  EXPECT_EQ(ToHex(Canonical(ours)), ToHex(Canonical(theirs)));
}

TEST(NetSnmpTools, GetEveryType) {
  const TestAgent agent(OneOfEach());
  std::string arguments;
  for (int i = 1; i <= 7; ++i) arguments += kTree + "." + std::to_string(i) + ".0 ";
  EXPECT_EQ(RunTool("snmpget -c public", agent.Port(), arguments), kWalk);
}

TEST(NetSnmpTools, WalkToTheEnd) {
  const TestAgent agent(OneOfEach());
  EXPECT_EQ(RunTool("snmpwalk -c public", agent.Port(), kTree),
            std::string(kWalk) + "\nEnd of MIB");
}

TEST(NetSnmpTools, GetNext) {
  const TestAgent agent(OneOfEach());
  EXPECT_EQ(RunTool("snmpgetnext -c public", agent.Port(), kTree + ".3"),
            ".1.3.6.1.4.1.32473.1.3.0 = STRING: \"QD-7100\"");
}

TEST(NetSnmpTools, SetAndReadBack) {
  const TestAgent agent(OneOfEach());
  const std::string oid = kTree + ".3.0";
  const std::string answer = oid + " = STRING: \"renamed\"";
  EXPECT_EQ(RunTool("snmpset -c private", agent.Port(), oid + " s renamed"), answer);
  EXPECT_EQ(RunTool("snmpget -c public", agent.Port(), oid), answer);
}

TEST(NetSnmpTools, SeeARefusal) {
  const TestAgent agent(OneOfEach());
  const std::string printed = RunTool("snmpget -c public", agent.Port(), kTree + ".77.0");
  EXPECT_NE(printed.find("(noSuchName)"), std::string::npos) << printed;
}

TEST(NetSnmpTools, GetIsWhatWeSend) {
  TestAgent agent(OneOfEach());
  RunTool("snmpget -c public", agent.Port(), kTree + ".1.0");
  IsWhatWeSend(agent.Asked(), 0xA0, "", "1.3.6.1.4.1.32473.1.1.0");
}

TEST(NetSnmpTools, GetNextIsWhatWeSend) {
  TestAgent agent(OneOfEach());
  RunTool("snmpgetnext -c 'another community'", agent.Port(), kTree);
  IsWhatWeSend(agent.Asked(), 0xA1, "another community", "1.3.6.1.4.1.32473.1");
}

// The first two arcs share one sub-identifier, of several octets where they need it.
TEST(NetSnmpTools, OidsOfEveryShapeAreWhatWeSend) {
  for (const char* oid : {"0.0", "1.3", "1.3.126.127.128", "1.3.16383.16384.2097151.2097152",
                          "1.3.4294967295", "2.39.5", "2.47.5", "2.48.5", "2.100.3", "2.999.3"}) {
    TestAgent agent(Objects{});
    RunTool("snmpget -c public", agent.Port(), std::string(".") + oid);
    IsWhatWeSend(agent.Asked(), 0xA0, "public", oid);
  }
}

TEST(NetSnmpTools, RequestOfSeveralObjectsIsWhatWeSend) {
  TestAgent agent(OneOfEach());
  RunTool("snmpget -c public", agent.Port(), kTree + ".7.0 " + kTree + ".1.0");
  const Bytes theirs = agent.Asked();
  const PduOwner parsed = Parse(theirs);
  ASSERT_TRUE(parsed);
  Message ours(WNXSNMP_PDU_GET);
  ours.Id(parsed->nReqID).Binding(Below(kBase, 7), 0x05).Binding(Below(kBase, 1), 0x05);
  EXPECT_EQ(ToHex(Canonical(ours.Built())), ToHex(Canonical(theirs)));
}

// A trap has one form but for its time-stamp, which we tag as an INTEGER.
TEST(NetSnmpTools, TrapIsReadAndIsWhatWeSend) {
  UdpPeer peer(Silent());
  RunTool("snmptrap -c public", peer.Port(),
          ".1.3.6.1.4.1.32473 192.168.0.5 6 300 8388608 " + kTree + ".1.0 i -129");
  const auto traps = peer.AwaitRequests(1);
  ASSERT_EQ(traps.size(), 1u);
  const PduOwner parsed = Parse(traps[0]);
  ASSERT_TRUE(parsed) << ToHex(traps[0]);
  Arcs enterprise(parsed->pdwEntOid, parsed->pdwEntOid + parsed->nEntOidLen);
  EXPECT_EQ(enterprise, (Arcs{1, 3, 6, 1, 4, 1, 32473}));
  EXPECT_EQ(ToHex(parsed->AgentAddress.byAgentAddress, 4), "C0 A8 00 05");
  EXPECT_EQ(parsed->nTrapType, 6);
  EXPECT_EQ(parsed->nSpecificType, 300);
  EXPECT_EQ(parsed->ulTime, 8388608u);

  Message ours(WNXSNMP_PDU_TRAP);
  ours.Binding(Below(kBase, 1), 0x02, Memory<std::int32_t>(-129));
  ours.Record().pdwEntOid = enterprise.data();
  ours.Record().nEntOidLen = static_cast<std::int32_t>(enterprise.size());
  ours.Record().AgentAddress = parsed->AgentAddress;
  ours.Record().nTrapType = 6;
  ours.Record().nSpecificType = 300;
  ours.Record().ulTime = 8388608;
  std::string wanted = ToHex(Canonical(traps[0]));
  const std::string time = " 43 04 00 80 00 00";
  ASSERT_NE(wanted.find(time), std::string::npos) << wanted;
  wanted.replace(wanted.find(time), time.size(), " 02 04 00 80 00 00");
  EXPECT_EQ(ToHex(Canonical(ours.Built())), wanted);
}

TEST(NetSnmpTools, SetIsWhatWeSend) {
  struct Row {
    const char* argument;
    std::uint8_t tag;
    Bytes value;
  };
  const Row rows[] = {
      {"i 0", 0x02, Memory<std::int32_t>(0)},
      {"i 127", 0x02, Memory<std::int32_t>(127)},
      {"i 128", 0x02, Memory<std::int32_t>(128)},
      {"i 32768", 0x02, Memory<std::int32_t>(32768)},
      {"i -1", 0x02, Memory<std::int32_t>(-1)},
      {"i -128", 0x02, Memory<std::int32_t>(-128)},
      {"i -129", 0x02, Memory<std::int32_t>(-129)},
      {"i -32769", 0x02, Memory<std::int32_t>(-32769)},
      {"i 2147483647", 0x02, Memory(INT32_MAX)},
      {"i -2147483648", 0x02, Memory(INT32_MIN)},
      {"u 0", 0x42, Memory<std::uint32_t>(0)},
      {"u 255", 0x42, Memory<std::uint32_t>(255)},
      {"u 2147483648", 0x42, Memory<std::uint32_t>(0x80000000)},
      {"u 4286578687", 0x42, Memory<std::uint32_t>(0xFF7FFFFF)},
      {"t 8388608", 0x43, Memory<std::uint32_t>(8388608)},
      {"s 'a text'", 0x04, Text("a text")},
      {"x 00FF80", 0x04, {0x00, 0xFF, 0x80}},
      {"a 192.168.0.5", 0x40, {192, 168, 0, 5}},
      {"o .1.3.6.1.4.1.32473.405", 0x06, MemoryOf({1, 3, 6, 1, 4, 1, 32473, 405})},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.argument);
    TestAgent agent(Objects{{Below(kBase, 1), {0x05, {}}}});
    RunTool("snmpset -c private", agent.Port(), kTree + ".1.0 " + row.argument);
    IsWhatWeSend(agent.Asked(), 0xA3, "private", "1.3.6.1.4.1.32473.1.1.0", row.tag, row.value);
  }
}

// Our encoder writes the largest unsigned values short; the full form is still read right.
TEST(NetSnmpTools, LargestUnsignedValueIsReadButNotWritten) {
  TestAgent agent(Objects{{Below(kBase, 1), {0x05, {}}}});
  RunTool("snmpset -c private", agent.Port(), kTree + ".1.0 u 4294967295");
  const PduOwner parsed = Parse(agent.Asked());
  ASSERT_TRUE(parsed);
  const snmp_val_list& binding = *parsed->lpSnmpValList;
  EXPECT_EQ(ToHex(binding.uniVal.pbyData, 4), "FF FF FF FF");
  const Bytes ours = OurMessage(0xA3, "private", "1.3.6.1.4.1.32473.1.1.0", 0x42,
                                Memory<std::uint32_t>(0xFFFFFFFF), parsed->nReqID);
  EXPECT_EQ(ToHex(ours).substr(ToHex(ours).size() - 11), "42 02 00 FF");
}

TEST(NetSnmpTools, OidTextIsTheirs) {
  for (const char* oid : {"1.3.6.1.2.1.1.5.0", "1.3.6.1.4.1.32473.405.4.5.1.1.4.1.1",
                          "1.3.4294967295", "2.999.3", "0.0"}) {
    std::uint32_t arcs[128];
    std::int32_t length = 256, count = 128;
    ASSERT_EQ(oid_string2array(oid, &length, arcs, &count), 0);
    char text[256] = ".";
    ASSERT_EQ(oid_array2string(text, sizeof text, arcs, count), 0);
    EXPECT_EQ(text, Translated(std::string(".") + oid));
  }
}

}  // namespace
}  // namespace vox
