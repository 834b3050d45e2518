// CTwainImageIF: one scanner as a client sees it, whatever the transport. The client prepares a
// page, starts it, reads its lines and ends it, or aborts it at any moment; a transport derives
// from the class and supplies the device.
//
// Owner: the client owns the object and deletes it when no other thread is inside one of its calls.
// Thread rule: Abort may be called from any thread at any time; the other client operations exclude
// each other (m_life) and a second client thread may call them too. ReadLine may run beside all of
// them. The virtual operations marked "reader" run on the page's reader thread.
//
// States
//
//   idle --PrepareScan--> prepared --StartScan--> scanning --EndScan--> ended --PrepareScan--> ...
//                             |                      |                    |
//                             '------- Abort --------+------ Abort -------'--> ended
//
//   While a page runs, PrepareScan leaves it alone (it works on copies of the records) and prepares
//   the next; StartScan ends it first, as EndScan does. What becomes of it from then on is not the
//   next page's status.
//
//   m_stop, in every state:  PAGE_RUN --EndScan--> PAGE_END --Abort--> PAGE_ABORT
//                                ^                    |                    |
//                                '--- BeginPage (first step of StartScan) -'
//
// One page: the stages, and the hand-overs between them
//
//   transport        reader             horizontal           vertical              client
//   ReadScanData --> ReadDataAll --1--> imageprocX --2-----> imageprocY --3------> ReadLine
//
//   no.  unit            where              announced by       end mark
//   1    raw line        ScanData slot i    semaphore 0        yExtent lines, or the set is removed
//   2    rescaled line   ScanData slot i    semaphore 1,       the same
//                                           CurLineReady = i
//   3    client line     UserData slot j    semaphore 2,       dwImageLength lines, or the set is
//                                           CurLineReady = j   removed: ReadLine gives 1
//
//   Capacity: the reader stays at most 64 MiB or 16,384 lines ahead of the client, whichever is
//   less (LineLead.h). Owner of a line: the slot it lies in, else the stage that works on it, else
//   the pool that keeps it for a line to come (LinePool.h). A slot changes at once, so that stages
//   never wait for one another; when a stop is wanted a stage frees its line instead of storing it,
//   and EndScan empties the slots once more when the last stage is through. Beside the road,
//   EndScan waits for m_semaphore, which DeviceEndScan raises once a page.
//
// What a transport does, so that every wait ends
//
//   StartScan(b)     if (!BeginPage()) return false;     first, before its mutex and any exchange
//                    ... exchanges; every wait also polls m_wakeAbort ...
//                    return CTwainImageIF::StartScan(b);
//                    When this gives false no thread runs and no DeviceEndScan will: tidy up there.
//   ReadScanData     reader. Waits poll m_wakeAbort and m_wakePage; a raised one fails the call at
//                    once, without a status. After an error below, fail at once ever after.
//   DeviceEndScan    reader, exactly once for each page that started. Waits poll m_wakeAbort only;
//                    the notice is still exchanged when the client ended the page early.
//                    PageStop() == PAGE_ABORT: no exchange. It calls m_semaphore.Up() exactly once
//                    on every way out; a thread of its own that feeds ReadScanData is stopped
//                    (eventfds, shutdown) and joined here, before its descriptor is closed.
//   SendCmdStandby   reader. What it waits for, an Abort waits for too: keep it short, or poll
//                    m_wakeAbort.
//   Abort            SignalAbort();                      first, takes no lock that a wait holds
//                    ... cancel the job on the device; these exchanges do not poll the eventfds ...
//                    return CTwainImageIF::Abort();      joins the page's threads
//                    It may also run on the reader, after an exception there; the base sees that.
//   destructor       StopSession();                      first: afterwards no virtual call can come
//                    ... close what is its own ...
//
//   No transport thread ever calls PrepareScan, GetScanParam, StartScan, EndScan or stopStandBy,
//   and none holds a mutex of its own while it calls into the base, SetIfErrorStatus and the job id
//   apart.
//   Lock order: m_life, data_mutex, m_ka; the transport's mutexes are released before m_life.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include <pthread.h>

#include "vox/drivers/LinePipeline.h"
#include "vox/drivers/ScanRecords.h"
#include "vox/drivers/Semaphore.h"
#include "vox/platform/Export.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox {

class CDupImgFile;
struct ScanSession;
struct tagJBIGSCANDATA;

// How urgently the page is asked to stop; it only rises until BeginPage.
enum PageStopLevel : int {
  PAGE_RUN = 0,
  PAGE_END = 1,    // EndScan: no more lines are wanted, the end notice still is
  PAGE_ABORT = 2,  // Abort: nothing is
};

