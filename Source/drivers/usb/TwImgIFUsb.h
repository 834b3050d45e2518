// CTwImgIFUsb: a scanner at USB. Commands go out over a bulk pipe, each followed by a zero-length
// packet; answers and the page's data come in over another one. docs/wire/usb-scan.md has the
// exchange, byte for byte.
//
// One page, and who does what
//
//   client thread                          reader (CTwainImageIF)
//   StartScan                              ReadDataAll
//     opens the device                       ReadScanData, once a line
//     SendCmdScan, ReceiveRspScan              blocks joined and split to lines, the next
//       (first page of a job only)             header being read ahead
//     SendCmdReqPage, ReadScanParameter      DeviceEndScan
//     reader starts                            drains what is left of the page,
//                                              closes the device
//
// Data that were received and not delivered lie at curr_ptr, in_buf bytes. A block goes straight
// into the caller's line as far as it fits and else into lbuf, so that each byte is copied once at
// most, whatever the sizes of blocks and lines.
//
// A header's length is converted from the wire's order once, when the header is read; a header that
// was read ahead keeps its meaning wherever it is used next, also when Abort drains a page, and
// that on every host. Nothing is read by a length that was not held against its buffer: a block of
// more than 256 MiB is refused, and drains go through a buffer of 64 KiB in pieces.
//
// What ends a wait early (UsbInterrupt): m_wakeAbort everywhere in a page, and in SendCmdStandby
// too when it rises meanwhile; m_wakeInfo, which every Abort raises, in GetDevInfo; m_wakePage
// where only lines are waited for. The answer to a scan command is taken all the same, 0.3 s at
// most, so that an abort knows the job. What a stop cuts short sets no status, and neither does a
// page or a GetDevInfo that fails because it began while an Abort was under way. Abort's own
// exchanges run into the ordinary time-outs (writes 0.3 s, a zero-length packet 5 s, headers 7 s),
// its drain ends after 30 s whatever the device sends, and that of a page's end after 15 minutes,
// which is more than the slowest bus takes for the largest page.
//
// Who holds the device open: a page from StartScan to its end (m_bPageOpen), GetDevInfo while it
// runs, each other operation for its own time. GetDevInfo does not wait for m_mux, only for the
// transfer that runs; neither it nor a standby command closes the device of a running page. An
// operation that fails leaves the device closed, and so does Abort, which awaits GetDevInfo's end.
//
// Thread rule: CTwainImageIF's. Lock order: m_infoMutex, mux, m_pipeMutex; none is held while the
// base is called, SetIfErrorStatus and the job id apart.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "vox/drivers/TwainImageIF.h"
#include "vox/drivers/usb/UsbPackets.h"
#include "vox/drivers/usb/UsbScanCtrl.h"
#include "vox/platform/Export.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox {

class VOX_EXPORT CTwImgIFUsb : public CTwainImageIF {
 public:
  // pszModelName is looked up in the table of supported models; pszSerial is the serial number that
  // the device has at USB.
  CTwImgIFUsb(const char* pszModelName, const char* pszSerial);

  // The destructor aborts what runs, the device's job too.
  ~CTwImgIFUsb() override;

  // IsOnLine looks whether the device is attached, without opening it. Returns: false with status 1
  // for an unknown model and 3 when it is not there, or without one when nobody could be asked.
  bool IsOnLine(unsigned short wUnused) override;

  // GetDevInfo asks the device what its two units can do, into m_DevInfoAll, and puts what they can
  // do together into m_DevInfo and *pDevInf. It waits up to 15 s for each of five replies. Returns:
  // false with status 3 when one is missing or too long, 1 or 3 when the device cannot be opened,
  // none when an Abort came meanwhile; no unit is known then.
  bool GetDevInfo(tagSCANDEVINFO* pDevInf) override;

  // StartScan asks for a page, of a new job unless multipage is set, and starts to receive it. Once
  // the device sends the page the call is true; when the page's threads cannot run then, ReadLine
  // says so. Returns: false with status 1 or 3 (not opened, no answer), 4 busy, 5 refused or bad
  // information, 8 no document, with the one that stood before, or none when an Abort came
  // meanwhile.
  bool StartScan(bool bPrescan) override;

  // DeviceEndScan reads the rest of the page and closes the device. Returns: false when the page's
  // end did not come; status 2 for want of memory, else none.
  bool DeviceEndScan() override;

  // Abort ends the page and cancels the job on the device; status 3 when that cannot be sent.
  // Returns: the base's result. The job stays known when the rest of the page did not come.
  bool Abort() override;

