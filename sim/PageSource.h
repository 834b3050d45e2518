// Where a virtual device's pages come from: image files, a test chart, or a blank sheet. A source
// has a physical size and draws itself at any resolution, one row at a time in any order; the same
// request gives the same bytes on every machine (integer arithmetic throughout).
//
// Units: sizes in 1/10000 inch; rows and columns in pixels at the raster's resolution, from the
// page's upper left corner. Beyond the page everything is white.
// Thread rule: a PageSource may be used from any number of threads; a PageRaster by one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vox::sim {

struct PageSize {
  std::uint32_t width = 0;   // 1/10000 inch
  std::uint32_t height = 0;  // 1/10000 inch
};

// A window of pixels over a page.
struct RasterWindow {
  std::uint32_t x_resolution = 0;  // dpi, 1 to kMaxResolution
  std::uint32_t y_resolution = 0;  // dpi, 1 to kMaxResolution
  std::int64_t left = 0;           // first column; may be negative
  std::uint32_t width = 0;         // columns, at most kMaxRasterWidth
};
inline constexpr std::uint32_t kMaxResolution = 19200;
inline constexpr std::uint32_t kMaxRasterWidth = 1u << 20;

class PageRaster {
 public:
  virtual ~PageRaster() = default;
  // DrawRow draws row y: rgb[0, 3 * width) out, R, G, B of each column.
  virtual void DrawRow(std::int64_t y, std::span<std::uint8_t> rgb) = 0;
};

class PageSource {
 public:
  virtual ~PageSource() = default;
  virtual PageSize Size() const = 0;
  // Open prepares drawing at one resolution; the source must outlive the raster.
  virtual std::unique_ptr<PageRaster> Open(const RasterWindow& window) const = 0;
};
using PagePtr = std::shared_ptr<const PageSource>;

// A decoded image: 8 bits a sample, grey (channels 1) or R, G, B (channels 3), rows without gaps.
struct Image {
  std::uint32_t width = 0;   // pixels
  std::uint32_t height = 0;  // pixels
  std::uint32_t channels = 1;
  std::uint32_t x_millidpi = 0;  // 1/1000 dpi; 0: the file does not say
  std::uint32_t y_millidpi = 0;
  std::vector<std::uint8_t> samples;
};

struct PageFileLimits {
  std::uint64_t max_bytes = std::uint64_t{512} << 20;  // of decoded samples, all pages together
  std::uint32_t max_pages = 1000;
  std::uint32_t default_dpi = 300;  // of files that do not say
  std::uint32_t force_dpi = 0;      // not 0: used whatever the file says
};

struct LoadedPages {
  std::vector<PagePtr> pages;
  std::string error;     // empty: pages holds at least one
  int error_number = 0;  // errno, where the file itself cannot be had
};

// LoadPages reads a PNM (P1 to P6, one image after another), PNG or TIFF (every directory) from
// memory or from a file; the kind is told by the first bytes. One error text says what is wrong.
LoadedPages LoadPages(std::span<const std::uint8_t> bytes, const PageFileLimits& limits = {});
LoadedPages LoadPageFile(const std::string& path, const PageFileLimits& limits = {});

// MakeImagePage wraps an image; the resolution in it must be set.
PagePtr MakeImagePage(Image image);
// MakeTestChart draws frame, ruler, glyphs, grey ramp, colours, wedges and a corner mark that
// tells every turning and mirroring apart. `number` (0 to 9999) is written large on the page.
PagePtr MakeTestChart(PageSize size, std::uint32_t number = 0);
PagePtr MakeBlankPage(PageSize size);

}  // namespace vox::sim
