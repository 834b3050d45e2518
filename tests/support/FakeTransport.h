// FakeTransport is a scanner that exists in memory: it sends what it is told to and behaves as well
// or as badly as a test asks for.
//
//   FakeTransport device;
//   device.AtLine(5, Fails(1)).AtEnd(Holds(moment)).HasMorePages(1);
//   device.Prepare(GreyPage(100, 80));
//   device.StartScan(false);
//
// Thread rule: it is told everything before StartScan; the counts may be read at any time.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "tests/support/Moment.h"
#include "tests/support/PlainRoad.h"
#include "vox/drivers/TwainImageIF.h"

namespace vox::test {

// PageShape is what a page looks like to the client and to the device.
struct PageShape {
  unsigned bits = 8;         // of a client pixel
  std::uint32_t width = 0;   // pixels
  std::uint32_t length = 0;  // client lines
  float resolution_x = 300;  // dpi asked for
  float resolution_y = 300;
};

// RequestFor gives the client's request of a page; the frame begins at 0 and has the page's size.
tagTWSCANPARAM RequestFor(const PageShape& shape);

class FakeTransport : public CTwainImageIF {
 public:
  // What the device does at a line, or at the end of a page. At a line the result is what
  // ReadScanData returns; 0 sends the line.
  using Action = std::function<int(FakeTransport&)>;

  FakeTransport();
  ~FakeTransport() override;

  FakeTransport& AtLine(std::uint32_t line, Action action);
  FakeTransport& AtStart(Action action);    // within StartScan, after BeginPage; result 0: go on
  FakeTransport& AtAbort(Action action);    // within Abort, after SignalAbort
  FakeTransport& AtEnd(Action action);      // stands in for a plain raise
  FakeTransport& AtStandby(Action action);  // result 0: it was sent
  FakeTransport& HasMorePages(int pages);   // DeviceEndScan sets multipage for so many
  FakeTransport& Ranges(std::uint32_t from, std::uint32_t to);     // dpi, both directions
  FakeTransport& Scans(std::uint32_t height);                      // 1/10000 inch
  FakeTransport& Answers(std::function<void(_SCANINFO&)> change);  // the block of the device

  FakeTransport& Sends(std::vector<Line> lines);  // from line 0 on, in place of the pattern

  // Prepare asks for a page; false when PrepareScan refuses it.
  bool Prepare(const tagTWSCANPARAM& request);
  bool Prepare(const PageShape& shape) { return Prepare(RequestFor(shape)); }
  // ReadPage reads up to `lines` client lines; fewer when ReadLine fails.
  std::vector<Line> ReadPage(std::uint32_t lines);
  // PageByTheRules is what the page prepared last must look like.
  std::vector<Line> PageByTheRules() const;
  std::vector<Line> DeviceLines() const;

  bool IsOnLine(unsigned short) override { return true; }
  bool StartScan(bool prescan) override;
  bool DeviceEndScan() override;
  bool Abort() override;
  bool SendCmdStandby() override;
  DeviceType GetDeviceType() const override { return dtFILE; }
  int ReadScanData(unsigned char* buf, unsigned int len, unsigned int* rlen) override;

  std::atomic<int> reads{0};            // lines asked for since StartScan
  std::atomic<int> ends{0};             // DeviceEndScan
  std::atomic<int> aborts{0};           // Abort
  std::atomic<int> standbys{0};         // SendCmdStandby
  std::atomic<bool> begins_page{true};  // false: a transport that does not call BeginPage itself

  using CTwainImageIF::BeginPage;
  using CTwainImageIF::m_DevInfo;
  using CTwainImageIF::m_DevInfoAll;
  using CTwainImageIF::m_DevInfoAllCount;
  using CTwainImageIF::m_semaphore;
  using CTwainImageIF::m_wakeAbort;
  using CTwainImageIF::m_wakePage;
  using CTwainImageIF::multipage;
  using CTwainImageIF::nLineOut;
  using CTwainImageIF::PageStop;
  using CTwainImageIF::rParam;
  using CTwainImageIF::scan_info;
  using CTwainImageIF::ScanData;
  using CTwainImageIF::ScanParam;
  using CTwainImageIF::SignalAbort;
  using CTwainImageIF::StopSession;
  using CTwainImageIF::UserData;

 private:
  std::map<std::uint32_t, Action> at_line_;
  std::vector<Line> lines_;
  Action at_start_;
  Action at_abort_;
  Action at_end_;
  Action at_standby_;
  std::function<void(_SCANINFO&)> answer_;
  std::atomic<int> more_pages_{0};
};

// PatternByte is byte k of device line i.
inline std::uint8_t PatternByte(std::uint32_t i, std::uint32_t k) {
  return static_cast<std::uint8_t>((i * 31 + k * 17 + (i * k) / 3) >> 1);
}

FakeTransport::Action Fails(int result);
FakeTransport::Action Throws();
// Holds waits at the moment; an abort, and within a page the end of the page, cuts it short and
// fails the line. HoldsThenRaises does the same at the end of a page.
FakeTransport::Action Holds(Moment& moment);
FakeTransport::Action HoldsThenRaises(Moment& moment);
FakeTransport::Action NeverRaises();

}  // namespace vox::test