  // EjectADF is Abort: the device moves the sheet out by itself.
  bool EjectADF() override;

  // SendCmdStandby wakes the device. Returns: false with status 1 or 3 when it was not sent.
  bool SendCmdStandby() override;

  DeviceType GetDeviceType() const override { return dtUSB; }
  DeviceType GetType() const { return dtUSB; }

  // ReadScanData serves one line of `size` bytes. Returns: 0, and white lines when the page's data
  // have ended; -1 on a stop and while any status is set: 3 for a lost or silent device, 2 for a
  // block that no scanner sends. A page that failed once reads no more.
  int ReadScanData(unsigned char* buf, unsigned int size, unsigned int* read) override;

  // Open opens the device unless it is open. Returns: false with status 1 for an unknown model, 3
  // for a device that is not there or cannot be opened. Close closes it; true.
  bool Open() VOX_EXCLUDES(m_pipeMutex);
  bool Close() VOX_EXCLUDES(m_pipeMutex);

  // Read is one raw read of up to `size` bytes, 300 ms; buf is cleared first. Returns: 0; -1.
  int Read(unsigned char* buf, unsigned int size, unsigned int* read) VOX_EXCLUDES(m_pipeMutex);

  // ReadScanParameter reads the page's 128 bytes into scan_info. Returns: false with status 5 when
  // they do not come, or for a horizontal resolution outside of 75 to 19200 dpi.
  bool ReadScanParameter() VOX_EXCLUDES(m_pipeMutex) { return read_scan_parameter(&scan_info); }

  // SetAbortDrain and SetEndDrain shorten the time that an Abort and a page's end give the rest of
  // the page to come. Only tests do that; of a page's end on any thread.
  void SetAbortDrain(std::chrono::milliseconds time) { m_abortDrain = time; }
  void SetEndDrain(std::chrono::milliseconds time) { m_endDrain = time; }

 protected:
  enum XFER { XFER_SUCCESS = 0, XFER_FAILURE = 1, XFER_DONE = 6 };

  // The commands. Returns: whether both packets went out; false sets status 3.
  bool SendCmdScan(bool bPrescan) VOX_EXCLUDES(m_pipeMutex);
  bool SendCmdReqPage() VOX_EXCLUDES(m_pipeMutex);
  bool SendCmdAbort() VOX_EXCLUDES(m_pipeMutex);

  // SendCmdGetInf asks for a record: *out becomes what came of it, zeros for the rest, in the
  // wire's order; *got, unless null, the bytes of it that came. `size` is the record's.
  // Returns: false when no reply came, or a longer one than the record.
  bool SendCmdGetInf(unsigned int code, _SCANINF1* out, unsigned int size, unsigned int* got)
      VOX_EXCLUDES(m_pipeMutex);

  // ReceiveRspScan takes the answer to the scan command; the accepted job's id goes into m_JobId.
  // Returns: false with status 3 (none) or 5 (another); true accepted, or with 4 busy and 8 no
  // document.
  bool ReceiveRspScan() VOX_EXCLUDES(m_pipeMutex);

  // GetScanData puts the page's next *size bytes into buf.
  XFER GetScanData(unsigned char* buf, const unsigned int* size) VOX_REQUIRES(mux);

  // Of the header that was read last: CheckScnDatHdr does what its note asks for, CheckXferDone
  // sees to the end of the data, CheckPullScanPending says whether it is to be skipped.
  void CheckScnDatHdr() VOX_REQUIRES(mux);
  XFER CheckXferDone() VOX_REQUIRES(mux);
  bool CheckPullScanPending() const VOX_REQUIRES(mux);
  void NotifyPageEnd() {}

  Mutex mux;  // a page's exchanges exclude each other

  unsigned char* lbuf VOX_GUARDED_BY(mux) = nullptr;      // what in_buf lies in, owned; null: none
  unsigned char* curr_ptr VOX_GUARDED_BY(mux) = nullptr;  // next byte to deliver
  std::uint32_t in_buf VOX_GUARDED_BY(mux) = 0;           // bytes held from there on
  tagUSBSCANDATAHEADER m_ScnDatHdr VOX_GUARDED_BY(mux){};
  bool32 m_bSdhObtained VOX_GUARDED_BY(mux) = 0;  // m_ScnDatHdr was read ahead and is not used yet
  bool32 m_bXferDone VOX_GUARDED_BY(mux) = 0;     // the end of the page's data was seen
  std::uint32_t m_dwDummyLineCnt VOX_GUARDED_BY(mux) = 0;  // lines asked for after it
  bool32 m_bReadLine VOX_GUARDED_BY(mux) = 0;              // a page is transferred, or was aborted

