// PngWriter writes one page as PNG, streamed: grey of 1 or 8 bits, or 8-bit RGB, with its
// resolution in pHYs (pixels a metre). PNG is the W3C's Portable Network Graphics, third edition.
#pragma once

#include <exception>
#include <memory>

#include <png.h>

#include "tools/vox/writers/StreamWriter.h"

namespace vox::cli {

class PngWriter : public StreamWriter {
 public:
  explicit PngWriter(std::unique_ptr<OutputFile> file) : StreamWriter(std::move(file)) {}
  ~PngWriter() override;

  bool HoldsManyPages() const override { return false; }
  void BeginPage(const PageFormat& page) override;
  void WriteLine(std::span<const std::uint8_t> line) override;
  void EndPage() override;

 private:
  static void OnData(png_structp png, png_bytep data, std::size_t size);
  static void OnFlush(png_structp) {}
  static void OnError(png_structp png, png_const_charp text);
  static void OnWarning(png_structp, png_const_charp) {}
  template <typename Call>
  void Guarded(Call call);
  void WriteHeader(const PageFormat& page);

  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  std::exception_ptr failure_;  // thrown by the file inside a libpng call
};

}  // namespace vox::cli
