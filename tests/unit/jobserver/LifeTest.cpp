// How a job server starts, ends, and gets over a shortage of descriptors.
#include <cerrno>

#include <sys/resource.h>

#include "tests/unit/jobserver/JobServerFixture.h"
#include "vox/drivers/net/bonjour.h"

namespace vox::test {
namespace {

using Clock = std::chrono::steady_clock;

class Life : public WithJobServer {
 protected:
  // The port that the lock file names; 0: no server.
  static unsigned Resolve() {
    unsigned short port = 0;
    return bonjour_resolve("vox", kScannerServiceType, &port) == 0 ? port : 0;
  }
};

TEST_F(Life, LockFileNamesTheClientDoor) {
  Start();
  EXPECT_EQ(Resolve(), server_.Ports().client);
  EXPECT_NE(server_.Ports().device, 0);
  server_.Stop();
  EXPECT_EQ(Resolve(), 0u);
}

// What users and devices may rely on; the other tests shorten most of it.
TEST(JobServerOptions, AreTheDocumentedOnes) {
  const JobServerOptions usual;
  EXPECT_EQ(usual.device_port, 3893);
  EXPECT_EQ(usual.device_address, "0.0.0.0");
  EXPECT_FALSE(usual.exit_when_idle);
  EXPECT_EQ(usual.times.registration, 10s);
  EXPECT_EQ(usual.times.notice, 10s);
  EXPECT_EQ(usual.times.meeting, 10s);
  EXPECT_EQ(usual.times.idle, 10s);
  EXPECT_EQ(usual.times.drain, 2s);
  EXPECT_EQ(usual.limits.waiting_registrations, 64u);
  EXPECT_EQ(usual.limits.waiting_devices, 256u);
  EXPECT_EQ(usual.limits.relays, 256u);
}

TEST_F(Life, SecondServerSaysThatOneRuns) {
  Start();
  JobServer second;
  EXPECT_FALSE(second.Start(options_));
  EXPECT_EQ(second.FailureKind(), JobServer::Failure::kRunsAlready);
  EXPECT_EQ(Resolve(), server_.Ports().client);
}

TEST_F(Life, SecondServerOnTheSamePortSaysThatOneRuns) {
  Start();
  JobServer second;
  options_.device_port = server_.Ports().device;
  EXPECT_FALSE(second.Start(options_));
  EXPECT_EQ(second.FailureKind(), JobServer::Failure::kRunsAlready);
}

TEST_F(Life, PortOfAnotherProgramIsNamed) {
  const TcpListener other;
  options_.device_port = other.Port();
  EXPECT_FALSE(server_.Start(options_));
  EXPECT_EQ(server_.FailureKind(), JobServer::Failure::kPortInUse);
  EXPECT_NE(server_.Error().find(std::to_string(other.Port())), std::string::npos);
  EXPECT_EQ(Resolve(), 0u);
}

// A connection that the first server closed keeps the port marked for a minute.
TEST_F(Life, ServerThatFollowsAnotherGetsItsPort) {
  options_.times.notice = 10ms;
  Start();
  options_.device_port = server_.Ports().device;
  {
    TcpPeer device = Device();
    EXPECT_EQ(device.AwaitEnd(), TcpPeer::End::kClosed);
  }
  server_.Stop();
  EXPECT_TRUE(server_.Start(options_)) << server_.Error();
}

TEST_F(Life, StopTwiceIsHarmless) {
  Start();
  server_.Stop();
  server_.Stop();
  Start();
  EXPECT_NE(Resolve(), 0u);
}

TEST_F(Life, StopSendsTheWaitingAway) {
  Start();
  TcpPeer client = Registered();
  TcpPeer device = Announced({kLoopbackAddress, kJob.job_id, 1});
  const auto before = Clock::now();
  server_.Stop();
  EXPECT_LT(Clock::now() - before, 1s);
  EXPECT_EQ(client.AwaitEnd(), TcpPeer::End::kClosed);
  // A close, or a reset where the notice had not been read yet.
  const TcpPeer::End end = device.AwaitEnd();
  EXPECT_TRUE(end == TcpPeer::End::kClosed || end == TcpPeer::End::kReset);
}

TEST_F(Life, StopPassesOnWhatItHolds) {
  Start();
  Pair pair = Met();
  const Bytes page = Pattern(1'000'000);
  const std::size_t sent = pair.device.SendWhatFits(page);
  pair.device.Close();
  server_.RequestStop();
  const Bytes got = pair.client.ReceiveAll();
  EXPECT_EQ(got.size(), sent);
  EXPECT_TRUE(std::equal(got.begin(), got.end(), page.begin()));
  pair.client.Close();
  server_.Stop();
}

TEST_F(Life, StopTakesNoNewWork) {
  Start();
  Pair pair = Met();
  const auto ports = server_.Ports();
  server_.RequestStop();
  // The doors close within a moment, while the relay goes on.
  while (TcpPeer::Connect(ports.device).IsOpen()) ::usleep(1'000);
  EXPECT_FALSE(TcpPeer::Connect(ports.client).IsOpen());
  ASSERT_TRUE(pair.device.SendByte(5));
  EXPECT_EQ(pair.client.Receive(1), Bytes{5});
  pair.device.Close();
  pair.client.Close();
  server_.Stop();
}

TEST_F(Life, StopCutsWhatDoesNotEnd) {
  options_.times.drain = 50ms;
  Start();
  Pair pair = Met();
  const auto before = Clock::now();
  server_.Stop();
  EXPECT_GE(Clock::now() - before, 50ms);
  EXPECT_EQ(pair.client.AwaitEnd(), TcpPeer::End::kReset);
  EXPECT_EQ(pair.device.AwaitEnd(), TcpPeer::End::kReset);
}

// The device has said all; what the client has not read yet is on its way, and is no half page.
TEST_F(Life, StopLetsAPageThatWasPassedOnArrive) {
  options_.times.drain = 500ms;  // enough to take in everything from the device
  Start();
  Pair pair = Met();
  const Bytes page = Pattern(1'000'000);
  const std::size_t sent = pair.device.SendWhatFits(page);
  pair.device.Close();
  server_.Stop();
  EXPECT_EQ(pair.client.ReceiveAll().size(), sent);
  EXPECT_EQ(pair.client.AwaitEnd(), TcpPeer::End::kClosed);
}

TEST_F(Life, LockIsHeldUntilTheEnd) {
  options_.times.drain = 100ms;
  Start();
  Pair pair = Met();
  const auto ports = server_.Ports();
  server_.RequestStop();
  while (TcpPeer::Connect(ports.client).IsOpen()) ::usleep(1'000);
  EXPECT_EQ(Resolve(), ports.client);
  server_.Stop();
  EXPECT_EQ(Resolve(), 0u);
}

class Idle : public Life {
 protected:
  Idle() {
    options_.exit_when_idle = true;
    options_.times.idle = 60ms;
  }
  // True when the server has ended within five seconds.
  static bool Ends() {
    for (int i = 0; i < 500 && Resolve() != 0; ++i) ::usleep(10'000);
    return Resolve() == 0;
  }
};

TEST_F(Idle, ServerThatNobodyNeedsEnds) {
  const auto before = Clock::now();
  Start();
  EXPECT_TRUE(Ends());
  EXPECT_GE(Clock::now() - before, 60ms);
}

TEST_F(Idle, RegistrationKeepsIt) {
  Start();
  TcpPeer client = Registered();
  ::usleep(200'000);
  EXPECT_NE(Resolve(), 0u);
  client.Close();
  EXPECT_TRUE(Ends());
}

TEST_F(Idle, RelayKeepsIt) {
  Start();
  Pair pair = Met();
  ::usleep(200'000);
  ASSERT_TRUE(pair.device.Send(Pattern(1'000)));
  EXPECT_EQ(pair.client.Receive(1'000), Pattern(1'000));
  pair.client.Close();
  pair.device.Close();
  EXPECT_TRUE(Ends());
}

TEST_F(Idle, ConnectionStartsTheTimeAnew) {
  options_.times.idle = 500ms;
  Start();
  ::usleep(300'000);
  { const TcpPeer knock = Client(); }
  ::usleep(300'000);
  EXPECT_NE(Resolve(), 0u);
}

TEST_F(Idle, WithoutTheOptionItStays) {
  options_.exit_when_idle = false;
  Start();
  ::usleep(150'000);
  EXPECT_NE(Resolve(), 0u);
}

// Lowers the number of descriptors that this process may have, and puts it back.
class Shortage {
 public:
  explicit Shortage(rlim_t limit) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    rlimit now = before_;
    now.rlim_cur = limit;
    ::setrlimit(RLIMIT_NOFILE, &now);
  }
  ~Shortage() { ::setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

TEST_F(Life, RunningOutOfDescriptorsNeitherSpinsNorLosesAnyone) {
  options_.times.accept_pause = 20ms;
  Start();
  TcpPeer client = TcpPeer::Unconnected();
  long spent = 0;
  {
    const Shortage shortage(static_cast<rlim_t>(client.Socket()) + 1);
    ASSERT_TRUE(client.Reach(server_.Ports().client));
    ASSERT_TRUE(SendRegistration(client));
    const long before = CpuMs();
    EXPECT_TRUE(client.HasNothing(300ms));
    spent = CpuMs() - before;
  }
  EXPECT_LE(spent, 60);
  EXPECT_EQ(client.Receive(1), Bytes{kRegistrationAccepted});
  const std::string text = log_.Text();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
}

}  // namespace
}  // namespace vox::test
