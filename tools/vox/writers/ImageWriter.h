// ImageWriter puts pages into one file, line by line. One object stands for one file.
//
//   BeginPage -> WriteLine x height -> EndPage     any number of times where HoldsManyPages()
//       any time: DropPage forgets the page that was begun; after it only Finish may follow
//   Finish   the file appears under its name, whole; without a page that ended there is no file
//   destructor without Finish: nothing stays behind
//
// Lines are as the scan interface gives them: 1 bit a pixel, most significant bit first, a set bit
// white; 8 bits grey, 0 black; 24 bits R, G, B. Writers of formats in which 1 is black invert.
//
// Errors: every call throws Failure when the file cannot be written.
// Thread rule: one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vox::cli {

struct PageFormat {
  std::uint32_t width = 0;   // pixels, at least 1
  std::uint32_t height = 0;  // lines, at least 1
  unsigned bits = 1;         // a pixel: 1, 8 or 24
  double x_dpi = 0;          // as written into the file
  double y_dpi = 0;

  std::size_t LineBytes() const { return (std::size_t{width} * bits + 7) / 8; }
};

class ImageWriter {
 public:
  ImageWriter() = default;
  ImageWriter(const ImageWriter&) = delete;
  ImageWriter& operator=(const ImageWriter&) = delete;
  virtual ~ImageWriter() = default;

  virtual bool HoldsManyPages() const = 0;
  virtual void BeginPage(const PageFormat& page) = 0;
  // WriteLine takes page.LineBytes() bytes; bits behind the last pixel may be anything.
  virtual void WriteLine(std::span<const std::uint8_t> line) = 0;
  virtual void EndPage() = 0;
  virtual void DropPage() = 0;
  virtual void Finish() = 0;
};

}  // namespace vox::cli
