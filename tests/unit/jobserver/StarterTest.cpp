// The starter: a server where none runs, found afterwards, in a session of its own.
#include "tools/voxjobd/Starter.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include "tests/unit/jobserver/JobServerFixture.h"
#include "vox/drivers/net/bonjour.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::test {
namespace {

namespace fs = std::filesystem;

class Starter : public ::testing::Test {
 protected:
  Starter() {
    options_.program = VOXJOBD_PROGRAM;
    options_.arguments = {"--device-port", "0"};
  }
  ~Starter() override {
    const pid_t server = ServerPid();
    if (server > 0) ::kill(server, SIGKILL);
  }

  static unsigned Resolve() {
    unsigned short port = 0;
    return bonjour_resolve("vox", kScannerServiceType, &port) == 0 ? port : 0;
  }
  // The process that has this test's lock file open; 0: none.
  pid_t ServerPid() const {
    const std::string lock =
        fs::weakly_canonical(scratch_.Path("var/tmp")) / "com.veltronix.vox.lpd.lock";
    for (const auto& process : fs::directory_iterator("/proc")) {
      std::error_code gone;
      for (fs::directory_iterator fd(process.path() / "fd", gone), end; !gone && fd != end;
           fd.increment(gone)) {
        if (fs::read_symlink(fd->path(), gone) == lock) {
          return static_cast<pid_t>(std::stol(process.path().filename()));
        }
        gone.clear();
      }
    }
    return 0;
  }
  std::string Script(const std::string& text) const {
    const std::string path = scratch_.Path("script");
    std::ofstream(path) << "#!/bin/sh\n" << text << "\n";
    fs::permissions(path, fs::perms::owner_all);
    return path;
  }

