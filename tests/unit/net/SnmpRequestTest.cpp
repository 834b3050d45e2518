// SNMP requests to one peer and to many.
#include "vox/drivers/net/NetworkComm/tvr302udpsnmp.h"

#include <algorithm>

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "tests/support/SnmpMessage.h"
#include "tests/unit/net/Exchange.h"

namespace vox {
namespace {

using namespace test;

struct FreeList {
  void operator()(snmp_pdu_list* list) const { free_snmp_pdu_list(list); }
};
using PduList = std::unique_ptr<snmp_pdu_list, FreeList>;

// Flat records: one that asks for sysName, and answers to be filled.
class Records {
 public:
  explicit Records(std::int32_t capacity = 1)
      : answers(WNXSNMP_MallocSnmpSimplePdu(capacity, 1)), capacity_(capacity) {}
  ~Records() { WNXSNMP_FreeSnmpSimplePdu(capacity_, answers); }
  Records(const Records&) = delete;
  Records& operator=(const Records&) = delete;

  std::int32_t Ask() { return snmp_request_simple(kHost, 3, request.get(), answers); }
  std::int32_t AskAll() {
    return multi_snmp_request_simple(kHost, 1, request.get(), answers, capacity_, &count);
  }
  std::string Name(int i = 0) const {
    return reinterpret_cast<const char*>(answers[i].lpSnmpSimpleVal[0].SnmpValBuf);
  }

  const SimpleOwner request = Asking("1.3.6.1.2.1.1.5.0");
  snmp_simple_pdu* answers;
  std::int32_t count = -1;

