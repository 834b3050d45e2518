// MemoryScanner is a device of 75 to 600 dpi that has its page in memory: what is left of a scan is
// the line pipeline.
//
// Owner: the page is the caller's and must outlive the scanner. Thread rule: CTwainImageIF's.
#pragma once

#include <cstring>
#include <span>

#include "vox/drivers/TwainImageIF.h"

namespace vox::bench {

class MemoryScanner : public CTwainImageIF {
 public:
  // The page holds the device lines, one behind the other.
  explicit MemoryScanner(std::span<const unsigned char> page)
      : CTwainImageIF("memory"), page_(page) {
    m_DevInfo.dwXResMin = m_DevInfo.dwYResMin = 75;
    m_DevInfo.dwXResMax = m_DevInfo.dwYResMax = 600;
  }
  ~MemoryScanner() override { StopSession(); }

  bool IsOnLine(unsigned short) override { return true; }
  bool StartScan(bool prescan) override {
    left_ = page_;
    return BeginPage() && CTwainImageIF::StartScan(prescan);
  }
  bool DeviceEndScan() override {
    m_semaphore.Up();
    return true;
  }
  bool SendCmdStandby() override { return true; }
  DeviceType GetDeviceType() const override { return dtFILE; }
  int ReadScanData(unsigned char* buf, unsigned int len, unsigned int* rlen) override {
    if (len > left_.size()) return 1;
    std::memcpy(buf, left_.data(), len);
    left_ = left_.subspan(len);
    *rlen = len;
    return 0;
  }

 private:
  const std::span<const unsigned char> page_;
  std::span<const unsigned char> left_;  // not read yet
};

}  // namespace vox::bench
