// FaultBox holds a running device's faults: the counted ones are used up here, and a device that
// has fallen silent as a whole is remembered.
//
// Thread rule: any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "sim/Faults.h"
#include "vox/platform/Mutex.h"

namespace vox::sim {

class FaultBox {
 public:
  explicit FaultBox(const Faults& faults) : faults_(faults) {}

  void Set(const Faults& faults) VOX_EXCLUDES(mutex_);
  Faults Get() const VOX_EXCLUDES(mutex_);
  // ForPage gives the faults of the n-th page: without those of channels where they are another's.
  Faults ForPage(std::uint32_t page) const VOX_EXCLUDES(mutex_);

  bool IsSilent() const VOX_EXCLUDES(mutex_);
  // FallSilentAt is told that a stage is reached; true when the device stops there. A device that
  // stops as a whole is silent from then on.
  bool FallSilentAt(Stage stage) VOX_EXCLUDES(mutex_);
  // FallSilent makes the whole device silent, if `silence` is of that kind.
  void FallSilent(const Silence& silence) VOX_EXCLUDES(mutex_);

  // Each takes one of the counted faults, when there is one left.
  bool TakeBusy() VOX_EXCLUDES(mutex_);
  bool TakeNoDocument() VOX_EXCLUDES(mutex_);
  std::optional<std::uint8_t> TakeRegisterReply() VOX_EXCLUDES(mutex_);
  ReplyFault TakeReplyFault() VOX_EXCLUDES(mutex_);
  // TakeSnmpFault is asked once for each SNMP answer; after the last one that the device has left
  // it falls asleep: this answer still goes.
  SnmpFault TakeSnmpFault() VOX_EXCLUDES(mutex_);

 private:
  static bool TakeOne(std::uint32_t& count);

  mutable Mutex mutex_;
  Faults faults_ VOX_GUARDED_BY(mutex_);
  bool silent_ VOX_GUARDED_BY(mutex_) = false;
};

}  // namespace vox::sim
