// The life of a session: how pages begin, end and are aborted. The drawing is in the header.
#include "vox/drivers/TwainImageIF.h"

#include <cstring>
#include <new>
#include <utility>

#include "vox/DSDebugging.h"
#include "vox/DupImgFile.h"
#include "vox/drivers/PageReader.h"
#include "vox/drivers/ScanSession.h"
#include "vox/drivers/SessionSystem.h"

namespace vox {
namespace {

bool start(pthread_t& thread, void* (*body)(void*), ScanSession* session) {
  pthread_t started{};
  if (CurrentSessionSystem().start_thread(&started, body, session) != 0) return false;
  thread = started;
  return true;
}

void join(pthread_t& thread) {
  if (thread == 0) return;
  ::pthread_join(thread, nullptr);
  thread = 0;
}

// 1 for a page turned by 180 degrees, the other way round when the device mirrors.
std::uint16_t mirror_of(const _SCANINFO& info) {
  const bool turned = info.dwAngle == 180;
  return turned != (info.Mirror == 1) ? 1 : 0;
}

}  // namespace

CTwainImageIF::CTwainImageIF(const char* pszName)
    : m_name(pszName != nullptr ? pszName : ""), m_pImgFile(std::make_unique<CDupImgFile>()) {}

CTwainImageIF::~CTwainImageIF() {
  StopSession();
}

bool CTwainImageIF::BeginPage() {
  if (WorkerScope::is_worker_of(*this)) return fail_status(IF_ERR_STS_INTERNAL);
  MutexLock life(m_life);
  return begin_page();
}

bool CTwainImageIF::begin_page() {
  if (m_wakePage.Get() < 0 || m_wakeAbort.Get() < 0) return fail_status(IF_ERR_STS_INTERNAL);
  const std::uint32_t status = m_bPreparedOver ? IF_ERR_STS_NONE : GetIfErrorStatus();
  const bool over = std::exchange(m_bPreparedOver, false) || m_scanning;
  end_page();
  if (over) renew_status(status);
  {
    MutexLock lock(m_ka);
    m_kaStop = true;
    m_wake.NotifyAll();
  }
  join(pth);
  join_rescalers();
  drop_session();
  MutexLock lock(m_ka);
  m_semaphore.Reset();
  m_wakePage.Clear();
  m_wakeAbort.Clear();
  m_stop = PAGE_RUN;
  m_kaStop = false;
  m_settled = false;
  m_gate = GATE_CLOSED;
  m_bBegun = true;
  return true;
}

bool CTwainImageIF::StartScan(bool bPrescan) {
  if (WorkerScope::is_worker_of(*this)) return fail_status(IF_ERR_STS_INTERNAL);
  MutexLock life(m_life);
  if (!std::exchange(m_bBegun, false) && !begin_page()) return false;
  m_bBegun = false;
  if (m_stop != PAGE_RUN) return false;
  set_transfer_terms(bPrescan);
  return start_page();
}

void CTwainImageIF::set_transfer_terms(bool bPrescan) {
  static constexpr char kWho[] = "StartScan";
  m_iScannedLines = 0;
  nLineOut = 0;
  const std::uint64_t bits =
      std::uint64_t{scan_info.Window.xExtent} * device_depth(scan_info.DataType);
  ScanParam.dwLineBytes = static_cast<std::uint32_t>(bits / 8);
  ScanParam.bPrescan = bPrescan;
  ScanParam.dwAngle = scan_info.dwAngle;
  ScanParam.wMirror = mirror_of(scan_info);
  DS_LogText("%s bPrescan    = %d\n", kWho, bPrescan);
  DS_LogText("%s dwAngle     = %d\n", kWho, static_cast<int>(ScanParam.dwAngle));
  DS_LogText("%s wMirror     = %d\n", kWho, ScanParam.wMirror);
  DS_LogText("%s wXferMech   = %d\n", kWho, ScanParam.wXferMech);
  DS_LogText("%s dwLineBytes\t   = %d\n", kWho, static_cast<int>(ScanParam.dwLineBytes));
  DS_LogText("%s dwLeftCutMargin = %d\n", kWho, static_cast<int>(scan_info.dwLeftCutMargin));
  DS_LogText("%s dwRightCutMargin = %d\n", kWho, static_cast<int>(scan_info.dwRightCutMargin));
  ScanParam.byJbigLineTemplate = scan_info.byJbigLineTemplate;
  ScanParam.byJbigTpbTemplate = scan_info.byJbigTpbTemplate;
  ScanParam.byEncodeHeaderSize = scan_info.byEncodeHeaderSize;
}

// An Abort that comes at any moment from here on finds the set, since it is in the containers
// before the last look at m_stop; what the Abort then does, it does after this call has given up
// m_life.
bool CTwainImageIF::start_page() {
  const std::int32_t semid = create_line_semaphores();
  if (semid == kNoSemaphores) return fail_status(IF_ERR_STS_INTERNAL);
  UserData.semid = semid;
  ScanData.semid = semid;
  if (!make_session(semid)) return fail_start(IF_ERR_STS_MEMORY);
  if (m_stop != PAGE_RUN) return fail_start(IF_ERR_STS_NONE);
  m_scanning = 1;
  const bool all = start_threads();
  open_gate(all);
  return all || fail_start(IF_ERR_STS_INTERNAL);
}

bool CTwainImageIF::make_session(std::int32_t semid) try {
  for (__DataContainer* data : {&ScanData, &UserData}) {
    data->CurLineReady = -1;
    data->StartLineReady = 0;
  }
  const tagSCANDEVINFO& source = page_source(m_DevInfoAll, m_DevInfoAllCount, scan_info.ADF != 0);
  auto session =
      std::make_unique<ScanSession>(*this, scannable_lines(source, scan_info.Yresolution));
  session->semid = semid;
  MutexLock lock(data_mutex);
  m_pSession = std::move(session);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

bool CTwainImageIF::start_threads() {
  return start(pth, &reader_body, m_pSession.get()) &&
         start(ipxpth, &horizontal_body, m_pSession.get()) &&
         start(ipypth, &vertical_body, m_pSession.get());
}

// fail_start undoes a page whose threads do not run: the gate sent those that exist home.
bool CTwainImageIF::fail_start(std::uint32_t status) {
  if (status != IF_ERR_STS_NONE) SetIfErrorStatus(status);
  remove_set();
  join(pth);
  join_rescalers();
  drop_session();
  m_scanning = 0;
  return false;
}

bool CTwainImageIF::EndScan() {
  if (WorkerScope::is_worker_of(*this)) return false;
  MutexLock life(m_life);
  end_page();
  return true;
}

// The reader is not joined: it may be on its way into the keep-alive of a multipage session. Only
// the call that turns m_scanning off takes the transport's raise.
void CTwainImageIF::end_page() {
  if (!m_scanning) return;
  request_stop(PAGE_END);
  remove_set();
  join_rescalers();
  free_lines();
  m_semaphore.Down();
  await_settled();
  m_scanning = 0;
  free_lines();
  forget_lines();
}

bool CTwainImageIF::Abort() {
  SignalAbort();
  if (WorkerScope::is_worker_of(*this)) {
    multipage = 0;
    return true;
  }
  StopSession();
  return true;
}

// The stop is asked for again under m_life: another client's StartScan may have begun a page since.
void CTwainImageIF::StopSession() {
  SignalAbort();
  MutexLock life(m_life);
  SignalAbort();
  join(pth);
  join_rescalers();
  multipage = 0;
  end_page();
  drop_session();
}

// The page that was there when the call began is the page it reads of: one that another client
// starts meanwhile is left alone. A page that is neither ended nor out of lines keeps its session.
// Two threads may both wait for the last line: who finds none left wakes the other.
int CTwainImageIF::ReadLine(unsigned char* pBuf) {
  const std::uint32_t term = status_term();
  std::int32_t semid = kNoSemaphores;
  {
    MutexLock lock(data_mutex);
    if (m_pSession && ScanData.semid > 0) {
      if (lines_given()) return fail_line(IF_ERR_STS_MEMORY, term);
      semid = m_pSession->semid;
    }
  }
  if (wait_semaphore(semid, kSemClientLine) != SemResult::kDone) {
    return fail_line(IF_ERR_STS_DEVICE_COMM_ERR, term);
  }
  return hand_out_line(pBuf, semid, term);
}

int CTwainImageIF::hand_out_line(unsigned char* pBuf, std::int32_t semid, std::uint32_t term) {
  MutexLock lock(data_mutex);
  if (!m_pSession || m_pSession->semid != semid) {
    return fail_line(IF_ERR_STS_DEVICE_COMM_ERR, term);
  }
  LineBuffer line = m_pSession->client_lines.take(m_pSession->taken);
  const bool found = line != nullptr;
  if (found) {
    std::memcpy(pBuf, line.get(), m_pSession->proc.sparam.dwLineSize);
    m_pSession->recycle_client_line(std::move(line));
    ++nLineOut;
    ++m_pSession->taken;
    m_pSession->lead_moved();
  }
  if (lines_given()) post_semaphore(semid, kSemClientLine);
  return found ? 0 : fail_line(IF_ERR_STS_MEMORY, term);
}

bool CTwainImageIF::lines_given() const {
  return m_pSession->taken >= m_pSession->proc.sparam.dwImageLength;
}

bool CTwainImageIF::stopStandBy() {
  if (WorkerScope::is_worker_of(*this)) return true;
  MutexLock life(m_life);
  {
    MutexLock lock(m_ka);
    m_kaStop = true;
    m_wake.NotifyAll();
    if (!m_settled) return true;
  }
  join(pth);
  return true;
}

bool CTwainImageIF::EjectADF() {
  return false;
}

void CTwainImageIF::free_lines() {
  MutexLock lock(data_mutex);
  if (!m_pSession) return;
  m_pSession->device_lines.free_lines();
  m_pSession->client_lines.free_lines();
  for (__DataContainer* data : {&ScanData, &UserData}) {
    data->CurLineReady = -1;
    data->StartLineReady = 0;
  }
}

// forget_lines gives back what the pools keep of a page whose threads take no line any more.
void CTwainImageIF::forget_lines() {
  MutexLock lock(data_mutex);
  if (!m_pSession) return;
  m_pSession->device_pool.clear();
  m_pSession->client_pool.clear();
}

void CTwainImageIF::join_rescalers() {
  join(ipxpth);
  join(ipypth);
}

void CTwainImageIF::drop_session() {
  MutexLock lock(data_mutex);
  m_pSession.reset();
}

void CTwainImageIF::SignalAbort() {
  request_stop(PAGE_ABORT);
  remove_set();
}

// Where an abort meets a transport that has ended its page without raising the semaphore, the raise
// is made up for, so that nobody waits for it for ever; settle() does the same the other way round.
void CTwainImageIF::request_stop(PageStopLevel level) {
  MutexLock lock(m_ka);
  if (m_stop < level) m_stop = level;
  m_wakePage.Raise();
  if (level == PAGE_ABORT) {
    m_wakeAbort.Raise();
    m_kaStop = true;
    if (m_settled) m_semaphore.UpIfNever();
  }
  m_wake.NotifyAll();
}

// One remover wins, and whoever waits for a line or for the lead looks again.
void CTwainImageIF::remove_set() {
  const std::int32_t semid = ScanData.semid.exchange(kNoSemaphores);
  std::int32_t same = semid;
  UserData.semid.compare_exchange_strong(same, kNoSemaphores);
  remove_semaphores(semid);
  MutexLock lock(m_ka);
  m_wake.NotifyAll();
}

}  // namespace vox
