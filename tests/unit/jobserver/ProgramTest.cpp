// voxjobd as a program: its options, its exit statuses, its signals.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/unit/jobserver/JobServerFixture.h"
#include "vox/drivers/net/bonjour.h"

namespace vox::test {
namespace {

// Program is a run of voxjobd with its output in a pipe.
class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return;
    output_ = TcpPeer(FileDescriptor(ends[0]));
    const FileDescriptor write_end(ends[1]);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    arguments.insert(arguments.begin(), "voxjobd");
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    ::posix_spawn(&pid_, VOXJOBD_PROGRAM, &actions, nullptr, pointers.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      Wait();
    }
  }

  void Signal(int signal) const { ::kill(pid_, signal); }
  bool HasEnded() const {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == pid_;
  }
  int Wait() {
    int status = -1;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  std::string ReadLine() {
    std::string line;
    char byte = 0;
    while (::read(output_.Socket(), &byte, 1) == 1 && byte != '\n') line += byte;
    return line;
  }
  std::string ReadAll() {
    std::string text;
    char byte = 0;
    while (::read(output_.Socket(), &byte, 1) == 1) text += byte;
    return text;
  }

 private:
  pid_t pid_ = -1;
  TcpPeer output_;  // a pipe's read end
};

class VoxJobd : public ::testing::Test {
 protected:
  static unsigned Resolve() {
    unsigned short port = 0;
    return bonjour_resolve("vox", kScannerServiceType, &port) == 0 ? port : 0;
  }
  Scratch scratch_;
  Variable root_{"VOX_ROOT", scratch_.Path("")};
};

TEST_F(VoxJobd, NamesItsVersion) {
  Program program({"--version"});
  EXPECT_EQ(program.ReadAll().substr(0, 8), "voxjobd ");
  EXPECT_EQ(program.Wait(), 0);
}

TEST_F(VoxJobd, HelpNamesItsOptions) {
  Program program({"--help"});
  const std::string text = program.ReadAll();
  EXPECT_NE(text.find("--device-port"), std::string::npos);
  EXPECT_NE(text.find("--exit-when-idle"), std::string::npos);
  EXPECT_NE(text.find("3893"), std::string::npos) << "where devices look for it";
  EXPECT_EQ(program.Wait(), 0);
}

TEST_F(VoxJobd, WrongUseIsStatus64) {
  for (const char* wrong : {"--devise-port=1", "--device-port=65536", "--device-port=-1", "up"}) {
    Program program({wrong});
    EXPECT_FALSE(program.ReadAll().empty());
    EXPECT_EQ(program.Wait(), 64) << wrong;
  }
}

TEST_F(VoxJobd, PrintsTheDevicePortThatItPicked) {
  Program program({"--device-port", "0"});
  const std::string line = program.ReadLine();
  ASSERT_EQ(line.substr(0, 12), "device port ");
  EXPECT_TRUE(TcpPeer::Connect(static_cast<std::uint16_t>(std::stoi(line.substr(12)))).IsOpen());
}

TEST_F(VoxJobd, EndsInAnOrderlyWayOnEachStopSignal) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    Program program({"--device-port", "0"});
    program.ReadLine();
    EXPECT_NE(Resolve(), 0u);
    program.Signal(signal);
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_EQ(Resolve(), 0u);
  }
}

TEST_F(VoxJobd, SecondStartSaysThatOneRunsAlready) {
  Program first({"--device-port", "0"});
  first.ReadLine();
  Program second({"--device-port", "0"});
  EXPECT_EQ(second.ReadAll(), "voxjobd: a job server runs already\n");
  EXPECT_EQ(second.Wait(), 1);
}

TEST_F(VoxJobd, TakenPortIsNamedInOneLine) {
  const TcpListener other;
  Program program({"--device-port", std::to_string(other.Port())});
  const std::string text = program.ReadAll();
  EXPECT_NE(text.find(std::to_string(other.Port())), std::string::npos) << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
  EXPECT_EQ(program.Wait(), 3);
}

TEST_F(VoxJobd, LockFileThatCannotBeHadIsNamedInOneLine) {
  std::filesystem::create_directories(scratch_.Path("var/tmp"));
  const std::string lock = scratch_.Path("var/tmp") + "/com.veltronix.vox.lpd.lock";
  std::filesystem::create_symlink("elsewhere", lock);
  Program program({"--device-port", "0"});
  const std::string text = program.ReadAll();
  EXPECT_NE(text.find("com.veltronix.vox.lpd.lock: "), std::string::npos) << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
  EXPECT_EQ(program.Wait(), 9);
}

// Whoever stops it may go on doing so until it has ended.
TEST_F(VoxJobd, StormOfStopSignalsIsAsGoodAsOne) {
  for (int i = 0; i < 20; ++i) {
    Program program({"--device-port", "0"});
    program.ReadLine();
    while (!program.HasEnded()) program.Signal(SIGTERM);
    EXPECT_EQ(program.Wait(), 0);
  }
}

}  // namespace
}  // namespace vox::test
