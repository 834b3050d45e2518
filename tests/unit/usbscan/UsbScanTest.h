// A scan at USB against a scripted device: which bytes go over its pipes with which time-outs, and
// at the end the check that nothing of it stays claimed and that threads, descriptors and semaphore
// sets are given back.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/FakeTransport.h"
#include "tests/support/FakeUsbPort.h"
#include "tests/support/Footprint.h"
#include "tests/support/Hex.h"
#include "tests/support/Moment.h"
#include "tests/support/UdpPeer.h"
#include "tests/support/UsbScript.h"
#include "vox/drivers/SessionSystem.h"
#include "vox/drivers/usb/TwImgIFUsb.h"
#include "vox/platform/Bytes.h"

namespace vox::test {

using namespace std::chrono_literals;

inline const Bytes kJob = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
inline const Bytes kNull = {};  // a zero-length packet
inline const char* const kModel = "Veltronix QD7200";
inline const char* const kSerial = "SN1";

// The time-outs of the protocol, in ms.
enum Timeout : std::uint32_t {
  kCommand = 300,
  kPortsOwn = 0,
  kInformation = 15'000,
  kHeader = 70'000,
  kBlock = 20'000,
  kDrainHeader = 7'000,
  kDrainBlock = 300,
};

// Scanner shows what the library keeps for itself.
class UsbScanner : public CTwImgIFUsb {
 public:
  explicit UsbScanner(const char* model = kModel, const char* serial = kSerial)
      : CTwImgIFUsb(model, serial) {}
  ~UsbScanner() override { StopSession(); }
  using CTwainImageIF::GetJobId;
  using CTwainImageIF::m_DevInfo;
  using CTwainImageIF::m_DevInfoAll;
  using CTwainImageIF::m_DevInfoAllCount;
  using CTwainImageIF::m_semaphore;
  using CTwainImageIF::multipage;
  using CTwainImageIF::scan_info;
  using CTwainImageIF::SetJobId;
  using CTwImgIFUsb::SendCmdGetInf;

  // What is run before each line is read, on the reader.
  std::function<void()> before_line;
  int ReadScanData(unsigned char* buf, unsigned int len, unsigned int* rlen) override {
    if (before_line) before_line();
    return CTwImgIFUsb::ReadScanData(buf, len, rlen);
  }

  Bytes Job() const {
    const _SCANJOBID job = GetJobId();
    Bytes bytes(sizeof job);
    std::memcpy(bytes.data(), &job, sizeof job);
    return bytes;
  }
  void SetJob(const Bytes& bytes) {
    _SCANJOBID job{};
    std::memcpy(&job, bytes.data(), sizeof job);
    SetJobId(job);
  }
  bool XferDone() VOX_NO_THREAD_SAFETY_ANALYSIS { return m_bXferDone != 0; }
  bool ReadLineFlag() VOX_NO_THREAD_SAFETY_ANALYSIS { return m_bReadLine != 0; }
  std::uint32_t Held() VOX_NO_THREAD_SAFETY_ANALYSIS { return in_buf; }
  bool IsAborted() const { return PageStop() == PAGE_ABORT; }
  bool HoldsBuffer() VOX_NO_THREAD_SAFETY_ANALYSIS {
    return lbuf != nullptr || curr_ptr != nullptr;
  }
};

// ---- packets

inline Bytes Number(std::uint32_t value) {
  Bytes bytes(4);
  StoreLe32(bytes.data(), value);
  return bytes;
}
inline Bytes Packet(std::uint8_t command, const Bytes& param = {}) {
  return Hex("4D 46 50 50 30 32 30 30 4D 4C 30 31 00 00 32") +
         Bytes{command, static_cast<std::uint8_t>(param.size()), 0, 0, 0} + param;
}
inline Bytes Response(std::uint8_t code, const Bytes& job = kJob) {
  return Packet(code).size() == 20 ? Packet(code) + job : Bytes{};
}
inline Bytes Header(std::uint32_t length, std::uint8_t command = 0, std::uint8_t param = 0) {
  return Number(length) + Bytes{0x32, command, param, 0};
}
inline const Bytes kLastPage = Hex("00 00 00 00 32 02 00 00");
inline const Bytes kNextPage = Hex("00 00 00 00 32 02 01 00");
inline const Bytes kPending = Hex("00 00 00 00 32 04 00 00");

// The block of a page as it goes over the pipe.
inline Bytes WireOf(const _SCANINFO& info) {
  _SCANINFO wire{};
  scaninfo2le(&wire, &info);
  Bytes bytes(sizeof wire);
  std::memcpy(bytes.data(), &wire, sizeof wire);
  return bytes;
}

// A page that the device scans as the client asks for it: bilevel, 300 dpi.
inline PageShape Bilevel(std::uint32_t width, std::uint32_t lines) {
  PageShape shape;
  shape.bits = 1;
  shape.width = width;
  shape.length = lines;
  return shape;
}
inline _SCANINFO InfoFor(const PageShape& shape) {
  _SCANINFO info{};
  info.DataType = shape.bits == 1 ? 0 : shape.bits == 8 ? 2 : 3;
  info.Xresolution = static_cast<std::uint32_t>(shape.resolution_x);
  info.Yresolution = static_cast<std::uint32_t>(shape.resolution_y);
  info.Window.xExtent = shape.width;
  info.Window.yExtent = shape.length;
  return info;
}
inline Bytes PageBytes(const PageShape& shape) {
  Bytes bytes;
  for (std::uint32_t i = 0; i < shape.length; ++i) {
    for (std::uint32_t k = 0; k < shape.width * shape.bits / 8; ++k)
      bytes.push_back(PatternByte(i, k));
  }
  return bytes;
}

class UsbScanTest : public testing::Test {
 protected:
  UsbScanTest() {
    script_ = std::make_unique<UsbScript>(device_);
    Plug();
  }
  ~UsbScanTest() override {
    scanner_.reset();
    ExpectNothingHeld();
    EXPECT_TRUE(footprint_->IsBack()) << footprint_->Describe();
    SetSessionSystem(system_);
  }

