// UsbPipe is one pipe of an open interface: timed reads and writes of any length, made of transfers
// of whole packets.
//
// A host that leaves less room than the device's next packet needs loses bytes, so reads ask for
// whole packets only. They come straight into the caller's memory, but for the last ones of a read
// that is not of whole packets: those, up to 1 MiB, come in one transfer into room of the pipe's
// own and are copied once, since a transfer more costs more than the copy. What the read did not
// ask for stays there for the next read, and so does what a read had received before it failed.
//
// Thread rule: one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "vox/platform/UsbSession.h"

namespace vox {

struct UsbTimes {
  std::uint32_t no_data_ms, completion_ms;  // 0: a finite time of the port's own
};

class UsbPipe {
 public:
  explicit UsbPipe(UsbPipeShape shape) : shape_(shape) {}
  const UsbPipeShape& Shape() const { return shape_; }

  IOReturn Read(UsbSession& session, std::span<std::uint8_t> buffer, UsbTimes times,
                std::uint32_t* got);
  IOReturn Write(UsbSession& session, std::span<const std::uint8_t> bytes, UsbTimes times) const;

 private:
  bool CanMove(std::uint8_t direction) const;
  void TakeRoom(std::size_t size);
  bool TakeKept(std::span<std::uint8_t> buffer, std::size_t* got);
  void PutBack(std::span<const std::uint8_t> bytes);
  UsbSession::Moved ReadPart(UsbSession& session, std::span<std::uint8_t> left,
                             UsbSession::Time deadline, bool* full);
  std::size_t LargestTransfer() const;
  std::size_t WholePackets(std::size_t bytes) const;  // the least that have room for the bytes

  UsbPipeShape shape_;
  std::vector<std::uint8_t> room_;
  std::size_t kept_from_ = 0, kept_size_ = 0;  // bytes of room_ for the next read
  bool kept_ends_short_ = false;  // the last of the kept bytes ended the device's transfer
};

}  // namespace vox
