// The exported SNMP calls, with a scripted agent on loopback.
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"

#include <thread>

#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "tests/support/SnmpMessage.h"
#include "tests/unit/net/Exchange.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

using namespace test;

constexpr const char* kNameOid = "1.3.6.1.2.1.1.5.0";

// Request is a get or set record with a heap block of exactly `capacity` bytes.
struct Request {
  explicit Request(std::size_t capacity, const char* oid = kNameOid) : data(capacity, 0xEE) {
    data.shrink_to_fit();
    std::strcpy(record.oid, oid);
    record.dataSize = Size(data);
    record.data = data.data();
  }
  explicit Request(std::uint8_t type, const Bytes& value) : Request(value.size()) {
    data = value;
    record.dataType = type;
    record.data = data.data();
  }
  Bytes data;
  _tagMIBREQ record{};
};

struct NextRequest {
  explicit NextRequest(const char* oid = "1.3.6.1.2.1.1.5") { std::strcpy(record.oid, oid); }
  ~NextRequest() { SnmpMemoryFree(&record); }
  NextRequest(const NextRequest&) = delete;
  NextRequest& operator=(const NextRequest&) = delete;
  Bytes Data() const { return Bytes(record.data, record.data + record.dataSize); }
  _tagMIBNEXTREQ record{};
};

// Asked gives what the peer was asked, parsed.
PduOwner Asked(UdpPeer* peer) {
  const auto requests = peer->AwaitRequests(1);
  EXPECT_EQ(requests.size(), 1u);
  return requests.empty() ? nullptr : Parse(requests[0]);
}

// ---- SnmpGet

TEST(Get, CopiesTheValueAndItsSize) {
  UdpPeer peer(Always(NameResponse("a name")));
  const NetSettings settings(peer);
  Request request(10);
  EXPECT_EQ(SnmpGet(kHost, nullptr, &request.record), 0);
  EXPECT_EQ(request.record.dataSize, 6);
  EXPECT_EQ(request.data, (Text("a name") + Bytes(4, 0xEE)));
  const PduOwner asked = Asked(&peer);
  ASSERT_TRUE(asked);
  EXPECT_EQ(asked->byCommand, 0xA0);
  EXPECT_STREQ(asked->pcComName, "public");
  EXPECT_EQ(asked->lpSnmpValList->byDataType, 0x05);
  EXPECT_EQ(asked->lpSnmpValList->lpNextSnmpValList, nullptr);
}

TEST(Get, CommunityIsSent) {
  UdpPeer peer(Always(NameResponse("n")));
  const NetSettings settings(peer);
  Request request(10);
  EXPECT_EQ(SnmpGet(kHost, "private", &request.record), 0);
  EXPECT_STREQ(Asked(&peer)->pcComName, "private");
}

TEST(GetNext, CommunityIsSent) {
  UdpPeer peer(Always(NameResponse("n")));
  const NetSettings settings(peer);
  NextRequest next;
  EXPECT_EQ(SnmpGetNext(kHost, "private", &next.record), 0);
  EXPECT_STREQ(Asked(&peer)->pcComName, "private");
}

TEST(Set, CommunityIsSent) {
  UdpPeer peer(Always(Response({})));
  const NetSettings settings(peer);
  const Request request(0x04, Text("n"));
  EXPECT_EQ(SnmpSet(kHost, "private", &request.record), 0);
  EXPECT_STREQ(Asked(&peer)->pcComName, "private");
}

TEST(Get, EmptyCommunityIsTheDefault) {
  UdpPeer peer(Always(NameResponse("n")));
  const NetSettings settings(peer);
  Request request(10);
  EXPECT_EQ(SnmpGet(kHost, "", &request.record), 0);
  EXPECT_STREQ(Asked(&peer)->pcComName, "public");
}

TEST(Get, LargerValueThanTheBufferLeavesItUntouched) {
  const UdpPeer peer(Always(NameResponse("a name")));
  const NetSettings settings(peer);
  Request request(5);
  EXPECT_EQ(SnmpGet(kHost, nullptr, &request.record), -3);
  EXPECT_EQ(request.data, Bytes(5, 0xEE));
  EXPECT_EQ(request.record.dataSize, 5);
  Request fits(6);
  EXPECT_EQ(SnmpGet(kHost, nullptr, &fits.record), 0);
}

TEST(Get, MissingBufferIsTooSmall) {
  const UdpPeer peer(Always(NameResponse("a name")));
  const NetSettings settings(peer);
  Request request(10);
  request.record.data = nullptr;
  EXPECT_EQ(SnmpGet(kHost, nullptr, &request.record), -3);
}

