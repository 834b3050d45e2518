// A scan's channel to the job server: connecting, registering, and waits that a wake cuts short.
#include "vox/drivers/net/JobChannel.h"

#include <csignal>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>

#include "tests/support/TcpPeer.h"
#include "tests/support/UdpPeer.h"

namespace vox::test {
namespace {

using namespace std::chrono_literals;

constexpr unsigned char kJobBytes[] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};

class JobChannel : public ::testing::Test {
 protected:
  JobChannel() { std::memcpy(&job_, kJobBytes, sizeof job_); }
  // Opened gives both ends of a channel.
  void Open() {
    scan_.Reset(get_lpd_soc(door_.Port()));
    server_ = door_.Accept();
  }
  int Register(const char* ip = "192.168.0.5", int ms = 5'000) {
    return add_job2lpd(scan_.Get(), ip, 0, &job_, 0x1234, ms, {wake_.Get(), -1});
  }

  TcpListener door_;
  FileDescriptor scan_;
  TcpPeer server_;
  _SCANJOBID job_{};
  EventFd wake_;
};

TEST_F(JobChannel, IsConnectedToTheServer) {
  Open();
  EXPECT_TRUE(scan_);
  EXPECT_TRUE(server_.IsOpen());
}

TEST_F(JobChannel, StaysBehindWhenAProgramIsStarted) {
  Open();
  EXPECT_EQ(::fcntl(scan_.Get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

// A program that scans may have more descriptors than select(2) can take.
TEST_F(JobChannel, DescriptorAbove1023IsWaitedFor) {
  Open();
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  rlimit more = before;
  more.rlim_cur = before.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &more);
  const FileDescriptor high(::fcntl(scan_.Get(), F_DUPFD_CLOEXEC, 2'000));
  ::setrlimit(RLIMIT_NOFILE, &before);
  ASSERT_GE(high.Get(), 2'000);
  EXPECT_EQ(wait_channel(high.Get(), 10, {}), NW_WAIT_TIMEOUT);
  ASSERT_TRUE(server_.SendByte(7));
  EXPECT_EQ(wait_channel(high.Get(), 5'000, {}), NW_WAIT_READY);
}

TEST(ScanWaits, AreTheDocumentedOnes) {
  const tagNWWAITS usual;
  EXPECT_EQ(usual.nFirstData, 70'000);
  EXPECT_EQ(usual.nData, 3'000);
  EXPECT_EQ(usual.nRegistration, 5'000);
}

TEST_F(JobChannel, NobodyThereMeansNoSocket) {
  std::uint16_t port = 0;
  {
    const TcpListener gone;
    port = gone.Port();
  }
  EXPECT_EQ(get_lpd_soc(port), -1);
}

TEST_F(JobChannel, RegistrationHasTheAddressTheJobAndTheSequence) {
  Open();
  ASSERT_TRUE(server_.SendByte(0));
  EXPECT_EQ(Register(), 0);
  EXPECT_EQ(ToHex(server_.Receive(15)), "00 C0 A8 00 05 11 22 33 44 55 66 77 88 12 34");
  EXPECT_TRUE(server_.HasNothing(0ms));
}

TEST_F(JobChannel, EveryAnswerButZeroRefuses) {
  for (const int answer : {1, 2, 0x80, 0xFF}) {
    Open();
    ASSERT_TRUE(server_.SendByte(static_cast<std::uint8_t>(answer)));
    EXPECT_EQ(Register(), -1) << answer;
  }
}

TEST_F(JobChannel, ServerThatClosesRefuses) {
  Open();
  server_.Close();
  EXPECT_EQ(Register(), -1);
}

TEST_F(JobChannel, ServerThatIsGoneDoesNotKillTheProcess) {
  Open();
  server_.Reset();
  EXPECT_EQ(Register(), -1);  // SIGPIPE would end the test here
  EXPECT_EQ(Register(), -1);
}

TEST_F(JobChannel, SilentServerRefusesAfterTheWait) {
  Open();
  const Stopwatch watch;
  EXPECT_EQ(Register("192.168.0.5", 40), -1);
  EXPECT_GE(watch.Elapsed(), 40ms);
}

TEST_F(JobChannel, AddressThatIsNoneIsNotRegistered) {
  Open();
  EXPECT_EQ(Register("scanner"), -1);
  EXPECT_EQ(Register(nullptr), -1);
  EXPECT_TRUE(server_.HasNothing(0ms));
}

TEST_F(JobChannel, WakeCutsAWaitShort) {
  Open();
  std::thread waker([this] {
    server_.Receive(15);
    wake_.Raise();
  });
  const Stopwatch watch;
  EXPECT_EQ(Register(), -1);
  EXPECT_LT(watch.Elapsed(), 2s);
  waker.join();
}

TEST_F(JobChannel, WakeGoesBeforeBytes) {
  Open();
  ASSERT_TRUE(server_.SendByte(7));
  ASSERT_EQ(wait_channel(scan_.Get(), 1'000, {}), NW_WAIT_READY);
  wake_.Raise();
  EXPECT_EQ(wait_channel(scan_.Get(), 1'000, {wake_.Get(), -1}), NW_WAIT_WOKEN);
  EXPECT_EQ(wait_channel(scan_.Get(), 1'000, {-1, wake_.Get()}), NW_WAIT_WOKEN);
}

TEST_F(JobChannel, TakingReceivesWhatIsThereAndNeverWaits) {
  Open();
  std::uint8_t bytes[4] = {};
  std::size_t got = 9;
  EXPECT_EQ(take_channel(scan_.Get(), bytes, sizeof bytes, &got), NW_WAIT_TIMEOUT);
  EXPECT_EQ(got, 0u);
  ASSERT_TRUE(server_.SendByte(7));
  ASSERT_EQ(wait_channel(scan_.Get(), 1'000, {}), NW_WAIT_READY);
  EXPECT_EQ(take_channel(scan_.Get(), bytes, sizeof bytes, &got), NW_WAIT_READY);
  EXPECT_EQ(got, 1u);
  EXPECT_EQ(bytes[0], 7);
  server_.Close();
  ASSERT_EQ(wait_channel(scan_.Get(), 1'000, {}), NW_WAIT_READY);
  EXPECT_EQ(take_channel(scan_.Get(), bytes, sizeof bytes, &got), NW_WAIT_READY);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(take_channel(-1, bytes, sizeof bytes, &got), NW_WAIT_ERROR);
}

TEST_F(JobChannel, ClosedSocketIsAnErrorNotAWait) {
  EXPECT_EQ(wait_channel(-1, 1'000, {}), NW_WAIT_ERROR);
  char byte = 0;
  std::size_t got = 1;
  EXPECT_EQ(read_channel(-1, &byte, 1, 1'000, {}, &got), NW_WAIT_ERROR);
  EXPECT_EQ(got, 0u);
}

void OnAlarm(int) {}

TEST_F(JobChannel, SignalsNeitherEndNorLengthenAWait) {
  struct sigaction action {
  }, before{};
  action.sa_handler = OnAlarm;  // without SA_RESTART
  ::sigaction(SIGALRM, &action, &before);
  const itimerval storm{{0, 1'000}, {0, 1'000}}, calm{};
  ::setitimer(ITIMER_REAL, &storm, nullptr);
  Open();
  const Stopwatch watch;
  const NW_WAIT waited = wait_channel(scan_.Get(), 100, {});
  const auto elapsed = watch.Elapsed();
  ::setitimer(ITIMER_REAL, &calm, nullptr);
  ::sigaction(SIGALRM, &before, nullptr);
  EXPECT_EQ(waited, NW_WAIT_TIMEOUT);
  EXPECT_GE(elapsed, 99ms);
  EXPECT_LT(elapsed, 1s);
}

}  // namespace
}  // namespace vox::test
