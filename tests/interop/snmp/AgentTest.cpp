// Our calls query net-snmp's agent; what it sends is what our codec builds of it.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "tests/interop/snmp/Canonical.h"
#include "tests/interop/snmp/NetSnmp.h"
#include "tests/support/SnmpMessage.h"
#include "tests/support/UdpPeer.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/NetworkComm/tvr302udpsnmp.h"
#include "vox/drivers/net/search.h"

namespace vox {
namespace {

using namespace test;

constexpr const char* kHost = "127.0.0.1";
const std::string kObjects = "1.3.6.1.4.1.32473.1";
const std::string kLongText(200, 'x');  // the binding and all around it need a long length

// Override gives a line of the agent's configuration: an object, its type and its value.
std::string Override(const std::string& object) {
  return "override " + kObjects + "." + object + "\n";
}
std::string Writable(const std::string& object) {
  return "override -rw " + kObjects + "." + object + "\n";
}

const std::string kConfiguration =
    Override("1.0 integer -129") + Override("2.0 uinteger 4000000000") +
    Override("3.0 octet_str \"QD-7100  \"") + Override("4.0 object_id 1.3.6.1.4.1.32473.405") +
    Override("5.0 counter 2147483648") + Override("6.0 timeticks 123456") +
    Writable("8.0 octet_str \"changeable\"") + Writable("9.0 integer 5") +
    Override("10.0 octet_str \"\"") + Override("11.0 octet_str " + kLongText) +
    "override 1.3.6.1.2.1.1.5.0 octet_str \"my  scanner  \"\n";

struct Value {
  std::string oid;
  std::uint8_t tag;
  Bytes bytes;
};

const Value kValues[] = {
    {kObjects + ".1.0", 0x02, Memory<std::int32_t>(-129)},
    {kObjects + ".2.0", 0x42, Memory<std::uint32_t>(4000000000)},
    {kObjects + ".3.0", 0x04, Text("QD-7100  ")},
    {kObjects + ".4.0", 0x06, MemoryOf({1, 3, 6, 1, 4, 1, 32473, 405})},
    {kObjects + ".5.0", 0x41, Memory<std::uint32_t>(2147483648)},
    {kObjects + ".6.0", 0x43, Memory<std::uint32_t>(123456)},
};

class NetSnmpAgent : public ::testing::Test {
 protected:
  // Get gives an object's value, or the call's result as text.
  static std::string Get(const std::string& oid, const char* community = nullptr) {
    Bytes data(256);
    _tagMIBREQ request{};
    std::strcpy(request.oid, oid.c_str());
    request.dataSize = Size(data);
    request.data = data.data();
    const std::int32_t result = SnmpGet(kHost, community, &request);
    if (result != 0) return std::to_string(result);
    return ToHex(data.data(), static_cast<std::size_t>(request.dataSize));
  }
  static std::int32_t Set(const std::string& oid, std::uint8_t tag, Bytes value,
                          const char* community = "private") {
    _tagMIBREQ request{};
    std::strcpy(request.oid, oid.c_str());
    request.dataType = tag;
    request.dataSize = Size(value);
    request.data = value.data();
    return SnmpSet(kHost, community, &request);
  }

