// TiffWriter writes any number of pages into one TIFF. A file that cannot be moved about in (a
// pipe) gets the whole at the end, from a spool.
#pragma once

#include <memory>

#include "tools/vox/writers/OutputFile.h"
#include "tools/vox/writers/TiffPages.h"

namespace vox::cli {

class TiffWriter : public ImageWriter {
 public:
  explicit TiffWriter(std::unique_ptr<OutputFile> file) : file_(std::move(file)) {}

  bool HoldsManyPages() const override { return true; }
  void BeginPage(const PageFormat& page) override;
  void WriteLine(std::span<const std::uint8_t> line) override { pages_->WriteLine(line); }
  void EndPage() override { pages_->EndPage(); }
  void DropPage() override {}  // TiffPages forgets what was not ended
  void Finish() override;

 private:
  int Fd() const { return spool_ ? spool_.Get() : file_->Fd(); }

  std::unique_ptr<OutputFile> file_;
  FileDescriptor spool_;
  std::unique_ptr<TiffPages> pages_;
};

// CopyFrom writes `bytes` bytes of `fd` from `offset` on to `file`, in pieces.
void CopyFrom(int fd, std::uint64_t offset, std::uint64_t bytes, OutputFile& file);

}  // namespace vox::cli