  void ExpectNothingHeld() const {
    EXPECT_EQ(port_.Held(), 0);
    EXPECT_EQ(port_.OpenDevices(), 0);
    EXPECT_EQ(port_.OpenInterfaces(), 0);
  }
  void ExpectClosed() const { EXPECT_EQ(port_.OpenDevices(), 0) << "left open"; }

  // Plug attaches the device as device_ is by now, in place of the one before, and makes a fresh
  // scanner for it, which knows a bed of 14 inches and 75 to 600 dpi.
  void Plug() {
    scanner_.reset();
    port_.Detach(id_);
    id_ = port_.Attach(device_);
    footprint_.reset();
    footprint_ = std::make_unique<Footprint>();
    scanner_ = std::make_unique<UsbScanner>();
    tagSCANDEVINFO& known = scanner_->m_DevInfo;
    known.dwXResMin = known.dwYResMin = 75;
    known.dwXResMax = known.dwYResMax = 600;
    known.dwPhysicalHeight = 140'000;
    scanner_->m_DevInfoAll[0] = known;
  }
  // Opened opens the device, for calls without a page.
  UsbScript& Opened() {
    EXPECT_TRUE(scanner_->Open());
    return *script_;
  }

  // ---- what the script is made of
  UsbScript& Command(const Bytes& packet) {
    return script_->Write(packet, kCommand).Write(kNull, kPortsOwn);
  }
  UsbScript& ScanCommand() { return Command(Packet(0x41, WireOf(scanner_->scan_info))); }
  UsbScript& Accepted() { return script_->Read(Response('C'), kCommand, 28); }
  UsbScript& PageRequest() { return Command(Packet(0x62, kJob)); }
  UsbScript& Information(const _SCANINFO& info) {
    return script_->Read(WireOf(info), kCommand, 128);
  }
  UsbScript& Cancel() { return Command(Packet(0x50, kJob)); }
  UsbScript& PageHeader(const Bytes& header) { return script_->Read(header, kHeader, 8); }
  UsbScript& Block(const Bytes& bytes) {
    return script_->Read(bytes, kBlock, static_cast<std::uint32_t>(bytes.size()));
  }
  UsbScript& DrainHeader(const Bytes& header) { return script_->Read(header, kDrainHeader, 8); }

  bool Prepare(const PageShape& shape) {
    shape_ = shape;
    return scanner_->PrepareScan(RequestFor(shape), true, false);
  }
  // Prepares a page and scripts its start; of the first page of a job unless asked otherwise.
  void ScriptStart(const PageShape& shape, bool first = true) {
    ASSERT_TRUE(Prepare(shape));
    if (first) {
      ScanCommand();
      Accepted();
    }
    PageRequest();
    Information(InfoFor(shape));
  }
  // A page of one block, up to the header that ends it.
  void ScriptPage(const PageShape& shape, const Bytes& end, bool first = true) {
    ScriptStart(shape, first);
    const Bytes page = PageBytes(shape);
    PageHeader(Header(static_cast<std::uint32_t>(page.size())));
    Block(page);
    PageHeader(end);
  }
  Bytes ReadPage() {
    Bytes page;
    Bytes line(LineSize());
    for (std::uint32_t i = 0; i < shape_.length && scanner_->ReadLine(line.data()) == 0; ++i)
      page = page + line;
    return page;
  }
  std::size_t LineSize() const { return shape_.width * shape_.bits / 8; }

  // One direct call of the reader's. `result` is what the call gave.
  Bytes ReadLine(unsigned int size, int result = 0) {
    Bytes line(size, 0xEE);
    unsigned int got = 0;
    EXPECT_EQ(scanner_->ReadScanData(line.data(), size, &got), result);
    EXPECT_EQ(got, result == 0 ? size : got);
    return line;
  }
  std::uint32_t Status() const { return scanner_->GetIfErrorStatus(); }

  static std::chrono::milliseconds Took(const std::function<void()>& call) {
    const Stopwatch watch;
    call();
    return watch.Elapsed();
  }

  const SessionSystem system_ = CurrentSessionSystem();
  FakeUsbPort port_;
  FakeUsbDevice device_ = StillImageDevice(kSerial);
  std::unique_ptr<UsbScript> script_;
  std::unique_ptr<Footprint> footprint_;
  std::unique_ptr<UsbScanner> scanner_;
  PageShape shape_;
  int id_ = 0;
};

}  // namespace vox::test
