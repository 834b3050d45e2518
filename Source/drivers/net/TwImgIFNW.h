// CTwImgIFNW: a scanner that is reached over IPv4. Commands go to the device over UDP, its
// capabilities come over SNMP, and the page's data come through the local job server, over two
// channels of each page: one for the data, one for the notice that ends it. docs/wire/
// network-scan.md has the exchange, byte for byte.
//
// One page, and who does what
//
//   client thread                        reader (CTwainImageIF)            jbigRead_thread
//   StartScan                            ReadDataAll                       (pages of JBIG blocks)
//     bonjour_resolve, cmd_scan            ReadScanData, once a line        header, size test, data
//     data_soc registered, page asked        takes the oldest block   <──    1 MiB a block,
//     notice, 0x01, 128 bytes                decodes, serves lines           32 at most wait
//     end_sock registered                DeviceEndScan                     ends with the stream,
//     reader threads start                 joins jbigRead_thread             or on a stop
//                                          end notice, 0x00
//
//   The blocks' list:  m_head.next is the oldest, j_add_cnt their number, -1 once the reader has
//   failed; jth_end is 1 once nothing more will come. All three change under j_mux, -1 before 1.
//   m_blockEvent is raised for the consumer, m_roomEvent for the reader; both are level-triggered,
//   cleared only under j_mux by who waits for them, so that no wake-up is lost and nobody spins.
//
// What ends a wait early: m_wakeAbort everywhere in a page; m_wakePage too where only lines are
// waited for; m_ejectWake in EjectADF, which runs beside a page. A page that is stopped sets no
// status of its own.
//
// Status at the end of a page: 3 also when lines were made white because the data ended in the
// middle of a line or of a block's header, or in a broken connection; data that end where data may
// end make a short page, which is a good one.
//
// Thread rule: CTwainImageIF's. EjectADF excludes the other client operations, Abort apart.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include <pthread.h>

#include "vox/drivers/JbigBuf.h"
#include "vox/drivers/TwainImageIF.h"
#include "vox/drivers/net/JbigBlock.h"
#include "vox/drivers/net/JobChannel.h"
#include "vox/platform/Export.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox {

struct _tagUDPCMD;
class CTwImgIFNW;

// jbigRead_thread receives the blocks of a page and queues them, until the stream ends, a block is
// bad (j_add_cnt becomes -1) or the page stops.
VOX_EXPORT void jbigRead_thread(CTwImgIFNW* pIF);

// addList appends a block that was received whole, and counts it. It becomes the owner of pData
// (malloc). Returns: false when there is no memory; pData is released then.
VOX_EXPORT bool addList(CTwImgIFNW* pIF, BYTE* pData);

// IsAvailHeader judges a block's header, in host order, as JbigBlock.h says.
VOX_EXPORT bool IsAvailHeader(CTwImgIFNW* pIF, const tagJBIGSCANDATAHEADER* pHeader);

// JbigFree releases the oldest block of the list and counts it off; a failed reader stays failed.
VOX_EXPORT void JbigFree(CTwImgIFNW* pIF);

class VOX_EXPORT CTwImgIFNW : public CTwainImageIF {
 public:
  // pszName is the name that the device must bear to be on line; pszIPAddr its address, dotted.
  CTwImgIFNW(const char* pszName, const char* pszIPAddr);

  // The destructor ends a page that still runs, without a word to the device: a client that gives a
  // job up calls Abort first.
  ~CTwImgIFNW() override;

  // IsOnLine asks the device for its name. Returns: whether it is m_name exactly, as it came or as
  // a device dictionary holds it; false with status 3 when it does not answer.
  bool IsOnLine(unsigned short wTimeout) override;

  // GetDevInfo reads the capabilities of the device's scanning units, two at most, from its MIB
  // into m_DevInfoAll, and what they can do together into m_DevInfo and *pDevInf. Returns: false
  // with status 3 when an object is missing; nothing is changed then.
  bool GetDevInfo(tagSCANDEVINFO* pDevInf) override;

  // StartScan asks for a page, of a new job unless multipage is set, and starts to receive it. A
  // job that the device accepted before the start failed stays known: Abort cancels it, and so does
  // the next StartScan before it asks for another job. Returns: false with status 3 (no job server,
  // no answer, no data), 4 busy, 5 refused, 8 no document, 1 or 2 (no thread, no memory), or none
  // when an Abort came meanwhile.
  bool StartScan(bool bPrescan) override;

  // ReadScanData serves one line. Returns: 0, short and missing data made white; 1 with status 3
  // when the channel or a block is bad, and ever after in this page; 1 without one on a stop.
  int ReadScanData(unsigned char* buf, unsigned int len, unsigned int* rlen) override;
  bool FillsLines() const override { return true; }

  // DeviceEndScan exchanges the end notice, which says whether another page follows (multipage).
  // Returns: false with status 3 when no notice came.
  bool DeviceEndScan() override;

  // Abort ends the page and cancels the job, also one that a StartScan on another thread is just
  // getting from the device. Returns: the base's result without a job; false with
  // one, whose status becomes 5 when the device answers with an error and 3 when it does not. It
  // waits 0.3 s for that answer.
  bool Abort() override;

  // EjectADF asks for one more page so that the feeder moves the sheet out, cancels the job and
  // ends the page; false. Statuses as in Abort, and 3 when no page came.
  bool EjectADF() override;

  // SendCmdStandby keeps the device awake between pages; whether the command was sent.
  bool SendCmdStandby() override;

  DeviceType GetDeviceType() const override { return dtNETWORK; }

  // SetWaits shortens the waits. Only tests do that, before they start a page.
  void SetWaits(const tagNWWAITS& waits) { m_waits = waits; }

