// What a client asks about a scanner, and the request that it prepares.
#include "vox/DSDebugging.h"
#include "vox/drivers/ScanParameters.h"
#include "vox/drivers/ScanSession.h"
#include "vox/drivers/TwainImageIF.h"

namespace vox {
namespace {

constexpr float kUnitsPerInch = 10000.0f;

float inches(std::uint32_t units) {
  return static_cast<float>(units) / kUnitsPerInch;
}

}  // namespace

#define VOX_TRACE_CALL() DS_LogText("%s %d\n", __func__, __LINE__)

bool CTwainImageIF::PrepareScan(const tagTWSCANPARAM& Param, bool /*bFirst*/, bool bPrescan) {
  VOX_TRACE_CALL();
  if (WorkerScope::is_worker_of(*this)) return fail_status(IF_ERR_STS_INTERNAL);
  MutexLock life(m_life);
  m_bPreparedOver = m_scanning != 0;
  ClearIfErrorStatus();
  rParam = Param;
  ScanParam.bPrescan = bPrescan;
  if (!prepare_scan_info(scan_info, rParam, m_DevInfo, bPrescan)) return false;
  nLineOut = 0;
  return true;
}

tagDVSCANPARAM& CTwainImageIF::GetScanParam() {
  VOX_TRACE_CALL();
  MutexLock life(m_life);
  compute_scan_param(ScanParam, rParam, m_DevInfo);
  return ScanParam;
}

bool CTwainImageIF::GetDevInfo(tagSCANDEVINFO* pDevInf) {
  VOX_TRACE_CALL();
  *pDevInf = m_DevInfo;
  return true;
}

void CTwainImageIF::GetDeviceResolution(unsigned* xResoMin, unsigned* yResoMin, unsigned* xResoMax,
                                        unsigned* yResoMax) {
  VOX_TRACE_CALL();
  *xResoMin = m_DevInfo.dwXResMin;
  *yResoMin = m_DevInfo.dwYResMin;
  *xResoMax = m_DevInfo.dwXResMax;
  *yResoMax = m_DevInfo.dwYResMax;
}

void CTwainImageIF::GetDeviceResolutionCmn(unsigned* xResoMinCmn, unsigned* yResoMinCmn,
                                           unsigned* xResoMaxCmn, unsigned* yResoMaxCmn) {
  VOX_TRACE_CALL();
  *xResoMinCmn = m_DevInfo.dwXResMinCmn;
  *yResoMinCmn = m_DevInfo.dwYResMinCmn;
  *xResoMaxCmn = m_DevInfo.dwXResMaxCmn;
  *yResoMaxCmn = m_DevInfo.dwYResMaxCmn;
}

void CTwainImageIF::GetPreviewResolution(unsigned* xReso, unsigned* yReso) {
  VOX_TRACE_CALL();
  *xReso = m_DevInfo.dwXResPre[0];
  *yReso = m_DevInfo.dwYResPre[0];
}

void CTwainImageIF::GetSupportImageType(unsigned char* type) {
  VOX_TRACE_CALL();
  *type = m_DevInfo.byImageTypes;
}

bool CTwainImageIF::IsSmallRegularPaperSize() {
  VOX_TRACE_CALL();
  return m_DevInfo.bySmallPaperSizeType != 0;
}

void CTwainImageIF::GetRegularPaperSizeMargins(float* left, float* top, float* right,
                                               float* bottom) {
  VOX_TRACE_CALL();
  *left = inches(m_DevInfo.dwRegularLeftMargin);
  *top = inches(m_DevInfo.dwRegularTopMargin);
  *right = inches(m_DevInfo.dwRegularRightMargin);
  *bottom = inches(m_DevInfo.dwRegularBottomMargin);
}

std::uint32_t CTwainImageIF::GetSupportedPaper() {
  VOX_TRACE_CALL();
  return m_DevInfo.dwSupportPaper;
}

#undef VOX_TRACE_CALL

std::uint32_t CTwainImageIF::GetIfErrorStatus() const {
  MutexLock lock(err_st_mutex);
  return m_ErrStatus;
}

std::string CTwainImageIF::GetIfErrorString() const {
  return IfErrorText(GetIfErrorStatus());
}

void CTwainImageIF::SetIfErrorStatus(unsigned int status) {
  MutexLock lock(err_st_mutex);
  if (m_ErrStatus != IF_ERR_STS_NONE) return;
  m_ErrStatus = status <= IF_ERR_STS_NO_DOCUMENT ? status : IF_ERR_STS_INTERNAL;
}

void CTwainImageIF::ClearIfErrorStatus() {
  renew_status(IF_ERR_STS_NONE);
}

std::uint32_t CTwainImageIF::status_term() const {
  MutexLock lock(err_st_mutex);
  return m_statusTerm;
}

// renew_status begins a term of the status: what is still on its way from the one before, a
// ReadLine that the end of its page has woken, comes too late.
void CTwainImageIF::renew_status(std::uint32_t status) {
  MutexLock lock(err_st_mutex);
  m_ErrStatus = status;
  ++m_statusTerm;
}

int CTwainImageIF::fail_line(std::uint32_t status, std::uint32_t term) {
  MutexLock lock(err_st_mutex);
  if (term == m_statusTerm && m_ErrStatus == IF_ERR_STS_NONE) m_ErrStatus = status;
  return 1;
}

bool CTwainImageIF::fail_status(std::uint32_t status) {
  SetIfErrorStatus(status);
  return false;
}

_SCANJOBID CTwainImageIF::GetJobId() const {
  MutexLock lock(m_job_mutex);
  return m_JobId;
}

void CTwainImageIF::SetJobId(const _SCANJOBID& job) {
  MutexLock lock(m_job_mutex);
  m_JobId = job;
}

}  // namespace vox