TEST(Get, TagOfTheValueIsNotLookedAt) {
  const UdpPeer peer(Always(Response(BindingItem(kSysNameItem, Hex("02 01 FF")))));
  const NetSettings settings(peer);
  Request request(4);
  EXPECT_EQ(SnmpGet(kHost, nullptr, &request.record), 0);
  EXPECT_EQ(request.data, Memory<std::int32_t>(-1));
  EXPECT_EQ(request.record.dataType, 0);
}

TEST(Get, EmptyValueIsAnAnswer) {
  const UdpPeer peer(Always(NameResponse("")));
  const NetSettings settings(peer);
  Request request(4);
  EXPECT_EQ(SnmpGet(kHost, nullptr, &request.record), 0);
  EXPECT_EQ(request.record.dataSize, 0);
}

TEST(Get, ErrorStatusFails) {
  const UdpPeer peer(Always(Response(BindingItem(kSysNameItem, Hex("05 00")), 2, 1)));
  const NetSettings settings(peer);
  Request request(4);
  EXPECT_EQ(SnmpGet(kHost, nullptr, &request.record), -1);
}

TEST(Get, ErrorIndexAloneIsNoFailure) {
  const Bytes value = Item(0x04, Text("n"));
  const UdpPeer peer(Always(Response(BindingItem(kSysNameItem, value), 0, 1)));
  const NetSettings settings(peer);
  Request request(4);
  EXPECT_EQ(SnmpGet(kHost, nullptr, &request.record), 0);
  NextRequest next;
  EXPECT_EQ(SnmpGetNext(kHost, nullptr, &next.record), 0);
}

TEST(Get, AnswerWithoutAValue) {
  const UdpPeer peer(Always(Response({})));
  const NetSettings settings(peer);
  Request request(4);
  EXPECT_EQ(SnmpGet(kHost, nullptr, &request.record), -101);
  NextRequest next;
  EXPECT_EQ(SnmpGetNext(kHost, nullptr, &next.record), -101);
}

TEST(Get, SilenceFailsAfterOneTimeOutWithoutRetry) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer, kShort);
  Request request(4);
  const Stopwatch watch;
  EXPECT_EQ(SnmpGet(kHost, nullptr, &request.record), -1);
  EXPECT_GE(watch.Elapsed(), std::chrono::milliseconds(3 * kShort));
  EXPECT_EQ(peer.AwaitRequests(1).size(), 1u);
}

TEST(Get, TextsThatDoNotFitAreRefusedUnsent) {
  UdpPeer peer(Always(NameResponse("n")));
  const NetSettings settings(peer);
  Request unterminated(4);
  std::memset(unterminated.record.oid, '1', sizeof unterminated.record.oid);
  EXPECT_EQ(SnmpGet(kHost, nullptr, &unterminated.record), -1);
  EXPECT_EQ(SnmpSet(kHost, nullptr, &unterminated.record), -1);
  NextRequest next;
  std::memset(next.record.oid, '1', sizeof next.record.oid);
  EXPECT_EQ(SnmpGetNext(kHost, nullptr, &next.record), -1);
  Request request(4);
  EXPECT_EQ(SnmpGet(kHost, std::string(128, 'c').c_str(), &request.record), -1);
  EXPECT_EQ(SnmpGet(kHost, nullptr, nullptr), -1);
  Request no_oid(4, ".1.3");
  EXPECT_EQ(SnmpGet(kHost, nullptr, &no_oid.record), -1);
  EXPECT_TRUE(peer.Requests().empty());
  EXPECT_EQ(SnmpGet(kHost, std::string(127, 'c').c_str(), &request.record), 0);
}

TEST(Get, WithoutMemory) {
  const UdpPeer peer(Always(NameResponse("n")));
  const NetSettings settings(peer);
  int failures = 0;
  for (;; ++failures) {
    Request request(4);
    const FailingAllocation failing(failures);
    const std::int32_t result = SnmpGet(kHost, nullptr, &request.record);
    if (!failing.HasFailed()) break;
    // The records are two allocations each; whatever fails later is a failed request.
    EXPECT_EQ(result, failures < 4 ? -2 : -1) << "allocation " << failures;
  }
  EXPECT_GT(failures, 10);
}

