// LineBuffer holds the bytes of a page between the thread that reads the device and the client: a
// ring of a fixed size.
//
// Thread rule: none of its own; its owner's mutex guards it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vox::sane {

class LineBuffer {
 public:
  // Reset empties it and gives it room for so many bytes. Throws std::bad_alloc.
  void Reset(std::size_t room);

  std::size_t Held() const { return held_; }
  std::size_t Room() const { return ring_.size() - held_; }

  // Put takes the first bytes, as many as there is room for. Returns: how many.
  std::size_t Put(std::span<const std::uint8_t> bytes);
  // Take gives the oldest bytes, as many as are held. Returns: how many.
  std::size_t Take(std::span<std::uint8_t> into);

 private:
  std::vector<std::uint8_t> ring_;
  std::size_t first_ = 0;  // of the oldest byte
  std::size_t held_ = 0;
};

}  // namespace vox::sane
