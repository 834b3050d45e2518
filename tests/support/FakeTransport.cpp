#include "tests/support/FakeTransport.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "vox/drivers/LineStages.h"

namespace vox::test {

tagTWSCANPARAM RequestFor(const PageShape& shape) {
  tagTWSCANPARAM request{};
  request.fXResolution = shape.resolution_x;
  request.fYResolution = shape.resolution_y;
  request.dwImageWidth = shape.width;
  request.dwImageLength = shape.length;
  request.wSamplesPerPixel = shape.bits == 24 ? 3 : 1;
  request.wBitsPerPixel = static_cast<std::uint16_t>(shape.bits);
  request.wPixelType = shape.bits == 24 ? 2 : shape.bits == 8 ? 1 : 0;
  request.fRight = static_cast<float>(shape.width) / shape.resolution_x;
  request.fBottom = static_cast<float>(shape.length) / shape.resolution_y;
  request.dwLineSize = (shape.width * shape.bits + 7) / 8;
  return request;
}

FakeTransport::FakeTransport() : CTwainImageIF("fake") {
  Ranges(75, 600);
  Scans(0);
}

FakeTransport::~FakeTransport() {
  StopSession();
}

FakeTransport& FakeTransport::AtLine(std::uint32_t line, Action action) {
  at_line_[line] = std::move(action);
  return *this;
}
FakeTransport& FakeTransport::AtStart(Action action) {
  at_start_ = std::move(action);
  return *this;
}
FakeTransport& FakeTransport::AtAbort(Action action) {
  at_abort_ = std::move(action);
  return *this;
}
FakeTransport& FakeTransport::AtEnd(Action action) {
  at_end_ = std::move(action);
  return *this;
}
FakeTransport& FakeTransport::AtStandby(Action action) {
  at_standby_ = std::move(action);
  return *this;
}
FakeTransport& FakeTransport::HasMorePages(int pages) {
  more_pages_ = pages;
  return *this;
}
FakeTransport& FakeTransport::Ranges(std::uint32_t from, std::uint32_t to) {
  m_DevInfo.dwXResMin = m_DevInfo.dwYResMin = from;
  m_DevInfo.dwXResMax = m_DevInfo.dwYResMax = to;
  return *this;
}
FakeTransport& FakeTransport::Scans(std::uint32_t height) {
  // By default the device reads more lines than any test asks for.
  m_DevInfo.dwPhysicalHeight = height == 0 ? 0xFFFFFFFF : height;
  m_DevInfoAll[0] = m_DevInfo;
  m_DevInfoAllCount = 1;
  return *this;
}
FakeTransport& FakeTransport::Answers(std::function<void(_SCANINFO&)> change) {
  answer_ = std::move(change);
  return *this;
}

FakeTransport& FakeTransport::Sends(std::vector<Line> lines) {
  lines_ = std::move(lines);
  reads = 0;
  return *this;
}

bool FakeTransport::Prepare(const tagTWSCANPARAM& request) {
  if (!PrepareScan(request, true, false)) return false;
  GetScanParam();
  return true;
}

std::vector<Line> FakeTransport::ReadPage(std::uint32_t lines) {
  std::vector<Line> page;
  Line line(rParam.dwLineSize);
  while (page.size() < lines && ReadLine(line.data()) == 0) page.push_back(line);
  return page;
}

std::vector<Line> FakeTransport::DeviceLines() const {
  const std::size_t size =
      std::size_t{scan_info.Window.xExtent} * device_depth(scan_info.DataType) / 8;
  std::vector<Line> lines(scan_info.Window.yExtent, Line(size));
  for (std::uint32_t i = 0; i < lines.size(); ++i) {
    for (std::uint32_t k = 0; k < size; ++k) lines[i][k] = PatternByte(i, k);
  }
  return lines;
}

std::vector<Line> FakeTransport::PageByTheRules() const {
  return ClientLines(rParam, scan_info, DeviceLines());
}

bool FakeTransport::StartScan(bool prescan) {
  if (begins_page && !BeginPage()) return false;
  reads = 0;
  if (answer_) answer_(scan_info);
  if (at_start_ && at_start_(*this) != 0) return false;
  return CTwainImageIF::StartScan(prescan);
}

int FakeTransport::ReadScanData(unsigned char* buf, unsigned int len, unsigned int* rlen) {
  const auto line = static_cast<std::uint32_t>(reads++);
  if (const auto found = at_line_.find(line); found != at_line_.end() && found->second) {
    const int result = found->second(*this);
    if (result != 0) return result;
  }
  for (unsigned k = 0; k < len; ++k) {
    buf[k] = line < lines_.size() ? lines_[line].at(k) : PatternByte(line, k);
  }
  *rlen = len;
  return 0;
}

bool FakeTransport::DeviceEndScan() {
  ++ends;
  multipage = more_pages_ > 0;
  if (more_pages_ > 0) --more_pages_;
  if (at_end_) return at_end_(*this) == 0;
  m_semaphore.Up();
  return true;
}

bool FakeTransport::Abort() {
  SignalAbort();
  ++aborts;
  if (at_abort_) at_abort_(*this);
  return CTwainImageIF::Abort();
}

bool FakeTransport::SendCmdStandby() {
  ++standbys;
  return !at_standby_ || at_standby_(*this) == 0;
}

FakeTransport::Action Fails(int result) {
  return [result](FakeTransport&) { return result; };
}

FakeTransport::Action Throws() {
  return [](FakeTransport&) -> int { throw std::runtime_error("as the test asked"); };
}

FakeTransport::Action Holds(Moment& moment) {
  return [&moment](FakeTransport& device) {
    return moment.Reach({device.m_wakeAbort.Get(), device.m_wakePage.Get()}) ? 0 : 1;
  };
}

FakeTransport::Action HoldsThenRaises(Moment& moment) {
  return [&moment](FakeTransport& device) {
    moment.Reach({device.m_wakeAbort.Get()});
    device.m_semaphore.Up();
    return 0;
  };
}

FakeTransport::Action NeverRaises() {
  return [](FakeTransport&) { return 0; };
}

}  // namespace vox::test
