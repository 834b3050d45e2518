// The reader's loops over the lines of a page, from the transport or from the duplex file.
#include "vox/drivers/PageReader.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "vox/DSDebugging.h"
#include "vox/DupImgFile.h"
#include "vox/drivers/LineMirror.h"
#include "vox/drivers/ScanSession.h"
#include "vox/drivers/SessionSystem.h"
#include "vox/drivers/TwainImageIF.h"

namespace vox {
namespace {

constexpr int kWhite = 0xFF;
constexpr double kReplayStandbySeconds = 5.0;

std::uint64_t down_to_8(std::uint64_t lines) {
  return lines / 8 * 8;
}

bool turned(const tagDVSCANPARAM& param) {
  return param.dwAngle == 180 && param.bPrescan == 0;
}

}  // namespace

const tagSCANDEVINFO& page_source(const tagSCANDEVINFO (&all)[2], std::uint32_t count,
                                  bool feeder) {
  if (count > 1) {
    for (const tagSCANDEVINFO& source : all) {
      if ((source.byPaperSources == 2) == feeder) return source;
    }
  }
  return all[0];
}

std::uint32_t scannable_lines(const tagSCANDEVINFO& source, std::uint32_t Yresolution) {
  const std::uint64_t at_600 = down_to_8(std::uint64_t{source.dwPhysicalHeight} * 600 / 10000);
  const std::uint64_t lines = down_to_8(at_600 * Yresolution / 600);
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(lines, 0xFFFFFFFF));
}

bool CTwainImageIF::ReadDataAll() {
  if (!m_pSession || !WorkerScope::is_worker_of(*this)) return false;
  DS_LogText("!!! %s %d\n", "ReadDataAll", __LINE__);
  DS_LogText("!!! %s Len= %d\n", "ReadDataAll", static_cast<int>(m_pSession->sizes.raw));
  if (m_pSession->sizes.depth == 0) return false;
  m_fStandby = CurrentSessionSystem().wall_clock();
  const bool from_file = turned(m_pSession->dparam);
  if (from_file && !fill_image_file()) return false;
  for (std::uint32_t i = 0; i < m_pSession->proc.sinfo.Window.yExtent; ++i) {
    if (!read_line(i, from_file)) return false;
  }
  return true;
}

bool CTwainImageIF::fill_image_file() {
  if (GetImageFile() != 0) return false;
  DS_LogText("%s:%d: SendCmdStandby\n", "ReadDataAll", __LINE__);
  SendCmdStandby();
  return true;
}

// The signed interval from now back to the noted time is compared: for a time in the past it is
// negative, so only a clock that was set back sends the command.
void CTwainImageIF::replay_standby() {
  const double interval = m_fStandby - CurrentSessionSystem().wall_clock();
  if (!(interval >= kReplayStandbySeconds)) return;
  DS_LogText("!!! %s:%d: set Standby command\n", "ReadDataAll", __LINE__);
  SendCmdStandby();
  m_fStandby = CurrentSessionSystem().wall_clock();
}

// read_line reads and announces device line i; a page that is asked longer than the device can scan
// ends in white lines.
bool CTwainImageIF::read_line(std::uint32_t i, bool from_file) {
  ScanSession& page = *m_pSession;
  if (!page.wait_to_read(i)) return false;
  const auto len = static_cast<unsigned>(page.sizes.raw);
  LineBuffer line = page.raw_line(from_file || FillsLines() ? len : 0);
  unsigned got = 0;
  const int result =
      from_file ? ReadLinefromFile(i, line.get(), len, &got) : ReadScanData(line.get(), len, &got);
  if (from_file) replay_standby();
  if (result != 0) {
    DS_LogText("!!! %s:%d: Error\n", "ReadDataAll", __LINE__);
    if (page.stopping() || i < page.scannable) return false;
    std::memset(line.get(), kWhite, len);
    DS_LogText("!!! %s Draw blank\n", "ReadDataAll");
  }
  return announce_line(i, std::move(line));
}

bool CTwainImageIF::announce_line(std::uint32_t i, LineBuffer line) {
  ScanSession& page = *m_pSession;
  page.store_device_line(i, std::move(line));
  return !page.stopping() && page.announce(kSemRawLine);
}

