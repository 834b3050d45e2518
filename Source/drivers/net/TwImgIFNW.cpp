// The life of a network page: how it is asked for, cancelled, and what is between pages. Receiving
// its data is in TwImgIFNWData.cpp, its end in TwImgIFNWEnd.cpp.
#include "vox/drivers/net/TwImgIFNW.h"

#include <new>

#include <sys/socket.h>
#include <unistd.h>

#include "vox/DSDebugging.h"
#include "vox/drivers/SessionSystem.h"
#include "vox/drivers/net/DeviceCommand.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"
#include "vox/drivers/net/ScanNotice.h"
#include "vox/drivers/net/bonjour.h"

namespace vox {
namespace {

constexpr std::uint32_t ENCODE_TYPE_NETWORK = 1;
constexpr unsigned char REGISTRATION_SCAN = 0;
constexpr std::uint8_t NOTICE_TAKEN = 0x01;

void* run_reader(void* pIF) {
  jbigRead_thread(static_cast<CTwImgIFNW*>(pIF));
  return nullptr;
}

}  // namespace

CTwImgIFNW::CTwImgIFNW(const char* pszName, const char* pszIPAddr)
    : CTwainImageIF(pszName), ip(pszIPAddr != nullptr ? pszIPAddr : "") {}

CTwImgIFNW::~CTwImgIFNW() {
  m_ejectWake.Raise();
  StopSession();
  stop_data();
  close_channel(&end_sock);
}

bool CTwImgIFNW::StartScan(bool bPrescan) {
  cancel_left_job();
  if (!BeginPage()) return false;
  m_abort = 0;
  if (!open_page(bPrescan)) return fail_start();
  if (m_rule.byHeaderSize != 0 && !start_jbig()) return fail_start();
  if (!CTwainImageIF::StartScan(bPrescan)) return fail_start();
  return true;
}

// The stages up to here leave descriptors and the blocks' thread behind at any of them. An abort is
// not an error of the device's.
bool CTwImgIFNW::fail_start() {
  if (!is_aborted()) SetIfErrorStatus(IF_ERR_STS_DEVICE_COMM_ERR);
  cancel_left_job();
  stop_data();
  close_channel(&end_sock);
  return false;
}

// open_page: from nothing to both channels open and the page's information in scan_info.
bool CTwImgIFNW::open_page(bool bPrescan) {
  stop_data();
  close_channel(&end_sock);
  m_sequence = 0;
  if (!find_job_server()) return false;
  scan_info.dwEncodeType = ENCODE_TYPE_NETWORK;
  if (!multipage && !start_job(bPrescan)) return false;
  m_sequence = random_sequence();
  if (!open_data_channel(&data_soc, GetJobId(), m_sequence, abort_wake())) return false;
  if (!get_scaninfo(&scan_info) || !open_end_channel()) return false;
  m_rule = {scan_info.byEncodeHeaderSize, 1, {}};
  m_bReadFailed = false;
  m_bDataBroke = false;
  return !is_aborted();
}

bool CTwImgIFNW::find_job_server() {
  unsigned short port = 0;
  if (bonjour_resolve(m_name.c_str(), kScannerServiceType, &port) != 0) return false;
  m_port = port;
  return true;
}

bool CTwImgIFNW::start_job(bool bPrescan) {
  cancel_once(GetJobId(), m_jobs);
  ClearJobId();
  _SCANINFO wire{};
  scaninfo2le(&wire, &scan_info);
  return cmd_scan(&wire, bPrescan) && !is_aborted();
}

bool CTwImgIFNW::cmd_scan(_SCANINFO* wire, bool /*bPrescan*/) {
  _SCANJOBID job{};
  // An abort leaves the device as long to answer as a cancelled job's, so that its job gets known.
  const NetInterrupt interrupt(m_wakeAbort.Get(), m_waits.nCancel);
  const IfErrorStatus status = send_scan(ip.c_str(), wire, &job);
  if (status != IF_ERR_STS_NONE) {
    if (!is_aborted()) SetIfErrorStatus(status);
    return false;
  }
  SetJobId(job);
  ++m_jobs;
  return true;
}

bool CTwImgIFNW::cmd_req_page(unsigned short sequenceId) {
  return send_req_page(ip.c_str(), GetJobId(), sequenceId);
}

// The registration comes before the request, so that the device never finds nobody.
bool CTwImgIFNW::open_data_channel(int* soc, const _SCANJOBID& job, unsigned short sequenceId,
                                   const tagNWWAKE& wake) {
  return open_registered(soc, job, sequenceId, wake) &&
         send_req_page(ip.c_str(), job, sequenceId) &&
         read_start_notice(*soc, m_waits.nData, wake) &&
         write_channel(*soc, &NOTICE_TAKEN, sizeof NOTICE_TAKEN);
}

bool CTwImgIFNW::open_registered(int* soc, const _SCANJOBID& job, unsigned short sequenceId,
                                 const tagNWWAKE& wake) {
  *soc = get_lpd_soc(m_port, m_waits.nData, wake);
  return *soc >= 0 && add_job2lpd(*soc, ip.c_str(), REGISTRATION_SCAN, &job, sequenceId,
                                  m_waits.nRegistration, wake) == 0;
}

bool CTwImgIFNW::open_end_channel() {
  return open_registered(&end_sock, GetJobId(), m_sequence, abort_wake());
}

bool CTwImgIFNW::get_scaninfo(_SCANINFO* pInfo) {
  return receive_scaninfo(data_soc, m_waits.nData, abort_wake(), pInfo);
}

bool CTwImgIFNW::start_jbig() {
  m_pJbig.reset(new (std::nothrow) CJbigDataCtrl);
  if (!m_pJbig || !m_pJbig->AllocImageData()) return false;
  m_pJbig->SetJbigParam(scan_info.byJbigLineTemplate, scan_info.byJbigTpbTemplate,
                        m_rule.byHeaderSize);
  {
    MutexLock lock(j_mux);
    jth_end = 0;
    j_add_cnt = 0;
    m_head = {nullptr, nullptr};
    m_bStreamBroke = false;
  }
  m_bStopBlocks = false;
  m_blockEvent.Clear();
  m_roomEvent.Clear();
  pthread_t thread{};
  if (m_blockEvent.Get() < 0 || m_roomEvent.Get() < 0 ||
      CurrentSessionSystem().start_thread(&thread, &run_reader, this) != 0) {
    SetIfErrorStatus(IF_ERR_STS_INTERNAL);
    return false;
  }
  m_reader = thread;
  return true;
}

// stop_data ends the blocks' thread before its descriptor is closed: closing alone would not wake
// it, and the number could be another file's by the time it reads again.
void CTwImgIFNW::stop_data() {
  m_bStopBlocks = true;
  m_roomEvent.Raise();
  if (data_soc >= 0) ::shutdown(data_soc, SHUT_RDWR);
  if (m_reader != 0) ::pthread_join(m_reader, nullptr);
  m_reader = 0;
  close_channel(&data_soc);
  AllJbigFree();
  m_pJbig.reset();
}

void CTwImgIFNW::close_channel(std::int32_t* soc) {
  if (*soc >= 0) ::close(*soc);
  *soc = -1;
}

// The page is stopped before the device is told, so that no wait outlasts the call; the job id is
// read before the reader's end of page can clear it.
bool CTwImgIFNW::Abort() {
  m_abort = 1;
  m_cancelled = m_jobs.load();
  const _SCANJOBID job = GetJobId();
  m_ejectWake.Raise();
  SignalAbort();
  if (job.dwJobNo != 0) {
    send_req_page(ip.c_str(), job, 0);
    const IfErrorStatus status = send_cancel(ip.c_str(), job, m_waits.nCancel, -1);
    if (status != IF_ERR_STS_NONE) SetIfErrorStatus(status);
  }
  const bool ended = CTwainImageIF::Abort();
  cancel_left_job();
  return job.dwJobNo == 0 && ended;
}

// A device is kept busy by a job that nobody ends. It is told once of each: jobs are told apart by
// their number here, since a device may use its ids again.
void CTwImgIFNW::cancel_once(const _SCANJOBID& job, std::uint64_t number) {
  if (job.dwJobNo == 0 || m_cancelled.exchange(number) == number) return;
  send_cancel(ip.c_str(), job, m_waits.nCancel, -1);
}

// A job that StartScan got from the device while an abort was under way is nobody's: the abort
// found no job yet, or the one before. Job and number are read first: while the page is still an
// aborted one, no later StartScan can have set them.
void CTwImgIFNW::cancel_left_job() {
  const std::uint64_t number = m_jobs;
  const _SCANJOBID job = GetJobId();
  if (PageStop() == PAGE_ABORT) cancel_once(job, number);
}

// The channel and the information are its own: a page may be running until the base ends it.
bool CTwImgIFNW::EjectADF() {
  m_ejectWake.Clear();
  m_abort = 1;
  const tagNWWAKE wake{m_ejectWake.Get(), -1};
  m_cancelled = m_jobs.load();
  const _SCANJOBID job = GetJobId();
  int soc = -1;
  _SCANINFO info{};
  const bool ejected = (m_port != 0 || find_job_server()) &&
                       open_data_channel(&soc, job, random_sequence(), wake) &&
                       receive_scaninfo(soc, m_waits.nData, wake, &info);
  const int patience = UDPCMD_ATTEMPTS * m_waits.nData;
  const IfErrorStatus cancelled = send_cancel(ip.c_str(), job, patience, wake.nAbort);
  const IfErrorStatus status = ejected ? cancelled : IF_ERR_STS_DEVICE_COMM_ERR;
  if (status != IF_ERR_STS_NONE && !m_ejectWake.IsRaised()) SetIfErrorStatus(status);
  close_channel(&soc);
  CTwainImageIF::Abort();
  cancel_left_job();
  return false;
}

bool CTwImgIFNW::SendCmdStandby() {
  DS_LogText("%s:%d: Start\n", __func__, __LINE__);
  if (send_standby(ip.c_str(), m_sequence)) return true;
  DS_LogText("%s:%d: Error\n", __func__, __LINE__);
  return false;
}

}  // namespace vox
