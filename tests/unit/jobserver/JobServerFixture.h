// A job server in a thread, behind a machine-wide root of its own, and the people at its doors.
#pragma once

#include <chrono>
#include <cstdint>
#include <fstream>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "tests/support/TcpPeer.h"
#include "tests/unit/core/Scratch.h"
#include "tools/voxjobd/JobServer.h"
#include "tools/voxjobd/Messages.h"
#include "vox/platform/SystemLog.h"

namespace vox::test {

using namespace std::chrono_literals;

// A job as both sides name it. The device speaks from 127.0.0.1 unless a test says otherwise.
inline constexpr std::uint32_t kLoopbackAddress = 0x7F000001;
inline constexpr JobKey kJob{
    kLoopbackAddress, {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}, 0x1234};

inline Bytes NoticeOf(const JobKey& key, std::uint8_t command = kPageNotice) {
  const auto bytes = BuildNotice({key.job_id, key.sequence_id, command});
  return {bytes.begin(), bytes.end()};
}

inline Bytes Pattern(std::size_t size) {
  Bytes bytes(size);
  std::uint32_t state = 1;
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>((state = state * 69069 + 5) >> 24);
  return bytes;
}

// LogKeeper collects what goes to the system log while it lives.
class LogKeeper {
 public:
  LogKeeper() {
    before_ = SetSystemLogSink([this](const std::string& line) {
      const std::lock_guard lock(mutex_);
      lines_.push_back(line);
    });
  }
  ~LogKeeper() { SetSystemLogSink(std::move(before_)); }
  std::string Text() const {
    const std::lock_guard lock(mutex_);
    std::string text;
    for (const std::string& line : lines_) text += line + "\n";
    return text;
  }
  bool AwaitsText(const std::string& part) const {
    for (int i = 0; i < 500 && Text().find(part) == std::string::npos; ++i) {
      ::usleep(10'000);
    }
    return Text().find(part) != std::string::npos;
  }

 private:
  SystemLogSink before_;
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

class WithJobServer : public ::testing::Test {
 protected:
  WithJobServer() {
    options_.device_port = 0;
    options_.device_address = "127.0.0.1";
  }
  void Start() { ASSERT_TRUE(server_.Start(options_)) << server_.Error(); }

  // ---- the client's side
  TcpPeer Client() { return TcpPeer::Connect(server_.Ports().client); }
  static bool SendRegistration(TcpPeer& client, const JobKey& key = kJob, std::uint8_t type = 0) {
    return client.Send(BuildRegistration({type, key}));
  }
  // Registered gives a client that the server has accepted.
  TcpPeer Registered(const JobKey& key = kJob) {
    TcpPeer client = Client();
    EXPECT_TRUE(SendRegistration(client, key));
    EXPECT_EQ(client.Receive(1), Bytes{kRegistrationAccepted});
    return client;
  }

  // ---- the device's side
  TcpPeer Device(const std::string& from = {}) {
    return TcpPeer::Connect(server_.Ports().device, from);
  }
  TcpPeer Announced(const JobKey& key = kJob, std::uint8_t command = kPageNotice) {
    TcpPeer device = Device();
    EXPECT_TRUE(device.Send(NoticeOf(key, command)));
    return device;
  }

  // ---- both, brought together and with the notice taken
  struct Pair {
    TcpPeer client, device;
  };
  Pair Met(const JobKey& key = kJob) {
    Pair pair{Registered(key), Announced(key)};
    EXPECT_EQ(pair.client.Receive(kNoticeSize), NoticeOf(key));
    return pair;
  }
  static bool HasMet(TcpPeer& client, TcpPeer& device) {
    return client.Receive(kNoticeSize).size() == kNoticeSize && client.SendByte(1) &&
           device.Receive(1) == Bytes{1};
  }

  // CPU time of this process, all threads, in milliseconds.
  static long CpuMs() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1'000 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1'000;
  }

  Scratch scratch_;
  Variable root_{"VOX_ROOT", scratch_.Path("")};
  LogKeeper log_;
  JobServerOptions options_;
  JobServer server_;
};

}  // namespace vox::test
