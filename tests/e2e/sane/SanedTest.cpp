// The backend behind saned, the daemon that shares scanners with a network: found and scanned by a
// client folder that has no backend but "net".
#include <chrono>
#include <csignal>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/e2e/sane/SaneFixture.h"
#include "tests/support/SmallDevice.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::cli::test {
namespace {

using namespace std::chrono_literals;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

constexpr std::uint16_t kPort = 6566;

bool Connects() {
  const FileDescriptor sock(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in at{};
  at.sin_family = AF_INET;
  at.sin_port = htons(kPort);
  at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return ::connect(sock.Get(), reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0;
}

class Saned : public Sane {
 protected:
  void SetUp() override {
    Sane::SetUp();
    if (IsSkipped()) return;
    if (std::system("command -v saned >/dev/null") != 0 && ::access("/usr/sbin/saned", X_OK) != 0)
      GTEST_SKIP() << "saned (Debian package sane-utils) is not installed";
    ::setenv("PATH", (std::string("/usr/sbin:") + std::getenv("PATH")).c_str(), 1);
    Put(2, "Office");
    place_->MakeFolder("client", "net");
    std::ofstream(vox_.File("client") + "/net.conf") << "connect_timeout = 20\n127.0.0.1\n";
    std::ofstream(vox_.File("conf") + "/saned.conf") << "127.0.0.1\n";
  }
  void TearDown() override {
    if (serving_) {
      server_.Signal(SIGTERM);
      server_.Wait();
    }
    Sane::TearDown();
  }
  void Serve(const std::vector<std::string>& lines) {
    place_->Configure(lines);
    server_.StartCommand(SanePlace::Judge("saned", "-l -p 6566 -b 127.0.0.1 -e"));
    serving_ = true;
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (!Connects()) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "saned does not answer";
      std::this_thread::sleep_for(20ms);
    }
  }
  Outcome Client(const std::string& arguments) {
    const std::string own = std::getenv("SANE_CONFIG_DIR");
    ::setenv("SANE_CONFIG_DIR", vox_.File("client").c_str(), 1);
    const Outcome outcome = Scanimage(arguments);
    ::setenv("SANE_CONFIG_DIR", own.c_str(), 1);
    return outcome;
  }

  VoxProgram server_;
  bool serving_ = false;
};

TEST_F(Saned, PagesOfAClientEqualThoseOfVoxByteForByte) {
  Serve({"device net:127.0.0.2"});
  for (const char* mode : {"Lineart", "Gray", "Color"}) {
    SCOPED_TRACE(mode);
    const Outcome outcome = Client(std::string("-d net:127.0.0.1:") + kAt2 +
                                   " --resolution 75 --format=pnm -o page.pnm --mode " + mode);
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    std::string lower = mode;
    lower[0] = static_cast<char>(lower[0] - 'A' + 'a');
    EXPECT_TRUE(SameFile(Pnm("page.pnm"), VoxPnm("--resolution 75 --mode " + lower)));
  }
}

TEST_F(Saned, ADeviceHasItsStableNameForAClientToo) {
  Serve({"device net:127.0.0.2"});
  const Outcome outcome = Client(
      "-d net:127.0.0.1:vox:net:02:56:58:00:00:02 --mode Gray --resolution 75 --format=pnm "
      "-o page.pnm");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(SameFile(Pnm("page.pnm"), VoxPnm("--resolution 75 --mode gray")));
}

TEST_F(Saned, AClientGetsEachPageOfAFeederOnce) {
  sim::DeviceOptions options = vox::test::SmallFeeder(3, true);
  options.reload_feeder = true;
  options.address = "127.0.0.3";
  options.snmp_port = 161;
  options.command_port = 3892;
  Put(std::move(options));
  Serve({});
  for (const bool both_sides : {false, true}) {
    SCOPED_TRACE(both_sides);
    const Outcome outcome = Client(
        std::string("-d net:127.0.0.1:vox:net:127.0.0.3 --mode Gray --resolution 100 --format=pnm "
                    "--batch=p%d.pnm --source ") +
        (both_sides ? "'ADF Duplex'" : "ADF"));
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    Good(std::string("scan net:127.0.0.3 --format pnm --batch v%d.pnm --mode gray "
                     "--resolution 100") +
         (both_sides ? " --duplex" : ""));
    const std::vector<std::string> pages = Files("p");
    EXPECT_THAT(pages, SizeIs(both_sides ? 6 : 3));
    EXPECT_THAT(Files("v"), SizeIs(pages.size()));
    for (const std::string& page : pages) {
      EXPECT_TRUE(SameFile(Pnm(page), Text("v" + page.substr(1)))) << page;
    }
  }
}

TEST_F(Saned, DevicesOfTheNetworkAreNotPassedOnUnlessTheConfigurationSaysSo) {
  Serve({"device net:127.0.0.2"});
  const Outcome outcome = Client("-L");
  EXPECT_THAT(outcome.out, Not(HasSubstr("vox:")));
}

TEST_F(Saned, TheConfigurationLetsThemBePassedOn) {
  Serve({"device net:127.0.0.2", "network-when-local-only on"});
  const Outcome outcome = Client("-L");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("`net:127.0.0.1:vox:net:"));
  EXPECT_THAT(outcome.out, HasSubstr(" multi-function peripheral\n"));
}

TEST_F(Saned, AClientThatCancelsLeavesTheDeviceReadyForTheNext) {
  Serve({"device net:127.0.0.2"});
  sim::Faults slow;
  slow.delays.data = 300ms;
  devices_[0]->SetFaults(slow);
  const std::string own = std::getenv("SANE_CONFIG_DIR");
  ::setenv("SANE_CONFIG_DIR", vox_.File("client").c_str(), 1);
  StartScanimage(std::string("-d net:127.0.0.1:") + kAt2 +
                 " --mode Gray --resolution 300 --format=pnm -o page.pnm");
  ::setenv("SANE_CONFIG_DIR", own.c_str(), 1);
  ASSERT_TRUE(devices_[0]->Events().WaitFor(sim::EventKind::kScanInfoSent, 1, 60s));
  std::this_thread::sleep_for(300ms);
  vox_.Signal(SIGINT);
  const Outcome cancelled = vox_.Wait();
  // The client's own part may see the connection end before it hears why.
  EXPECT_THAT(cancelled.status, AnyOf(kCancelled, kIoError)) << cancelled.err;
  devices_[0]->SetFaults({});
  const Outcome outcome = Client(std::string("-d net:127.0.0.1:") + kAt2 +
                                 " --mode Gray --resolution 75 --format=pnm -o again.pnm");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

}  // namespace
}  // namespace vox::cli::test
