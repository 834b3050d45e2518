// What FakeUsbPort hands out; FakeUsbPort.cpp alone includes this.
//
// Thread rule: each holds the port's mutex in its operations, but for the callbacks.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/FakeUsbPort.h"

namespace vox::test {

inline constexpr std::chrono::milliseconds kFakeUsbSilence(10'000);  // for a time-out of 0

inline bool FindsInterface(std::uint16_t wanted, std::uint8_t has) {
  return wanted == kIOUSBFindInterfaceDontCare || wanted == has;
}

struct FakeUsbPort::Attached {
  explicit Attached(FakeUsbDevice what)
      : device(std::move(what)), interfaces_open(device.interfaces.size()) {}

  FakeUsbDevice device;
  EventFd gone;  // raised by Detach
  // Guarded by the port's mutex, as open_refusals is.
  bool is_open = false;
  std::vector<bool> interfaces_open;
  std::map<std::uint8_t, Bytes> kept;  // by pipe
};

// A device, one of its interfaces, or an iterator.
struct FakeUsbPort::Entry {
  AttachedPtr attached;
  int interface = -1;              // -1: the device itself
  std::vector<Entry> others = {};  // of an iterator: what it has yet to give, the next one last
  bool is_iterator = false;
};

class FakeUsbPort::Handed {
 public:
  virtual ~Handed() = default;
  bool released = false;
  virtual void CloseWhatIsOpen() {}

 protected:
  Handed(FakeUsbPort& port, AttachedPtr attached) : port_(port), attached_(std::move(attached)) {}

  // Begin notes an operation. Returns: kIOReturnNoDevice once the device is unplugged.
  IOReturn Begin(FakeUsbCall call) VOX_REQUIRES(port_.mutex_) {
    if (released) ADD_FAILURE() << call.name << " of an object that was given back";
    port_.Log(std::move(call));
    return attached_->gone.IsRaised() ? kIOReturnNoDevice : kIOReturnSuccess;
  }
  void GiveBack(const char* name) VOX_EXCLUDES(port_.mutex_) {
    const MutexLock lock(port_.mutex_);
    if (released) ADD_FAILURE() << name << " of an object that was given back before";
    port_.Log({name});
    CloseWhatIsOpen();
    released = true;
  }

  FakeUsbPort& port_;
  const AttachedPtr attached_;
};

class FakeUsbPort::Interface final : public Handed, public IOUSBInterfaceInterface190 {
 public:
  Interface(FakeUsbPort& port, AttachedPtr attached, int index)
      : Handed(port, std::move(attached)), index_(static_cast<std::size_t>(index)) {}

  IOReturn USBInterfaceOpen() override {
    const MutexLock lock(port_.mutex_);
    const IOReturn begun = Begin({"USBInterfaceOpen"});
    if (begun != kIOReturnSuccess) return begun;
    if (!attached_->is_open) return kIOReturnNotOpen;
    if (Shape().open != kIOReturnSuccess) return Shape().open;
    if (attached_->interfaces_open[index_]) return kIOReturnExclusiveAccess;
    attached_->interfaces_open[index_] = true;
    opened_ = true;
    return kIOReturnSuccess;
  }
  IOReturn USBInterfaceClose() override {
    const MutexLock lock(port_.mutex_);
    const IOReturn begun = Begin({"USBInterfaceClose"});
    if (!opened_) return kIOReturnNotOpen;
    CloseWhatIsOpen();
    return begun;
  }
  IOReturn GetNumEndpoints(std::uint8_t* count) override {
    const MutexLock lock(port_.mutex_);
    const IOReturn begun = Begin({"GetNumEndpoints"});
    if (begun != kIOReturnSuccess) return begun;
    if (Shape().num_endpoints != kIOReturnSuccess) return Shape().num_endpoints;
    *count = static_cast<std::uint8_t>(Shape().endpoints.size());
    return kIOReturnSuccess;
  }
  IOReturn GetPipeProperties(std::uint8_t pipe, std::uint8_t* direction, std::uint8_t* number,
                             std::uint8_t* transfer_type, std::uint16_t* max_packet_size,
                             std::uint8_t* interval) override {
    const MutexLock lock(port_.mutex_);
    const IOReturn begun = Begin({"GetPipeProperties", pipe});
    if (begun != kIOReturnSuccess) return begun;
    const FakeUsbEndpoint* const endpoint = Endpoint(pipe);
    if (endpoint == nullptr) return kIOReturnBadArgument;
    if (endpoint->properties != kIOReturnSuccess) return endpoint->properties;
    *direction = endpoint->direction;
    *number = static_cast<std::uint8_t>(16 - pipe);  // the endpoint's, which is not the pipe's
    *transfer_type = endpoint->transfer_type;
    *max_packet_size = endpoint->max_packet_size;
    *interval = endpoint->transfer_type == kUSBInterrupt ? 8 : 0;
    return kIOReturnSuccess;
  }
  IOReturn ClearPipeStallBothEnds(std::uint8_t pipe) override {
    {
      const MutexLock lock(port_.mutex_);
      const IOReturn begun = Begin({"ClearPipeStallBothEnds", pipe});
      if (begun != kIOReturnSuccess) return begun;
      if (Endpoint(pipe) == nullptr) return kIOReturnBadArgument;
      attached_->kept.erase(pipe);
    }
    if (attached_->device.on_clear) attached_->device.on_clear(pipe);
    return kIOReturnSuccess;
  }

  IOReturn ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t* size,
                      std::uint32_t no_data_ms, std::uint32_t completion_ms) override {
    const FakeUsbTransfer transfer{pipe, no_data_ms, completion_ms};
    const std::uint32_t wanted = *size;
    *size = 0;
    const IOReturn result = Fill(wanted, transfer);
    const MutexLock lock(port_.mutex_);
    Bytes& kept = attached_->kept[pipe];
    FakeUsbCall call{"ReadPipeTO", pipe, {}, wanted, no_data_ms, completion_ms};
    const bool in_time =
        result == kIOReturnSuccess || (result == kIOUSBTransactionTimeout && !kept.empty());
    if (in_time) {
      const auto end = kept.begin() + std::min<std::ptrdiff_t>(wanted, std::ssize(kept));
      call.bytes.assign(kept.begin(), end);
      kept.erase(kept.begin(), end);
      std::copy(call.bytes.begin(), call.bytes.end(), static_cast<std::uint8_t*>(buffer));
      *size = static_cast<std::uint32_t>(call.bytes.size());
    }
    Begin(std::move(call));
    return in_time ? kIOReturnSuccess : result;
  }

  IOReturn WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size,
                       std::uint32_t no_data_ms, std::uint32_t completion_ms) override {
    const auto* const first = static_cast<const std::uint8_t*>(buffer);
    Bytes bytes = size != 0 ? Bytes(first, first + size) : Bytes();
    {
      const MutexLock lock(port_.mutex_);
      const IOReturn begun = Begin({"WritePipeTO", pipe, bytes, size, no_data_ms, completion_ms});
      if (begun != kIOReturnSuccess) return begun;
      if (const IOReturn usable = Usable(pipe, kUSBOut); usable != kIOReturnSuccess) return usable;
    }
    if (UsbInterrupt::Wait(std::chrono::milliseconds(0))) return kIOReturnAborted;
    if (!attached_->device.on_write) return kIOReturnSuccess;
    return attached_->device.on_write(bytes, {pipe, no_data_ms, completion_ms});
  }