 private:
  std::int32_t capacity_;
};

// OthersThenHost answers from other hosts, the last time from the addressed one. That ends a query,
// so that no test waits, and none depends on how soon an answer comes.
UdpPeer::Script OthersThenHost(std::vector<Bytes> datagrams) {
  return [datagrams = std::move(datagrams)](const Bytes&) {
    Answers answers;
    for (const Bytes& datagram : datagrams) answers.push_back(Answer(datagram).From(kOther));
    answers.back().from = nullptr;
    return answers;
  };
}
UdpPeer::Script Names(const std::vector<std::string>& names) {
  std::vector<Bytes> datagrams;
  for (const std::string& name : names) datagrams.push_back(NameResponse(name));
  return OthersThenHost(datagrams);
}

TEST(Request, GivesTheParsedAnswerAndItsSender) {
  UdpPeer peer(Always(NameResponse("a name")));
  const NetSettings settings(peer);
  Message request(0xA0);
  request.Binding(kSysName, 0x05);
  const PduOwner answer(snmp_request(kHost, 3, &request.Record()));
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->byCommand, 0xA2);
  EXPECT_EQ(answer->IPAddress.ulAddress, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(peer.Requests(), std::vector<Bytes>{request.Built()});
}

TEST(Request, AnswerIsNotMatchedByRequestId) {
  const UdpPeer peer(Always(NameResponse("any id")));
  const NetSettings settings(peer);
  Message request(0xA0);
  EXPECT_TRUE(PduOwner(snmp_request(kHost, 3, &request.Id(999).Record())));
}

TEST(Request, WhatCannotBeBuiltIsNotSent) {
  UdpPeer peer(Always(NameResponse("a name")));
  const NetSettings settings(peer);
  Message request(0xA0);
  request.Record().nVersion = 1;
  EXPECT_FALSE(PduOwner(snmp_request(kHost, 3, &request.Record())));
  EXPECT_FALSE(PduList(multi_snmp_request(kHost, 3, &request.Record())));
  EXPECT_TRUE(peer.Requests().empty());
}

TEST(Request, AnswerThatDoesNotParseIsNone) {
  const UdpPeer peer(Always(Hex("30 03 02 01")));
  const NetSettings settings(peer, kShort);
  Message request(0xA0);
  EXPECT_FALSE(PduOwner(snmp_request(kHost, 3, &request.Record())));
  EXPECT_FALSE(PduList(multi_snmp_request(kHost, 3, &request.Record())));
}

TEST(RequestSimple, FillsTheAnswer) {
  const UdpPeer peer(Always(NameResponse("a name")));
  const NetSettings settings(peer);
  Records records;
  EXPECT_EQ(records.Ask(), 0);
  EXPECT_EQ(records.Name(), "a name");
  EXPECT_STREQ(records.request->szComName, "public");
}

TEST(RequestSimple, EveryFailedStepGivesMinusOne) {
  const UdpPeer silent(Silent());
  {
    const NetSettings settings(silent, kShort);
    Records records;
    EXPECT_EQ(records.Ask(), -1) << "no answer";
    records.request->lpSnmpSimpleVal[0].szOid[0] = '.';
    EXPECT_EQ(records.Ask(), -1) << "no OID";
  }
  const UdpPeer peer(Always(kLongOidResponse));
  const NetSettings settings(peer);
  Records records;
  EXPECT_EQ(records.Ask(), -1) << "an OID of more than 255 characters";
}

TEST(MultiRequest, GivesEveryAnswerThatParsesInOrder) {
  const UdpPeer peer(
      OthersThenHost({NameResponse("a"), Hex("DE AD"), NameResponse("b"), Hex("30 03 02 01")}));
  const NetSettings settings(peer, kLong);
  Message request(0xA0);
  const PduList list(multi_snmp_request(kHost, 3, &request.Record()));
  ASSERT_TRUE(list);
  EXPECT_STREQ(reinterpret_cast<const char*>(list->lpSnmpPdu->lpSnmpValList->uniVal.pbyData), "a");
  const snmp_pdu_list* const second = list->lpSnmpPduListNext;
  ASSERT_TRUE(second);
  EXPECT_STREQ(reinterpret_cast<const char*>(second->lpSnmpPdu->lpSnmpValList->uniVal.pbyData),
               "b");
  EXPECT_EQ(second->lpSnmpPdu->IPAddress.ulAddress, inet_addr(kOther));
  EXPECT_FALSE(second->lpSnmpPduListNext);
}

TEST(MultiRequestSimple, AnswersBeyondTheCapacityAreCounted) {
  const UdpPeer peer(Names({"a", "b", "c", "d", "e"}));
  const NetSettings settings(peer, kLong);
  Records records(2);
  EXPECT_EQ(records.AskAll(), 0);
  EXPECT_EQ(records.count, 5);
  EXPECT_EQ(records.Name(0), "a");
  EXPECT_EQ(records.Name(1), "b");
  EXPECT_EQ(records.answers[0].IPAddress.ulAddress, inet_addr(kOther));
}

TEST(MultiRequestSimple, WithoutAnyCapacityAnswersAreCounted) {
  const UdpPeer peer(Names({"a", "b"}));
  const NetSettings settings(peer, kLong);
  Records records(0);
  EXPECT_EQ(records.AskAll(), 0);
  EXPECT_EQ(records.count, 2);
}

TEST(MultiRequestSimple, ThreeHundredAnswersForTwoHundredAndFiftySix) {
  const UdpPeer peer([](const Bytes&) {
    Answers answers;
    for (int i = 0; i < 300; ++i) {
      // In small groups, so that no receive buffer overflows.
      const std::chrono::milliseconds pause(i % 20 == 0 ? 1 : 0);
      answers.push_back(Answer(NameResponse(std::to_string(i))).From(kOther).After(pause));
    }
    answers.back().from = nullptr;
    return answers;
  });
  const NetSettings settings(peer, kLong);
  Records records(256);
  EXPECT_EQ(records.AskAll(), 0);
  EXPECT_EQ(records.count, 300);
  EXPECT_EQ(records.Name(255), "255");
}

TEST(MultiRequestSimple, AnswerThatDoesNotConvertIsSkippedAndNotCounted) {
  const UdpPeer peer(OthersThenHost({kLongOidResponse, NameResponse("b"), kLongOidResponse}));
  const NetSettings settings(peer, kLong);
  Records records(2);
  EXPECT_EQ(records.AskAll(), 0);
  EXPECT_EQ(records.count, 1);
  EXPECT_EQ(records.Name(0), "b");
  EXPECT_EQ(records.Name(1), "") << "no half of an answer stays";
}

// Whoever answers, somebody answered: no failure, although there is nothing to be had of it.
TEST(MultiRequestSimple, OnlyAnswersThatDoNotConvertAreNone) {
  const UdpPeer peer(OthersThenHost({kLongOidResponse, kLongOidResponse}));
  const NetSettings settings(peer, kLong);
  Records records(2);
  EXPECT_EQ(records.AskAll(), 0);
  EXPECT_EQ(records.count, 0);
}

TEST(MultiRequestSimple, NobodyAnsweringOrNoRequestGivesMinusOne) {
  const UdpPeer peer(Silent());
  const NetSettings settings(peer, kShort);
  Records records;
  EXPECT_EQ(records.AskAll(), -1);
  EXPECT_EQ(records.count, 0);
  records.request->lpSnmpSimpleVal[0].szOid[0] = '\0';
  EXPECT_EQ(records.AskAll(), -1);
  EXPECT_EQ(multi_snmp_request_simple(kHost, 1, records.request.get(), records.answers, 1, nullptr),
            -1);
}

TEST(MultiRequest, EveryFailedAllocationIsSafe) {
  const UdpPeer peer(Always(NameResponse("a")));
  const NetSettings settings(peer);
  int failures = 0;
  for (;; ++failures) {
    Records records;
    const FailingAllocation failing(failures);
    const std::int32_t result = records.AskAll();
    if (!failing.HasFailed()) break;
    EXPECT_EQ(result, -1) << "allocation " << failures;
  }
  EXPECT_GT(failures, 10);
}

}  // namespace
}  // namespace vox