bool CTwainImageIF::DummyRead() {
  if (!m_pSession || !WorkerScope::is_worker_of(*this)) return false;
  ScanSession& page = *m_pSession;
  const auto len = static_cast<unsigned>(page.sizes.raw);
  DS_LogText("!!! %s Len= %d\n", "DummyRead", static_cast<int>(len));
  if (page.sizes.depth == 0) return false;
  for (std::uint32_t i = 0; i < page.proc.sinfo.Window.yExtent; ++i) {
    if (!page.wait_to_read(i)) return false;
    LineBuffer line = page.raw_line(FillsLines() ? len : 0);
    unsigned got = 0;
    if (ReadScanData(line.get(), len, &got) != 0) return false;
    if (!announce_line(i, std::move(line))) return false;
  }
  return true;
}

std::uint16_t CTwainImageIF::GetImageFile() try {
  static constexpr char kWho[] = "GetImageFile";
  const std::uint32_t line_bytes = transfer().dwLineBytes;
  DS_LogText("!!! %s dwLineBytes = %d\n", kWho, static_cast<int>(line_bytes));
  DS_LogText("!!! %s dwImageLength = %d\n", kWho, static_cast<int>(request().dwImageLength));
  if (!m_pImgFile->Create(line_bytes)) {
    DS_LogText("!!! %s m_pImgFile->Create:error\n", kWho);
    return 1;
  }
  const LineBuffer line = cleared_line(line_bytes);
  for (std::uint32_t i = 0; i < block().Window.yExtent; ++i) {
    const FILE_LINE kept = keep_line(i, line.get(), line_bytes);
    if (kept.last) return kept.result;
  }
  return m_pImgFile->Close() ? 0 : 1;
} catch (const std::bad_alloc&) {
  m_pImgFile->Close();
  if (WorkerScope::is_worker_of(*this)) throw;  // data_thread's to deal with
  SetIfErrorStatus(IF_ERR_STS_MEMORY);
  return 1;
}

// keep_line reads line i of the page and writes it to the duplex file.
CTwainImageIF::FILE_LINE CTwainImageIF::keep_line(std::uint32_t i, unsigned char* line,
                                                  std::uint32_t line_bytes) {
  const auto give_up = [this](int result) {
    m_pImgFile->Close();
    return FILE_LINE{true, static_cast<std::uint16_t>(result)};
  };
  unsigned got = 0;
  const int result = PageStop() == PAGE_RUN ? ReadScanData(line, line_bytes, &got) : 1;
  if (PageStop() != PAGE_RUN) return give_up(1);  // no semaphore would stop this loop
  if (result < 0) {
    DS_LogText("     ReadScanLine:Ret = %d\n", result);
    return give_up(result);
  }
  if (result > 0) {
    // The file stays open: the lines that came are replayed.
    if (i < request().dwImageLength) return FILE_LINE{true, 0};
    std::memset(line, kWhite, line_bytes);
  }
  if (!m_pImgFile->WriteLine(line)) {
    DS_LogText("     ReadScanLine:File write errro\n");
    return give_up(1);
  }
  m_iScannedLines = static_cast<std::int32_t>(i);
  return FILE_LINE{false, 0};
}

int CTwainImageIF::ReadLinefromFile(unsigned int line, unsigned char* buf, unsigned int len,
                                    unsigned int* rlen) {
  *rlen = 0;
  if (line == 0 && !m_pImgFile->Open()) return 1;
  std::memset(buf, kWhite, len);
  if (!m_pImgFile->LinesLeft()) return 0;
  const std::uint32_t size = std::min<std::uint32_t>(len, m_pImgFile->LineBytes());
  if (!m_pImgFile->ReadLine(buf, size)) return 1;
  if (!mirror_line(buf, size, block().DataType)) {
    DS_LogText("%s Invalid Datatype\n", "ReadLinefromFile");
    return 1;
  }
  *rlen = size;
  return 0;
}

tagDVSCANPARAM CTwainImageIF::transfer() const {
  if (const ScanSession* page = m_pSession.get()) return page->dparam;
  return ScanParam;
}
tagTWSCANPARAM CTwainImageIF::request() const {
  if (const ScanSession* page = m_pSession.get()) return page->proc.sparam;
  return rParam;
}
_SCANINFO CTwainImageIF::block() const {
  if (const ScanSession* page = m_pSession.get()) return page->proc.sinfo;
  return scan_info;
}

}  // namespace vox
