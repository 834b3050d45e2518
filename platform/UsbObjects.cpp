#include "vox/platform/UsbObjects.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include "vox/platform/UsbPipe.h"

namespace vox {
namespace {

using SessionPtr = std::shared_ptr<UsbSession>;

// Answer gives what the function returns; want of memory is a result like any other.
template <class Function>
IOReturn Answer(Function function) try {
  return function();
} catch (const std::bad_alloc&) {
  return kIOReturnNoMemory;
}

class Interface final : public IOUSBInterfaceInterface190 {
 public:
  Interface(SessionPtr session, UsbInterfaceShape shape)
      : session_(std::move(session)), shape_(std::move(shape)) {
    for (const UsbPipeShape& pipe : shape_.pipes) pipes_.emplace_back(pipe);
  }

  IOReturn USBInterfaceOpen() override {
    return Answer([&] {
      if (is_open_) return kIOReturnExclusiveAccess;
      const IOReturn taken = session_->Take(shape_);
      is_open_ = taken == kIOReturnSuccess;
      return taken;
    });
  }

  IOReturn USBInterfaceClose() override {
    if (!std::exchange(is_open_, false)) return kIOReturnNotOpen;
    session_->GiveBack(shape_);
    return kIOReturnSuccess;
  }

  IOReturn GetNumEndpoints(std::uint8_t* count) override {
    if (!IsOpen()) return kIOReturnNotOpen;
    *count = static_cast<std::uint8_t>(pipes_.size());
    return kIOReturnSuccess;
  }

  IOReturn GetPipeProperties(std::uint8_t pipe, std::uint8_t* direction, std::uint8_t* number,
                             std::uint8_t* transfer_type, std::uint16_t* max_packet_size,
                             std::uint8_t* interval) override {
    return OnPipe(pipe, [&](UsbPipe& found) {
      const UsbPipeShape& shape = found.Shape();
      *direction = (shape.endpoint & LIBUSB_ENDPOINT_IN) != 0 ? kUSBIn : kUSBOut;
      *number = shape.endpoint & LIBUSB_ENDPOINT_ADDRESS_MASK;
      *transfer_type = shape.type;
      *max_packet_size = shape.packet;
      *interval = shape.interval;
      return kIOReturnSuccess;
    });
  }

  IOReturn ClearPipeStallBothEnds(std::uint8_t pipe) override {
    return OnPipe(pipe,
                  [&](UsbPipe& found) { return session_->ClearHalt(found.Shape().endpoint); });
  }

  IOReturn ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t* size,
                      std::uint32_t no_data_ms, std::uint32_t completion_ms) override {
    return OnPipe(pipe, [&](UsbPipe& found) {
      return found.Read(*session_, {static_cast<std::uint8_t*>(buffer), *size},
                        {no_data_ms, completion_ms}, size);
    });
  }

  IOReturn WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size,
                       std::uint32_t no_data_ms, std::uint32_t completion_ms) override {
    return OnPipe(pipe, [&](UsbPipe& found) {
      return found.Write(*session_, {static_cast<const std::uint8_t*>(buffer), size},
                         {no_data_ms, completion_ms});
    });
  }

  void Release() override {
    USBInterfaceClose();
    delete this;
  }

 private:
  bool IsOpen() const { return is_open_ && session_->IsOpen(); }

  template <class Function>
  IOReturn OnPipe(std::uint8_t pipe, Function function) {
    if (!IsOpen()) return kIOReturnNotOpen;
    if (pipe == 0 || pipe > pipes_.size()) return kIOReturnBadArgument;
    return Answer([&] { return function(pipes_[pipe - 1u]); });
  }

  const SessionPtr session_;
  const UsbInterfaceShape shape_;
  std::vector<UsbPipe> pipes_;
  bool is_open_ = false;
};

class Device final : public IOUSBDeviceInterface182 {
 public:
  Device(const UsbRecord& record, UsbHandOut& registry)
      : session_(std::make_shared<UsbSession>(record)), registry_(registry) {}

  IOReturn USBDeviceOpenSeize() override {
    return Answer([&] { return session_->Open(); });
  }
  IOReturn USBDeviceClose() override {
    if (!session_->IsOpen()) return kIOReturnNotOpen;
    session_->Close();
    return kIOReturnSuccess;
  }
  IOReturn GetLocationID(std::uint32_t* location) override {
    *location = session_->Record().location;
    return kIOReturnSuccess;
  }
  IOReturn CreateInterfaceIterator(const IOUSBFindInterfaceRequest& request,
                                   io_iterator_t* iterator) override {
    return Answer([&] {
      std::vector<UsbInterfaceShape> interfaces;
      const IOReturn found = session_->Interfaces(request, &interfaces);
      if (found != kIOReturnSuccess) return found;
      *iterator = registry_.HandOut(session_, std::move(interfaces));
      return kIOReturnSuccess;
    });
  }
  void Release() override {
    session_->Close();
    delete this;
  }

 private:
  const SessionPtr session_;
  UsbHandOut& registry_;
};

class DevicePlugIn final : public IOCFPlugInInterface {
 public:
  DevicePlugIn(UsbRecord record, UsbHandOut& registry)
      : record_(std::move(record)), registry_(registry) {}
  IOReturn QueryInterface(IOUSBDeviceInterface182** device) override {
    return Answer([&] {
      *device = new Device(record_, registry_);
      return kIOReturnSuccess;
    });
  }
  IOReturn QueryInterface(IOUSBInterfaceInterface190**) override { return kIOReturnBadArgument; }
  void Release() override { delete this; }

 private:
  const UsbRecord record_;
  UsbHandOut& registry_;
};

class InterfacePlugIn final : public IOCFPlugInInterface {
 public:
  InterfacePlugIn(SessionPtr session, UsbInterfaceShape shape)
      : session_(std::move(session)), shape_(std::move(shape)) {}
  IOReturn QueryInterface(IOUSBDeviceInterface182**) override { return kIOReturnBadArgument; }
  IOReturn QueryInterface(IOUSBInterfaceInterface190** interface) override {
    return Answer([&] {
      *interface = new Interface(session_, shape_);
      return kIOReturnSuccess;
    });
  }
  void Release() override { delete this; }

 private:
  const SessionPtr session_;
  const UsbInterfaceShape shape_;
};

}  // namespace

IOCFPlugInInterface* NewUsbDevicePlugIn(const UsbRecord& record, UsbHandOut& registry) {
  return new DevicePlugIn(record, registry);
}

IOCFPlugInInterface* NewUsbInterfacePlugIn(SessionPtr session, UsbInterfaceShape interface) {
  return new InterfacePlugIn(std::move(session), std::move(interface));
}

}  // namespace vox
