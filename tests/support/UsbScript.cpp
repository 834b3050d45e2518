#include "tests/support/UsbScript.h"

#include <utility>

#include <gtest/gtest.h>

namespace vox::test {
namespace {

std::string Said(const Bytes& bytes) {
  return bytes.empty() ? "a zero-length packet"
                       : std::to_string(bytes.size()) + " bytes:\n  " + ToHex(bytes);
}

}  // namespace

UsbScript::UsbScript(FakeUsbDevice& device) {
  device.on_write = [this](const Bytes& bytes, const FakeUsbTransfer& transfer) {
    return Written(bytes, transfer);
  };
  device.on_read = [this](std::uint32_t size, const FakeUsbTransfer& transfer) {
    return Asked(size, transfer);
  };
}

UsbScript& UsbScript::Write(const Bytes& bytes, std::uint32_t timeout_ms, IOReturn result) {
  return Add({true, bytes, {result, {}, false}, timeout_ms, std::nullopt});
}

UsbScript& UsbScript::Read(const Bytes& bytes, std::uint32_t timeout_ms,
                           std::optional<std::uint32_t> size) {
  return Add({false, {}, {kIOReturnSuccess, bytes, false}, timeout_ms, size});
}

UsbScript& UsbScript::FailRead(IOReturn result, std::uint32_t timeout_ms) {
  return Add({false, {}, {result, {}, false}, timeout_ms, std::nullopt});
}

UsbScript& UsbScript::SilentRead(std::uint32_t timeout_ms) {
  return Add({false, {}, {kIOReturnSuccess, {}, true}, timeout_ms, std::nullopt});
}

UsbScript& UsbScript::Add(Step step) {
  const MutexLock lock(mutex_);
  steps_.push_back(std::move(step));
  return *this;
}

void UsbScript::Done() {
  const MutexLock lock(mutex_);
  for (const Step& step : steps_) {
    ADD_FAILURE() << "after " << taken_ << " steps there is left "
                  << (step.is_write ? "a write of " + Said(step.bytes)
                                    : "a read that gives " + Said(step.answer.bytes));
  }
  steps_.clear();
}

int UsbScript::Left() const {
  const MutexLock lock(mutex_);
  return static_cast<int>(steps_.size());
}

// The step that is due, unless it is one of the other direction.
std::optional<UsbScript::Step> UsbScript::Take(bool is_write, const std::string& what,
                                               const FakeUsbTransfer& transfer) {
  const MutexLock lock(mutex_);
  if (steps_.empty() || steps_.front().is_write != is_write) {
    ADD_FAILURE() << "step " << taken_ << " is "
                  << (steps_.empty() ? "not there"
                      : is_write     ? "a read"
                                     : "a write")
                  << "; the host made " << what;
    return std::nullopt;
  }
  Step step = std::move(steps_.front());
  steps_.pop_front();
  EXPECT_EQ(transfer.no_data_ms, step.timeout_ms) << "step " << taken_ << ", " << what;
  EXPECT_EQ(transfer.completion_ms, 2 * step.timeout_ms) << "step " << taken_ << ", " << what;
  ++taken_;
  return step;
}

IOReturn UsbScript::Written(const Bytes& bytes, const FakeUsbTransfer& transfer) {
  const std::optional<Step> step = Take(true, "a write of " + Said(bytes), transfer);
  if (!step) return kIOReturnError;
  if (bytes == step->bytes) return step->answer.result;
  ADD_FAILURE() << "the host wrote " << Said(bytes) << "\nand not " << Said(step->bytes);
  return kIOReturnError;
}

FakeUsbAnswer UsbScript::Asked(std::uint32_t size, const FakeUsbTransfer& transfer) {
  const std::string what = "a read of " + std::to_string(size) + " bytes";
  const std::optional<Step> step = Take(false, what, transfer);
  if (!step) return {kIOReturnError, {}, false};
  EXPECT_EQ(size, step->size.value_or(size)) << what;
  return step->answer;
}

}  // namespace vox::test
