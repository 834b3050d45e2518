// TurnedWriter turns pages by 180 degrees on their way to another writer: the lines of a page wait
// in a spool, and go on from the last to the first, each mirrored.
#pragma once

#include <memory>
#include <vector>

#include "tools/vox/writers/ImageWriter.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::cli {

// TurnLine mirrors a line in place. Shapes: (width * bits + 7) / 8 bytes. Bits behind the last
// pixel of a 1-bit line may be anything and are 0 afterwards.
void TurnLine(std::span<std::uint8_t> line, std::uint32_t width, unsigned bits);

class TurnedWriter : public ImageWriter {
 public:
  explicit TurnedWriter(std::unique_ptr<ImageWriter> inner) : inner_(std::move(inner)) {}

  bool HoldsManyPages() const override { return inner_->HoldsManyPages(); }
  void BeginPage(const PageFormat& page) override;
  void WriteLine(std::span<const std::uint8_t> line) override;
  void EndPage() override;
  void DropPage() override { inner_->DropPage(); }
  void Finish() override { inner_->Finish(); }

 private:
  void Flush();
  void PassOn(std::span<std::uint8_t> lines);

  std::unique_ptr<ImageWriter> inner_;
  PageFormat page_;
  FileDescriptor spool_;
  std::uint64_t spooled_ = 0;          // bytes in the spool
  std::vector<std::uint8_t> waiting_;  // lines on the way into the spool
};

}  // namespace vox::cli