 private:
  using clock = std::chrono::steady_clock;

  // USB_READ is how a read went: size is 0 when it failed.
  struct USB_READ {
    bool done;
    unsigned int size;  // bytes
  };

  // The connection
  USB_READ read_pipe(unsigned char* buf, unsigned int size, int ms) VOX_EXCLUDES(m_pipeMutex);
  bool write_pipe(const void* packet, unsigned int size, int ms) VOX_EXCLUDES(m_pipeMutex);
  bool send_packet(const void* packet, unsigned int size, int ms, int msNull);
  bool send_command(const void* packet, unsigned int size);
  bool send_job_command(USB_COMMAND command);
  bool open_device() VOX_REQUIRES(m_pipeMutex);
  void close_device() VOX_REQUIRES(m_pipeMutex);
  void hold_for_page() VOX_EXCLUDES(m_pipeMutex);
  bool is_page_open() const VOX_EXCLUDES(m_pipeMutex);
  void enter_info() VOX_EXCLUDES(m_pipeMutex);
  void leave_info() VOX_EXCLUDES(m_pipeMutex);
  void fail(IfErrorStatus status);
  int rising_abort() const;

  // GetDevInfo's steps; the records go into m_DevInfoAll
  bool read_capabilities(tagSCANDEVINFO* pDevInf);
  bool read_sources();
  bool read_formats();
  bool read_margins();
  bool read_product(std::uint32_t* duplex);
  int product_id() const VOX_EXCLUDES(m_pipeMutex);

  // StartScan's and Abort's steps
  bool open_page(bool bPrescan) VOX_EXCLUDES(mux);
  bool open_for_page() VOX_REQUIRES(mux);
  bool start_job(bool bPrescan) VOX_REQUIRES(mux);
  bool read_scan_parameter(_SCANINFO* info) VOX_EXCLUDES(m_pipeMutex);
  void cancel_job() VOX_EXCLUDES(mux);
  void close_aborted() VOX_EXCLUDES(mux);

  // The data
  enum DRAIN { DRAIN_ENDED, DRAIN_NO_HEADER, DRAIN_NO_BLOCK, DRAIN_NO_MEMORY };
  USB_READ read_header(int ms, clock::time_point until) VOX_REQUIRES(mux);
  bool read_page_header() VOX_REQUIRES(mux);
  bool read_block(unsigned char* buf, unsigned int size, unsigned int* have) VOX_REQUIRES(mux);
  bool fill_block(unsigned char* to) VOX_REQUIRES(mux);
  unsigned int take_held(unsigned char* buf, unsigned int size) VOX_REQUIRES(mux);
  int serve_white(unsigned char* buf, unsigned int size, unsigned int* read) VOX_REQUIRES(mux);
  void free_held() VOX_REQUIRES(mux);
  DRAIN drain_page(clock::time_point until, USB_READ* last) VOX_REQUIRES(mux);
  bool discard_block(unsigned char* scratch, clock::time_point until) VOX_REQUIRES(mux);
  bool end_page_data() VOX_REQUIRES(mux);

  const std::string m_modelName;
  const std::string m_serial;
  std::chrono::milliseconds m_abortDrain{30'000};
  std::atomic<std::chrono::milliseconds> m_endDrain{std::chrono::minutes(15)};
  bool m_bReadFailed VOX_GUARDED_BY(mux) = false;  // this page reads no more

  std::atomic<int> m_aborting{0};  // calls of Abort that are under way
  EventFd m_wakeInfo;              // up from an Abort until the next GetDevInfo

  Mutex m_infoMutex;          // one GetDevInfo at a time
  mutable Mutex m_pipeMutex;  // one transfer at a time
  CUsbScanCtrl m_UsbDev VOX_GUARDED_BY(m_pipeMutex);
  bool32 isOpen VOX_GUARDED_BY(m_pipeMutex) = 0;
  std::int32_t m_ProductId VOX_GUARDED_BY(m_pipeMutex) = 0;  // of the device that was opened last
  bool m_bPageOpen VOX_GUARDED_BY(m_pipeMutex) = false;      // a page needs it open
  bool m_bInfoOpen VOX_GUARDED_BY(m_pipeMutex) = false;      // GetDevInfo does
};

}  // namespace vox