  Snmpd agent_{kConfiguration};
  NetSettings settings_{agent_.Port()};
};

TEST_F(NetSnmpAgent, GivesValuesOfEveryType) {
  for (const Value& value : kValues) EXPECT_EQ(Get(value.oid), ToHex(value.bytes)) << value.oid;
}

TEST_F(NetSnmpAgent, GivesAnIpAddress) {
  EXPECT_EQ(Get("1.3.6.1.2.1.4.20.1.1.127.0.0.1"), "7F 00 00 01");
}

TEST_F(NetSnmpAgent, GivesAnEmptyAndALongString) {
  EXPECT_EQ(Get(kObjects + ".10.0"), "");
  EXPECT_EQ(Get(kObjects + ".11.0"), ToHex(Text(kLongText)));
}

TEST_F(NetSnmpAgent, AnswersSeveralQuestionsAtOnce) {
  const SimpleOwner request(WNXSNMP_MallocSnmpSimplePdu(1, 2));
  const SimpleOwner answer(WNXSNMP_MallocSnmpSimplePdu(1, 2));
  request->byCommand = WNXSNMP_PDU_GET;
  for (const int i : {0, 1}) {
    std::strcpy(request->lpSnmpSimpleVal[i].szOid, kValues[i].oid.c_str());
  }
  ASSERT_EQ(snmp_request_simple(kHost, 3, request.get(), answer.get()), 0);
  for (const int i : {0, 1}) {
    const snmp_simple_val& got = answer->lpSnmpSimpleVal[i];
    EXPECT_EQ(got.szOid, kValues[i].oid);
    EXPECT_EQ(got.byDataType, kValues[i].tag);
    EXPECT_EQ(ToHex(got.SnmpValBuf, static_cast<std::size_t>(got.nValSize)),
              ToHex(kValues[i].bytes));
  }
}

TEST_F(NetSnmpAgent, IsWalkedInOrder) {
  std::string oid = kObjects;
  for (const Value& value : kValues) {
    _tagMIBNEXTREQ next{};
    std::strcpy(next.oid, oid.c_str());
    ASSERT_EQ(SnmpGetNext(kHost, nullptr, &next), 0) << oid;
    EXPECT_EQ(next.noid, value.oid);
    EXPECT_EQ(ToHex(next.data, next.dataSize), ToHex(value.bytes)) << value.oid;
    oid = next.noid;
    EXPECT_EQ(SnmpMemoryFree(&next), 0);
  }
}

TEST_F(NetSnmpAgent, RefusesWhatItDoesNotHave) {
  EXPECT_EQ(Get(kObjects + ".77.0"), "-1");
}

TEST_F(NetSnmpAgent, DoesNotAnswerAnotherCommunity) {
  netMsPerSecond = 50;
  EXPECT_EQ(Get(kObjects + ".1.0", "secret"), "-1");
}

TEST_F(NetSnmpAgent, TakesWhatIsSet) {
  EXPECT_EQ(Set(kObjects + ".8.0", 0x04, Text("a new text")), 0);
  EXPECT_EQ(Get(kObjects + ".8.0"), ToHex(Text("a new text")));
  for (const std::int32_t number : {-8388609, -129, 127, 128, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(Set(kObjects + ".9.0", 0x02, Memory(number)), 0) << number;
    EXPECT_EQ(Get(kObjects + ".9.0"), ToHex(Memory(number)));
  }
}

TEST_F(NetSnmpAgent, RefusesToSet) {
  EXPECT_EQ(Set(kObjects + ".1.0", 0x02, Memory(1)), -1) << "read only";
  EXPECT_EQ(Set(kObjects + ".9.0", 0x04, Text("x")), -1) << "another type";
  EXPECT_EQ(Set(kObjects + ".9.0", 0x02, Memory(1), "public"), -1) << "a reading community";
}

TEST_F(NetSnmpAgent, TellsItsName) {
  char name[64];
  EXPECT_EQ(get_name(kHost, name, sizeof name), 0);
  EXPECT_STREQ(name, "my  scanner");
}

TEST_F(NetSnmpAgent, AnswersTheCollection) {
  const SimpleOwner request = Asking(kObjects + ".3", "", WNXSNMP_PDU_GETNEXT);
  snmp_simple_pdu* const answers = WNXSNMP_MallocSnmpSimplePdu(4, 1);
  std::int32_t count = 0;
  EXPECT_EQ(multi_snmp_request_simple(kHost, 1, request.get(), answers, 4, &count), 0);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(answers[0].lpSnmpSimpleVal[0].szOid, kObjects + ".3.0");
  WNXSNMP_FreeSnmpSimplePdu(4, answers);
}

// Sent gives the arcs of an OID and what the agent answers to our question for it.
struct Exchanged {
  Arcs arcs;
  Bytes theirs;
};
Exchanged Sent(const std::string& oid) {
  Exchanged exchanged{Arcs(128), {}};
  std::int32_t length = static_cast<std::int32_t>(oid.size()), count = 128;
  EXPECT_EQ(oid_string2array(oid.c_str(), &length, exchanged.arcs.data(), &count), 0);
  exchanged.arcs.resize(static_cast<std::size_t>(count));
  Message request(WNXSNMP_PDU_GET);
  const Bytes asked = request.Id(0x12345678).Binding(exchanged.arcs, WNXSNMP_TAG_NULL).Built();
  packet_data_list* const packets = net_send_rev(kHost, 3, asked.data(), Size(asked));
  if (!packets) return exchanged;
  const packet_data& packet = *packets->lpPacketData;
  exchanged.theirs.assign(packet.buf, packet.buf + packet.nLen);
  free_packet_data_list(packets);
  return exchanged;
}

// The agent's answers, built again by our codec, are the same bytes.
TEST_F(NetSnmpAgent, SendsWhatOurCodecBuilds) {
  std::vector<Value> values(std::begin(kValues), std::end(kValues));
  values.push_back({"1.3.6.1.2.1.4.20.1.1.127.0.0.1", 0x40, {127, 0, 0, 1}});
  for (const Value& value : values) {
    const auto [arcs, theirs] = Sent(value.oid);
    Message ours(WNXSNMP_PDU_RESPONSE);
    ours.Id(0x12345678).Binding(arcs, value.tag, value.bytes);
    EXPECT_FALSE(Canonical(theirs).empty());
    EXPECT_EQ(ToHex(Canonical(ours.Built())), ToHex(Canonical(theirs))) << value.oid;
  }
}

TEST_F(NetSnmpAgent, RefusesAsOurCodecBuildsIt) {
  const auto [arcs, theirs] = Sent(kObjects + ".77.0");
  Message ours(WNXSNMP_PDU_RESPONSE);
  ours.Id(0x12345678).Binding(arcs, WNXSNMP_TAG_NULL);
  ours.Record().nErrStat = 2;  // noSuchName
  ours.Record().nErrIndex = 1;
  EXPECT_FALSE(Canonical(theirs).empty());
  EXPECT_EQ(ToHex(Canonical(ours.Built())), ToHex(Canonical(theirs)));
}

}  // namespace
}  // namespace vox
