// Visitor is a connection at one of the doors before it is relayed: it collects the one message
// that the other side sends first, and then stands for the other side in a waiting list.
//
// Exactly the bytes of the message are taken from the socket; what follows stays in the kernel
// until the relay passes it on.
//
// Thread rule: the poller's thread. The owner is told of what happens and may destroy the visitor
// while it is told.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "tools/voxjobd/Messages.h"
#include "tools/voxjobd/Poller.h"
#include "vox/platform/FileDescriptor.h"

namespace vox {

class Visitor final : private Watched {
 public:
  enum class Kind { kClient, kDevice };
  class Owner {
   public:
    virtual void OnMessage(Visitor& visitor) = 0;  // it is whole
    virtual void OnGone(Visitor& visitor) = 0;     // the other side has left

   protected:
    ~Owner() = default;
  };

  Visitor(Kind kind, FileDescriptor socket, std::uint32_t address, Poller& poller, Owner& owner);
  ~Visitor();
  Visitor(const Visitor&) = delete;
  Visitor& operator=(const Visitor&) = delete;

  bool Listen();  // begins to collect; false: the kernel has no room for the watch

  // Wait stops collecting and watches only whether the other side goes. A client that closes its
  // sending half is gone, since it could not answer; a device may have said all it has to say.
  bool Wait();

  FileDescriptor Release();  // the socket, no longer watched

  Kind GetKind() const { return kind_; }
  std::uint32_t Address() const { return address_; }  // IPv4, host order
  int Socket() const { return socket_.Get(); }
  std::span<const std::uint8_t> Message() const { return {bytes_.data(), have_}; }

  JobKey key;                            // once the owner has read the message
  Poller::Clock::time_point deadline{};  // of the state that the owner has it in

 private:
  std::size_t Wanted() const { return kind_ == Kind::kClient ? kRegistrationSize : kNoticeSize; }
  void OnReady(std::uint32_t events) override;
  void Collect();

  const Kind kind_;
  const std::uint32_t address_;
  Poller& poller_;
  Owner& owner_;
  FileDescriptor socket_;
  bool waiting_ = false;
  std::array<std::uint8_t, kNoticeSize> bytes_{};
  std::size_t have_ = 0;
};

}  // namespace vox
