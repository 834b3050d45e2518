// Sockets, waits, and exchanges of one datagram, with peers on loopback.
#include "vox/drivers/net/NetworkComm/tvr302udp.h"

#include <cstring>
#include <filesystem>
#include <iterator>

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "tests/unit/net/Exchange.h"

namespace vox {
namespace {

using namespace test;

using std::chrono::milliseconds;

// A pair of sockets: one sends to the other.
class Line {
 public:
  Line() {
    EXPECT_EQ(net_socket(&receiver), 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(receiver, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    socklen_t length = sizeof address;
    getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &length);
  }
  ~Line() { net_close(receiver); }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  void Send(const Bytes& bytes) const {
    const FileDescriptor sender(socket(AF_INET, SOCK_DGRAM, 0));
    EXPECT_EQ(sendto(sender.Get(), bytes.data(), bytes.size(), 0,
                     reinterpret_cast<const sockaddr*>(&address), sizeof address),
              static_cast<ssize_t>(bytes.size()));
  }
  std::int32_t Receive(Bytes* into, std::int32_t seconds) const {
    return recvfrom_timeo(receiver, into->data(), Size(*into), 0, nullptr, nullptr, seconds,
                          nullptr);
  }
  int receiver = -1;
  sockaddr_in address{};
};

// ---- sockets and waits

TEST(Settings, AreThoseOfTheProtocols) {
  EXPECT_EQ(snmpPort, 161);
  EXPECT_EQ(udpCommandPort, 3892);
  EXPECT_EQ(netMsPerSecond, 1000u);
  EXPECT_EQ(NET_TIMEOUT_SECONDS, 3);
  EXPECT_EQ(UDPCMD_ATTEMPTS, 3);
}

TEST(Socket, IsADatagramSocketThatChildrenDoNotInherit) {
  EXPECT_EQ(net_start(), 0);
  int sock = -1;
  ASSERT_EQ(net_socket(&sock), 0);
  int type = 0;
  socklen_t length = sizeof type;
  ASSERT_EQ(getsockopt(sock, SOL_SOCKET, SO_TYPE, &type, &length), 0);
  EXPECT_EQ(type, SOCK_DGRAM);
  EXPECT_TRUE(fcntl(sock, F_GETFD) & FD_CLOEXEC);
  net_close(sock);
  EXPECT_EQ(fcntl(sock, F_GETFD), -1);
}

TEST(Socket, NumberZeroIsLeftAlone) {
  const FileDescriptor standard_input(fcntl(0, F_DUPFD_CLOEXEC, 3));
  ASSERT_GE(dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), 0), 0);
  net_close(0);
  EXPECT_NE(fcntl(0, F_GETFD), -1) << "still open";
  close(0);
  int sock = -1;
  EXPECT_EQ(net_socket(&sock), 0);
  EXPECT_GT(sock, 0) << "a socket that net_close would not close";
  net_close(sock);
  if (standard_input) dup2(standard_input.Get(), 0);
}

TEST(Socket, NoneToBeHad) {
  rlimit was{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &was), 0);
  const rlimit none{0, was.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  int sock = -1;
  EXPECT_EQ(net_socket(&sock), -1);
  EXPECT_FALSE(Ask(kHost));
  EXPECT_FALSE(AskAll(kHost));
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &was), 0);
}

TEST(Wait, TellsADatagramFromATimeOutFromAnError) {
  const NetSettings settings(0, kShort);
  const Line line;
  EXPECT_EQ(readable_timeo(line.receiver, 1), 0);
  EXPECT_EQ(net_select(line.receiver, 1), -1);
  EXPECT_EQ(readable_timeo(line.receiver, 0), 0);
  line.Send(kAnswer);
  EXPECT_EQ(readable_timeo(line.receiver, 1), 1);
  EXPECT_EQ(net_select(line.receiver, 1), 0);
  for (const int sock : {-1, 9999}) {
    EXPECT_EQ(readable_timeo(sock, 1), -1);
    EXPECT_EQ(net_select(sock, 1), -1);
  }
  EXPECT_EQ(readable_timeo(line.receiver, -1), -1);
}

