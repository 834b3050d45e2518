// The three kinds of page file, each read from memory. Files are not trusted: sizes are checked
// before anything is allocated, and one clear text says what is wrong.
//
// Thread rule: pure functions.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "sim/PageSource.h"

namespace vox::sim {

struct DecodedFile {
  std::vector<Image> images;
  std::string error;  // empty: images holds at least one
};

bool LooksLikePnm(std::span<const std::uint8_t> bytes);
bool LooksLikePng(std::span<const std::uint8_t> bytes);
bool LooksLikeTiff(std::span<const std::uint8_t> bytes);

DecodedFile DecodePnm(std::span<const std::uint8_t> bytes, const PageFileLimits& limits);
DecodedFile DecodePng(std::span<const std::uint8_t> bytes, const PageFileLimits& limits);
DecodedFile DecodeTiff(std::span<const std::uint8_t> bytes, const PageFileLimits& limits);

// ImageBudget keeps count of what a file's images take together.
class ImageBudget {
 public:
  explicit ImageBudget(const PageFileLimits& limits) : left_(limits.max_bytes) {}
  // Take makes room for one image; an empty text, or why it is refused.
  std::string Take(std::uint64_t width, std::uint64_t height, std::uint64_t bytes_per_pixel);

 private:
  std::uint64_t left_;
};

// MillidpiOf gives dpi in 1/1000 where the value is one that a page can have, else 0.
std::uint32_t MillidpiOf(double dpi);

}  // namespace vox::sim
