// The data of a network page: raw lines, or JBIG blocks that jbigRead_thread queues and the reading
// side decodes.
#include <cstdlib>
#include <cstring>

#include <poll.h>

#include "vox/DSDebugging.h"
#include "vox/drivers/net/TwImgIFNW.h"

namespace vox {
namespace {

constexpr unsigned char WHITE = 0xFF;
constexpr int READ_OK = 0, READ_FAILED = 1;
constexpr std::int32_t BLOCKS_MAX = 32;  // 32 MiB at most wait to be decoded
constexpr std::int32_t READER_FAILED = -1;

void await_event(const EventFd& event, const tagNWWAKE& wake) {
  pollfd entries[] = {{event.Get(), POLLIN, 0}, {wake.nAbort, POLLIN, 0}, {wake.nPage, POLLIN, 0}};
  ::poll(entries, 3, -1);  // whatever it says, the caller looks at everything again
}

// ChannelSource reads a page's blocks from its data channel.
class ChannelSource final : public JbigSource {
 public:
  ChannelSource(int s, const tagNWWAITS& waits, const tagNWWAKE& wake)
      : m_s(s), m_waits(waits), m_wake(wake) {}

  int read(BYTE* buf, std::size_t size, bool bHeader) override {
    std::size_t got = 0;
    const int ms = bHeader ? m_waits.nFirstData : m_waits.nData;
    const NW_WAIT waited = read_channel(m_s, buf, size, ms, m_wake, &got);
    if (waited == NW_WAIT_READY) return static_cast<int>(got);
    return waited == NW_WAIT_WOKEN ? SOURCE_STOPPED : SOURCE_BROKE;
  }