 protected:
  // cmd_scan sends the scan command with the 128 bytes at `wire`; the accepted job's id goes into
  // m_JobId. Returns: false with status 3, 4, 5 or 8.
  bool cmd_scan(_SCANINFO* wire, bool bPrescan);

  // cmd_req_page asks for a page of the job; whether the command was sent.
  bool cmd_req_page(unsigned short sequenceId);

  // get_scaninfo receives the page's 128 bytes from data_soc and converts them.
  bool get_scaninfo(_SCANINFO* pInfo);

  // GetMibInt reads the numbers of a column: up to `count` values below `oid`, in their order, from
  // their first four bytes. Returns: how many were stored in values[].
  int GetMibInt(const char* oid, std::uint32_t* values, int count);

 private:
  class UnitInfo;  // GetDevInfo's

  friend void jbigRead_thread(CTwImgIFNW* pIF);
  friend bool addList(CTwImgIFNW* pIF, BYTE* pData);
  friend bool IsAvailHeader(CTwImgIFNW* pIF, const tagJBIGSCANDATAHEADER* pHeader);
  friend void JbigFree(CTwImgIFNW* pIF);

  // StartScan's steps
  bool open_page(bool bPrescan);
  bool find_job_server();
  bool start_job(bool bPrescan);
  void cancel_once(const _SCANJOBID& job, std::uint64_t number);
  void cancel_left_job();
  bool open_registered(int* soc, const _SCANJOBID& job, unsigned short sequenceId,
                       const tagNWWAKE& wake);
  bool open_data_channel(int* soc, const _SCANJOBID& job, unsigned short sequenceId,
                         const tagNWWAKE& wake);
  bool open_end_channel();
  bool start_jbig();
  bool fail_start();
  void stop_data() VOX_EXCLUDES(j_mux);
  static void close_channel(std::int32_t* soc);

  // ReadScanData's two kinds of page
  NW_WAIT receive_raw(unsigned char* buf, std::size_t len, int ms, std::size_t* got);
  int read_raw(unsigned char* buf, unsigned int len, unsigned int* rlen);
  int read_jbig(unsigned char* buf, unsigned int len, unsigned int* rlen);
  enum BLOCK_STATE {
    BLOCK_AWAITED,
    BLOCK_READY,
    BLOCK_DECODED,    // its bitmap still holds something
    BLOCK_NONE_LEFT,  // the page's data have ended
    BLOCK_FAILED,
    BLOCK_STOPPED,
  };
  BLOCK_STATE await_block(BYTE** block) VOX_EXCLUDES(j_mux);
  BLOCK_STATE look_for_block(BYTE** block) VOX_EXCLUDES(j_mux);
  bool decode(BYTE* block);
  int serve_bitmap(unsigned char* buf, unsigned int len, unsigned int* rlen);
  int serve_white(unsigned char* buf, unsigned int len, unsigned int* rlen);
  int fail_read();
  void free_oldest() VOX_REQUIRES(j_mux);
  void AllJbigFree() VOX_EXCLUDES(j_mux);

  // the reader thread's
  bool await_room() VOX_EXCLUDES(j_mux);
  bool has_room() VOX_EXCLUDES(j_mux);
  void end_blocks(JBIG_BLOCK last) VOX_EXCLUDES(j_mux);

  // DeviceEndScan's
  enum END_STATE { END_DONE, END_AGAIN, END_FAILED };
  bool exchange_end_notice();
  END_STATE take_end_notice();
  END_STATE go_on_waiting();

  tagNWWAKE page_wake() const { return {m_wakeAbort.Get(), m_wakePage.Get()}; }
  tagNWWAKE abort_wake() const { return {m_wakeAbort.Get(), -1}; }
  bool is_aborted() const { return m_abort != 0 || PageStop() == PAGE_ABORT; }

  // Changed by the reader thread and the reading side, under j_mux.
  std::int32_t jth_end VOX_GUARDED_BY(j_mux) = 0;     // 1: the reader thread has ended
  std::int32_t j_add_cnt VOX_GUARDED_BY(j_mux) = 0;   // blocks queued; -1 after its failure
  bool m_bStreamBroke VOX_GUARDED_BY(j_mux) = false;  // it ended where no block ends

  // Set before the page's threads start; closed by DeviceEndScan after they have ended.
  std::int32_t data_soc = -1;
  std::int32_t end_sock = -1;

  Mutex j_mux;
  tagJBIGSCANDATA m_head VOX_GUARDED_BY(j_mux){nullptr, nullptr};

  tagJBIGRULE m_rule;  // the reader thread's: m_bFirstHeader and m_JbigDataHeaderBackup

  const std::string ip;
  std::uint16_t m_port = 0;                   // of the job server, from StartScan
  std::uint16_t m_sequence = 0;               // of the page request; the standby command's too
  pthread_t m_reader = 0;                     // jbigRead_thread, 0 none
  std::unique_ptr<CJbigDataCtrl> m_pJbig;     // present for a page of JBIG blocks
  std::atomic<std::int32_t> m_abort{0};       // set by Abort and EjectADF, cleared by StartScan
  std::atomic<std::uint64_t> m_jobs{1};       // counts the accepted ones, after m_JobId was set
  std::atomic<std::uint64_t> m_cancelled{0};  // the number of the one that was cancelled last
  bool m_bReadFailed = false;                 // the reader's: this page reads no more
  std::atomic<bool> m_bDataBroke{false};      // the data did not end where data may end

  EventFd m_blockEvent;                    // a block was queued, or the reader thread has ended
  EventFd m_roomEvent;                     // a block was taken, or the reader thread is to end
  std::atomic<bool> m_bStopBlocks{false};  // the reader thread is to end
  EventFd m_ejectWake;                     // an Abort came while EjectADF runs

  tagNWWAITS m_waits;
};

}  // namespace vox
