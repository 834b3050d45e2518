// WritePdf puts a PDF together from pages that are coded already.
//
// QPDF 11.3's headers are no C++20 for clang 14, so this header and its source are C++17.
// Thread rule: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace vox::cli {

// A page whose image is coded as PDF takes it: 1 bit CCITT Group 4, 8 and 24 bits Deflate with
// horizontal differencing.
struct PdfPage {
  std::uint32_t width, height;  // pixels
  unsigned bits;                // a pixel: 1, 8 or 24
  double x_dpi, y_dpi;          // give the page's size
  std::uint64_t offset, bytes;  // of the coded image, for PdfSource
};

// PdfSource fills to[0, bytes) with coded data from `offset` on. PdfSink takes the next bytes of
// the document. Both may throw; WritePdf passes it on.
using PdfSource = std::function<void(std::uint64_t offset, std::uint8_t* to, std::size_t bytes)>;
using PdfSink = std::function<void(const std::uint8_t* from, std::size_t bytes)>;

// WritePdf writes the document from its first byte to its last. One coded page at a time is in
// memory. Throws what QPDF throws (std::exception).
void WritePdf(const std::vector<PdfPage>& pages, const PdfSource& source, const PdfSink& sink);

}  // namespace vox::cli
