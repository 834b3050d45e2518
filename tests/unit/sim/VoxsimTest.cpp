// The program voxsim, as it is started by people and scripts.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/unit/sim/ScriptedHost.h"

extern char** environ;

namespace vox::sim {
namespace {

// One run of voxsim; its output and errors come through one pipe each.
class Voxsim {
 public:
  explicit Voxsim(std::vector<std::string> arguments) {
    int out[2], err[2];
    EXPECT_EQ(::pipe2(out, O_CLOEXEC), 0);
    EXPECT_EQ(::pipe2(err, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    arguments.insert(arguments.begin(), VOXSIM_PROGRAM);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    EXPECT_EQ(::posix_spawn(&pid_, VOXSIM_PROGRAM, &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    out_.Reset(out[0]);
    err_.Reset(err[0]);
  }
  ~Voxsim() {
    if (pid_ > 0) Signal(SIGKILL), Wait();
  }
  void Signal(int signal) { ::kill(pid_, signal); }
  int Wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string Line() { return ReadUntil(out_, '\n'); }
  std::string Errors() { return ReadUntil(err_, '\0'); }

 private:
  static std::string ReadUntil(const FileDescriptor& pipe, char end) {
    std::string text;
    for (char c; ::read(pipe.Get(), &c, 1) == 1 && c != end;) text += c;
    return text;
  }
  pid_t pid_ = -1;
  FileDescriptor out_, err_;
};

TEST(VoxsimProgram, PrintsItsPortsAndEndsOnSigterm) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Voxsim voxsim({"--address", "127.0.0.3", "--model", "QD7100", "--name", "A \"name\"", "--mac",
                   "00:11:22:aa:bb:cc", "--device-port", "4000"});
    const auto ports = nlohmann::json::parse(voxsim.Line());
    EXPECT_EQ(ports["address"], "127.0.0.3");
    EXPECT_GT(ports["snmpPort"], 0);
    EXPECT_GT(ports["commandPort"], 0);
    EXPECT_EQ(ports["devicePort"], 4000);
    EXPECT_EQ(ports["model"], "QD7100");
    EXPECT_EQ(ports["name"], "A \"name\"");
    EXPECT_EQ(ports["mac"], "00:11:22:aa:bb:cc");
    voxsim.Signal(signal);
    EXPECT_EQ(voxsim.Wait(), 0);
    EXPECT_EQ(voxsim.Errors(), "");
  }
}

TEST(VoxsimProgram, SaysInOneLineWhatIsWrong) {
  const std::string bad_page = ::testing::TempDir() + "/voxsim-bad-page";
  std::ofstream(bad_page) << "no image";
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string error;
  } rows[] = {
      {{"--fault", "midnight"}, 64, "voxsim: --fault: no such fault: midnight\n"},
      {{"--mac", "1:2"}, 64, "voxsim: --mac 1:2\n"},
      {{"--bed", "0,5"}, 64, "voxsim: --bed: 0.1 to 100 inches\n"},
      {{"/nowhere.png"}, 4, "voxsim: /nowhere.png: cannot be opened\n"},
      {{bad_page}, 4, "voxsim: " + bad_page + ": neither PNM nor PNG nor TIFF\n"},
      {{"--address", "here"}, 9, "voxsim: here is no IPv4 address\n"},
      {{"--range", "600,75"}, 9, "voxsim: a unit whose resolutions or sizes make no sense\n"},
      {{"--prepare", "600", "--cache", "1", "--template", "3", "--raw"},
       4,
       "voxsim: the pages to be prepared do not fit (--cache)\n"}};
  for (const auto& row : rows) {
    Voxsim voxsim(row.arguments);
    EXPECT_EQ(voxsim.Line(), "") << row.error;
    EXPECT_EQ(voxsim.Errors(), row.error);
    EXPECT_EQ(voxsim.Wait(), row.status) << row.error;
  }
  Voxsim unknown({"--nonsense"});
  EXPECT_NE(unknown.Errors(), "");
  EXPECT_EQ(unknown.Wait(), 64);
  Voxsim help({"--help"});
  EXPECT_NE(help.Line(), "");
  EXPECT_EQ(help.Wait(), 0);
}

}  // namespace
}  // namespace vox::sim