class VOX_EXPORT CTwainImageIF {
 public:
  enum DeviceType { dtNONE = 0, dtFILE = 0, dtUSB = 1, dtNETWORK = 2 };

  explicit CTwainImageIF(const char* pszName);

  // The slots, in order. The destructor ends what is left of a session; a derived class must have
  // called StopSession() before.
  virtual ~CTwainImageIF();

  // IsOnLine asks whether the scanner answers now, without opening it. No transport uses wUnused.
  virtual bool IsOnLine(unsigned short wUnused) = 0;

  // GetDevInfo copies the capabilities that are known; a transport asks the device.
  virtual bool GetDevInfo(tagSCANDEVINFO* pDevInf);

  // PrepareScan clears the status and works the request out in the device's terms
  // (ScanParameters.h) into rParam and scan_info. Returns: false for a depth other than 1, 8 and 24
  // bits, and with status 1 on a worker.
  virtual bool PrepareScan(const tagTWSCANPARAM& Param, bool bFirst, bool bPrescan);

  // StartScan makes the semaphore set, the line tables and the three threads of one page. A page
  // that still runs is ended first; the status is then what it was before that, and none when
  // PrepareScan came while it ran. Returns: false with status 1 (no set, no thread, called from a
  // worker), 2 (no memory for the tables, or a page or line that no scanner has), or none when an
  // Abort came first.
  virtual bool StartScan(bool bPrescan);

  // DeviceEndScan, reader: ends the page on the device and raises m_semaphore.
  virtual bool DeviceEndScan() = 0;

  // Abort ends the page, its threads and a multipage session, in any state; true. Twice is
  // harmless.
  virtual bool Abort();

  // EjectADF empties the feeder; false here, where there is none.
  virtual bool EjectADF();

  // SendCmdStandby, reader: keeps the device from its standby. Returns: false when it was not sent.
  virtual bool SendCmdStandby() = 0;

  virtual DeviceType GetDeviceType() const = 0;

  // ReadScanData, reader: reads one device line of len bytes and says in *rlen how many were read.
  // Returns: 0 on success, positive or negative on failure.
  virtual int ReadScanData(unsigned char* buf, unsigned int len, unsigned int* rlen) = 0;

  // FillsLines: whether ReadScanData writes every one of the len bytes of a line that it returns 0
  // for. Otherwise the line is zeroed before, which costs one more walk over it.
  virtual bool FillsLines() const { return false; }

  // GetScanParam fills the device parameters from the request of the last PrepareScan. It does not
  // touch a running page.
  tagDVSCANPARAM& GetScanParam();

  // ReadLine writes the next client line, rParam.dwLineSize bytes, waiting for it.
  // Returns: 0; 1 when there is none: the page was ended (status 3) or all lines were given (status
  // 2).
  int ReadLine(unsigned char* pBuf);

  // EndScan drops the lines that are left and waits until DeviceEndScan has raised m_semaphore;
  // true. When it returns, IsNextPageExist() is settled. Without a started page it returns at once.
  bool EndScan();

  // stopStandBy ends the keep-alive between pages and joins the reader; true. While the page still
  // runs it only forbids the keep-alive and returns: the page is not cut.
  bool stopStandBy();

  // ReadDataAll and DummyRead are the reader's loops over yExtent lines, with and without the
  // duplex file and the white lines; they only work on the reader of a started page.
  bool ReadDataAll();
  bool DummyRead();

  // GetImageFile writes the page that the device sends to the duplex file. Returns: 0; 1 for a file
  // that fails, a stop or, with status 2, no memory for a line (on the reader: std::bad_alloc); the
  // low 16 bits of a negative
  // ReadScanData result.
  std::uint16_t GetImageFile();

  // ReadLinefromFile gives the duplex file's lines from the last to the first, each mirrored: len
  // bytes at buf, *rlen of them from the file, the rest white. Line 0 opens the file. Returns:
  // 0; 1.
  int ReadLinefromFile(unsigned int line, unsigned char* buf, unsigned int len, unsigned int* rlen);

  // Capabilities; resolutions in dpi, margins in inches.
  void GetDeviceResolution(unsigned* xResoMin, unsigned* yResoMin, unsigned* xResoMax,
                           unsigned* yResoMax);
  void GetDeviceResolutionCmn(unsigned* xResoMinCmn, unsigned* yResoMinCmn, unsigned* xResoMaxCmn,
                              unsigned* yResoMaxCmn);
  void GetPreviewResolution(unsigned* xReso, unsigned* yReso);
  void GetSupportImageType(unsigned char* type);
  bool IsSmallRegularPaperSize();
  void GetRegularPaperSizeMargins(float* left, float* top, float* right, float* bottom);
  std::uint32_t GetSupportedPaper();

