// Door is one listening socket. Each connection is handed to its owner; when the process has no
// descriptor or memory left for another one, the door closes for a moment instead of spinning on a
// queue that it cannot empty.
//
// Thread rule: the poller's thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "tools/voxjobd/Poller.h"
#include "vox/platform/FileDescriptor.h"

namespace vox {

class Door final : private Watched {
 public:
  // The address is that of the other side, IPv4 in host order.
  using OnVisit = std::function<void(FileDescriptor socket, std::uint32_t address)>;

  Door(Poller& poller, std::chrono::milliseconds pause, OnVisit on_visit);
  ~Door() { Close(); }
  Door(const Door&) = delete;
  Door& operator=(const Door&) = delete;

  // Open listens on the address (dotted text) and port; 0 takes a free one. False leaves errno.
  bool Open(const std::string& address, std::uint16_t port);
  void Close();
  std::uint16_t Port() const { return port_; }
  bool SomebodyKnocks() const;  // a connection waits to be accepted

  std::optional<Poller::Clock::time_point> Deadline() const { return opens_again_; }
  void Tick(Poller::Clock::time_point now);

 private:
  void OnReady(std::uint32_t events) override;
  bool AcceptOne();  // false: none left, or a pause
  void Pause(int error);

  Poller& poller_;
  const std::chrono::milliseconds pause_;
  const OnVisit on_visit_;
  FileDescriptor socket_;
  std::uint16_t port_ = 0;
  std::optional<Poller::Clock::time_point> opens_again_;  // set while it pauses
  bool in_trouble_ = false;
};

}  // namespace vox
