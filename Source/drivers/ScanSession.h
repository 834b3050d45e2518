// ScanSession is one started page: copies of the records that describe it, its stages, its line
// tables and its semaphore set. StartScan makes it; it lives until the page's threads are joined.
//
// Thread rule: the records and sizes are constant after construction; each stage belongs to its
// thread; see the tables, the pools and the fields.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "vox/drivers/LineLead.h"
#include "vox/drivers/LinePipeline.h"
#include "vox/drivers/LineStages.h"
#include "vox/drivers/ScanRecords.h"
#include "vox/drivers/SemaphoreSet.h"
#include "vox/drivers/TwainImageIF.h"

namespace vox {

// LineTable owns the lines of one container, which looks into it.
//
// Thread rule: any thread; what was put and taken has moved from one thread to the other. One
// thread fills empty slots, in rising order; another one may only replace what it took.
class LineTable {
 public:
  // The table has `lines` empty slots; the kernel gives memory only for those that are used.
  // Throws: std::bad_alloc.
  LineTable(__DataContainer& container, std::uint32_t lines);
  ~LineTable();
  LineTable(const LineTable&) = delete;
  LineTable& operator=(const LineTable&) = delete;

  void put(std::uint32_t i, LineBuffer line);  // frees what was there
  LineBuffer take(std::uint32_t i);            // empties the slot; null when it was empty
  unsigned char* at(std::uint32_t i) const;    // null outside the table as well
  void free_lines();                           // empties every slot

 private:
  std::atomic_ref<unsigned char*> slot(std::uint32_t i) const {
    return std::atomic_ref<unsigned char*>(m_container.LineArray[i]);
  }
  __DataContainer& m_container;
  std::uint32_t m_lines;                  // slots
  std::atomic<std::uint32_t> m_above{0};  // no slot at or above it has ever been filled
};

struct ScanSession {
  // Throws: std::bad_alloc, also for a page that no scanner has (see LineStages.h).
  ScanSession(CTwainImageIF& owner, std::uint32_t dwScannable);

  CTwainImageIF& dev;
  __ImageProc proc;
  const tagDVSCANPARAM dparam;
  const std::uint32_t scannable;  // device lines that the device can read
  const LINE_SIZES sizes;
  HorizontalStage horizontal;
  VerticalStage vertical;
  const LineLead lead;
  LinePool device_pool;  // raw lines and device lines, all of one room; the reader takes
  LinePool client_pool;  // client lines that are made; the vertical thread takes
  LineTable device_lines;
  LineTable client_lines;
  std::int32_t semid = kNoSemaphores;   // the page's own copy; constant once threads run
  std::atomic<std::uint32_t> taken{0};  // client lines handed out
  std::atomic<int> lead_waiters{0};     // threads that wait for the lead to move

  // Cancellation point: a stop is wanted.
  bool stopping() const { return dev.PageStop() != PAGE_RUN; }

  // wait_to_read and wait_to_make hold the reader and the vertical thread back within the lead.
  // Returns: false when a stop is wanted or the set is gone.
  bool wait_to_read(std::uint32_t i);
  bool wait_to_make(std::uint32_t j);
  // lead_moved wakes them: the client took a line, or device lines were freed.
  void lead_moved() const;

  // The stores free the line instead when a stop is wanted.
  void store_device_line(std::uint32_t i, LineBuffer line);
  void store_client_line(std::uint32_t j, LineBuffer line);
  LineBuffer take_device_line(std::uint32_t i);
  const unsigned char* device_line(std::uint32_t i);
  // raw_line gives a line for the reader; of its raw_room bytes those from `filled` on are zeroed.
  // Throws: std::bad_alloc.
  LineBuffer raw_line(std::size_t filled);
  // client_line gives a line for the vertical thread, client_room bytes of anything; once the
  // client has it, recycle_client_line takes it back. Throws: std::bad_alloc.
  LineBuffer client_line();
  void recycle_client_line(LineBuffer line);
  // free_device_lines gives the lines below `end` back and counts them as consumed.
  void free_device_lines(std::uint32_t end);

  // post announces a line. A count at its greatest value is waited out, except where the waiter
  // looks at CurLineReady anyhow. Returns: false when the set is gone or a stop is wanted.
  bool post(int number) const;
  // announce is a post whose failure goes to the system log, unless a stop is what made it fail.
  bool announce(int number) const;
  bool wait(int number) const { return wait_semaphore(semid, number) == SemResult::kDone; }

  // fail ends the page for everyone who waits for a line.
  void fail(std::uint32_t status) const;

 private:
  template <typename Allowed>
  bool wait_for_lead(Allowed allowed);
};

// WorkerScope marks the calling thread as a worker of dev while it lives.
class WorkerScope {
 public:
  explicit WorkerScope(const CTwainImageIF& dev);
  ~WorkerScope();
  WorkerScope(const WorkerScope&) = delete;
  WorkerScope& operator=(const WorkerScope&) = delete;

  static bool is_worker_of(const CTwainImageIF& dev);

 private:
  const CTwainImageIF* m_before;
};

}  // namespace vox
