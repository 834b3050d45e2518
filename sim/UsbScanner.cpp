#include "sim/UsbScanner.h"

#include <algorithm>
#include <utility>

#include "vox/platform/Bytes.h"

namespace vox::sim {
namespace {

constexpr std::size_t kMostCommand = 4096;
constexpr std::size_t kCommandCodeAt = 15, kSizeAt = 16;
constexpr std::uint8_t kMostUsbParameters = 255;

Stage StageOf(std::uint8_t command) {
  switch (command) {
    case kCommandScan:
      return Stage::kScanCommand;
    case kCommandRequestPage:
      return Stage::kPageRequest;
    case kUsbCommandCancel:
      return Stage::kCancel;
    case kUsbCommandInformation:
      return Stage::kDeviceInfo;
    case kCommandStandby:
      return Stage::kStandby;
    default:
      return Stage::kNone;
  }
}

EventKind KindOf(Stage stage) {
  switch (stage) {
    case Stage::kScanCommand:
      return EventKind::kScanCommand;
    case Stage::kPageRequest:
      return EventKind::kPageRequest;
    case Stage::kCancel:
      return EventKind::kCancelCommand;
    case Stage::kDeviceInfo:
      return EventKind::kInformation;
    case Stage::kStandby:
      return EventKind::kStandby;
    default:
      return EventKind::kBadDatagram;
  }
}

// The stage of a packet that may be cut anywhere.
Stage StageOf(std::span<const std::uint8_t> packet) {
  return packet.size() > kCommandCodeAt ? StageOf(packet[kCommandCodeAt]) : Stage::kNone;
}

bool Matches(const Stop& stop, Stage stage) {
  return stage != Stage::kNone && stop.at == stage;
}

std::optional<JobId> JobOf(const CommandPacket& command) {
  if (command.parameters.size() != kJobIdSize) return std::nullopt;
  JobId job{};
  std::copy(command.parameters.begin(), command.parameters.end(), job.begin());
  return job;
}

}  // namespace

UsbScanner::UsbScanner(const DeviceOptions& options, JobDesk& desk, FaultBox& faults,
                       PageCache& cache, EventLog& events, std::function<Clock::time_point()> now)
    : options_(options),
      desk_(desk),
      faults_(faults),
      cache_(cache),
      events_(events),
      now_(std::move(now)),
      taken_(now_()) {}

void UsbScanner::Log(EventKind kind, Bytes bytes, const std::string& text) {
  Event event(kind, std::move(bytes), text);
  if (page_) event.page = page_->Order().ordinal;
  events_.Add(std::move(event));
}

UsbStatus UsbScanner::OnBulkOut(std::span<const std::uint8_t> transfer) {
  MutexLock lock(mutex_);
  if (!plugged_) return UsbStatus::kGone;
  if (halted_out_) return UsbStatus::kStall;
  if (faults_.IsSilent()) return UsbStatus::kNothing;
  const Stop stop = faults_.Get().halt_out;
  const bool is_end = transfer.empty();
  const Stage stage =
      is_end ? StageOf(std::span<const std::uint8_t>(received_)) : StageOf(transfer);
  if (Matches(stop, stage) && (stop.after_bytes > 0) == is_end) {
    halted_out_ = true;
    received_.clear();
    Log(EventKind::kFault, {}, "halt out");
    return UsbStatus::kStall;
  }
  if (!is_end) {
    // What is too long for any command stays too long until its end.
    const std::size_t room = kMostCommand - received_.size();
    received_.insert(
        received_.end(), transfer.begin(),
        transfer.begin() + static_cast<std::ptrdiff_t>(std::min(room, transfer.size())));
    return UsbStatus::kOk;
  }
  const Bytes packet = std::exchange(received_, {});
  if (!packet.empty()) Handle(packet);
  return plugged_ ? UsbStatus::kOk : UsbStatus::kGone;
}

void UsbScanner::Handle(const Bytes& packet) {
  const auto command = ParseCommand(packet);
  const bool ours = command && command->application == kScanApplication;
  const Stage stage = ours ? StageOf(command->command) : Stage::kNone;
  Log(KindOf(stage), packet);
  if (stage == Stage::kNone) return;
  if (stage != Stage::kPageRequest && StopsAt(stage, faults_.Get())) return;
  switch (stage) {
    case Stage::kScanCommand:
      return StartScan(*command);
    case Stage::kPageRequest:
      return RequestPage(*command);
    case Stage::kCancel:
      return Cancel(*command);
    case Stage::kDeviceInfo:
      return TellInformation(*command);
    default:
      desk_.Touch();
  }
}

// True when the device goes no further with a command.
bool UsbScanner::StopsAt(Stage stage, const Faults& faults) {
  Halter what = Halter::kNone;
  if (faults.silence.at == stage) what = Halter::kSilence;
  if (Matches(faults.halt_in, stage)) what = Halter::kHalt;
  if (Matches(faults.unplug, stage)) what = Halter::kUnplug;
  if (what == Halter::kSilence) faults_.FallSilent(faults.silence);
  Hit(what);
  return what != Halter::kNone;
}

void UsbScanner::StartScan(const CommandPacket& command) {
  if (page_ && now_() - taken_ > options_.limits.stall) DropAll("nothing was read in time");
  if (faults_.TakeBusy()) return Respond(kReplyBusy, {});
  if (faults_.TakeNoDocument()) return Respond(kReplyNoDocument, {});
  if (const auto code = faults_.Get().scan_reply) return Respond(*code, {});
  const auto request = ParseScanInfo(command.parameters);
  if (!request) return Respond(kReplyError, {});
  const auto started = desk_.StartJob(0, *request);
  switch (started.result) {
    case JobDesk::Start::kAccepted:
      return Respond(kReplyAccepted, started.job);
    case JobDesk::Start::kBusy:
      return Respond(kReplyBusy, {});
    case JobDesk::Start::kNoDocument:
      return Respond(kReplyNoDocument, {});
    case JobDesk::Start::kRefused:
      return Respond(kReplyError, {});
  }
}

void UsbScanner::Respond(std::uint8_t code, const JobId& job) {
  const Faults faults = faults_.Get();
  Bytes bytes = BuildCommand({0, kScanApplication, code, {job.begin(), job.end()}});
  const ReplyFault fault = faults_.TakeReplyFault();
  if (fault == ReplyFault::kWrongSequence) StoreBe16(&bytes[12], 1);
  if (fault == ReplyFault::kCut) {
    bytes.resize(std::min<std::size_t>(bytes.size(), faults.reply_bytes));
  }
  if (fault == ReplyFault::kLong) {
    bytes.resize(std::max<std::size_t>(bytes.size(), faults.reply_bytes));
    bytes[kSizeAt] = kMostUsbParameters;
  }
  Log(EventKind::kReply, bytes);
  if (fault == ReplyFault::kTwice) Send({bytes, Stage::kScanCommand, faults.delays.reply, true});
  Send({std::move(bytes), Stage::kScanCommand, faults.delays.reply, true});
}

void UsbScanner::RequestPage(const CommandPacket& command) {
  const auto job = JobOf(command);
  if (page_ || !job || !desk_.RequestPage(*job, 0, ++sequence_)) return;
  auto order = desk_.Next();
  if (!order) return;
  page_faults_ = faults_.ForPage(order->ordinal);
  page_ = std::make_unique<UsbPage>(std::move(*order), options_, page_faults_, cache_);
  page_sent_ = 0;
  holding_ = false;
  taken_ = now_();
  StopsAt(Stage::kPageRequest, page_faults_);
}

// A page that stands still is given up at once: nothing of it would ever come. Of another one the
// end goes into the queue, in front of whatever is asked next.
void UsbScanner::Cancel(const CommandPacket& command) {
  const auto job = JobOf(command);
  if (!job || !desk_.Cancel(*job) || !page_ || page_->Order().job != *job) return;
  if (holding_) {
    DropAll("cancelled");
    return;
  }
  const auto header = std::find_if(sending_.begin(), sending_.end(), [](const Sending& sending) {
    return sending.at == 0 && sending.run.stage == Stage::kData && !sending.run.announced;
  });
  const bool found = header != sending_.end();
  if (found) sending_.erase(header);
  page_->Cancel(found);
  while (auto run = page_->Next()) {
    run->last = false;
    Send(std::move(*run));
  }
  FinishPage();
}

void UsbScanner::TellInformation(const CommandPacket& command) {
  if (command.parameters.size() != 4) return;
  const Faults faults = faults_.Get();
  const Bytes record = BuildInformation(options_, LoadLe32(command.parameters.data()));
  const auto length = static_cast<std::uint32_t>(record.size());
  Bytes bytes = BuildInformationHeader(faults.information_length.value_or(length));
  if (options_.usb.information_in_two) {
    Send({std::exchange(bytes, {}), Stage::kDeviceInfo, faults.delays.reply, true});
  }
  bytes.insert(bytes.end(), record.begin(), record.end());
  if (faults.information_bytes && *faults.information_bytes < bytes.size()) {
    bytes.resize(*faults.information_bytes);
  }
  Send({std::move(bytes), Stage::kDeviceInfo, faults.delays.reply, true});
}

void UsbScanner::Send(UsbRun run) {
  const auto ready = now_() + run.pause;
  sending_.push_back({std::move(run), 0, ready});
}

UsbIn UsbScanner::OnBulkIn(std::size_t room) {
  MutexLock lock(mutex_);
  UsbIn in;
  while (in.bytes.size() < room || in.status == UsbStatus::kNothing) {
    if (!GivePacket(room - in.bytes.size(), in)) break;
  }
  if (in.status == UsbStatus::kOk) taken_ = now_();
  return in;
}

// Adds one packet; false when the transfer gets no more for now.
bool UsbScanner::GivePacket(std::size_t room, UsbIn& in) {
  const auto stop = [&](UsbStatus status) {
    if (in.status == UsbStatus::kNothing) in.status = status;
    return false;
  };
  if (!plugged_) return stop(UsbStatus::kGone);
  if (halted_in_) return stop(UsbStatus::kStall);
  if (faults_.IsSilent() || holding_ || !Fetch()) return false;
  Sending& front = sending_.front();
  if (front.ready > now_()) {
    in.again = front.ready;
    return false;
  }
  const Barrier barrier = BarrierOf(front);
  std::size_t size =
      std::min<std::size_t>(options_.usb.max_packet, front.run.bytes.size() - front.at);
  bool whole = true;
  if (barrier.what != Halter::kNone && barrier.room < std::max<std::size_t>(size, 1)) {
    size = barrier.room;
    whole = false;
  }
  if (whole || size > 0) {
    in.status = UsbStatus::kOk;
    const auto from = front.run.bytes.begin() + static_cast<std::ptrdiff_t>(front.at);
    const std::size_t fits = std::min(size, room);
    in.bytes.insert(in.bytes.end(), from, from + static_cast<std::ptrdiff_t>(fits));
    if (fits < size) in.status = UsbStatus::kOverflow;
    front.at += size;
    if (front.run.stage == Stage::kData) page_sent_ += size;
  }
  if (!whole) {
    if (barrier.what == Halter::kSilence) faults_.FallSilent(page_faults_.silence);
    Hit(barrier.what);
    return size == 0 && barrier.what != Halter::kSilence ? GivePacket(room, in) : false;
  }
  in.ends = size < options_.usb.max_packet;
  if (front.at == front.run.bytes.size()) {
    const UsbRun run = std::move(front.run);
    sending_.pop_front();
    Sent(run);
  }
  return !in.ends && in.status == UsbStatus::kOk;
}

// Fetch makes sure that something stands in front, if there is anything to send.
bool UsbScanner::Fetch() {
  if (!sending_.empty()) return true;
  if (!page_) return false;
  auto run = page_->Next();
  if (!run) return false;
  Send(std::move(*run));
  return true;
}

// What stops the device within, or right in front of, what it is about to send. A stop behind all
// data is one in front of the header that ends the page.
UsbScanner::Barrier UsbScanner::BarrierOf(const Sending& sending) const {
  Barrier nearest;
  const Stage stage = sending.run.stage;
  const std::uint64_t page_sent = page_sent_;
  const auto look = [&](const Stop& stop, Halter what) {
    std::uint64_t room = 0;
    if (stop.at == stage && stage == Stage::kData) {
      room = stop.after_bytes - std::min(stop.after_bytes, page_sent);
    } else if (stop.at == stage) {
      room = stop.after_bytes - std::min<std::uint64_t>(stop.after_bytes, sending.at);
    } else if (stop.at != Stage::kData || stage != Stage::kEndNotice) {
      return;
    }
    if (nearest.what == Halter::kNone || room < nearest.room) nearest = {what, room};
  };
  if (stage != Stage::kScanInfo && stage != Stage::kData && stage != Stage::kEndNotice) return {};
  look({page_faults_.silence.at, page_faults_.silence.after_bytes}, Halter::kSilence);
  look(page_faults_.halt_in, Halter::kHalt);
  look(page_faults_.unplug, Halter::kUnplug);
  return nearest;
}

void UsbScanner::Hit(Halter what) {
  switch (what) {
    case Halter::kSilence:
      holding_ = page_ != nullptr;
      Log(EventKind::kFault, {}, "silent");
      break;
    case Halter::kHalt:
      halted_in_ = true;
      Log(EventKind::kFault, {}, "halt in");
      break;
    case Halter::kUnplug:
      Log(EventKind::kFault, {}, "unplug");
      UnplugNow();
      break;
    case Halter::kNone:
      break;
  }
}

void UsbScanner::Sent(const UsbRun& run) {
  if (run.stage == Stage::kScanInfo) Log(EventKind::kScanInfoSent, run.bytes);
  if (run.last) FinishPage();
}

void UsbScanner::FinishPage() {
  const auto page = std::exchange(page_, nullptr);
  const std::string& trouble = page->Trouble();
  Event event(trouble.empty() ? EventKind::kPageSent : EventKind::kDataChannelLost, {}, trouble);
  event.count = page->DataBytes();
  event.page = page->Order().ordinal;
  events_.Add(std::move(event));
  desk_.Finish(page->Order(), trouble.empty() ? PageOutcome::kDone : PageOutcome::kLost, trouble);
}

// Gives up whatever is being sent; returns the bytes that never will be.
std::uint64_t UsbScanner::DropAll(const std::string& why) {
  std::uint64_t bytes = 0;
  for (const Sending& sending : sending_) bytes += sending.run.bytes.size() - sending.at;
  sending_.clear();
  holding_ = false;
  if (const auto page = std::exchange(page_, nullptr)) {
    desk_.Finish(page->Order(), PageOutcome::kLost, why);
  }
  return bytes;
}

void UsbScanner::ClearHalt(UsbPipe pipe) {
  MutexLock lock(mutex_);
  Event event(EventKind::kHaltCleared, {}, pipe == UsbPipe::kIn ? "in" : "out");
  if (pipe == UsbPipe::kIn) {
    halted_in_ = false;
    event.count = DropAll("the host cleared the pipe");
  } else {
    halted_out_ = false;
    event.count = received_.size();
    received_.clear();
  }
  events_.Add(std::move(event));
}

void UsbScanner::Reset() {
  MutexLock lock(mutex_);
  DropAll("reset");
  desk_.Lose("reset");
  received_.clear();
  halted_in_ = halted_out_ = false;
}

void UsbScanner::UnplugNow() {
  plugged_ = false;
  DropAll("unplugged");
  desk_.Lose("unplugged");
  received_.clear();
  halted_in_ = halted_out_ = false;
  Log(EventKind::kUnplugged);
}

void UsbScanner::Unplug() {
  MutexLock lock(mutex_);
  if (plugged_) UnplugNow();
}

void UsbScanner::Plug() {
  MutexLock lock(mutex_);
  if (plugged_) return;
  plugged_ = true;
  Log(EventKind::kPlugged);
}

bool UsbScanner::IsPlugged() const {
  MutexLock lock(mutex_);
  return plugged_;
}

void UsbScanner::GoOn() {
  MutexLock lock(mutex_);
  if (holding_) DropAll("the faults were changed");
}

}  // namespace vox::sim