  void Release() override { GiveBack("Interface::Release"); }
  void CloseWhatIsOpen() override {
    if (opened_) attached_->interfaces_open[index_] = false;
    opened_ = false;
  }

 private:
  const FakeUsbInterface& Shape() const { return attached_->device.interfaces[index_]; }
  const FakeUsbEndpoint* Endpoint(std::uint8_t pipe) const {
    const bool exists = pipe >= 1 && pipe <= Shape().endpoints.size();
    if (!exists) ADD_FAILURE() << "there is no pipe " << int{pipe};
    return exists ? &Shape().endpoints[pipe - 1U] : nullptr;
  }
  IOReturn Usable(std::uint8_t pipe, std::uint8_t direction) VOX_REQUIRES(port_.mutex_) {
    if (!opened_) return kIOReturnNotOpen;
    const FakeUsbEndpoint* const endpoint = Endpoint(pipe);
    const bool right = endpoint != nullptr && endpoint->direction == direction;
    EXPECT_TRUE(right) << "pipe " << int{pipe} << " is of the other direction";
    return right ? kIOReturnSuccess : kIOReturnBadArgument;
  }

  // Fill asks the device for a transfer, unless bytes of an earlier one are kept.
  IOReturn Fill(std::uint32_t wanted, const FakeUsbTransfer& transfer) {
    {
      const MutexLock lock(port_.mutex_);
      if (released) ADD_FAILURE() << "ReadPipeTO of an object that was given back";
      if (attached_->gone.IsRaised()) return kIOReturnNoDevice;
      const IOReturn usable = Usable(transfer.pipe, kUSBIn);
      if (usable != kIOReturnSuccess) return usable;
      if (UsbInterrupt::Wait(std::chrono::milliseconds(0))) return kIOReturnAborted;
      if (!attached_->kept[transfer.pipe].empty()) return kIOReturnSuccess;
    }
    FakeUsbAnswer answer{kIOReturnSuccess, {}, true};
    if (attached_->device.on_read) answer = attached_->device.on_read(wanted, transfer);
    if (answer.silent) answer.result = Silence(transfer);
    const MutexLock lock(port_.mutex_);
    Bytes& kept = attached_->kept[transfer.pipe];
    kept.insert(kept.end(), answer.bytes.begin(), answer.bytes.end());
    return answer.result;
  }

