// UsbClient is one scan interface of a device at USB as an application uses it.
//
// Thread rule: ScanClient's.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/e2e/ScanClient.h"
#include "vox/drivers/usb/TwImgIFUsb.h"

namespace vox::test {

class UsbClient : public ScanClient<CTwImgIFUsb> {
 public:
  explicit UsbClient(const std::string& serial)
      : ScanClient(std::make_unique<CTwImgIFUsb>("Veltronix QD7200", serial.c_str())) {}

  // Request is what a device must be asked for, and Expected the client lines of a page of it.
  sim::ScanInfo Request(const tagTWSCANPARAM& request) {
    sim::ScanInfo info = DeviceRequest(request, Range());
    info.encode_type = 0;
    return info;
  }
  std::vector<Line> Expected(const sim::Forecast& device, const tagTWSCANPARAM& request,
                             std::size_t page = 0) {
    return ExpectedLines(device, request, Request(request), page);
  }
};

}  // namespace vox::test