TEST(Wait, LastsItsTime) {
  const NetSettings settings(0, kShort);
  const Line line;
  const Stopwatch watch;
  EXPECT_EQ(readable_timeo(line.receiver, 3), 0);
  EXPECT_GE(watch.Elapsed(), milliseconds(3 * kShort));
}

TEST(Wait, SignalsNeitherEndNorLengthenIt) {
  struct sigaction nothing {};
  nothing.sa_handler = [](int) {};
  struct sigaction was {};
  sigaction(SIGALRM, &nothing, &was);
  const itimerval storm{{0, 3000}, {0, 3000}};  // every 3 ms
  const itimerval calm{};
  setitimer(ITIMER_REAL, &storm, nullptr);
  const NetSettings settings(0, 50);
  const Line line;
  const Stopwatch watch;
  EXPECT_EQ(readable_timeo(line.receiver, 3), 0);
  Bytes buffer(16);
  EXPECT_EQ(line.Receive(&buffer, 3), -3);
  setitimer(ITIMER_REAL, &calm, nullptr);
  sigaction(SIGALRM, &was, nullptr);
  EXPECT_GE(watch.Elapsed(), milliseconds(300));
  EXPECT_LT(watch.Elapsed(), milliseconds(5000));
}

TEST(Wait, DescriptorsBeyond1024Work) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit was = limit;
  limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, 2048);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  const Line line;
  line.Send(kAnswer);
  const FileDescriptor high(fcntl(line.receiver, F_DUPFD_CLOEXEC, 1500));
  ASSERT_GE(high.Get(), 1500);
  EXPECT_EQ(net_select(high.Get(), 1), 0);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &was), 0);
}

TEST(Wait, LongestTimeOutIsNoShortOne) {
  const Line line;
  // In milliseconds, cut to 32 bits, this would be 8.
  constexpr std::int32_t seconds = 115964117;
  std::thread late([&] {
    pollfd nothing{-1, 0, 0};
    poll(&nothing, 1, 30);
    line.Send(kAnswer);
  });
  EXPECT_EQ(readable_timeo(line.receiver, seconds), 1);
  late.join();
}

TEST(Receive, GivesTheBytesAndTheSender) {
  const Line line;
  line.Send(kAnswer);
  Bytes buffer(16);
  sockaddr_in sender{};
  socklen_t length = sizeof sender;
  EXPECT_EQ(recvfrom_timeo(line.receiver, buffer.data(), Size(buffer), 0,
                           reinterpret_cast<sockaddr*>(&sender), &length, 1, nullptr),
            4);
  EXPECT_EQ(sender.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  buffer.resize(4);
  EXPECT_EQ(buffer, kAnswer);
}

TEST(Receive, TellsATimeOutFromAnError) {
  const NetSettings settings(0, kShort);
  const Line line;
  Bytes buffer(16);
  EXPECT_EQ(line.Receive(&buffer, 1), -3);
  EXPECT_EQ(line.Receive(&buffer, -1), -1);
  for (const std::int32_t seconds : {0, 1}) {
    EXPECT_EQ(recvfrom_timeo(-1, buffer.data(), 16, 0, nullptr, nullptr, seconds, nullptr), -1);
    EXPECT_EQ(recvfrom_timeo(9999, buffer.data(), 16, 0, nullptr, nullptr, seconds, nullptr), -1);
    EXPECT_EQ(
        recvfrom_timeo(line.receiver, buffer.data(), -1, 0, nullptr, nullptr, seconds, nullptr),
        -1);
  }
}

TEST(Receive, ZeroSecondsWaitWithoutLimit) {
  const NetSettings settings(0, 1);
  const Line line;
  std::thread late([&] {
    pollfd nothing{-1, 0, 0};
    poll(&nothing, 1, 50);  // many times what a second lasts here
    line.Send(kAnswer);
  });
  Bytes buffer(16);
  EXPECT_EQ(line.Receive(&buffer, 0), 4);
  late.join();
}

// ---- UDP command exchanges

TEST(UdpSend, SendsOneDatagramAndAwaitsNothing) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer);
  EXPECT_EQ(udp_send(kHost, 3, kQuestion.data(), Size(kQuestion)), 0);
  EXPECT_EQ(peer.AwaitRequests(1), std::vector<Bytes>{kQuestion});
}