  IOReturn Silence(const FakeUsbTransfer& transfer) const {
    const std::chrono::milliseconds none(transfer.no_data_ms), all(transfer.completion_ms);
    const auto time = std::min(none.count() != 0 ? none : kFakeUsbSilence,
                               all.count() != 0 ? all : kFakeUsbSilence);
    bool raised = false;
    {
      const UsbInterrupt unplugged(attached_->gone.Get());
      raised = UsbInterrupt::Wait(time);
    }
    if (attached_->gone.IsRaised()) return kIOReturnNoDevice;
    return raised ? kIOReturnAborted : kIOUSBTransactionTimeout;
  }

  const std::size_t index_;
  bool opened_ = false;
};

class FakeUsbPort::Device final : public Handed, public IOUSBDeviceInterface182 {
 public:
  Device(FakeUsbPort& port, AttachedPtr attached) : Handed(port, std::move(attached)) {}

  IOReturn USBDeviceOpenSeize() override {
    const MutexLock lock(port_.mutex_);
    const IOReturn begun = Begin({"USBDeviceOpenSeize"});
    if (begun != kIOReturnSuccess) return begun;
    FakeUsbDevice& device = attached_->device;
    if (attached_->is_open) return kIOReturnExclusiveAccess;
    if (device.open_refusals == kAlwaysRefused || device.open_refusals-- > 0)
      return kIOReturnExclusiveAccess;
    device.open_refusals = 0;
    if (device.open != kIOReturnSuccess) return device.open;
    attached_->is_open = true;
    opened_ = true;
    return kIOReturnSuccess;
  }
  IOReturn USBDeviceClose() override {
    const MutexLock lock(port_.mutex_);
    const IOReturn begun = Begin({"USBDeviceClose"});
    if (!opened_) return kIOReturnNotOpen;
    CloseWhatIsOpen();
    return begun;
  }
  IOReturn GetLocationID(std::uint32_t* location) override {
    const MutexLock lock(port_.mutex_);
    const IOReturn begun = Begin({"GetLocationID"});
    if (begun != kIOReturnSuccess) return begun;
    if (attached_->device.get_location != kIOReturnSuccess) return attached_->device.get_location;
    *location = attached_->device.location;
    return kIOReturnSuccess;
  }
  IOReturn CreateInterfaceIterator(const IOUSBFindInterfaceRequest& request,
                                   io_iterator_t* iterator) override {
    const MutexLock lock(port_.mutex_);
    const IOReturn begun = Begin({"CreateInterfaceIterator"});
    if (begun != kIOReturnSuccess) return begun;
    const FakeUsbDevice& device = attached_->device;
    if (device.interface_iterator != kIOReturnSuccess) return device.interface_iterator;
    Entry found;
    found.is_iterator = true;
    for (std::size_t i = device.interfaces.size(); i-- > 0;) {
      const FakeUsbInterface& shape = device.interfaces[i];
      if (FindsInterface(request.bInterfaceClass, shape.interface_class) &&
          FindsInterface(request.bInterfaceSubClass, shape.subclass) &&
          FindsInterface(request.bInterfaceProtocol, shape.protocol) &&
          FindsInterface(request.bAlternateSetting, shape.alternate))
        found.others.push_back({attached_, static_cast<int>(i)});
    }
    *iterator = port_.HandOut(std::move(found));
    return kIOReturnSuccess;
  }
  void Release() override { GiveBack("Device::Release"); }
  void CloseWhatIsOpen() override {
    if (opened_) attached_->is_open = false;
    opened_ = false;
  }

 private:
  bool opened_ = false;
};

class FakeUsbPort::PlugIn final : public Handed, public IOCFPlugInInterface {
 public:
  PlugIn(FakeUsbPort& port, AttachedPtr attached, int interface)
      : Handed(port, std::move(attached)), interface_(interface) {}

  IOReturn QueryInterface(IOUSBDeviceInterface182** device) override {
    const MutexLock lock(port_.mutex_);
    const IOReturn begun = Begin({"QueryInterface"});
    if (begun != kIOReturnSuccess) return begun;
    if (interface_ >= 0) return kIOReturnBadArgument;
    const FakeUsbDevice& shape = attached_->device;
    if (shape.query != kIOReturnSuccess || shape.no_object) return shape.query;
    *device = port_.Keep(std::make_unique<Device>(port_, attached_));
    return kIOReturnSuccess;
  }
  IOReturn QueryInterface(IOUSBInterfaceInterface190** interface) override {
    const MutexLock lock(port_.mutex_);
    const IOReturn begun = Begin({"QueryInterface"});
    if (begun != kIOReturnSuccess) return begun;
    if (interface_ < 0) return kIOReturnBadArgument;
    const auto& shape = attached_->device.interfaces[static_cast<std::size_t>(interface_)];
    if (shape.query != kIOReturnSuccess || shape.no_object) return shape.query;
    *interface = port_.Keep(std::make_unique<Interface>(port_, attached_, interface_));
    return kIOReturnSuccess;
  }
  void Release() override { GiveBack("PlugIn::Release"); }

 private:
  const int interface_;  // -1: of the device
};

}  // namespace vox::test
