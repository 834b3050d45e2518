#include "frontends/sane/LineBuffer.h"

#include <algorithm>

namespace vox::sane {

void LineBuffer::Reset(std::size_t room) {
  first_ = held_ = 0;
  if (ring_.size() != room) std::vector<std::uint8_t>(room).swap(ring_);
}

std::size_t LineBuffer::Put(std::span<const std::uint8_t> bytes) {
  const std::size_t count = std::min(bytes.size(), Room());
  if (count == 0) return 0;
  const std::size_t at = (first_ + held_) % ring_.size();
  const std::size_t ahead = std::min(count, ring_.size() - at);
  std::copy_n(bytes.begin(), ahead, ring_.begin() + static_cast<std::ptrdiff_t>(at));
  std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(ahead), count - ahead, ring_.begin());
  held_ += count;
  return count;
}

std::size_t LineBuffer::Take(std::span<std::uint8_t> into) {
  const std::size_t count = std::min(into.size(), held_);
  if (count == 0) return 0;
  const std::size_t ahead = std::min(count, ring_.size() - first_);
  std::copy_n(ring_.begin() + static_cast<std::ptrdiff_t>(first_), ahead, into.begin());
  std::copy_n(ring_.begin(), count - ahead, into.begin() + static_cast<std::ptrdiff_t>(ahead));
  first_ = (first_ + count) % ring_.size();
  held_ -= count;
  return count;
}

}  // namespace vox::sane
