#include "sim/PageSender.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "sim/BlockFaults.h"

namespace vox::sim {
namespace {

constexpr std::uint8_t kHostTakesPage = 0x01;
constexpr std::uint8_t kHostTookEnd = 0x00;
constexpr std::uint32_t kNoticeSize = kPacketHeaderSize + kJobIdSize;
constexpr std::chrono::milliseconds kPieceGap{20};  // between the two pieces of a split notice

}  // namespace

class PageSender::Page {
 public:
  Page(PageSender& sender, const PageOrder& order)
      : sender_(sender),
        order_(order),
        faults_(sender.faults_.ForPage(order.ordinal)),
        limits_(sender.options_.limits),
        channel_(sender.desk_.Interrupt()) {}

  // Send gives why the page was lost; an empty text when the host has taken it whole.
  std::string Send() {
    std::string data = SendDataChannel();
    if (!data.empty()) return data;
    for (std::uint32_t round = 0; round < faults_.end_not_ready; ++round) {
      std::string early = SendEndChannel(kNoticeNotFinished);
      if (!early.empty()) return early;
    }
    return SendEndChannel(EndCode());
  }

 private:
  using Status = ChannelStatus;
  using Time = Channel::Time;

  std::uint8_t EndCode() const {
    if (faults_.end_code) return *faults_.end_code;
    return order_.more_follow ? kNoticeMorePages : kNoticeJobEnds;
  }

  void Log(EventKind kind, Bytes bytes = {}, const std::string& text = {}) {
    Event event(kind, std::move(bytes), text);
    event.count = sent_;
    event.page = order_.ordinal;
    event.sequence_id = order_.sequence_id;
    event.peer_address = order_.host;
    sender_.events_.Add(std::move(event));
  }

  // True when the device stops at this stage; the channel then stands until it is given up.
  bool StopsAt(Stage stage) {
    if (faults_.silence.at != stage) return false;
    sender_.faults_.FallSilent(faults_.silence);
    Log(EventKind::kFault, {}, "silent");
    sender_.holding_ = true;
    channel_.Hold();
    sender_.holding_ = false;
    return true;
  }

  Status Open(Time delay) {
    const Status paused = channel_.Pause(delay);
    if (paused != Status::kOk) return paused;
    return channel_.Connect(sender_.local_address_, {order_.host, sender_.port_}, limits_.connect);
  }

  Bytes Notice(std::uint8_t code) const {
    return BuildCommand(
        {order_.sequence_id, kScanApplication, code, {order_.job.begin(), order_.job.end()}});
  }

  // Sends the first `whole` bytes, in two pieces when split lies inside; false: the rest of the
  // channel is not to be.
  Status SendCut(Bytes bytes, std::uint32_t whole, std::uint32_t split, Time delay) {
    const Status paused = channel_.Pause(delay);
    if (paused != Status::kOk) return paused;
    const bool cut = whole < bytes.size();
    if (cut) bytes.resize(whole);
    std::span<const std::uint8_t> rest = bytes;
    if (split > 0 && split < rest.size()) {
      const Status first = channel_.Send(rest.first(split), limits_.acknowledge);
      if (first != Status::kOk) return first;
      const Status gap = channel_.Pause(kPieceGap);
      if (gap != Status::kOk) return gap;
      rest = rest.subspan(split);
    }
    const Status sent = channel_.Send(rest, limits_.acknowledge);
    if (sent == Status::kOk && cut) return Status::kFailed;
    return sent;
  }

  std::string Lost(EventKind kind, const std::string& what) {
    channel_.Close(faults_.reset);
    Log(kind, {}, what);
    return what;
  }
  std::string LostData(const char* what, Status status) {
    return Lost(EventKind::kDataChannelLost, std::string(what) + ": " + StatusText(status));
  }
  std::string LostEnd(const char* what, Status status) {
    return Lost(EventKind::kEndChannelLost, std::string(what) + ": " + StatusText(status));
  }

  std::string SendDataChannel() {
    if (StopsAt(Stage::kPageRequest)) return LostData("page request", Status::kInterrupted);
    Status status = Open(faults_.delays.connect);
    if (status != Status::kOk) return LostData("data channel", status);
    Log(EventKind::kDataChannel);
    if (StopsAt(Stage::kStartNotice)) return LostData("start notice", Status::kInterrupted);
    Bytes notice = Notice(kNoticePage);
    if (faults_.bad_start_notice) notice[0] ^= 0xFF;
    status = SendCut(notice, faults_.start_notice_bytes, 0, faults_.delays.start_notice);
    if (status != Status::kOk) return LostData("start notice", status);
    return SendPage();
  }

