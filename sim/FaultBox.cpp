#include "sim/FaultBox.h"

namespace vox::sim {

void FaultBox::Set(const Faults& faults) {
  MutexLock lock(mutex_);
  faults_ = faults;
  silent_ = false;
}

Faults FaultBox::Get() const {
  MutexLock lock(mutex_);
  return faults_;
}

Faults FaultBox::ForPage(std::uint32_t page) const {
  const Faults faults = Get();
  if (faults.page == 0 || faults.page == page) return faults;
  return {};
}

bool FaultBox::IsSilent() const {
  MutexLock lock(mutex_);
  return silent_ || faults_.silence.at == Stage::kAlways || faults_.sleep_after == 0u;
}

bool FaultBox::FallSilentAt(Stage stage) {
  MutexLock lock(mutex_);
  if (faults_.silence.at != stage) return false;
  silent_ = silent_ || faults_.silence.whole_device;
  return true;
}

void FaultBox::FallSilent(const Silence& silence) {
  MutexLock lock(mutex_);
  silent_ = silent_ || silence.whole_device;
}

bool FaultBox::TakeOne(std::uint32_t& count) {
  if (count == 0) return false;
  if (count != Faults::kEveryTime) --count;
  return true;
}

bool FaultBox::TakeBusy() {
  MutexLock lock(mutex_);
  return TakeOne(faults_.busy);
}

bool FaultBox::TakeNoDocument() {
  MutexLock lock(mutex_);
  return TakeOne(faults_.no_document);
}

std::optional<std::uint8_t> FaultBox::TakeRegisterReply() {
  MutexLock lock(mutex_);
  if (!faults_.register_reply || !TakeOne(faults_.register_replies)) return std::nullopt;
  return faults_.register_reply;
}

SnmpFault FaultBox::TakeSnmpFault() {
  MutexLock lock(mutex_);
  if (faults_.sleep_after) {
    TakeOne(*faults_.sleep_after);
    silent_ = silent_ || *faults_.sleep_after == 0;
  }
  if (faults_.snmp == SnmpFault::kNone || !TakeOne(faults_.snmp_answers)) return SnmpFault::kNone;
  return faults_.snmp;
}

ReplyFault FaultBox::TakeReplyFault() {
  MutexLock lock(mutex_);
  if (faults_.reply == ReplyFault::kNone || !TakeOne(faults_.replies)) return ReplyFault::kNone;
  return faults_.reply;
}

}  // namespace vox::sim
