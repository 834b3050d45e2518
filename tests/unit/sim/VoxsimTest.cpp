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

#include "tests/support/OptionsIn.h"
#include "tests/unit/sim/Asker.h"

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
  std::string Output() { return ReadUntil(out_, '\0'); }
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

std::string Documentation() {
  std::ifstream stream(VOX_SOURCE_DIR "/docs/virtual-device.md");
  return {std::istreambuf_iterator<char>(stream), {}};
}

TEST(VoxsimProgram, SleepsAndWakesOnSignals) {
  Voxsim voxsim({"--address", "127.0.0.3"});
  const std::uint16_t port = nlohmann::json::parse(voxsim.Line())["snmpPort"];
  Asker asker;
  const auto answers = [&](std::chrono::milliseconds patience) {
    asker.Ask("127.0.0.3", port);
    return !asker.Take(patience).empty();
  };
  EXPECT_TRUE(answers(kPatience));
  voxsim.Signal(SIGUSR1);
  while (answers(kMoment)) {
  }
  EXPECT_FALSE(answers(kMoment));
  voxsim.Signal(SIGUSR2);
  while (!answers(kMoment)) {
  }
  EXPECT_TRUE(answers(kPatience));
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
      {{"--mac", "1:2"}, 64, "voxsim: --mac 1:2: give six bytes, as in 02:56:58:00:00:01\n"},
      {{"--image-header", "tail"},
       64,
       "voxsim: --image-header tail: choose data, header or none\n"},
      {{"--name", std::string(256, 'n')}, 64, "voxsim: --name: 255 bytes at the most\n"},
      {{"--margins", "70000,0"}, 64, "voxsim: cut margins: at most 65535 pixels\n"},
      {{"--bed", "0,5"}, 64, "voxsim: --bed: 0.1 to 100 inches\n"},
      {{"/nowhere.png"}, 4, "voxsim: /nowhere.png: No such file or directory\n"},
      {{bad_page}, 4, "voxsim: " + bad_page + ": neither PNM nor PNG nor TIFF\n"},
      {{"--address", "here"}, 9, "voxsim: here is no IPv4 address\n"},
      {{"--range", "600,75"}, 64, "voxsim: a unit whose resolutions or sizes make no sense\n"},
      {{"--prepare", "600", "--cache", "1", "--template", "3", "--raw"},
       4,
       "voxsim: the pages to be prepared do not fit (--cache)\n"}};
  for (const auto& row : rows) {
    Voxsim voxsim(row.arguments);
    EXPECT_EQ(voxsim.Line(), "") << row.error;
    EXPECT_EQ(voxsim.Errors(), row.error);
    EXPECT_EQ(voxsim.Wait(), row.status) << row.error;
  }
}

TEST(VoxsimProgram, SaysInOneLineWhichOptionIsWrong) {
  const std::vector<std::vector<std::string>> rows = {
      {"--nonsense"},           {"--feeder", "0"},      {"--template", "4"},
      {"--bed", "8"},           {"--plane-order", "6"}, {"--threshold", "256"},
      {"--snmp-port", "65536"}, {"--page-dpi", "5"},    {"--cache", "99999999999"},
      {"--prepare", "0"},       {"--raw", "--jbig"},    {"--lines-per-block", "0"}};
  for (const auto& row : rows) {
    Voxsim voxsim(row);
    const std::string error = voxsim.Errors();
    EXPECT_TRUE(error.starts_with("voxsim: ")) << error;
    EXPECT_NE(error.find(row[0]), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), error.size() - 1) << error;
    EXPECT_EQ(voxsim.Wait(), 64) << error;
  }
}

TEST(VoxsimProgram, HelpsWithEveryOption) {
  Voxsim voxsim({"--help"});
  const std::string help = voxsim.Output();
  EXPECT_EQ(voxsim.Wait(), 0);
  for (const char c : help) EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << help;
  EXPECT_EQ(vox::test::OptionsIn(help), vox::test::OptionsIn(Documentation()));
}

}  // namespace
}  // namespace vox::sim
