// PnmWriter writes a page as raw PBM (P4), PGM (P5) or PPM (P6); into a pipe any number of pages,
// one behind the other. The formats hold no resolution. In PBM a set bit is black, so 1-bit lines
// are inverted.
#pragma once

#include <memory>
#include <vector>

#include "tools/vox/writers/ImageWriter.h"
#include "tools/vox/writers/OutputFile.h"

namespace vox::cli {

class PnmWriter : public ImageWriter {
 public:
  explicit PnmWriter(std::unique_ptr<OutputFile> file) : file_(std::move(file)) {}

  bool HoldsManyPages() const override { return !file_->IsSeekable(); }
  void BeginPage(const PageFormat& page) override;
  void WriteLine(std::span<const std::uint8_t> line) override;
  void EndPage() override;
  void DropPage() override {}
  void Finish() override;

 private:
  std::unique_ptr<OutputFile> file_;
  PageFormat page_;
  std::vector<std::uint8_t> inverted_;
  bool ended_ = false;
};

}  // namespace vox::cli
