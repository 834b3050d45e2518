// UsbScript is what goes over a device's bulk pipes, in its order: which bytes the host must write,
// with which time-outs, and what the device sends when the host reads.
//
//   UsbScript script(device);
//   script.Write(Hex("4D 46 ..."), 300).Write({}, 0).Read(Hex("..."), 300);
//   port.Attach(device);
//   ...
//   script.Done();                 // fails the test when a step has not been taken
//
// Whatever the host does otherwise fails the test, with both sides in hexadecimal, and gives it an
// error. Time-outs: of a step with time-out t a transfer has t and 2 t.
// A read that is served from what an earlier answer left over takes no step.
//
// Thread rule: steps are added by one thread at a time; the script outlives what reads and writes.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "tests/support/FakeUsbPort.h"
#include "tests/support/Hex.h"
#include "vox/platform/Mutex.h"

namespace vox::test {

class UsbScript {
 public:
  explicit UsbScript(FakeUsbDevice& device);
  ~UsbScript() { Done(); }
  UsbScript(const UsbScript&) = delete;
  UsbScript& operator=(const UsbScript&) = delete;

  // The host writes these bytes; an empty one is a zero-length packet.
  UsbScript& Write(const Bytes& bytes, std::uint32_t timeout_ms,
                   IOReturn result = kIOReturnSuccess);
  // The host reads, and gets these bytes, of any size unless one is given.
  UsbScript& Read(const Bytes& bytes, std::uint32_t timeout_ms,
                  std::optional<std::uint32_t> size = std::nullopt);
  // The host reads and gets an error, or waits for nothing (FakeUsbAnswer::silent).
  UsbScript& FailRead(IOReturn result, std::uint32_t timeout_ms);
  UsbScript& SilentRead(std::uint32_t timeout_ms);

  // Done fails the test for the steps that are left, and forgets them.
  void Done() VOX_EXCLUDES(mutex_);
  // Left counts the steps that have not been taken.
  int Left() const VOX_EXCLUDES(mutex_);

 private:
  struct Step {
    bool is_write;
    Bytes bytes;  // of a write
    FakeUsbAnswer answer;
    std::uint32_t timeout_ms;
    std::optional<std::uint32_t> size;
  };

  UsbScript& Add(Step step) VOX_EXCLUDES(mutex_);
  std::optional<Step> Take(bool is_write, const std::string& what, const FakeUsbTransfer& transfer)
      VOX_EXCLUDES(mutex_);
  IOReturn Written(const Bytes& bytes, const FakeUsbTransfer& transfer);
  FakeUsbAnswer Asked(std::uint32_t size, const FakeUsbTransfer& transfer);

  mutable Mutex mutex_;
  std::deque<Step> steps_ VOX_GUARDED_BY(mutex_);
  int taken_ VOX_GUARDED_BY(mutex_) = 0;
};

}  // namespace vox::test
