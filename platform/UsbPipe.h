// UsbPipe is one pipe of an open interface: timed reads and writes of any length, made of transfers
// of whole packets.
//
// A host that leaves less room than the device's next packet needs loses bytes, so reads ask for
// whole packets only: straight into the caller's memory as long as they fit there, the last one
// into a packet's room of the pipe's own. What is left of that packet, and what a read had received
// before it failed, is kept for the next read.
//
// Thread rule: one thread at a time.
#pragma once

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
  bool TakeKept(std::span<std::uint8_t> buffer, std::size_t* got);
  void Keep(std::span<const std::uint8_t> bytes);
  UsbSession::Moved ReadPart(UsbSession& session, std::span<std::uint8_t> left,
                             UsbSession::Time deadline, bool* full);
  std::size_t LargestTransfer() const;

  UsbPipeShape shape_;
  std::vector<std::uint8_t> kept_;
  std::size_t kept_from_ = 0;     // of kept_, the bytes before were read
  bool kept_ends_short_ = false;  // the last of the kept bytes ended the device's transfer
};

}  // namespace vox