  // GetUnitInfo copies the capabilities of one paper source, as the last GetDevInfo found them; its
  // byPaperSources says which it is. What GetDevInfo gives is what the sources have in common,
  // whose height is not that of any of them. Returns: false when there is no source of that number.
  bool GetUnitInfo(std::uint32_t unit, tagSCANDEVINFO* pDevInf) const {
    if (unit >= m_DevInfoAllCount || unit >= 2) return false;
    *pDevInf = m_DevInfoAll[unit];
    return true;
  }

  // The interface error status: the first error that is set stays until it is cleared.
  std::uint32_t GetIfErrorStatus() const VOX_EXCLUDES(err_st_mutex);
  std::string GetIfErrorString() const VOX_EXCLUDES(err_st_mutex);
  void SetIfErrorStatus(unsigned int status) VOX_EXCLUDES(err_st_mutex);
  void ClearIfErrorStatus() VOX_EXCLUDES(err_st_mutex);

  const char* GetDispName() const { return m_name.c_str(); }
  std::int32_t GetYOffset() const { return nLineOut; }  // client lines handed out
  std::int32_t GetNumberOfLinesScanned() const { return m_iScannedLines; }
  void ResetNumberOfLinesScanned() { m_iScannedLines = 0; }
  std::uint32_t GetAngle() const { return ScanParam.dwAngle; }
  std::uint32_t GetScanningYExtent() const { return scan_info.Window.yExtent; }
  std::uint32_t GetScanningXExtent() const { return scan_info.Window.xExtent; }
  std::uint32_t GetScanningDataType() const { return scan_info.DataType; }
  std::uint8_t GetScanningEncodeHeaderSize() const { return scan_info.byEncodeHeaderSize; }
  bool IsNextPageExist() const { return multipage != 0; }
  void SetXferMech(unsigned short wXferMech) { ScanParam.wXferMech = wXferMech; }
  void SetPrevResoIndex(unsigned short) {}  // a choice of the transports; entry 0 is used here

 protected:
  // BeginPage reaps the threads of the page before, ends it if it still runs, and sets PAGE_RUN
  // with both eventfds down. Returns: false with status 1 when no page can begin here.
  bool BeginPage() VOX_EXCLUDES(m_life);

  // SignalAbort sets PAGE_ABORT, raises both eventfds, forbids the keep-alive and removes the
  // semaphore set, so that every wait of the page ends. It joins nothing and never blocks.
  void SignalAbort() VOX_EXCLUDES(m_ka);

  // StopSession is Abort without the device, never virtual: no thread of the page runs afterwards.
  void StopSession() VOX_EXCLUDES(m_life);

  PageStopLevel PageStop() const { return static_cast<PageStopLevel>(m_stop.load()); }

  // The job id has a mutex of its own: Abort reads it while the reader may clear it.
  _SCANJOBID GetJobId() const VOX_EXCLUDES(m_job_mutex);
  void SetJobId(const _SCANJOBID& job) VOX_EXCLUDES(m_job_mutex);
  void ClearJobId() { SetJobId(_SCANJOBID{}); }

  __DataContainer ScanData;  // device lines
  __DataContainer UserData;  // client lines
  Mutex data_mutex;          // guards m_pSession for ReadLine, and both tables while EndScan frees
  Semaphore m_semaphore;     // raised by DeviceEndScan, lowered by the call that ends the page
  _SCANINFO scan_info{};     // the thread that starts pages; workers have a copy
  const std::string m_name;
  std::atomic<std::int32_t> nLineOut{0};  // client lines handed out
  std::uint32_t m_ErrStatus VOX_GUARDED_BY(err_st_mutex) = IF_ERR_STS_NONE;
  mutable Mutex err_st_mutex;
  tagSCANDEVINFO m_DevInfo{};
  std::atomic<bool32> multipage{0};  // the session spans several pages
  _SCANJOBID m_JobId VOX_GUARDED_BY(m_job_mutex){};
  tagSCANDEVINFO m_DevInfoAll[2]{};     // one a paper source
  std::uint32_t m_DevInfoAllCount = 0;  // records held
  tagJBIGSCANDATA* m_jlist_head =
      nullptr;  // the network transport's compressed data; not used here

  tagTWSCANPARAM rParam{};     // the client's request; the thread that starts pages
  tagDVSCANPARAM ScanParam{};  // the request in device terms; likewise

  EventFd m_wakePage;   // up from EndScan or Abort until BeginPage
  EventFd m_wakeAbort;  // up from Abort until BeginPage

 private:
  friend void data_thread(CTwainImageIF* dev);
  friend void imageprocX_thread(__ImageProc* proc);
  friend void imageprocY_thread(__ImageProc* proc);
  friend struct ScanSession;

