// What umockdev meets when a program stops listening while an event is sent to it.
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/FileDescriptor.h"
#include "sim/usbbus/MonitorSend.h"

namespace vox::sim {
namespace {

class Monitors : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SendsToMonitorsThatAreGone());
    path_ = testing::TempDir() + "monitor." + std::to_string(::getpid());
    ASSERT_LT(path_.size(), sizeof address_.sun_path);
    address_.sun_family = AF_UNIX;
    path_.copy(address_.sun_path, path_.size());
  }
  void TearDown() override { std::filesystem::remove(path_); }

  static FileDescriptor Socket(int type) {
    return FileDescriptor(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  }
  FileDescriptor Listener(int type) {
    FileDescriptor socket = Socket(type);
    EXPECT_EQ(::bind(socket.Get(), Address(), sizeof address_), 0);
    return socket;
  }
  const sockaddr* Address() const { return reinterpret_cast<const sockaddr*>(&address_); }
  int Connect(const FileDescriptor& socket) {
    return ::connect(socket.Get(), Address(), sizeof address_);
  }
  static ssize_t Send(const FileDescriptor& socket) {
    char head[3] = {'a', 'b', 'c'}, body[4] = {'d', 'e', 'f', 'g'};
    iovec parts[2] = {{head, sizeof head}, {body, sizeof body}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    return ::sendmsg(socket.Get(), &message, MSG_NOSIGNAL);
  }

  std::string path_;
  sockaddr_un address_{};
};

// umockdev's sender has a SOCK_RAW, which unix(7) makes a datagram socket.
TEST_F(Monitors, ThatHaveGoneSinceTheyWereConnectedCountAsReached) {
  FileDescriptor listener = Listener(SOCK_DGRAM);
  const FileDescriptor sender = Socket(SOCK_RAW);
  ASSERT_EQ(Connect(sender), 0);
  EXPECT_EQ(Send(sender), 7);
  char got[16];
  EXPECT_EQ(::recv(listener.Get(), got, sizeof got, 0), 7);
  listener.Reset();
  EXPECT_EQ(Send(sender), 7);
}

TEST_F(Monitors, WhoseFileHasGoneRefuse) {
  EXPECT_EQ(Connect(Socket(SOCK_RAW)), -1);
  EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(Monitors, WhoseFileIsLeftRefuse) {
  Listener(SOCK_DGRAM).Reset();
  EXPECT_EQ(Connect(Socket(SOCK_RAW)), -1);
  EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(Monitors, LeaveOtherErrorsAndOtherSocketsAsTheyAre) {
  EXPECT_EQ(Connect(Socket(SOCK_STREAM)), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(Send(Socket(SOCK_DGRAM)), -1);
  EXPECT_EQ(errno, ENOTCONN);
  EXPECT_EQ(Send(FileDescriptor()), -1);
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
}  // namespace vox::sim
