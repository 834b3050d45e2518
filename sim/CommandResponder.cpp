#include "sim/CommandResponder.h"

#include <algorithm>
#include <utility>

namespace vox::sim {
namespace {

constexpr std::uint8_t kMostParameters = 255;

CommandPacket ReplyTo(const CommandPacket& command, std::uint8_t code, Bytes parameters = {}) {
  return {command.sequence_id, command.application, code, std::move(parameters)};
}

std::optional<JobId> JobIdOf(const CommandPacket& command) {
  if (command.parameters.size() != kJobIdSize) return std::nullopt;
  JobId id{};
  std::copy(command.parameters.begin(), command.parameters.end(), id.begin());
  return id;
}

EventKind KindOf(const CommandPacket& command) {
  if (command.application == kRegisterApplication) {
    if (command.command == kCommandRegister) return EventKind::kRegister;
    if (command.command == kCommandUnregister) return EventKind::kUnregister;
  } else if (command.application == kScanApplication) {
    if (command.command == kCommandScan) return EventKind::kScanCommand;
    if (command.command == kCommandRequestPage) return EventKind::kPageRequest;
    if (command.command == kCommandCancel) return EventKind::kCancelCommand;
    if (command.command == kCommandStandby) return EventKind::kStandby;
  }
  return EventKind::kBadDatagram;
}

}  // namespace

void CommandResponder::Note(const CommandPacket& command, std::span<const std::uint8_t> datagram,
                            std::uint32_t peer) {
  Event event(KindOf(command), {datagram.begin(), datagram.end()});
  event.sequence_id = command.sequence_id;
  event.peer_address = peer;
  events_.Add(std::move(event));
}

std::vector<OutgoingReply> CommandResponder::Handle(std::span<const std::uint8_t> datagram,
                                                    std::uint32_t peer) {
  if (faults_.IsSilent()) return {};
  const auto command = ParseCommand(datagram);
  if (!command) {
    Event event(EventKind::kBadDatagram, {datagram.begin(), datagram.end()});
    event.peer_address = peer;
    events_.Add(std::move(event));
    return {};
  }
  Note(*command, datagram, peer);
  const Reply reply = Answer(*command, datagram, peer);
  if (!reply) return {};
  auto replies = Spoil(*reply);
  for (const OutgoingReply& outgoing : replies) {
    Event event(EventKind::kReply, outgoing.bytes);
    event.sequence_id = command->sequence_id;
    event.peer_address = peer;
    events_.Add(std::move(event));
  }
  return replies;
}

CommandResponder::Reply CommandResponder::Answer(const CommandPacket& command,
                                                 std::span<const std::uint8_t> datagram,
                                                 std::uint32_t peer) {
  switch (KindOf(command)) {
    case EventKind::kScanCommand:
      return AnswerScan(command, datagram, peer);
    case EventKind::kCancelCommand:
      return AnswerCancel(command);
    case EventKind::kRegister:
    case EventKind::kUnregister:
      return AnswerRegistration(command);
    case EventKind::kPageRequest:
      RequestPage(command, peer);
      return std::nullopt;
    case EventKind::kStandby:
      desk_.Touch();
      return std::nullopt;
    default:
      return ReplyTo(command, kReplyError);
  }
}

CommandResponder::Reply CommandResponder::AnswerScan(const CommandPacket& command,
                                                     std::span<const std::uint8_t> datagram,
                                                     std::uint32_t peer) {
  if (faults_.FallSilentAt(Stage::kScanCommand)) return std::nullopt;
  // A host that heard no reply sends the same datagram again.
  const bool repeated = accepted_ && accepted_->peer == peer && desk_.IsOpen(accepted_->job) &&
                        std::equal(datagram.begin(), datagram.end(), accepted_->datagram.begin(),
                                   accepted_->datagram.end());
  return repeated ? accepted_->reply : StartScan(command, datagram, peer);
}

CommandResponder::Reply CommandResponder::StartScan(const CommandPacket& command,
                                                    std::span<const std::uint8_t> datagram,
                                                    std::uint32_t peer) {
  if (faults_.TakeBusy()) return ReplyTo(command, kReplyBusy);
  if (faults_.TakeNoDocument()) return ReplyTo(command, kReplyNoDocument);
  if (const auto code = faults_.Get().scan_reply) return ReplyTo(command, *code);
  const auto request = ParseScanInfo(command.parameters);
  if (!request) return ReplyTo(command, kReplyError);
  const auto started = desk_.StartJob(peer, *request);
  switch (started.result) {
    case JobDesk::Start::kBusy:
      return ReplyTo(command, kReplyBusy);
    case JobDesk::Start::kNoDocument:
      return ReplyTo(command, kReplyNoDocument);
    case JobDesk::Start::kRefused:
      return ReplyTo(command, kReplyError);
    case JobDesk::Start::kAccepted:
      break;
  }
  const JobId& job = started.job;
  accepted_ = Answered{peer, Bytes(datagram.begin(), datagram.end()),
                       ReplyTo(command, kReplyAccepted, {job.begin(), job.end()}), job};
  return accepted_->reply;
}

CommandResponder::Reply CommandResponder::AnswerCancel(const CommandPacket& command) {
  if (faults_.FallSilentAt(Stage::kCancel)) return std::nullopt;
  if (const auto code = faults_.Get().cancel_reply) return ReplyTo(command, *code);
  const auto job = JobIdOf(command);
  const bool known = job && desk_.Cancel(*job);
  return ReplyTo(command, known ? kReplyCancelled : kReplyError);
}

void CommandResponder::RequestPage(const CommandPacket& command, std::uint32_t peer) {
  const auto job = JobIdOf(command);
  if (job) desk_.RequestPage(*job, peer, command.sequence_id);
}

// A registration's reply carries the entry back; striking one out is not answered.
CommandResponder::Reply CommandResponder::AnswerRegistration(const CommandPacket& command) {
  const auto client = ParseRegistration(command.parameters);
  MutexLock lock(mutex_);
  if (command.command == kCommandUnregister) {
    if (client) book_.Unregister(*client);
    return std::nullopt;
  }
  if (const auto code = faults_.TakeRegisterReply()) {
    return ReplyTo(command, *code, command.parameters);
  }
  const bool entered = client && book_.Register(*client);
  return ReplyTo(command, entered ? kReplyRegistered : kReplyRegisterRefused, command.parameters);
}

std::vector<ClientRegistration> CommandResponder::Registrations() const {
  MutexLock lock(mutex_);
  return book_.Clients();
}

// What becomes of a reply on its way, as the faults ask.
std::vector<OutgoingReply> CommandResponder::Spoil(const CommandPacket& reply) {
  const Faults faults = faults_.Get();
  const auto delay = faults.delays.reply;
  OutgoingReply good{BuildCommand(reply), delay, false};
  CommandPacket other = reply;
  other.sequence_id = static_cast<std::uint16_t>(reply.sequence_id + 1);
  switch (faults_.TakeReplyFault()) {
    case ReplyFault::kNone:
      return {good};
    case ReplyFault::kWrongSequence:
      return {{BuildCommand(other), delay, false}};
    case ReplyFault::kTwice:
      return {good, good};
    case ReplyFault::kStranger:
      return {{BuildCommand(other), delay, true}, good};
    case ReplyFault::kOtherSource:
      good.other_source = true;
      return {good};
    case ReplyFault::kCut:
      good.bytes.resize(std::min<std::size_t>(good.bytes.size(), faults.reply_bytes));
      return {good};
    case ReplyFault::kLong:
      good.bytes.resize(std::max<std::size_t>(good.bytes.size(), faults.reply_bytes));
      good.bytes[16] = kMostParameters;
      return {good};
  }
  return {good};
}

}  // namespace vox::sim
