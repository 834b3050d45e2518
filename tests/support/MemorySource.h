// MemorySource is a page's data channel that exists in memory: it gives its bytes in pieces and
// then says `end` for ever.
//
// Thread rule: one thread.
#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "tests/support/Hex.h"
#include "vox/drivers/net/JbigBlock.h"

namespace vox::test {

class MemorySource final : public JbigSource {
 public:
  explicit MemorySource(Bytes bytes, std::size_t piece = 7, int end = SOURCE_ENDED)
      : bytes_(std::move(bytes)), piece_(piece), end_(end) {}

  int read(BYTE* buf, std::size_t size, bool bHeader) override {
    waits.push_back(bHeader);
    const std::size_t count = std::min({size, piece_, Left()});
    if (count == 0) return end_;
    std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(at_), count, buf);
    at_ += count;
    return static_cast<int>(count);
  }
  std::size_t Left() const { return bytes_.size() - at_; }

  std::vector<bool> waits;  // of each read: true the header's, false the data's

 private:
  const Bytes bytes_;
  const std::size_t piece_;
  const int end_;
  std::size_t at_ = 0;
};

}  // namespace vox::test
