// The data of a page at USB: blocks into lines, and what is left of them at the page's end.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "vox/DSDebugging.h"
#include "vox/drivers/SessionSystem.h"
#include "vox/drivers/usb/TwImgIFUsb.h"

namespace vox {
namespace {

constexpr unsigned char WHITE = 0xFF;
constexpr int READ_OK = 0, READ_FAILED = -1;
constexpr int PAGE_HEADER_MS = 70'000, PAGE_BLOCK_MS = 20'000;
constexpr int DRAIN_HEADER_MS = 7'000, DRAIN_BLOCK_MS = 300;
constexpr std::uint64_t HELD_MAX = std::uint64_t{256} << 20;  // bytes of a line and a block
constexpr unsigned int SCRATCH_SIZE = 64 * 1024;              // bytes that a drain reads at once
constexpr std::uint32_t WHITE_LINES_A_PAUSE = 32;
constexpr std::chrono::milliseconds WHITE_PAUSE(1);

unsigned char* new_bytes(std::size_t size) {
  return static_cast<unsigned char*>(CurrentSessionSystem().line_memory(size));
}

}  // namespace

int CTwImgIFUsb::ReadScanData(unsigned char* buf, unsigned int size, unsigned int* read) {
  *read = 0;
  MutexLock lock(mux);
  if (m_bReadFailed || PageStop() != PAGE_RUN) return READ_FAILED;
  const UsbInterrupt abort(m_wakeAbort.Get()), page(m_wakePage.Get());
  const XFER result = GetScanData(buf, &size);
  if (result == XFER_DONE) return serve_white(buf, size, read);
  if (result == XFER_FAILURE) {
    m_bReadFailed = true;
    return READ_FAILED;
  }
  *read = size;
  const std::uint32_t status = GetIfErrorStatus();
  if (status == IF_ERR_STS_NONE) return READ_OK;
  DS_LogText("CTwImgIFUsb::Read:Error = %d\n", static_cast<int>(status));
  return READ_FAILED;
}

// A page that is longer than its data ends white; the pauses leave the client's threads the
// processor.
int CTwImgIFUsb::serve_white(unsigned char* buf, unsigned int size, unsigned int* read) {
  if (m_dwDummyLineCnt % WHITE_LINES_A_PAUSE == 0) CurrentSessionSystem().pause(WHITE_PAUSE);
  ++m_dwDummyLineCnt;
  if (GetIfErrorStatus() != IF_ERR_STS_NONE) return READ_FAILED;
  std::memset(buf, WHITE, size);
  *read = size;
  return READ_OK;
}

CTwImgIFUsb::XFER CTwImgIFUsb::GetScanData(unsigned char* buf, const unsigned int* size) {
  if (m_bXferDone) return XFER_DONE;
  unsigned int have = take_held(buf, *size);
  while (have < *size) {
    if (!read_page_header()) return XFER_FAILURE;
    CheckScnDatHdr();
    if (CheckXferDone() == XFER_DONE) return XFER_DONE;
    if (!read_block(buf, *size, &have)) return XFER_FAILURE;
  }
  if (!read_page_header()) return XFER_FAILURE;
  m_bSdhObtained = 1;
  CheckScnDatHdr();
  return XFER_SUCCESS;
}

// ---- headers

// read_header gives the header that was read ahead, or reads one; those that only say that the data
// are not ready are skipped, until a stop or the time given.
CTwImgIFUsb::USB_READ CTwImgIFUsb::read_header(int ms, clock::time_point until) {
  for (;;) {
    if (!m_bSdhObtained) {
      std::uint8_t wire[sizeof(tagUSBSCANDATAHEADER)] = {};
      const USB_READ result = read_pipe(wire, sizeof wire, ms);
      if (result.size != sizeof wire) return {false, result.size};
      m_ScnDatHdr = scandatahdr2cpu(wire);
    }
    m_bSdhObtained = 0;
    if (!CheckPullScanPending()) return {true, sizeof m_ScnDatHdr};
    if (UsbInterrupt::Wait(std::chrono::milliseconds(0)) || clock::now() >= until)
      return {false, 0};
  }
}

bool CTwImgIFUsb::read_page_header() {
  if (read_header(PAGE_HEADER_MS, clock::time_point::max()).done) return true;
  DS_LogText("******** IF_ERR_STS_DEVICE_COMM_ERR:0018\n *********");
  fail(IF_ERR_STS_DEVICE_COMM_ERR);
  DS_LogText("CTwImgIFUsb::GetScanData:TWCC_BUMMER\n");
  return false;
}

void CTwImgIFUsb::CheckScnDatHdr() {
  if (m_ScnDatHdr.byAppCode != USB_APPCODE) return;
  if (m_ScnDatHdr.byCommand == USB_NOTE_PAGE_END) multipage = m_ScnDatHdr.byParam0 == 1;
  if (m_ScnDatHdr.byCommand == USB_NOTE_CHECK_ERROR) SetIfErrorStatus(IF_ERR_STS_CHECK_ERROR);
}

CTwImgIFUsb::XFER CTwImgIFUsb::CheckXferDone() {
  if (m_ScnDatHdr.dwLength != 0) return XFER_SUCCESS;
  m_bSdhObtained = 0;
  m_bXferDone = 1;
  return XFER_DONE;
}

bool CTwImgIFUsb::CheckPullScanPending() const {
  return m_ScnDatHdr.byAppCode == USB_APPCODE && m_ScnDatHdr.byCommand == USB_NOTE_PENDING;
}

// ---- blocks

// read_block reads the block that m_ScnDatHdr announces: into the line where it fits, else into
// lbuf, which gives the line what it lacks. *have is the line's bytes.
bool CTwImgIFUsb::read_block(unsigned char* buf, unsigned int size, unsigned int* have) {
  const std::uint32_t length = m_ScnDatHdr.dwLength;
  if (std::uint64_t{*have} + length > HELD_MAX) {
    fail(IF_ERR_STS_MEMORY);
    return false;
  }
  if (length <= size - *have) {
    if (!fill_block(buf + *have)) return false;
    *have += length;
    return true;
  }
  lbuf = new_bytes(length);
  if (lbuf == nullptr) {
    fail(IF_ERR_STS_MEMORY);
    return false;
  }
  if (!fill_block(lbuf)) {
    free_held();
    return false;
  }
  curr_ptr = lbuf;
  in_buf = length;
  *have += take_held(buf + *have, size - *have);
  return true;
}

// A block that a stop interrupts is still whole in the pipe: its header is kept for the drain.
bool CTwImgIFUsb::fill_block(unsigned char* to) {
  const std::uint32_t length = m_ScnDatHdr.dwLength;
  const USB_READ result = read_pipe(to, length, PAGE_BLOCK_MS);
  if (result.size == length) return true;
  if (!result.done && UsbInterrupt::Wait(std::chrono::milliseconds(0))) m_bSdhObtained = 1;
  DS_LogText("******** IF_ERR_STS_DEVICE_COMM_ERR:0019\n *********");
  DS_LogText("Size : %d: %d \n", static_cast<int>(length), static_cast<int>(result.size));
  fail(IF_ERR_STS_DEVICE_COMM_ERR);
  return false;
}

unsigned int CTwImgIFUsb::take_held(unsigned char* buf, unsigned int size) {
  const unsigned int count = std::min(size, in_buf);
  if (count == 0) return 0;
  std::memcpy(buf, curr_ptr, count);
  curr_ptr += count;
  in_buf -= count;
  if (in_buf == 0) free_held();
  return count;
}

void CTwImgIFUsb::free_held() {
  std::free(lbuf);
  lbuf = curr_ptr = nullptr;
  in_buf = 0;
}

// ---- the end of a page

// An aborted page's end is Abort's to settle, the job and the open device with it: opened anew, the
// device would drop the page with the job, and there would be nothing to cancel.
bool CTwImgIFUsb::DeviceEndScan() {
  bool ended = true;
  {
    MutexLock lock(mux);
    const UsbInterrupt interrupt(m_wakeAbort.Get());
    if (PageStop() != PAGE_ABORT) ended = end_page_data();
    if (PageStop() != PAGE_ABORT) {
      Close();
      if (!(ended && multipage)) ClearJobId();
    }
  }
  m_semaphore.Up();
  return ended;
}

bool CTwImgIFUsb::end_page_data() {
  m_bReadLine = 0;
  if (GetIfErrorStatus() == IF_ERR_STS_DEVICE_COMM_ERR || m_bXferDone) {
    m_bSdhObtained = 0;  // of the page that is lost
    m_bXferDone = 1;
    return true;
  }
  USB_READ last{};
  switch (drain_page(clock::now() + m_endDrain.load(), &last)) {
    case DRAIN_ENDED:
      CheckScnDatHdr();
      DS_LogText("(SUCCESS)\n");
      return true;
    case DRAIN_NO_HEADER:
      DS_LogText("(FAILURE : dwSize = %d\n", static_cast<int>(last.size));
      DS_LogText("(FAILURE : res = %d\n", static_cast<int>(last.done));
      DS_LogText("(FAILURE : Read Block Size(1))\n");
      return false;
    case DRAIN_NO_MEMORY:
      fail(IF_ERR_STS_MEMORY);
      return false;
    default:
      return false;
  }
}

// drain_page reads what is left of the page, whatever its size, through a buffer of a bounded one.
// *last is how the last header's read went.
CTwImgIFUsb::DRAIN CTwImgIFUsb::drain_page(clock::time_point until, USB_READ* last) {
  LineBuffer scratch;
  for (;;) {
    *last = read_header(DRAIN_HEADER_MS, until);
    if (!last->done) return DRAIN_NO_HEADER;
    if (CheckXferDone() == XFER_DONE) return DRAIN_ENDED;
    if (!scratch) scratch.reset(new_bytes(SCRATCH_SIZE));
    if (!scratch) return DRAIN_NO_MEMORY;
    if (!discard_block(scratch.get(), until)) return DRAIN_NO_BLOCK;
  }
}

bool CTwImgIFUsb::discard_block(unsigned char* scratch, clock::time_point until) {
  for (std::uint32_t left = m_ScnDatHdr.dwLength; left > 0;) {
    if (clock::now() >= until) return false;
    const unsigned int piece = std::min(left, SCRATCH_SIZE);
    if (read_pipe(scratch, piece, DRAIN_BLOCK_MS).size != piece) return false;
    left -= piece;
  }
  return true;
}

}  // namespace vox
