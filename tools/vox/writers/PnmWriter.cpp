#include "tools/vox/writers/PnmWriter.h"

#include <string>

#include "tools/vox/Failure.h"
#include "tools/vox/writers/InvertBits.h"

namespace vox::cli {

void PnmWriter::BeginPage(const PageFormat& page) {
  if (HasPage() && !HoldsManyPages())
    throw UsageFailure(File().Path() + ": a PNM file holds one page; use --batch page-%d.pnm");
  page_ = page;
  std::string header = page.bits == 1 ? "P4\n" : page.bits == 8 ? "P5\n" : "P6\n";
  header += std::to_string(page.width) + " " + std::to_string(page.height) + "\n";
  if (page.bits != 1) header += "255\n";
  const std::vector<std::uint8_t> bytes(header.begin(), header.end());
  File().Write(bytes);
}

void PnmWriter::WriteLine(std::span<const std::uint8_t> line) {
  if (page_.bits != 1) return File().Write(line.first(page_.LineBytes()));
  InvertBits(line, page_.width, inverted_);
  File().Write(inverted_);
}

}  // namespace vox::cli
