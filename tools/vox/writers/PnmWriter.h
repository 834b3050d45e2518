// PnmWriter writes a page as raw PBM (P4), PGM (P5) or PPM (P6); into a pipe any number of pages,
// one behind the other. The formats hold no resolution. In PBM a set bit is black, so 1-bit lines
// are inverted.
#pragma once

#include <memory>
#include <vector>

#include "tools/vox/writers/StreamWriter.h"

namespace vox::cli {

class PnmWriter : public StreamWriter {
 public:
  explicit PnmWriter(std::unique_ptr<OutputFile> file) : StreamWriter(std::move(file)) {}

  bool HoldsManyPages() const override { return !File().IsSeekable(); }
  void BeginPage(const PageFormat& page) override;
  void WriteLine(std::span<const std::uint8_t> line) override;

 private:
  PageFormat page_;
  std::vector<std::uint8_t> inverted_;
};

}  // namespace vox::cli
