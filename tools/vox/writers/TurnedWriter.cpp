#include "tools/vox/writers/TurnedWriter.h"

#include <algorithm>
#include <cerrno>

#include "tools/vox/Failure.h"
#include "tools/vox/writers/OutputFile.h"
#include "vox/drivers/LineMirror.h"

namespace vox::cli {

namespace {

constexpr std::size_t kBlockBytes = 1 << 20;

// A reversed 1-bit line begins with what stood behind its last pixel: move that out.
void ShiftLeft(std::span<std::uint8_t> line, unsigned bits) {
  for (std::size_t i = 0; i < line.size(); ++i) {
    const unsigned next = i + 1 < line.size() ? line[i + 1] : 0;
    line[i] = static_cast<std::uint8_t>(line[i] << bits | next >> (8 - bits));
  }
}

}  // namespace

void TurnLine(std::span<std::uint8_t> line, std::uint32_t width, unsigned bits) {
  if (bits == 8) return mirror_grey(line.data(), line.size());
  if (bits == 24) return mirror_colour(line.data(), line.size());
  mirror_bits(line.data(), line.size());
  if (width % 8 != 0) ShiftLeft(line, 8 - width % 8);
}

void TurnedWriter::BeginPage(const PageFormat& page) {
  page_ = page;
  spool_ = MakeSpool();
  spooled_ = 0;
  waiting_.clear();
}

void TurnedWriter::WriteLine(std::span<const std::uint8_t> line) {
  waiting_.insert(waiting_.end(), line.begin(),
                  line.begin() + static_cast<std::ptrdiff_t>(page_.LineBytes()));
  if (waiting_.size() >= kBlockBytes) Flush();
}

void TurnedWriter::Flush() {
  if (!WriteAt(spool_.Get(), waiting_, spooled_))
    throw SpoolFailure("write a temporary file in", errno);
  spooled_ += waiting_.size();
  waiting_.clear();
}

void TurnedWriter::PassOn(std::span<std::uint8_t> lines) {
  const std::size_t bytes = page_.LineBytes();
  for (std::size_t end = lines.size(); end >= bytes; end -= bytes) {
    const auto line = lines.subspan(end - bytes, bytes);
    TurnLine(line, page_.width, page_.bits);
    inner_->WriteLine(line);
  }
}

void TurnedWriter::EndPage() {
  Flush();
  inner_->BeginPage(page_);
  const std::size_t bytes = page_.LineBytes();
  const std::uint64_t block = std::max<std::size_t>(kBlockBytes / bytes, 1) * bytes;
  std::vector<std::uint8_t> lines;
  while (spooled_ > 0) {
    lines.resize(static_cast<std::size_t>(std::min(block, spooled_)));
    spooled_ -= lines.size();
    if (!ReadAt(spool_.Get(), lines, spooled_))
      throw SpoolFailure("read a temporary file in", errno);
    PassOn(lines);
  }
  spool_.Reset();
  inner_->EndPage();
}

}  // namespace vox::cli