  std::string SendPage() {
    std::uint8_t answer = 0;
    Status status = channel_.ReceiveByte(answer, limits_.acknowledge);
    if (status != Status::kOk) return LostData("the host's answer", status);
    Log(EventKind::kPageAccepted, {answer});
    if (answer != kHostTakesPage) return LostData("the host's answer", Status::kFailed);
    if (StopsAt(Stage::kScanInfo)) return LostData("scan information", Status::kInterrupted);
    status = SendScanInfo();
    if (status != Status::kOk) return LostData("scan information", status);
    status = SendData();
    // A host that has had enough of a page closes the channel; the page ends all the same.
    if (status != Status::kOk && status != Status::kClosed) return LostData("page data", status);
    if (status == Status::kClosed) {
      LostData("page data", status);
    } else {
      channel_.Close(faults_.reset && faults_.close_after.has_value());
      Log(EventKind::kPageSent);
    }
    return {};
  }

  Status SendScanInfo() {
    ScanInfo info = order_.info;
    if (sender_.options_.edit_scan_info) sender_.options_.edit_scan_info(order_.ordinal, info);
    const auto block = BuildScanInfo(info);
    const Bytes bytes(block.begin(), block.end());
    const Status status = SendCut(bytes, faults_.scan_info_bytes, 0, faults_.delays.scan_info);
    if (status == Status::kOk) Log(EventKind::kScanInfoSent, bytes);
    return status;
  }

  Status SendData() {
    const auto stream = sender_.cache_.Open({order_.page.source, order_.info, order_.render});
    Bytes piece;
    for (std::uint32_t index = 0; stream->Next(piece); ++index) {
      const Status paused = channel_.Pause(faults_.delays.data);
      if (paused != Status::kOk) return paused;
      const bool spoilt = faults_.block != BlockFault::kNone && index == faults_.block_index &&
                          order_.info.encode_header_size != 0;
      const bool last = spoilt && SpoilBlock(faults_.block, order_.info.encode_header_size, piece);
      if (spoilt) Log(EventKind::kFault, {}, "block");
      const Status status = SendPiece(piece);
      if (status != Status::kOk || ended_ || last) return status;
    }
    // Silence behind the last byte: the channel stays open.
    if (faults_.silence.at == Stage::kData) return StopInData();
    return Status::kOk;
  }

  Status StopInData() {
    StopsAt(Stage::kData);
    return Status::kInterrupted;
  }

  // Sends a piece as far as the faults let it; sets ended_ when the page ends within it.
  Status SendPiece(std::span<const std::uint8_t> piece) {
    std::uint64_t room = piece.size();
    const bool stops = faults_.silence.at == Stage::kData;
    if (stops) room = std::min(room, Left(faults_.silence.after_bytes));
    if (faults_.close_after) room = std::min(room, Left(*faults_.close_after));
    const Status status = channel_.Send(piece.first(room), limits_.stall);
    if (status != Status::kOk) return status;
    sent_ += room;
    if (room == piece.size()) return Status::kOk;
    if (stops && Left(faults_.silence.after_bytes) == 0) return StopInData();
    ended_ = true;
    return Status::kOk;
  }
  std::uint64_t Left(std::uint64_t limit) const { return limit > sent_ ? limit - sent_ : 0; }

  std::string SendEndChannel(std::uint8_t code) {
    if (StopsAt(Stage::kEndConnect)) return LostEnd("end channel", Status::kInterrupted);
    Status status = Open(faults_.delays.end_connect);
    if (status != Status::kOk) return LostEnd("end channel", status);
    Log(EventKind::kEndChannel);
    if (StopsAt(Stage::kEndNotice)) return LostEnd("end notice", Status::kInterrupted);
    status = channel_.Pause(faults_.delays.end_notice);
    if (status != Status::kOk) return LostEnd("end notice", status);
    if (code != kNoticeNotFinished) sender_.desk_.NoticeLeaves(order_);
    const Bytes notice = Notice(code);
    status = SendCut(notice, faults_.end_notice_bytes, faults_.end_split, Time{0});
    if (status != Status::kOk) return LostEnd("end notice", status);
    Log(EventKind::kEndNotice, notice);
    std::uint8_t answer = 0;
    status = channel_.ReceiveByte(answer, limits_.end_answer);
    if (status != Status::kOk) return LostEnd("the host's answer", status);
    channel_.Close();
    Log(EventKind::kEndAnswered, {answer});
    return answer == kHostTookEnd ? "" : "the host's answer to the end notice";
  }

  PageSender& sender_;
  const PageOrder& order_;
  const Faults faults_;
  const TimeLimits& limits_;
  Channel channel_;
  std::uint64_t sent_ = 0;  // bytes of page data
  bool ended_ = false;
};

PageSender::PageSender(const DeviceOptions& options, std::uint32_t local_address, JobDesk& desk,
                       FaultBox& faults, PageCache& cache, EventLog& events)
    : options_(options),
      local_address_(local_address),
      desk_(desk),
      faults_(faults),
      cache_(cache),
      events_(events),
      port_(options.job_server_port) {
  static_assert(kNoticeSize == 28);
}

void PageSender::Run() {
  while (const auto order = desk_.Next()) {
    std::string why;
    try {
      why = Page(*this, *order).Send();
    } catch (const std::exception& error) {
      why = error.what();
    }
    desk_.Finish(*order, why.empty() ? PageOutcome::kDone : PageOutcome::kLost, why);
  }
}

}  // namespace vox::sim
