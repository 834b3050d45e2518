// One visitor at a door of the job server, without any network: what it sends comes through a
// socket pair, in pieces of a chosen size. An input is the size of the pieces, less one, and then
// what the visitor sends.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include <sys/socket.h>

#include "tools/voxjobd/Reception.h"
#include "vox/platform/SystemLog.h"

namespace vox {

inline constexpr std::uint32_t kVisitorAddress = 0xC0A80005;  // 192.168.0.5

struct DoorInput {
  std::span<const std::uint8_t> sent;
  std::size_t piece = 1;

  // Nothing for an input without a piece size, or longer than a visitor ever needs.
  static std::optional<DoorInput> From(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || size > 256) return std::nullopt;
    return DoorInput{{data + 1, size - 1}, std::size_t{data[0]} + 1};
  }
};

class DoorHarness {
 public:
  DoorHarness() {
    SetSystemLogSink([](const std::string&) {});
  }

  // Visit makes a connection and returns the visitor's end of it.
  FileDescriptor Visit(Visitor::Kind kind) {
    int ends[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) return {};
    reception_.Receive(kind, FileDescriptor(ends[0]), kVisitorAddress);
    return FileDescriptor(ends[1]);
  }
  void Send(const FileDescriptor& visitor, std::span<const std::uint8_t> bytes, std::size_t piece) {
    while (!bytes.empty()) {
      const std::size_t size = std::min(piece, bytes.size());
      ::send(visitor.Get(), bytes.data(), size, MSG_NOSIGNAL);
      bytes = bytes.subspan(size);
      poller_.Wait(Poller::Clock::now());
    }
  }
  // The bytes that have come back, at most 64.
  static std::string Answer(const FileDescriptor& visitor) {
    char buffer[64];
    const ssize_t got = ::recv(visitor.Get(), buffer, sizeof buffer, 0);
    return {buffer, got > 0 ? static_cast<std::size_t>(got) : 0};
  }

  int meetings = 0;
  Reception::Meeting last;  // its notice is not kept

 private:
  Poller poller_;
  CloseLog log_;
  Reception reception_{poller_, JobServerOptions{}, log_, [] { return true; },
                       [this](Reception::Meeting meeting) {
                         ++meetings;
                         last = std::move(meeting);
                       }};
};

}  // namespace vox
