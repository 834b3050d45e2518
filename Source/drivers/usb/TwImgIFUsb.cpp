// The life of a page at USB: how it is asked for and cancelled, and what is between pages. The
// connection is in TwImgIFUsbPipe.cpp, the page's data and its end in TwImgIFUsbData.cpp.
#include "vox/drivers/usb/TwImgIFUsb.h"

#include <atomic>
#include <cstring>

#include "vox/DSDebugging.h"
#include "vox/drivers/ScanSession.h"

namespace vox {
namespace {

constexpr int RESPONSE_MS = 300;
constexpr std::uint32_t XRESOLUTION_MIN = 75, XRESOLUTION_MAX = 19'200;  // dpi

// under_way counts a call while it lives.
class under_way {
 public:
  explicit under_way(std::atomic<int>* count) : m_pCount(count) { ++*m_pCount; }
  ~under_way() { --*m_pCount; }
  under_way(const under_way&) = delete;
  under_way& operator=(const under_way&) = delete;

 private:
  std::atomic<int>* const m_pCount;
};

}  // namespace

CTwImgIFUsb::CTwImgIFUsb(const char* pszModelName, const char* pszSerial)
    : CTwainImageIF(pszModelName),
      m_modelName(pszModelName != nullptr ? pszModelName : ""),
      m_serial(pszSerial != nullptr ? pszSerial : "") {}

CTwImgIFUsb::~CTwImgIFUsb() {
  DS_LogText("CTwImgIFUsb::~CTwImgIFUsb");
  CTwImgIFUsb::Abort();
  Close();
  MutexLock lock(mux);
  free_held();
}

// What becomes of the base's start is not this call's result: the device is sending the page by
// then. Without threads nobody will end it, so the device is closed here.
// An Abort that is still under way was called before the page began, and ends it too: it would wait
// for the page's transfers else, without a word that reaches them.
bool CTwImgIFUsb::StartScan(bool bPrescan) {
  if (!BeginPage()) return false;
  if (m_aborting > 0) {
    SignalAbort();
    return false;
  }
  if (!open_page(bPrescan)) return false;
  if (!CTwainImageIF::StartScan(false)) {
    MutexLock lock(mux);
    Close();
  }
  return true;
}

// open_page: from nothing to the page's information in scan_info and its data on their way.
bool CTwImgIFUsb::open_page(bool bPrescan) {
  MutexLock lock(mux);
  free_held();
  m_bSdhObtained = 0;
  m_bReadFailed = false;
  hold_for_page();
  bool asked = open_for_page() && (multipage || start_job(bPrescan));
  if (asked) {
    const UsbInterrupt interrupt(m_wakeAbort.Get());
    asked = SendCmdReqPage() && ReadScanParameter();
  }
  if (!asked) {
    Close();
    return false;
  }
  m_bReadLine = 1;
  m_bXferDone = 0;
  return true;
}

bool CTwImgIFUsb::open_for_page() {
  const UsbInterrupt interrupt(m_wakeAbort.Get());
  if (Open()) return true;
  fail(IF_ERR_STS_INTERNAL);
  return false;
}

// An answer ends the asking, whatever status stands from before: the command is never repeated. The
// answer is awaited though an abort cut the command short, since the device may have taken it.
bool CTwImgIFUsb::start_job(bool bPrescan) {
  if (PageStop() == PAGE_ABORT) return false;
  bool sent = false;
  {
    const UsbInterrupt interrupt(m_wakeAbort.Get());
    sent = SendCmdScan(bPrescan);
  }
  if (!sent && PageStop() != PAGE_ABORT) {
    DS_LogText("FAILURE\n");
    return false;
  }
  return ReceiveRspScan() && sent && GetIfErrorStatus() == IF_ERR_STS_NONE;
}

bool CTwImgIFUsb::SendCmdScan(bool /*bPrescan*/) {
  _MFPCMDSCAN packet{};
  MakeMfpHeader(&packet.hdr, USB_CMD_SCAN);
  scaninfo2le(&packet.scan, &scan_info);
  return send_command(&packet, sizeof packet);
}

bool CTwImgIFUsb::SendCmdReqPage() {
  return send_job_command(USB_CMD_REQ_PAGE);
}

bool CTwImgIFUsb::SendCmdAbort() {
  return send_job_command(USB_CMD_ABORT);
}

bool CTwImgIFUsb::send_job_command(USB_COMMAND command) {
  _MFPCMDJOBID packet{};
  MakeMfpHeader(&packet.hdr, static_cast<char>(command));
  packet.jobId = GetJobId();
  return send_command(&packet, sizeof packet);
}

bool CTwImgIFUsb::ReceiveRspScan() {
  std::uint8_t bytes[sizeof(_MFPCMDJOBID)] = {};
  if (read_pipe(bytes, sizeof bytes, RESPONSE_MS).size != sizeof bytes) {
    if (PageStop() != PAGE_ABORT) fail(IF_ERR_STS_DEVICE_COMM_ERR);
    return false;
  }
  _MFPCMDJOBID answer{};
  std::memcpy(&answer, bytes, sizeof answer);
  switch (answer.hdr.byCmdCode) {
    case USB_RSP_ACCEPTED:
      SetJobId(answer.jobId);
      return true;
    case USB_RSP_BUSY:
      fail(IF_ERR_STS_DEVICE_BUSY);
      return true;
    case USB_RSP_NO_DOCUMENT:
      fail(IF_ERR_STS_NO_DOCUMENT);
      return true;
    default:
      fail(IF_ERR_STS_DEVICE_ERROR);
      return false;
  }
}

bool CTwImgIFUsb::read_scan_parameter(_SCANINFO* info) {
  _SCANINFO wire{};
  unsigned int got = 0;
  const bool whole =
      Read(reinterpret_cast<unsigned char*>(&wire), sizeof wire, &got) == 0 && got == sizeof wire;
  if (whole) scaninfo2cpu(info, &wire);
  if (whole && info->Xresolution >= XRESOLUTION_MIN && info->Xresolution <= XRESOLUTION_MAX)
    return true;
  fail(IF_ERR_STS_DEVICE_ERROR);
  return false;
}

// The page is stopped before the device is told, so that no wait outlasts the call.
bool CTwImgIFUsb::Abort() {
  const under_way abort(&m_aborting);
  SignalAbort();
  m_wakeInfo.Raise();
  cancel_job();
  const bool ended = CTwainImageIF::Abort();
  close_aborted();
  return ended;
}

// The job is looked at under mux, when a StartScan that was getting one is over. The end of an
// aborted page leaves it for here, so that each job is cancelled once.
void CTwImgIFUsb::cancel_job() {
  MutexLock lock(mux);
  _SCANJOBID job = GetJobId();
  if (job.dwJobNo == 0) return;
  Open();
  const bool between_pages = multipage && m_bXferDone;
  if (between_pages) {
    _SCANINFO unread{};
    if (SendCmdReqPage()) read_scan_parameter(&unread);
  }
  SendCmdAbort();
  if (between_pages) {
    USB_READ last{};
    if (drain_page(clock::now() + m_abortDrain, &last) != DRAIN_ENDED) return;
  }
  m_bReadLine = 1;
  job.dwJobNo = 0;
  SetJobId(job);
  m_bXferDone = 0;
  multipage = 0;
}

// No page can have begun since: it would be over too.
void CTwImgIFUsb::close_aborted() {
  const MutexLock info(m_infoMutex);  // a GetDevInfo that was cut short
  MutexLock lock(mux);
  Close();
}

bool CTwImgIFUsb::EjectADF() {
  return Abort();
}

// On the reader an abort that came first leaves nothing to keep awake; a client may wake the device
// of an aborted page.
bool CTwImgIFUsb::SendCmdStandby() {
  DS_LogText("%s:%d: start\n", "SendCmdStandby", __LINE__);
  MutexLock lock(mux);
  const UsbInterrupt interrupt(rising_abort());
  if (PageStop() == PAGE_ABORT && WorkerScope::is_worker_of(*this)) return false;
  if (!Open()) {
    fail(IF_ERR_STS_INTERNAL);
    return false;
  }
  _MFPCMDSTBYSCAN packet{};
  MakeMfpHeader(&packet.hdr, USB_CMD_STANDBY);
  const bool sent = send_command(&packet, sizeof packet);
  if (!sent || !is_page_open()) Close();
  return sent;
}

}  // namespace vox
