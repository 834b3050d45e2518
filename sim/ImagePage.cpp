// A page that is an image: each axis is resampled on its own. Where the image is finer than the
// raster, the samples under a pixel are averaged; where it is coarser, neighbours are blended.
#include <algorithm>
#include <cstddef>
#include <utility>

#include "sim/PageSource.h"

namespace vox::sim {
namespace {

constexpr std::uint8_t kWhite = 255;
constexpr int kFraction = 16;  // bits behind the point of a position in the image
constexpr std::int64_t kMaxPixel = std::int64_t{1} << 28;  // beyond every image at every resolution

// Which samples of one axis make one pixel.
struct Tap {
  std::uint32_t first = 0;
  std::uint32_t count = 0;   // averaged; 0: beyond the image
  std::uint32_t weight = 0;  // of sample first + 1, in 1/256; only with count 1
};

// Position of a pixel edge in the image, in samples with 16 bits behind the point. All factors are
// bounded (2^28 pixels, 2^25 millidpi), so nothing here passes 2^60.
std::int64_t EdgeAt(std::int64_t pixel, std::uint32_t millidpi, std::uint32_t resolution) {
  const std::int64_t scaled = pixel * millidpi;
  const std::int64_t unit = std::int64_t{resolution} * 1000;
  return (scaled / unit << kFraction) + ((scaled % unit) << kFraction) / unit;
}

Tap AveragingTap(std::int64_t from, std::int64_t to, std::uint32_t size) {
  const std::int64_t first = from >> kFraction;
  const std::int64_t end = std::min<std::int64_t>(std::max(to >> kFraction, first + 1), size);
  if (first >= end) return {};
  return {static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(end - first), 0};
}

Tap BlendingTap(std::int64_t from, std::int64_t to, std::uint32_t size) {
  if ((from >> kFraction) >= size) return {};
  const std::int64_t half = std::int64_t{1} << (kFraction - 1);
  const std::int64_t centre = std::max<std::int64_t>((from + to) / 2 - half, 0);
  const std::int64_t first = centre >> kFraction;
  if (first + 1 >= size) return {size - 1, 1, 0};
  const std::int64_t weight = (centre >> (kFraction - 8)) & 0xFF;
  return {static_cast<std::uint32_t>(first), 1, static_cast<std::uint32_t>(weight)};
}

Tap TapAt(std::int64_t pixel, std::uint32_t millidpi, std::uint32_t resolution,
          std::uint32_t size) {
  if (pixel < 0 || pixel > kMaxPixel) return {};
  const std::int64_t from = EdgeAt(pixel, millidpi, resolution);
  const std::int64_t to = EdgeAt(pixel + 1, millidpi, resolution);
  const bool coarser = std::uint64_t{millidpi} < std::uint64_t{resolution} * 1000;
  return coarser ? BlendingTap(from, to, size) : AveragingTap(from, to, size);
}

class ImageRaster : public PageRaster {
 public:
  ImageRaster(const Image& image, const RasterWindow& window)
      : image_(image), y_resolution_(window.y_resolution) {
    columns_.reserve(window.width);
    for (std::uint32_t x = 0; x < window.width; ++x) {
      columns_.push_back(
          TapAt(window.left + x, image.x_millidpi, window.x_resolution, image.width));
    }
    row_.resize(RowSize());
    sums_.resize(RowSize());
  }

  void DrawRow(std::int64_t y, std::span<std::uint8_t> rgb) override {
    const Tap tap = TapAt(y, image_.y_millidpi, y_resolution_, image_.height);
    if (tap.count == 0) {
      std::fill(rgb.begin(), rgb.end(), kWhite);
      return;
    }
    const std::uint8_t* row = CombineRows(tap);
    for (std::size_t x = 0; x < columns_.size(); ++x) {
      std::uint8_t* out = rgb.data() + 3 * x;
      if (image_.channels == 1) {
        out[0] = out[1] = out[2] = CombineColumn<1>(row, columns_[x], 0);
      } else {
        for (std::size_t c = 0; c < 3; ++c) out[c] = CombineColumn<3>(row, columns_[x], c);
      }
    }
  }

 private:
  std::size_t RowSize() const { return std::size_t{image_.width} * image_.channels; }
  const std::uint8_t* RowAt(std::uint32_t y) const {
    return image_.samples.data() + std::size_t{y} * RowSize();
  }

  const std::uint8_t* CombineRows(const Tap& tap) {
    if (tap.count == 1 && tap.weight == 0) return RowAt(tap.first);
    if (tap.count == 1) {
      const std::uint8_t* upper = RowAt(tap.first);
      const std::uint8_t* lower = RowAt(tap.first + 1);
      for (std::size_t i = 0; i < row_.size(); ++i) {
        row_[i] = Blend(upper[i], lower[i], tap.weight);
      }
      return row_.data();
    }
    std::fill(sums_.begin(), sums_.end(), 0);
    for (std::uint32_t n = 0; n < tap.count; ++n) {
      const std::uint8_t* row = RowAt(tap.first + n);
      for (std::size_t i = 0; i < sums_.size(); ++i) sums_[i] += row[i];
    }
    for (std::size_t i = 0; i < sums_.size(); ++i) {
      row_[i] = static_cast<std::uint8_t>((sums_[i] + tap.count / 2) / tap.count);
    }
    return row_.data();
  }

  template <std::size_t kChannels>
  static std::uint8_t CombineColumn(const std::uint8_t* row, const Tap& tap, std::size_t channel) {
    if (tap.count == 0) return kWhite;
    const std::uint8_t* at = row + kChannels * tap.first + channel;
    if (tap.count == 1) return tap.weight == 0 ? *at : Blend(*at, at[kChannels], tap.weight);
    std::uint32_t sum = tap.count / 2;
    for (std::uint32_t n = 0; n < tap.count; ++n) sum += at[kChannels * n];
    return static_cast<std::uint8_t>(sum / tap.count);
  }

  static std::uint8_t Blend(std::uint32_t a, std::uint32_t b, std::uint32_t weight) {
    return static_cast<std::uint8_t>((a * (256 - weight) + b * weight + 128) >> 8);
  }

  const Image& image_;
  const std::uint32_t y_resolution_;
  std::vector<Tap> columns_;
  std::vector<std::uint8_t> row_;  // the rows of one tap, combined
  std::vector<std::uint32_t> sums_;
};

class ImagePage : public PageSource {
 public:
  explicit ImagePage(Image image) : image_(std::move(image)) {}
  PageSize Size() const override {
    return {InTenThousandths(image_.width, image_.x_millidpi),
            InTenThousandths(image_.height, image_.y_millidpi)};
  }
  std::unique_ptr<PageRaster> Open(const RasterWindow& window) const override {
    return std::make_unique<ImageRaster>(image_, window);
  }

 private:
  static std::uint32_t InTenThousandths(std::uint32_t pixels, std::uint32_t millidpi) {
    return static_cast<std::uint32_t>(std::uint64_t{pixels} * 10'000'000 / millidpi);
  }
  Image image_;
};

}  // namespace

PagePtr MakeImagePage(Image image) {
  return std::make_shared<ImagePage>(std::move(image));
}

}  // namespace vox::sim
