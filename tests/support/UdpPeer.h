// A device for tests: a UDP socket on loopback and a script that says what it answers.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <netinet/in.h>

#include "tests/support/Hex.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox::test {

// Answer is one datagram that a peer sends back.
struct Answer {
  explicit Answer(Bytes datagram) : bytes(std::move(datagram)) {}
  Answer& From(const char* address) {  // another host of loopback
    from = address;
    return *this;
  }
  Answer& After(std::chrono::milliseconds pause) {  // counted from the answer before
    after = pause;
    return *this;
  }
  Bytes bytes;
  const char* from = nullptr;
  std::chrono::milliseconds after{0};
};
using Answers = std::vector<Answer>;

// UdpPeer answers each request with what the script says. `endless` repeats the answers until the
// peer goes.
class UdpPeer {
 public:
  using Script = std::function<Answers(const Bytes& request)>;
  explicit UdpPeer(Script script, const char* address = "127.0.0.1", std::uint16_t port = 0,
                   bool endless = false);
  ~UdpPeer();
  UdpPeer(const UdpPeer&) = delete;
  UdpPeer& operator=(const UdpPeer&) = delete;

  std::uint16_t Port() const { return port_; }
  std::vector<Bytes> Requests();  // so far
  // AwaitRequests waits until there were `count` of them, 10 s at most.
  std::vector<Bytes> AwaitRequests(std::size_t count);

 private:
  void Run();
  void Reply(const Answers& answers, const sockaddr_in& client);
  bool IsStopped(std::chrono::milliseconds wait) const;

  const Script script_;
  const bool endless_;
  FileDescriptor socket_;
  std::uint16_t port_ = 0;
  EventFd stop_;
  Mutex mutex_;
  Condition arrived_;
  std::vector<Bytes> requests_ VOX_GUARDED_BY(mutex_);
  std::thread thread_;
};

inline UdpPeer::Script Silent() {
  return [](const Bytes&) { return Answers{}; };
}
inline UdpPeer::Script Always(const Bytes& bytes) {
  return [bytes](const Bytes&) { return Answers{Answer(bytes)}; };
}

// NetSettings points the library at a peer and shortens its seconds; everything is as it was when
// it goes.
class NetSettings {
 public:
  explicit NetSettings(std::uint16_t port, std::uint32_t ms_per_second = 1000) {
    snmpPort = port;
    udpCommandPort = port;
    netMsPerSecond = ms_per_second;
  }
  explicit NetSettings(const UdpPeer& peer, std::uint32_t ms_per_second = 1000)
      : NetSettings(peer.Port(), ms_per_second) {}
  ~NetSettings() {
    snmpPort = snmp_port_;
    udpCommandPort = command_port_;
    netMsPerSecond = ms_per_second_;
  }
  NetSettings(const NetSettings&) = delete;
  NetSettings& operator=(const NetSettings&) = delete;

 private:
  const std::uint16_t snmp_port_ = snmpPort, command_port_ = udpCommandPort;
  const std::uint32_t ms_per_second_ = netMsPerSecond;
};

class Stopwatch {
 public:
  std::chrono::milliseconds Elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start_);
  }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point start_ = Clock::now();
};

}  // namespace vox::test
