// The rendezvous file: who holds its lock is the server, and its text is the server's port.
#include "vox/drivers/net/bonjour.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/unit/core/Scratch.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::test {
namespace {

namespace fs = std::filesystem;

class Bonjour : public ::testing::Test {
 protected:
  ~Bonjour() override { bonjour_unregister(server_); }

  std::string Folder() const { return scratch_.Path("var/tmp"); }
  std::string File() const { return Folder() + "/com.veltronix.vox.lpd.lock"; }
  int Register(unsigned short port) {
    return server_ = bonjour_register("vox", kScannerServiceType, port);
  }
  // The port that a client finds; 0 when it finds no server.
  static unsigned Resolve() {
    unsigned short port = 0;
    return bonjour_resolve("vox", kScannerServiceType, &port) == 0 ? port : 0;
  }
  void Write(const std::string& text) {
    fs::create_directories(Folder());
    std::ofstream(File()) << text;
  }
  std::string Text() const {
    std::ifstream stream(File());
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  // A lock of the kind that a server of another make takes, in a process of its own.
  // Returns 0 when the process got it.
  int LockfInAnotherProcess() const {
    const std::string path = File();
    const pid_t child = ::fork();
    if (child == 0) {
      const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
      ::_exit(fd >= 0 && ::lockf(fd, F_TLOCK, 0) == 0 ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WEXITSTATUS(status);
  }

  Scratch scratch_;
  Variable root_{"VOX_ROOT", scratch_.Path("")};
  int server_ = -1;
};

TEST_F(Bonjour, ServerIsFoundAtItsPort) {
  ASSERT_GE(Register(40123), 0);
  EXPECT_EQ(Text(), "40123\n");
  EXPECT_EQ(Resolve(), 40123u);
}

TEST_F(Bonjour, LockStaysBehindWhenAProgramIsStarted) {
  ASSERT_GE(Register(40123), 0);
  EXPECT_EQ(::fcntl(server_, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(Bonjour, NoFileMeansNoServer) {
  EXPECT_EQ(Resolve(), 0u);
}

TEST_F(Bonjour, FileThatNobodyHoldsMeansNoServer) {
  Write("40123\n");
  EXPECT_EQ(Resolve(), 0u);
}

TEST_F(Bonjour, UnregisteringEndsIt) {
  Register(40123);
  bonjour_unregister(server_);
  server_ = -1;
  EXPECT_EQ(Resolve(), 0u);
  EXPECT_GE(Register(40124), 0);
}

TEST_F(Bonjour, SecondServerIsToldThatOneRuns) {
  Register(40123);
  EXPECT_EQ(bonjour_register("vox", kScannerServiceType, 40124), -1);
  EXPECT_EQ(errno, EWOULDBLOCK);
  EXPECT_EQ(Resolve(), 40123u);
}

TEST_F(Bonjour, ClosingAnotherDescriptorOfTheFileKeepsTheLock) {
  Register(40123);
  { const FileDescriptor other(::open(File().c_str(), O_RDWR | O_CLOEXEC)); }
  EXPECT_EQ(Resolve(), 40123u);
  EXPECT_EQ(Resolve(), 40123u);
}

TEST_F(Bonjour, LockMeetsTheRecordLocksOfOtherProcesses) {
  Register(40123);
  EXPECT_NE(LockfInAnotherProcess(), 0);
  bonjour_unregister(server_);
  server_ = -1;
  EXPECT_EQ(LockfInAnotherProcess(), 0);
}

TEST_F(Bonjour, ServerOfAnotherMakeIsFound) {
  Write("40125\n");
  int ready[2], done[2];
  ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
  ASSERT_EQ(::pipe2(done, O_CLOEXEC), 0);
  const std::string path = File();
  const pid_t child = ::fork();
  if (child == 0) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (::lockf(fd, F_TLOCK, 0) != 0) ::_exit(1);
    char byte = 0;
    if (::write(ready[1], &byte, 1) != 1) ::_exit(1);
    ::close(done[1]);
    if (::read(done[0], &byte, 1) != 0) ::_exit(1);  // until the parent closes its end
    ::_exit(0);
  }
  ::close(ready[1]);
  ::close(done[0]);
  char byte = 1;
  EXPECT_EQ(::read(ready[0], &byte, 1), 1);
  EXPECT_EQ(Resolve(), 40125u);
  EXPECT_EQ(Register(40126), -1);
  ::close(done[1]);
  ::close(ready[0]);
  ::waitpid(child, nullptr, 0);
}

TEST_F(Bonjour, ShorterPortLeavesNothingOfTheLongerOne) {
  Write("40123\nleft over from an earlier server\n");
  Register(81);
  EXPECT_EQ(Text(), "81\n");
}

TEST_F(Bonjour, EveryUserMayOpenTheFileWhateverTheUmask) {
  const mode_t before = ::umask(0077);
  Register(40123);
  ::umask(before);
  struct stat status {};
  ASSERT_EQ(::stat(File().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0666u);
}

TEST_F(Bonjour, SymbolicLinkIsNotFollowed) {
  fs::create_directories(Folder());
  const std::string target = scratch_.Path("precious");
  std::ofstream(target) << "precious";
  fs::create_symlink(target, File());
  EXPECT_EQ(Register(40123), -1);
  EXPECT_EQ(fs::file_size(target), 8u);
}

TEST_F(Bonjour, SecondNameOfAFileIsNotWrittenTo) {
  fs::create_directories(Folder());
  const std::string target = scratch_.Path("precious");
  std::ofstream(target) << "precious";
  fs::create_hard_link(target, File());
  EXPECT_EQ(Register(40123), -1);
  EXPECT_EQ(fs::file_size(target), 8u);
}

TEST_F(Bonjour, PipeIsNoLockFile) {
  fs::create_directories(Folder());
  ASSERT_EQ(::mkfifo(File().c_str(), 0666), 0);
  EXPECT_EQ(Register(40123), -1);
  EXPECT_EQ(Resolve(), 0u);
}

struct PortText {
  const char* text;
  unsigned port;  // 0: refused
  const char* reason;
};

class BonjourPortText : public Bonjour, public ::testing::WithParamInterface<PortText> {};

TEST_P(BonjourPortText, IsTakenOrRefused) {
  Register(40123);
  Write(GetParam().text);  // whatever the lock's holder wrote
  EXPECT_EQ(Resolve(), GetParam().port) << GetParam().reason;
}

INSTANTIATE_TEST_SUITE_P(
    Table, BonjourPortText,
    ::testing::Values(PortText{"1\n", 1, "the least port"},
                      PortText{"65535\n", 65535, "the greatest port"},
                      PortText{"3900", 3900, "no newline"},
                      PortText{" 3900 tail", 3900, "text around the number"},
                      PortText{"0\n", 0, "port 0 is nobody's"},
                      PortText{"65536\n", 0, "more than 16 bits"},
                      PortText{"-3900\n", 0, "negative"}, PortText{"", 0, "nothing written yet"},
                      PortText{"port\n", 0, "no number"},
                      PortText{"9999999999999999999999\n", 0, "more digits than are read"}));

}  // namespace
}  // namespace vox::test
