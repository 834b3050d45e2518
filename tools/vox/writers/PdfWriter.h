// PdfWriter writes any number of pages into one PDF, each an image that fills its page, whose size
// follows from pixels and resolution. Pages are coded as they come into a spool, as TIFF codes them
// (CCITT Group 4, or Deflate with horizontal differencing, which PDF knows by the same names:
// ISO 32000-1 7.4.4 and 7.4.6); Finish puts the document together.
#pragma once

#include <memory>
#include <vector>

#include "tools/vox/writers/OutputFile.h"
#include "tools/vox/writers/PdfDocument.h"
#include "tools/vox/writers/TiffPages.h"

namespace vox::cli {

class PdfWriter : public ImageWriter {
 public:
  explicit PdfWriter(std::unique_ptr<OutputFile> file) : file_(std::move(file)) {}

  bool HoldsManyPages() const override { return true; }
  void BeginPage(const PageFormat& page) override;
  void WriteLine(std::span<const std::uint8_t> line) override { coded_->WriteLine(line); }
  void EndPage() override;
  void DropPage() override {}
  void Finish() override;

 private:
  std::unique_ptr<OutputFile> file_;
  FileDescriptor spool_;
  std::unique_ptr<TiffPages> coded_;
  PageFormat current_;
  std::vector<PdfPage> ended_;
};

}  // namespace vox::cli