TEST(Get, FromSeveralThreadsAtOnce) {
  const UdpPeer peer([](const Bytes& request) {
    const PduOwner asked = Parse(request);
    return Answers{Answer(NameResponse(asked ? asked->pcComName : "?"))};
  });
  const NetSettings settings(peer, 5000);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      const std::string community = "thread " + std::to_string(i);
      for (int round = 0; round < 10; ++round) {
        Request request(community.size());
        EXPECT_EQ(SnmpGet(kHost, community.c_str(), &request.record), 0);
        EXPECT_EQ(request.data, Text(community));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// ---- every call

// Silence keeps what the library prints and logs.
class Silence {
 public:
  Silence() {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    before_ = SetSystemLogSink([this](const std::string& line) { logged_ += line; });
  }
  ~Silence() {
    SetSystemLogSink(before_);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(logged_, "");
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  std::string logged_;
  SystemLogSink before_;
};

TEST(Calls, FailInSilence) {
  for (const Bytes& answer :
       {Bytes{}, Hex("30 03 02 01"), kLongOidResponse, Response({}), Response({}, 2, 1)}) {
    const UdpPeer peer(answer.empty() ? Silent() : Always(answer));
    const NetSettings settings(peer, 5);
    const Silence silence;
    Request request(4);
    EXPECT_NE(SnmpGet(kHost, nullptr, &request.record), 0);
    EXPECT_NE(SnmpGet("", nullptr, &request.record), 0);
    NextRequest next(".1");
    EXPECT_NE(SnmpGetNext(kHost, nullptr, &next.record), 0);
    const Request number(0x02, Bytes(3));
    EXPECT_NE(SnmpSet(kHost, nullptr, &number.record), 0);
    _tagUDPCMD command{}, response{};
    EXPECT_NE(UdpCommandSendResponse(kHost, &command, &response), 0);
    EXPECT_NE(UdpCommandSend("", 0, &command), 0);
  }
}

// ---- SnmpGetNext

TEST(GetNext, GivesTheAnsweringOidAndItsValue) {
  UdpPeer peer(Always(NameResponse("a name")));
  const NetSettings settings(peer);
  NextRequest next;
  ASSERT_EQ(SnmpGetNext(kHost, nullptr, &next.record), 0);
  EXPECT_STREQ(next.record.noid, kNameOid);
  EXPECT_EQ(next.Data(), Text("a name"));
  EXPECT_EQ(next.record.data[6], 0) << "a NUL behind the value";
  const PduOwner asked = Asked(&peer);
  EXPECT_EQ(asked->byCommand, 0xA1);
  EXPECT_EQ(asked->lpSnmpValList->nOidLen, 8);
  EXPECT_EQ(asked->lpSnmpValList->byDataType, 0x05);
}

TEST(GetNext, EmptyValueHasABufferToo) {
  const UdpPeer peer(Always(NameResponse("")));
  const NetSettings settings(peer);
  NextRequest next;
  EXPECT_EQ(SnmpGetNext(kHost, nullptr, &next.record), 0);
  EXPECT_EQ(next.record.dataSize, 0u);
  EXPECT_TRUE(next.record.data);
}

TEST(GetNext, FailureLeavesNothingToRelease) {
  const UdpPeer peer(Always(Response(BindingItem(kSysNameItem, Hex("05 00")), 2, 1)));
  const NetSettings settings(peer);
  NextRequest next;
  std::uint8_t stale = 0;
  next.record.data = &stale;
  next.record.dataSize = 77;
  EXPECT_EQ(SnmpGetNext(kHost, nullptr, &next.record), -1);
  EXPECT_EQ(next.record.data, nullptr);
  EXPECT_EQ(next.record.dataSize, 0u);
  EXPECT_EQ(SnmpGetNext(kHost, nullptr, nullptr), -1);
}

TEST(GetNext, OidOfMoreThan255CharactersFails) {
  const UdpPeer peer(Always(kLongOidResponse));
  const NetSettings settings(peer);
  NextRequest next;
  EXPECT_EQ(SnmpGetNext(kHost, nullptr, &next.record), -1);
}

TEST(GetNext, WithoutMemory) {
  const UdpPeer peer(Always(NameResponse("n")));
  const NetSettings settings(peer);
  std::vector<std::int32_t> results;
  for (;;) {
    NextRequest next;
    const FailingAllocation failing(static_cast<int>(results.size()));
    const std::int32_t result = SnmpGetNext(kHost, nullptr, &next.record);
    if (!failing.HasFailed()) break;
    EXPECT_EQ(next.record.data, nullptr);
    results.push_back(result);
  }
  ASSERT_GT(results.size(), 10u);
  EXPECT_EQ(results.front(), -2);
  EXPECT_EQ(results.back(), -2) << "the caller's buffer is the last allocation";
}

TEST(MemoryFree, AcceptsAnEmptyRecordAndRefusesNone) {
  _tagMIBNEXTREQ record{};
  EXPECT_EQ(SnmpMemoryFree(&record), 0);
  EXPECT_EQ(SnmpMemoryFree(nullptr), -3);
}

TEST(MemoryFree, TwiceIsOnce) {
  const UdpPeer peer(Always(NameResponse("n")));
  const NetSettings settings(peer);
  NextRequest next;
  ASSERT_EQ(SnmpGetNext(kHost, nullptr, &next.record), 0);
  EXPECT_EQ(SnmpMemoryFree(&next.record), 0);
  EXPECT_EQ(next.record.data, nullptr);
  EXPECT_EQ(SnmpMemoryFree(&next.record), 0);
}

// ---- SnmpSet

TEST(Set, ValueIsSentWithItsTag) {
  UdpPeer peer(Always(Response({})));
  const NetSettings settings(peer);
  const Request request(0x04, Text("new name"));
  EXPECT_EQ(SnmpSet(kHost, nullptr, &request.record), 0);
  const PduOwner asked = Asked(&peer);
  EXPECT_EQ(asked->byCommand, 0xA3);
  EXPECT_EQ(asked->lpSnmpValList->byDataType, 0x04);
  EXPECT_EQ(Bytes(asked->lpSnmpValList->uniVal.pbyData, asked->lpSnmpValList->uniVal.pbyData + 8),
            Text("new name"));
}

TEST(Set, StatusAndIndexMustBothBeZero) {
  const std::pair<std::uint8_t, std::uint8_t> refusals[] = {{0, 1}, {1, 0}, {2, 1}};
  for (const auto& [status, index] : refusals) {
    const UdpPeer peer(Always(Response({}, status, index)));
    const NetSettings settings(peer);
    const Request request(0x02, Memory<std::int32_t>(1));
    EXPECT_EQ(SnmpSet(kHost, nullptr, &request.record), -1) << int{status} << " " << int{index};
  }
}

TEST(Set, SilenceFailsWithoutRetry) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer, kShort);
  const Request request(0x04, Text("n"));
  EXPECT_EQ(SnmpSet(kHost, nullptr, &request.record), -1);
  EXPECT_EQ(peer.AwaitRequests(1).size(), 1u);
}

TEST(Set, SizesThatCannotBeSentAreRefused) {
  UdpPeer peer(Always(Response({})));
  const NetSettings settings(peer);
  for (const std::int32_t size : {-1, 1536, INT32_MAX}) {
    Request request(0x04, Text("x"));
    request.record.dataSize = size;
    EXPECT_EQ(SnmpSet(kHost, nullptr, &request.record), -1) << size;
  }
  Request number(0x02, Bytes(3));
  EXPECT_EQ(SnmpSet(kHost, nullptr, &number.record), -1) << "an INTEGER is four bytes";
  Request large(0x04, Bytes(1535, 'v'));
  EXPECT_EQ(SnmpSet(kHost, nullptr, &large.record), -1) << "larger than any message";
  Request missing(0x04, Text("x"));
  missing.record.data = nullptr;
  EXPECT_EQ(SnmpSet(kHost, nullptr, &missing.record), -1);
  EXPECT_EQ(SnmpSet(kHost, nullptr, nullptr), -1);
  EXPECT_TRUE(peer.Requests().empty());
}

TEST(Set, LongValueGoesOutWithItsMovedBinding) {
  UdpPeer peer(Always(Response({})));
  const NetSettings settings(peer);
  const Request request(0x04, Bytes(200, 'v'));
  EXPECT_EQ(SnmpSet(kHost, nullptr, &request.record), 0);
  const auto requests = peer.AwaitRequests(1);
  ASSERT_EQ(requests.size(), 1u);
  // OID item of 10 bytes, string item of 203: 213 bytes, moved up by one.
  const std::string wanted = "30 82 00 D5 06 06 08 2B 06 01 02 01 01 05 00 04 81 C8 76";
  EXPECT_NE(ToHex(requests[0]).find(wanted), std::string::npos) << ToHex(requests[0]);
}

TEST(Set, WithoutMemory) {
  const Request request(0x04, Text("x"));
  for (int spared = 0; spared < 4; ++spared) {
    const FailingAllocation failing(spared);
    EXPECT_EQ(SnmpSet(kHost, nullptr, &request.record), -2);
    EXPECT_TRUE(failing.HasFailed());
  }
}

}  // namespace
}  // namespace vox
