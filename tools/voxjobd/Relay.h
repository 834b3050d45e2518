// Relay passes bytes between two connected sockets, both ways, until both directions are done.
//
//   client socket ── recv ──► [buffer] ── send ──► device socket
//   client socket ◄── send ── [buffer] ◄── recv ── device socket
//
// A direction takes new bytes only when the last ones are gone, so a slow side holds the other back
// and never more than a buffer is kept. It has 64 KiB, and up to 512 KiB for a sender that fills
// it: then copying is as cheap as moving the system's pages by splice, which the receiver, finding
// them in no cache any more, pays for. A side that closes its sending half has its last bytes
// delivered and the close passed on; the other direction goes on. A side that breaks (reset,
// unreachable) ends the relay once what it sent is delivered; a client learns of a broken device by
// a reset, so that it does not take half a page for a whole one.
//
// Thread rule: one thread. Relay knows no poller: its owner says when a side may be ready again.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "vox/platform/FileDescriptor.h"

namespace vox {

class Relay {
 public:
  enum Side { kClient, kDevice, kSides };
  enum class Progress {
    kWaiting,  // until a side becomes ready
    kMore,     // both may be ready still; call Pump again after the others had their turn
    kDone,     // nothing will flow any more: destroy it
  };

  // `opening` (at most 64 KiB) goes to the client before anything else that comes from the device.
  // Both sockets are non-blocking.
  Relay(FileDescriptor client, FileDescriptor device, std::span<const std::uint8_t> opening);
  ~Relay();

  int Socket(Side side) const { return ends_[side].socket.Get(); }

  // MarkReady says what is worth trying again at this side.
  void MarkReady(Side side, bool reading, bool writing);

  Progress Pump();

  // Cut makes the end of the relay a reset for each side that has not been told of an orderly end;
  // who has been told gets the rest from the system.
  void Cut();

  bool HasLeftHalf() const;  // one side has sent its last byte, the other has not
  bool IsBeingRead() const;  // the client has not read yet what the system holds for it
  std::uint64_t Moved() const { return moved_; }  // bytes delivered, both ways

 private:
  struct End {
    FileDescriptor socket;
    bool readable = true;  // as far as is known
    bool writable = true;
    bool reset = false;  // it ended without an orderly close
  };
  struct Direction {
    Side from, to;
    std::unique_ptr<std::uint8_t[]> buffer;
    std::size_t size = 0;            // of the buffer
    std::size_t begin = 0, end = 0;  // what is held: buffer[begin, end)
    bool at_end = false;             // `from` will send nothing more
    bool closed = false;             // `to` has been told, or cannot be told any more
  };

  static void Grow(Direction& direction);
  bool Step(Direction& direction);  // true when something happened
  bool Receive(Direction& direction);
  bool Send(Direction& direction);
  void PassOnClose(Direction& direction);
  void Break(Side side, int error);

  std::array<End, kSides> ends_;
  std::array<Direction, kSides> directions_;  // indexed by the sending side
  std::uint64_t moved_ = 0;
};

}  // namespace vox