TEST(UdpSend, NameIsLookedUp) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer);
  EXPECT_EQ(udp_send("localhost", 3, kQuestion.data(), Size(kQuestion)), 0);
  EXPECT_EQ(peer.AwaitRequests(1).size(), 1u);
}

TEST(UdpSend, UnknownHostAndRefusedAddressFail) {
  const std::string too_long(300, 'x');
  for (const char* host : {static_cast<const char*>(nullptr), "", too_long.c_str(),
                           "255.255.255.255" /* broadcast was not asked for */}) {
    EXPECT_EQ(udp_send(host, 3, kQuestion.data(), Size(kQuestion)), -1);
    Bytes reply(16);
    std::int32_t length = Size(reply);
    EXPECT_EQ(udp_send_rev(host, 3, kQuestion.data(), Size(kQuestion), reply.data(), &length), -1);
    EXPECT_FALSE(Ask(host));
  }
  EXPECT_EQ(udp_send(kHost, 3, kQuestion.data(), -1), -1);
  EXPECT_EQ(udp_send(kHost, 3, nullptr, 3), -1);
  EXPECT_EQ(udp_send(kHost, 3, Bytes(65508).data(), 65508), -1) << "more than a datagram carries";
}

struct Reply {
  std::int32_t result, length;
  Bytes buffer;
};
Reply SendReceive(std::int32_t capacity) {
  Reply reply{0, capacity, Bytes(static_cast<std::size_t>(capacity), 0xEE)};
  reply.buffer.shrink_to_fit();
  reply.result =
      udp_send_rev(kHost, 3, kQuestion.data(), Size(kQuestion), reply.buffer.data(), &reply.length);
  return reply;
}

TEST(UdpSendReceive, AnswerThatFitsIsCopiedIntoAClearedBuffer) {
  const UdpPeer peer(Always(kAnswer));
  const NetSettings settings(peer);
  const Reply roomy = SendReceive(6);
  EXPECT_EQ(roomy.result, 0);
  EXPECT_EQ(roomy.length, 4);
  EXPECT_EQ(ToHex(roomy.buffer), "0A 0B 0C 0D 00 00");
  EXPECT_EQ(SendReceive(4).result, 0);
}

TEST(UdpSendReceive, LargerAnswerFailsWithAClearedBuffer) {
  const UdpPeer peer(Always(kAnswer));
  const NetSettings settings(peer);
  const Reply reply = SendReceive(3);
  EXPECT_EQ(reply.result, -1);
  EXPECT_EQ(reply.length, 3);
  EXPECT_EQ(ToHex(reply.buffer), "00 00 00");
}

TEST(UdpSendReceive, LongDatagramIsCutAt1536Bytes) {
  const UdpPeer peer(Always(Bytes(2000, 0x55)));
  const NetSettings settings(peer);
  const Reply whole = SendReceive(1536);
  EXPECT_EQ(whole.result, 0);
  EXPECT_EQ(whole.length, 1536);
  EXPECT_EQ(whole.buffer, Bytes(1536, 0x55));
  EXPECT_EQ(SendReceive(1535).result, -1);
}

TEST(UdpSendReceive, SilenceIsATimeOutAndLeavesTheBuffer) {
  const UdpPeer peer(Silent());
  const NetSettings settings(peer, kShort);
  const Reply reply = SendReceive(3);
  EXPECT_EQ(reply.result, -3);
  EXPECT_EQ(reply.length, 3);
  EXPECT_EQ(ToHex(reply.buffer), "EE EE EE");
}

