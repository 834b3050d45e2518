// Gradient is a page that draws itself faster than a network carries it.
#pragma once

#include <cstring>
#include <memory>
#include <span>

#include "sim/PageSource.h"

namespace vox::bench {

class Gradient : public sim::PageSource {
 public:
  explicit Gradient(sim::PageSize size) : size_(size) {}
  sim::PageSize Size() const override { return size_; }
  std::unique_ptr<sim::PageRaster> Open(const sim::RasterWindow&) const override {
    class Raster : public sim::PageRaster {
      void DrawRow(std::int64_t y, std::span<std::uint8_t> rgb) override {
        std::memset(rgb.data(), static_cast<int>(y & 0xFF), rgb.size());
      }
    };
    return std::make_unique<Raster>();
  }

 private:
  const sim::PageSize size_;
};

}  // namespace vox::bench