  // Client side: called with m_life held.
  bool begin_page() VOX_REQUIRES(m_life);
  bool start_page() VOX_REQUIRES(m_life);
  bool make_session(std::int32_t semid) VOX_REQUIRES(m_life);
  bool start_threads() VOX_REQUIRES(m_life);
  void set_transfer_terms(bool bPrescan) VOX_REQUIRES(m_life);
  bool fail_start(std::uint32_t status) VOX_REQUIRES(m_life);
  void end_page() VOX_REQUIRES(m_life);
  void free_lines() VOX_REQUIRES(m_life);
  void forget_lines() VOX_REQUIRES(m_life);
  void join_rescalers() VOX_REQUIRES(m_life);
  void drop_session() VOX_REQUIRES(m_life);
  bool lines_given() const VOX_REQUIRES(data_mutex);
  int hand_out_line(unsigned char* pBuf, std::int32_t semid, std::uint32_t term)
      VOX_EXCLUDES(data_mutex);
  std::uint32_t status_term() const VOX_EXCLUDES(err_st_mutex);
  void renew_status(std::uint32_t status) VOX_EXCLUDES(err_st_mutex);
  int fail_line(std::uint32_t status, std::uint32_t term) VOX_EXCLUDES(err_st_mutex);
  bool fail_status(std::uint32_t status);

  // Any thread.
  void request_stop(PageStopLevel level) VOX_EXCLUDES(m_ka);
  void remove_set() VOX_EXCLUDES(m_ka);

  // Worker side: the reader's page.
  struct FILE_LINE {
    bool last;             // no line follows
    std::uint16_t result;  // of GetImageFile, when it is the last
  };
  bool fill_image_file();
  void replay_standby();
  bool read_line(std::uint32_t i, bool from_file);
  bool announce_line(std::uint32_t i, LineBuffer line);
  FILE_LINE keep_line(std::uint32_t i, unsigned char* line, std::uint32_t line_bytes);
  tagDVSCANPARAM transfer() const;  // of the page, or the last one prepared; likewise the two below
  tagTWSCANPARAM request() const;
  _SCANINFO block() const;

  // Worker side.
  bool await_gate() VOX_EXCLUDES(m_ka);
  void open_gate(bool run) VOX_EXCLUDES(m_ka);
  void settle() VOX_EXCLUDES(m_ka);
  void await_settled() VOX_EXCLUDES(m_ka);
  void keep_alive() VOX_EXCLUDES(m_ka);
  bool stays_awake() const VOX_REQUIRES(m_ka);
  static void* reader_body(void* session);
  static void* horizontal_body(void* session);
  static void* vertical_body(void* session);

  bool32 m_scanning VOX_GUARDED_BY(m_life) = 0;         // started and not yet ended
  bool m_bPreparedOver VOX_GUARDED_BY(m_life) = false;  // PrepareScan came while a page ran
  // Counts the terms of the status: a ReadLine that was called in an earlier one sets none.
  std::uint32_t m_statusTerm VOX_GUARDED_BY(err_st_mutex) = 0;
  std::unique_ptr<CDupImgFile> m_pImgFile;       // the reader's, while a page runs
  std::atomic<std::int32_t> m_iScannedLines{0};  // line index that GetImageFile wrote last
  double m_fStandby = 0;  // the reader's: seconds since 1970 of the replay's last standby command
  pthread_t pth VOX_GUARDED_BY(m_life) = 0;     // reader, 0 none; likewise the two below
  pthread_t ipxpth VOX_GUARDED_BY(m_life) = 0;  // horizontal
  pthread_t ipypth VOX_GUARDED_BY(m_life) = 0;  // vertical

  // m_life makes the client operations exclude each other; no worker ever takes it.
  Mutex m_life;
  bool m_bBegun VOX_GUARDED_BY(m_life) = false;  // BeginPage ran and StartScan has not used it yet
  std::unique_ptr<ScanSession> m_pSession;  // changed under m_life and data_mutex; workers of the
                                            // page read it freely, since it outlives them

  // m_ka guards what sleeping workers watch; m_wake is notified on every change of it.
  enum GATE { GATE_CLOSED, GATE_RUN, GATE_CANCELLED };
  Mutex m_ka;
  Condition m_wake;
  GATE m_gate VOX_GUARDED_BY(m_ka) = GATE_CLOSED;  // holds new threads until all are there
  bool m_settled VOX_GUARDED_BY(m_ka) = false;     // the reader is past the page; what is left is
                                                   // the keep-alive
  bool m_kaStop VOX_GUARDED_BY(m_ka) = false;      // no keep-alive any more
  std::atomic<int> m_stop{PAGE_RUN};               // PageStopLevel; changed under m_ka

  mutable Mutex m_job_mutex;
};

}  // namespace vox