TEST(UdpSendReceive, WithoutABufferNothingIsSent) {
  UdpPeer peer(Always(kAnswer));
  const NetSettings settings(peer);
  std::uint8_t byte = 0;
  std::int32_t length = 0;
  EXPECT_EQ(udp_send_rev(kHost, 3, kQuestion.data(), 3, &byte, &length), -1);
  length = -1;
  EXPECT_EQ(udp_send_rev(kHost, 3, kQuestion.data(), 3, &byte, &length), -1);
  length = 1;
  EXPECT_EQ(udp_send_rev(kHost, 3, kQuestion.data(), 3, nullptr, &length), -1);
  EXPECT_EQ(udp_send_rev(kHost, 3, kQuestion.data(), 3, &byte, nullptr), -1);
  EXPECT_TRUE(peer.Requests().empty());
}

// ---- SNMP exchanges

TEST(SendReceive, GivesTheAnswerAndItsSender) {
  UdpPeer peer(Always(kAnswer));
  const NetSettings settings(peer);
  const Packets packets = Ask(kHost);
  EXPECT_EQ(BytesOf(packets), std::vector<Bytes>{kAnswer});
  EXPECT_EQ(SenderOf(*packets->lpPacketData), kHost);
  EXPECT_EQ(peer.Requests(), std::vector<Bytes>{kQuestion});
}

TEST(SendReceive, TheFirstDatagramIsTheAnswerWhoeverSendsIt) {
  const UdpPeer peer([](const Bytes&) {
    return Answers{Answer(Hex("99")).From(kOther), Answer(kAnswer)};
  });
  const NetSettings settings(peer);
  const Packets packets = Ask(kHost);
  EXPECT_EQ(BytesOf(packets), std::vector<Bytes>{Hex("99")});
  EXPECT_EQ(SenderOf(*packets->lpPacketData), kOther);
}

TEST(SendReceive, LongDatagramIsCutAt1536Bytes) {
  const UdpPeer peer(Always(Bytes(2000, 0x55)));
  const NetSettings settings(peer);
  EXPECT_EQ(BytesOf(Ask(kHost)), std::vector<Bytes>{Bytes(1536, 0x55)});
}

TEST(SendReceive, SilenceGivesNoneWithoutRetry) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer, kShort);
  const Stopwatch watch;
  EXPECT_FALSE(Ask(kHost));
  EXPECT_GE(watch.Elapsed(), milliseconds(3 * kShort));
  EXPECT_EQ(peer.AwaitRequests(1).size(), 1u);
  EXPECT_FALSE(Ask(kHost, -1));
}

TEST(SendReceive, WithoutMemoryGivesNone) {
  const UdpPeer peer(Always(kAnswer));
  const NetSettings settings(peer);
  for (const int spared : {0, 1}) {
    const FailingAllocation failing(spared);
    EXPECT_FALSE(Ask(kHost));
    EXPECT_TRUE(failing.HasFailed());
  }
}

// ---- what a call leaves behind

std::ptrdiff_t OpenDescriptors() {
  const std::filesystem::directory_iterator folder("/proc/self/fd");
  return std::distance(begin(folder), end(folder));
}

TEST(Call, LeavesNoSocketOpen) {
  const UdpPeer answering(Always(kAnswer)), silent(Silent());
  std::uint8_t reply[2];
  std::int32_t length = sizeof reply;
  const std::ptrdiff_t before = OpenDescriptors();
  for (const UdpPeer* peer : {&answering, &silent}) {
    const NetSettings settings(*peer, 1);
    for (const char* host : {kHost, "255.255.255.255", ""}) {
      udp_send(host, 3, kQuestion.data(), Size(kQuestion));
      udp_send_rev(host, 3, kQuestion.data(), Size(kQuestion), reply, &length);
      Ask(host);
    }
    AskAll(kHost);
    AskAll("");
  }
  EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace
}  // namespace vox
