// UsbScanner is the device's end of its two bulk pipes, whatever carries them: commands go in
// transfer by transfer, and what it sends comes out as a host's transfers take it.
//
// A command counts when the empty packet behind it has come. What is sent is drawn when a host asks
// for it, so a host that reads slowly holds the device up.
//
//   OnBulkOut(scan command)  -> response             OnBulkOut(page request) -> scan information,
//   OnBulkOut(information)   -> header and record      header and data again and again, last header
//   OnBulkOut(cancel)        -> of a page being sent: the rest of the announced block, last header
//
// A page request that comes within a page is ignored. Clearing the halt of the pipe to the host
// gives up what was being sent on it, the page included: so a new host finds the device in order
// when the one before it was cut off.
//
// Thread rule: any thread. `now` and the log's listener must not call the scanner.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "sim/CommandPacket.h"
#include "sim/FaultBox.h"
#include "sim/JobDesk.h"
#include "sim/PageStream.h"
#include "sim/UsbPage.h"
#include "vox/platform/Mutex.h"

namespace vox::sim {

enum class UsbStatus : std::uint8_t {
  kOk,
  kNothing,   // not now: the transfer stays pending
  kStall,     // the pipe is halted
  kOverflow,  // a packet was larger than the room that was left; its end is lost
  kGone,      // unplugged
};

struct UsbIn {
  UsbStatus status = UsbStatus::kNothing;
  Bytes bytes;        // of kOk and kOverflow
  bool ends = false;  // the last packet was short: the host's transfer is over
  // Of kNothing: when something will come if no command does. Nothing: never.
  std::optional<std::chrono::steady_clock::time_point> again = {};
};

enum class UsbPipe : std::uint8_t { kIn, kOut };

class UsbScanner {
 public:
  using Clock = std::chrono::steady_clock;
  UsbScanner(const DeviceOptions& options, JobDesk& desk, FaultBox& faults, PageCache& cache,
             EventLog& events, std::function<Clock::time_point()> now = Clock::now);

  // OnBulkOut takes one transfer, also an empty one. Never kOverflow.
  UsbStatus OnBulkOut(std::span<const std::uint8_t> transfer) VOX_EXCLUDES(mutex_);
  // OnBulkIn gives what there is for a transfer with room for so many bytes, up to the packet that
  // ends it. With kOk, room left and not `ends` the transfer goes on: ask again for the rest.
  UsbIn OnBulkIn(std::size_t room) VOX_EXCLUDES(mutex_);
  void ClearHalt(UsbPipe pipe) VOX_EXCLUDES(mutex_);
  // Reset is a reset of the bus: pages and jobs are lost, halts are cleared.
  void Reset() VOX_EXCLUDES(mutex_);

  // A scanner is plugged in from the beginning.
  void Unplug() VOX_EXCLUDES(mutex_);
  void Plug() VOX_EXCLUDES(mutex_);
  bool IsPlugged() const VOX_EXCLUDES(mutex_);

  // GoOn is told that the faults are others now: a page that stood still is given up.
  void GoOn() VOX_EXCLUDES(mutex_);

 private:
  struct Sending {
    UsbRun run;
    std::size_t at = 0;
    Clock::time_point ready;
  };
  enum class Halter : std::uint8_t { kNone, kSilence, kHalt, kUnplug };
  struct Barrier {
    Halter what = Halter::kNone;
    std::uint64_t room = 0;  // bytes until then
  };

  void Handle(const Bytes& packet) VOX_REQUIRES(mutex_);
  bool StopsAt(Stage stage, const Faults& faults) VOX_REQUIRES(mutex_);
  void StartScan(const CommandPacket& command) VOX_REQUIRES(mutex_);
  void RequestPage(const CommandPacket& command) VOX_REQUIRES(mutex_);
  void Cancel(const CommandPacket& command) VOX_REQUIRES(mutex_);
  void TellInformation(const CommandPacket& command) VOX_REQUIRES(mutex_);
  void Respond(std::uint8_t code, const JobId& job) VOX_REQUIRES(mutex_);
  void Send(UsbRun run) VOX_REQUIRES(mutex_);

  bool Fetch() VOX_REQUIRES(mutex_);
  Barrier BarrierOf(const Sending& sending) const VOX_REQUIRES(mutex_);
  void Hit(Halter what) VOX_REQUIRES(mutex_);
  bool GivePacket(std::size_t room, UsbIn& in) VOX_REQUIRES(mutex_);
  void Sent(const UsbRun& run) VOX_REQUIRES(mutex_);
  void FinishPage() VOX_REQUIRES(mutex_);
  std::uint64_t DropAll(const std::string& why) VOX_REQUIRES(mutex_);
  void UnplugNow() VOX_REQUIRES(mutex_);
  void Log(EventKind kind, Bytes bytes = {}, const std::string& text = {}) VOX_REQUIRES(mutex_);

  const DeviceOptions& options_;
  JobDesk& desk_;
  FaultBox& faults_;
  PageCache& cache_;
  EventLog& events_;
  const std::function<Clock::time_point()> now_;

  mutable Mutex mutex_;
  bool plugged_ VOX_GUARDED_BY(mutex_) = true;
  bool halted_in_ VOX_GUARDED_BY(mutex_) = false;
  bool halted_out_ VOX_GUARDED_BY(mutex_) = false;
  bool holding_ VOX_GUARDED_BY(mutex_) = false;  // the page stands still, as a fault asks
  Bytes received_ VOX_GUARDED_BY(mutex_);        // of a command whose empty packet has not come
  std::deque<Sending> sending_ VOX_GUARDED_BY(mutex_);
  std::unique_ptr<UsbPage> page_ VOX_GUARDED_BY(mutex_);
  Faults page_faults_ VOX_GUARDED_BY(mutex_);
  std::uint64_t page_sent_ VOX_GUARDED_BY(mutex_) = 0;  // bytes behind the scan information
  std::uint16_t sequence_ VOX_GUARDED_BY(mutex_) = 0;
  Clock::time_point taken_ VOX_GUARDED_BY(mutex_);  // when a host took something last
};

}  // namespace vox::sim
