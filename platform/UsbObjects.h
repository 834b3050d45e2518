// The plug-ins of the Linux port, from which open devices and interfaces are made.
//
// Thread rule: as UsbPort.h.
#pragma once

#include <memory>

#include "vox/platform/UsbPort.h"
#include "vox/platform/UsbSession.h"

namespace vox {

// UsbHandOut gives registry objects to what an iterator walks over.
class UsbHandOut {
 public:
  virtual io_iterator_t HandOut(const std::shared_ptr<UsbSession>& session,
                                std::vector<UsbInterfaceShape> interfaces) = 0;

 protected:
  ~UsbHandOut() = default;
};

IOCFPlugInInterface* NewUsbDevicePlugIn(const UsbRecord& record, UsbHandOut& registry);
IOCFPlugInInterface* NewUsbInterfacePlugIn(std::shared_ptr<UsbSession> session,
                                           UsbInterfaceShape interface);

}  // namespace vox
