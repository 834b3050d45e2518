// Page files of the virtual device. Property: a file is either refused with a reason or gives
// pages; a page draws itself, and a line alone is the same as that line of the whole page.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "sim/Render.h"

namespace {

void Expect(bool holds) {
  if (!holds) std::abort();
}

void DrawCorner(const vox::sim::PagePtr& page, std::uint32_t dpi, std::uint32_t type) {
  vox::sim::ScanInfo info;
  info.data_type = type;
  info.x_resolution = info.y_resolution = dpi;
  info.x_extent = 24;
  info.y_extent = 8;
  const auto lines = vox::sim::RenderPage(page, info, {});
  const std::size_t size = vox::sim::LineBytes(info);
  const auto last = vox::sim::RenderLine(page, info, {}, info.y_extent - 1);
  Expect(last.size() == size);
  Expect(std::equal(last.begin(), last.end(), lines.end() - static_cast<std::ptrdiff_t>(size)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vox::sim::PageFileLimits limits;
  limits.max_bytes = 1 << 20;
  limits.max_pages = 4;
  const auto loaded = vox::sim::LoadPages(std::span(data, size), limits);
  Expect(loaded.error.empty() == !loaded.pages.empty());
  Expect(loaded.pages.size() <= limits.max_pages);
  for (const auto& page : loaded.pages) {
    DrawCorner(page, 75, vox::sim::kBilevel);
    DrawCorner(page, 19200, vox::sim::kGrey);
    DrawCorner(page, 300, vox::sim::kColour);
  }
  return 0;
}
