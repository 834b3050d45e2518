#include "sim/UsbPage.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace vox::sim {
namespace {

constexpr std::size_t kCutHeaderBytes = 5;

ScanInfo Edited(const PageOrder& order, const DeviceOptions& options) {
  ScanInfo info = order.info;
  if (options.edit_scan_info) options.edit_scan_info(order.ordinal, info);
  return info;
}

}  // namespace

UsbPage::UsbPage(PageOrder order, const DeviceOptions& options, const Faults& faults,
                 PageCache& cache)
    : order_(std::move(order)),
      options_(options),
      faults_(faults),
      info_(Edited(order_, options)),
      stream_(cache.Open({order_.page.source, order_.info, order_.render})),
      pending_(faults.first.headers > 0 ? faults.first : faults.every) {
  if (faults.first.headers > 0) pending_.headers += faults.every.headers;
}

std::optional<UsbRun> UsbPage::Next() {
  if (over_) return std::nullopt;
  if (!informed_) return Information();
  if (data_) return Block();
  if (cancelled_) return End();
  if (pending_.headers > 0) return Pending();
  if (faults_.check_error && stream_bytes_ >= *faults_.check_error) {
    return Last({BuildBlockHeader(0, BlockNote::kCheckError), Stage::kData}, "check error");
  }
  Bytes data = TakeData(BlockSize());
  if (!data.empty()) return BlockHeader(std::move(data));
  if (faults_.end_not_ready > 0 && !std::exchange(end_near_, true)) {
    pending_ = {faults_.end_not_ready, faults_.delays.end_notice};
    return Pending();
  }
  return End();
}

void UsbPage::Cancel(bool unsent) {
  cancelled_ = true;
  if (unsent) data_.reset();
}

UsbRun UsbPage::Last(UsbRun run, const char* trouble) {
  over_ = run.last = true;
  trouble_ = trouble;
  return run;
}

UsbRun UsbPage::Information() {
  informed_ = true;
  const auto block = BuildScanInfo(info_);
  UsbRun run{{block.begin(), block.end()}, Stage::kScanInfo, faults_.delays.scan_info, true};
  if (faults_.scan_info_bytes >= run.bytes.size()) return run;
  run.bytes.resize(faults_.scan_info_bytes);
  return Last(std::move(run), "the scan information was cut");
}

UsbRun UsbPage::Pending() {
  --pending_.headers;
  UsbRun run{BuildBlockHeader(0, BlockNote::kNotReady), Stage::kData, pending_.pause};
  stream_bytes_ += run.bytes.size();
  return run;
}

std::size_t UsbPage::BlockSize() const {
  const auto& sizes = options_.usb.block_bytes;
  std::size_t size = sizes.empty() ? 0 : sizes[std::min<std::size_t>(block_, sizes.size() - 1)];
  if (size == 0) size = std::numeric_limits<std::uint32_t>::max();
  if (order_.info.max_buffer_size > 0) {
    size = std::min<std::size_t>(size, order_.info.max_buffer_size);
  }
  return size;
}

Bytes UsbPage::TakeData(std::size_t size) {
  Bytes piece;
  while (held_.size() - held_at_ < size && stream_->Next(piece)) {
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(held_at_));
    held_at_ = 0;
    held_.insert(held_.end(), piece.begin(), piece.end());
  }
  const auto from = held_.begin() + static_cast<std::ptrdiff_t>(held_at_);
  const std::size_t count = std::min(size, held_.size() - held_at_);
  held_at_ += count;
  return {from, from + static_cast<std::ptrdiff_t>(count)};
}

UsbRun UsbPage::BlockHeader(Bytes data) {
  auto length = static_cast<std::uint32_t>(data.size());
  if (faults_.block_length && SpoilsBlock()) length = *faults_.block_length;
  UsbRun run{BuildBlockHeader(length), Stage::kData, faults_.delays.data};
  if (faults_.block == BlockFault::kCutHeader && SpoilsBlock()) {
    run.bytes.resize(kCutHeaderBytes);
    return Last(std::move(run), "a block's header was cut");
  }
  stream_bytes_ += run.bytes.size();
  pending_ = faults_.every;
  data_ = std::move(data);
  if (!options_.usb.joined_headers) return run;
  UsbRun block = Block();
  run.bytes.insert(run.bytes.end(), block.bytes.begin(), block.bytes.end());
  run.last = block.last;
  return run;
}

UsbRun UsbPage::Block() {
  UsbRun run{std::move(*data_), Stage::kData, {}, true};
  data_.reset();
  const bool cut = faults_.block == BlockFault::kCutData && SpoilsBlock();
  if (cut) run.bytes.resize(run.bytes.size() / 2);
  ++block_;
  data_bytes_ += run.bytes.size();
  stream_bytes_ += run.bytes.size();
  return cut ? Last(std::move(run), "a block was cut") : run;
}

UsbRun UsbPage::End() {
  const bool more = order_.more_follow && !cancelled_;
  const std::uint8_t flag = faults_.end_code ? *faults_.end_code : more;
  UsbRun run{BuildBlockHeader(0, BlockNote::kPageEnd, flag), Stage::kEndNotice,
             faults_.delays.end_notice, true};
  if (faults_.end_notice_bytes < run.bytes.size()) run.bytes.resize(faults_.end_notice_bytes);
  return Last(std::move(run), cancelled_ ? "cancelled" : "");
}

}  // namespace vox::sim
