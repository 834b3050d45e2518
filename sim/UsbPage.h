// UsbPage is one page as it goes over USB: the 128-byte block, then a header in front of each block
// of data, then the header that ends it. What it gives is drawn when it is asked for.
//
// Thread rule: one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "sim/DeviceOptions.h"
#include "sim/JobDesk.h"
#include "sim/PageStream.h"
#include "sim/UsbPackets.h"

namespace vox::sim {

// What the device sends in one go: its last packet is short, unless it is full.
struct UsbRun {
  Bytes bytes;
  Stage stage = Stage::kNone;          // what it is to a host
  std::chrono::milliseconds pause{0};  // before it
  bool announced = false;              // the host waits for exactly this: it cannot be left out
  bool last = false;                   // of its page
};

class UsbPage {
 public:
  UsbPage(PageOrder order, const DeviceOptions& options, const Faults& faults, PageCache& cache);

  const PageOrder& Order() const { return order_; }
  // Next gives what comes next; nothing after the last.
  std::optional<UsbRun> Next();
  // Cancel: the block whose header was given still comes, then the page ends. `unsent`: that header
  // has not been sent at all, so the block need not come.
  void Cancel(bool unsent);

  std::uint64_t DataBytes() const { return data_bytes_; }  // given so far, without headers
  const std::string& Trouble() const { return trouble_; }  // empty: the page is whole

 private:
  bool SpoilsBlock() const { return block_ == faults_.block_index; }
  std::size_t BlockSize() const;
  Bytes TakeData(std::size_t size);
  UsbRun Information();
  UsbRun Pending();
  UsbRun BlockHeader(Bytes data);
  UsbRun Block();
  UsbRun End();
  UsbRun Last(UsbRun run, const char* trouble);

  const PageOrder order_;
  const DeviceOptions& options_;
  const Faults faults_;
  const ScanInfo info_;
  const std::unique_ptr<PageStream> stream_;
  Bytes held_;  // drawn, from held_at_ on not given yet
  std::size_t held_at_ = 0;
  std::optional<Bytes> data_;  // of the block whose header was given
  NotReady pending_;           // what is left of them in front of the next header
  std::uint32_t block_ = 0;
  std::uint64_t data_bytes_ = 0, stream_bytes_ = 0;
  bool informed_ = false, cancelled_ = false, over_ = false, end_near_ = false;
  std::string trouble_;
};

}  // namespace vox::sim
