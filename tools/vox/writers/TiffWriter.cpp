#include "tools/vox/writers/TiffWriter.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <sys/stat.h>

#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

// Above this a page alone could pass the 4 GiB that classic TIFF can address.
constexpr std::uint64_t kBigTiffFrom = 2ULL << 30;
constexpr std::size_t kPiece = 1 << 20;

}  // namespace

void TiffWriter::BeginPage(const PageFormat& page) {
  if (!pages_) {
    if (!file_->IsSeekable()) spool_ = MakeSpool();
    const bool big = std::uint64_t{page.LineBytes()} * page.height > kBigTiffFrom;
    pages_ = std::make_unique<TiffPages>(Fd(), spool_ ? "" : file_->Path(), big);
  }
  pages_->BeginPage(page);
}

void TiffWriter::Finish() {
  if (!pages_ || pages_->PageCount() == 0) return;
  pages_->Close();
  if (spool_) {
    struct stat there {};
    if (::fstat(spool_.Get(), &there) != 0) throw SpoolFailure("read a temporary file in", errno);
    CopyFrom(spool_.Get(), 0, static_cast<std::uint64_t>(there.st_size), *file_);
  }
  file_->Commit();
}

void CopyFrom(int fd, std::uint64_t offset, std::uint64_t bytes, OutputFile& file) {
  std::vector<std::uint8_t> piece(kPiece);
  while (bytes > 0) {
    const std::span part(piece.data(),
                         static_cast<std::size_t>(std::min<std::uint64_t>(bytes, kPiece)));
    if (!ReadAt(fd, part, offset)) throw SpoolFailure("read a temporary file in", errno);
    file.Write(part);
    offset += part.size();
    bytes -= part.size();
  }
}

}  // namespace vox::cli