 private:
  const int m_s;
  const tagNWWAITS m_waits;
  const tagNWWAKE m_wake;
};

}  // namespace

int CTwImgIFNW::ReadScanData(unsigned char* buf, unsigned int len, unsigned int* rlen) {
  *rlen = 0;
  if (m_bReadFailed || PageStop() != PAGE_RUN) return READ_FAILED;
  return m_pJbig ? read_jbig(buf, len, rlen) : read_raw(buf, len, rlen);
}

int CTwImgIFNW::fail_read() {
  m_bReadFailed = true;
  SetIfErrorStatus(IF_ERR_STS_DEVICE_COMM_ERR);
  return READ_FAILED;
}

// ---- raw lines

// What is there is taken without asking for it first, which would double the calls for a fast
// device's page. A stop is seen before every line, so it waits for no more than the rest of one.
NW_WAIT CTwImgIFNW::receive_raw(unsigned char* buf, std::size_t len, int ms, std::size_t* got) {
  const NW_WAIT taken = take_channel(data_soc, buf, len, got);
  if (taken != NW_WAIT_TIMEOUT) return taken;
  return read_channel(data_soc, buf, len, ms, page_wake(), got);
}

int CTwImgIFNW::read_raw(unsigned char* buf, unsigned int len, unsigned int* rlen) {
  unsigned int have = 0;
  while (have < len) {
    std::size_t got = 0;
    const int ms = have == 0 ? m_waits.nFirstData : m_waits.nData;
    const NW_WAIT waited = receive_raw(buf + have, len - have, ms, &got);
    if (waited == NW_WAIT_WOKEN) return READ_FAILED;
    if (waited != NW_WAIT_READY) return fail_read();
    if (got == 0) break;
    have += static_cast<unsigned int>(got);
  }
  if (have < len) {
    DS_LogText("%s:%d: connection already closed. Lack of data size: %d\n", __func__, __LINE__,
               static_cast<int>(len - have));
    std::memset(buf + have, WHITE, len - have);
    if (have > 0) m_bDataBroke = true;  // a page may end between lines
  }
  *rlen = len;
  return READ_OK;
}

// ---- JBIG blocks, the reading side

int CTwImgIFNW::read_jbig(unsigned char* buf, unsigned int len, unsigned int* rlen) {
  BYTE* block = nullptr;
  const BLOCK_STATE state = await_block(&block);
  if (state == BLOCK_STOPPED) return READ_FAILED;
  if (state == BLOCK_NONE_LEFT) return serve_white(buf, len, rlen);
  if (state == BLOCK_FAILED || (state == BLOCK_READY && !decode(block))) {
    AllJbigFree();
    return fail_read();
  }
  return serve_bitmap(buf, len, rlen);
}

// The list owns the block; the controller only looks at it.
bool CTwImgIFNW::decode(BYTE* block) {
  m_pJbig->m_lpJbigData = block;
  const bool decoded = m_pJbig->Decompress();
  m_pJbig->m_lpJbigData = nullptr;
  if (decoded) JbigFree(this);
  return decoded;
}

int CTwImgIFNW::serve_white(unsigned char* buf, unsigned int len, unsigned int* rlen) {
  std::memset(buf, WHITE, len);
  *rlen = len;
  MutexLock lock(j_mux);
  if (m_bStreamBroke) m_bDataBroke = true;
  return READ_OK;
}

// A line that lies in two blocks is not put together: what the bitmap still has begins it, and the
// rest is white.
int CTwImgIFNW::serve_bitmap(unsigned char* buf, unsigned int len, unsigned int* rlen) {
  std::memset(buf, WHITE, len);
  *rlen = m_pJbig->GetImageDataCtrl()->SetImageData(buf, len);
  return READ_OK;
}

CTwImgIFNW::BLOCK_STATE CTwImgIFNW::await_block(BYTE** block) {
  for (;;) {
    const BLOCK_STATE state = look_for_block(block);
    if (state != BLOCK_AWAITED) return state;
    await_event(m_blockEvent, page_wake());  // the reader thread's own waits bound this one
    if (PageStop() != PAGE_RUN) return BLOCK_STOPPED;
  }
}

CTwImgIFNW::BLOCK_STATE CTwImgIFNW::look_for_block(BYTE** block) {
  MutexLock lock(j_mux);
  if (j_add_cnt < 0) return BLOCK_FAILED;
  if (!m_pJbig->GetImageDataCtrl()->IsEmpty()) return BLOCK_DECODED;
  if (m_head.next != nullptr) {
    *block = m_head.next->pData;
    return BLOCK_READY;
  }
  if (jth_end != 0) return BLOCK_NONE_LEFT;
  m_blockEvent.Clear();
  return BLOCK_AWAITED;
}

void CTwImgIFNW::free_oldest() {
  tagJBIGSCANDATA* oldest = m_head.next;
  m_head.next = oldest->next;
  vox::JbigFree(oldest->pData);
  vox::JbigFree(static_cast<void*>(oldest));
  if (j_add_cnt > 0) --j_add_cnt;
  m_roomEvent.Raise();
}

void JbigFree(CTwImgIFNW* pIF) {
  MutexLock lock(pIF->j_mux);
  if (pIF->m_head.next != nullptr) pIF->free_oldest();
}

void CTwImgIFNW::AllJbigFree() {
  DS_LogText("%s:%d: j_thread end \n", __func__, __LINE__);
  MutexLock lock(j_mux);
  while (m_head.next != nullptr) free_oldest();
}

// ---- JBIG blocks, the reader thread

bool addList(CTwImgIFNW* pIF, BYTE* pData) {
  auto* block = static_cast<tagJBIGSCANDATA*>(std::malloc(sizeof(tagJBIGSCANDATA)));
  if (block == nullptr) {
    JbigFree(static_cast<void*>(pData));
    return false;
  }
  *block = {pData, nullptr};
  MutexLock lock(pIF->j_mux);
  tagJBIGSCANDATA* last = &pIF->m_head;
  while (last->next != nullptr) last = last->next;
  last->next = block;
  ++pIF->j_add_cnt;
  pIF->m_blockEvent.Raise();
  return true;
}

bool IsAvailHeader(CTwImgIFNW* pIF, const tagJBIGSCANDATAHEADER* pHeader) {
  return accept_header(&pIF->m_rule, *pHeader);
}

// The failure is there before the end, so that nobody takes a page that failed for one that ended.
// What stop_data itself ends is not broken.
void CTwImgIFNW::end_blocks(JBIG_BLOCK last) {
  MutexLock lock(j_mux);
  if (last == JBIG_BLOCK_REFUSED || last == JBIG_BLOCK_BROKEN) j_add_cnt = READER_FAILED;
  m_bStreamBroke = last == JBIG_BLOCK_CUT && !m_bStopBlocks;
  jth_end = 1;
  m_blockEvent.Raise();
}

// The stop is looked at after the event is cleared: its wake may have been the one that is gone.
bool CTwImgIFNW::has_room() {
  MutexLock lock(j_mux);
  m_roomEvent.Clear();
  return j_add_cnt < BLOCKS_MAX;
}

bool CTwImgIFNW::await_room() {
  for (;;) {
    const bool room = has_room();
    if (m_bStopBlocks || PageStop() != PAGE_RUN) return false;
    if (room) return true;
    await_event(m_roomEvent, page_wake());
  }
}

void jbigRead_thread(CTwImgIFNW* pIF) {
  ChannelSource source(pIF->data_soc, pIF->m_waits, pIF->page_wake());
  pIF->m_rule.bFirstHeader = 1;
  JBIG_BLOCK result = JBIG_BLOCK_WHOLE;
  while (result == JBIG_BLOCK_WHOLE) {
    if (!pIF->await_room()) {
      result = JBIG_BLOCK_STOPPED;
      break;
    }
    auto* block = static_cast<BYTE*>(std::malloc(kJbigBlockSize));
    result = block != nullptr ? read_block(&source, &pIF->m_rule, block) : JBIG_BLOCK_REFUSED;
    if (result != JBIG_BLOCK_WHOLE) {
      JbigFree(block);
    } else if (!addList(pIF, block)) {
      result = JBIG_BLOCK_REFUSED;
    }
  }
  pIF->end_blocks(result);
}

}  // namespace vox
