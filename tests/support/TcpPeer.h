// TcpPeer is one end of a TCP connection on loopback, as a script writes it: send this, expect
// that, close, reset. TcpListener waits for such connections. Every wait ends after five seconds,
// which only a failing test sees.
//
// Thread rule: each object belongs to one thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "tests/support/Hex.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::test {

class TcpPeer {
 public:
  static constexpr std::chrono::milliseconds kPatience{5'000};

  TcpPeer() = default;
  explicit TcpPeer(FileDescriptor socket) : socket_(std::move(socket)) {}

  // Connect reaches 127.0.0.1:port, from the address `from` when one is given.
  static TcpPeer Connect(std::uint16_t port, const std::string& from = {});
  // Unconnected makes the socket alone; Reach connects it.
  static TcpPeer Unconnected();
  bool Reach(std::uint16_t port);

  bool IsOpen() const { return static_cast<bool>(socket_); }
  int Socket() const { return socket_.Get(); }

  bool Send(std::span<const std::uint8_t> bytes);
  bool SendByte(std::uint8_t byte) { return Send({&byte, 1}); }
  // SendWhatFits sends without waiting and returns how many bytes the system took.
  std::size_t SendWhatFits(std::span<const std::uint8_t> bytes);

  // Receive gives exactly `size` bytes, or those that came before the end or the patience was over.
  Bytes Receive(std::size_t size);
  // ReceiveAll gives everything up to the end of the stream.
  Bytes ReceiveAll();

  enum class End { kNone, kClosed, kReset, kData };
  // AwaitEnd waits for the other side to close; kData: bytes came instead.
  End AwaitEnd();
  bool HasNothing(std::chrono::milliseconds time);  // nothing arrives and nobody closes

  void CloseSending();
  void Close() { socket_.Reset(); }
  void Reset();  // closes with a reset

 private:
  bool AwaitReadable(std::chrono::milliseconds time) const;

  FileDescriptor socket_;
};

class TcpListener {
 public:
  TcpListener();
  std::uint16_t Port() const { return port_; }
  TcpPeer Accept(std::chrono::milliseconds patience = TcpPeer::kPatience);

 private:
  FileDescriptor socket_;
  std::uint16_t port_ = 0;
};

}  // namespace vox::test