  Scratch scratch_;
  Variable root_{"VOX_ROOT", scratch_.Path("")};
  JobServerStarterOptions options_;
};

TEST_F(Starter, StartsAServerAndWaitsUntilItIsReady) {
  const JobServerPresence presence = EnsureJobServer(options_);
  EXPECT_TRUE(presence.running) << presence.error;
  EXPECT_TRUE(presence.started);
  EXPECT_TRUE(TcpPeer::Connect(static_cast<std::uint16_t>(Resolve())).IsOpen());
}

TEST_F(Starter, ServerLivesInASessionOfItsOwn) {
  ASSERT_TRUE(EnsureJobServer(options_).running);
  const pid_t server = ServerPid();
  ASSERT_GT(server, 0);
  EXPECT_NE(::getsid(server), ::getsid(0));
}

TEST_F(Starter, NothingOfTheStartingProgramStaysOpenInTheServer) {
  const std::string document = fs::weakly_canonical(scratch_.Path("")) / "document";
  // Not close-on-exec, like the files of many a program that scans.
  const FileDescriptor open(::open(document.c_str(), O_RDWR | O_CREAT, 0600));
  ASSERT_TRUE(open);
  ASSERT_TRUE(EnsureJobServer(options_).running);
  const pid_t server = ServerPid();
  ASSERT_GT(server, 0);
  int looked_at = 0;
  for (const auto& fd : fs::directory_iterator("/proc/" + std::to_string(server) + "/fd")) {
    EXPECT_NE(fs::read_symlink(fd.path()), document);
    ++looked_at;
  }
  EXPECT_GT(looked_at, 3);
}

TEST_F(Starter, SecondCallFindsTheFirstServer) {
  ASSERT_TRUE(EnsureJobServer(options_).running);
  const unsigned port = Resolve();
  const JobServerPresence presence = EnsureJobServer(options_);
  EXPECT_TRUE(presence.running);
  EXPECT_FALSE(presence.started);
  EXPECT_EQ(Resolve(), port);
}

TEST_F(Starter, TwoCallersAtOnceGetOneServer) {
  JobServerPresence one, other;
  std::thread first([&] { one = EnsureJobServer(options_); });
  std::thread second([&] { other = EnsureJobServer(options_); });
  first.join();
  second.join();
  EXPECT_TRUE(one.running) << one.error;
  EXPECT_TRUE(other.running) << other.error;
}

TEST_F(Starter, MissingProgramIsNamed) {
  options_.program = scratch_.Path("nothing/voxjobd");
  options_.patience = std::chrono::milliseconds(300);
  const JobServerPresence presence = EnsureJobServer(options_);
  EXPECT_FALSE(presence.running);
  EXPECT_EQ(presence.error, "cannot run " + options_.program + ": No such file or directory");
}

TEST_F(Starter, LastWordsOfAServerThatFailsArePassedOn) {
  options_.program = Script("echo 'voxjobd: cannot listen on port 3893' >&2; exit 3");
  options_.patience = std::chrono::milliseconds(500);
  const JobServerPresence presence = EnsureJobServer(options_);
  EXPECT_FALSE(presence.running);
  EXPECT_EQ(presence.error, "voxjobd: cannot listen on port 3893");
}

TEST_F(Starter, ServerThatNeverGetsReadyIsGivenUp) {
  options_.program = Script("exec sleep 1");
  options_.patience = std::chrono::milliseconds(100);
  const auto before = std::chrono::steady_clock::now();
  const JobServerPresence presence = EnsureJobServer(options_);
  EXPECT_LT(std::chrono::steady_clock::now() - before, 1s);
  EXPECT_FALSE(presence.running);
  EXPECT_FALSE(presence.error.empty());
}

TEST_F(Starter, ServerEndsByItselfWhenAsked) {
  const std::string seen = scratch_.Path("arguments");
  options_.program = Script("echo \"$@\" > " + seen);
  options_.patience = std::chrono::milliseconds(200);
  EnsureJobServer(options_);
  std::string line;
  for (int i = 0; i < 500 && !std::getline(std::ifstream(seen), line); ++i) ::usleep(10'000);
  EXPECT_EQ(line, "--exit-when-idle --device-port 0");
}

// Where a server may lie as it is seen from a program in bin/vox/, which is no server.
class FoundServer : public Starter {
 protected:
  std::string Put(const std::string& folder) const {
    fs::create_directories(scratch_.Path(folder));
    fs::copy_file(Script("exit 0"), scratch_.Path(folder) + "/voxjobd");
    return scratch_.Path(folder) + "/voxjobd";
  }
  std::string Found() const { return FindJobServerFrom(scratch_.Path("bin/vox/vox")); }

  // An installed server would come before the one in PATH.
  const std::string installed_ = VOX_INSTALL_BINDIR "/voxjobd";
  const Variable path_{"PATH", "relative:" + scratch_.Path("empty") + ":" + scratch_.Path("path")};
};

TEST_F(FoundServer, IsTheOneBesideTheProgram) {
  Put("path");
  Put("bin/voxjobd");
  const std::string beside = Put("bin/vox");
  EXPECT_EQ(Found(), beside);
}

TEST_F(FoundServer, IsTheOneInTheFolderBesideTheProgramsOwn) {
  Put("path");
  const std::string neighbour = Put("bin/voxjobd");
  EXPECT_EQ(Found(), neighbour);
}

TEST_F(FoundServer, IsTheOneInPath) {
  const std::string in_path = Put("path");
  EXPECT_EQ(Found(), fs::exists(installed_) ? installed_ : in_path);
  EXPECT_EQ(FindJobServer(), Found()) << "this test's own folder has none";
}

TEST_F(FoundServer, IsNeverTheOneInTheWorkingFolder) {
  Put("here");
  const fs::path before = fs::current_path();
  fs::current_path(scratch_.Path("here"));
  EXPECT_EQ(FindJobServerFrom({}), fs::exists(installed_) ? installed_ : "");
  fs::current_path(before);
}

TEST_F(FoundServer, IsAProgramAndNoFolderOrText) {
  fs::create_directories(scratch_.Path("bin/vox/voxjobd"));
  fs::permissions(Put("bin/voxjobd"), fs::perms::owner_read);
  EXPECT_EQ(Found(), fs::exists(installed_) ? installed_ : "");
}

}  // namespace
}  // namespace vox::test
