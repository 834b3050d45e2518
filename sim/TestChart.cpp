// The built-in test chart, a list of shapes drawn at whatever resolution is asked, and the blank
// sheet. Nothing on the chart is symmetrical: a filled triangle marks the upper left corner, a bar
// runs along the left edge only.
#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "sim/ChartShapes.h"
#include "sim/PageSource.h"

namespace vox::sim {
namespace {

constexpr Unit kSizeUnit = 100;  // 1/10000 inch

// The shapes of one chart, in the order in which they are drawn.
class Layout {
 public:
  Layout(PageSize size, std::uint32_t number)
      : width_(size.width * kSizeUnit), height_(size.height * kSizeUnit) {
    DrawFrame();
    DrawHead(number);
    DrawTones();
    DrawResolution();
    DrawParagraphs();
  }
  std::vector<std::unique_ptr<Shape>> Take() { return std::move(shapes_); }

 private:
  template <typename S, typename... Arguments>
  void Add(Arguments&&... arguments) {
    shapes_.push_back(std::make_unique<S>(std::forward<Arguments>(arguments)...));
  }
  void AddText(Unit left, Unit top, Unit dot, const std::string& text) {
    Add<Text>(left, top, dot, text);
  }

  // A frame a quarter inch inside, ticks at every tenth of an inch, the marks that tell the edges
  // apart.
  void DrawFrame() {
    const Unit in = kInch / 4, line = kInch / 100;
    Add<Rectangle>(Box{in, in, width_ - in, in + line}, kBlack);
    Add<Rectangle>(Box{in, height_ - in - line, width_ - in, height_ - in}, kBlack);
    Add<Rectangle>(Box{in, in, in + line, height_ - in}, kBlack);
    Add<Rectangle>(Box{width_ - in - line, in, width_ - in, height_ - in}, kBlack);
    Add<Triangle>(Box{in, in, in + kInch / 2, in + kInch / 2});
    Add<Rectangle>(Box{kInch / 20, kInch, kInch / 8, 2 * kInch}, kBlack);
    for (Unit tick = 1; tick * kInch / 10 < width_; ++tick) {
      const Unit x = tick * kInch / 10, length = tick % 10 == 0 ? kInch / 8 : kInch / 16;
      Add<Rectangle>(Box{x, 0, x + line, length}, kBlack);
    }
  }

  void DrawHead(std::uint32_t number) {
    AddText(kInch, kInch / 2, kInch / 60, "VELTRONIX TEST CHART");
    AddText(width_ - kInch * 2, kInch / 2, kInch / 30, std::to_string(number % 10000));
  }

  void DrawTones() {
    const Unit left = kInch, right = width_ - kInch, top = kInch;
    Add<Ramp>(Box{left, top, right, top + kInch / 3}, 16);
    Add<Ramp>(Box{left, top + kInch / 3, right, top + 2 * kInch / 3}, 256);
    static constexpr std::array<Rgb, 10> kPatches = {{{255, 0, 0},
                                                      {0, 255, 0},
                                                      {0, 0, 255},
                                                      {0, 255, 255},
                                                      {255, 0, 255},
                                                      {255, 255, 0},
                                                      {0, 0, 0},
                                                      {128, 128, 128},
                                                      {224, 172, 140},
                                                      {30, 60, 90}}};
    const Unit each = (right - left) / static_cast<Unit>(kPatches.size());
    for (std::size_t i = 0; i < kPatches.size(); ++i) {
      const Unit x = left + each * static_cast<Unit>(i);
      Add<Rectangle>(Box{x, top + kInch, x + each * 9 / 10, top + 3 * kInch / 2}, kPatches[i]);
    }
  }

  void DrawResolution() {
    const Unit top = 11 * kInch / 4;
    Unit x = kInch;
    for (const Unit lines : {25, 50, 75, 100, 150, 300}) {
      Add<Lines>(Box{x, top, x + kInch / 3, top + kInch / 2}, lines, true);
      Add<Lines>(Box{x, top + 6 * kInch / 10, x + kInch / 3, top + 11 * kInch / 10}, lines, false);
      x += 4 * kInch / 10;
    }
    Add<Wedge>(Box{x, top, x + kInch, top + 11 * kInch / 10}, 20, 300);
    Add<Diagonal>(Box{x + 5 * kInch / 4, top, x + 2 * kInch, top + 11 * kInch / 10}, kInch / 100,
                  true);
    Add<Diagonal>(Box{x + 5 * kInch / 4, top, x + 7 * kInch / 4, top + 11 * kInch / 10},
                  kInch / 150, false);
  }

  // Lines of words down to the frame, in sizes that repeat; the words come from a fixed sequence.
  void DrawParagraphs() {
    static constexpr std::array<Unit, 5> kDots = {kInch / 90, kInch / 70, kInch / 50, kInch / 110,
                                                  kInch / 36};
    Unit y = 41 * kInch / 10;
    for (std::size_t line = 0; y < height_ - kInch / 2; ++line) {
      const Unit dot = kDots[line / 4 % kDots.size()];
      if (y + 7 * dot > height_ - kInch / 2) break;
      const Unit room = (width_ - 3 * kInch / 2) / (6 * dot);
      // Every fifth line is short, as at the end of a paragraph.
      if (room > 0) AddText(kInch, y, dot, Words(line % 5 == 4 ? room / 2 : room));
      y += 10 * dot;
    }
  }

  std::string Words(Unit letters) {
    std::string text;
    while (static_cast<Unit>(text.size()) < letters) {
      const std::uint32_t length = 2 + Random() % 9;
      for (std::uint32_t i = 0; i < length; ++i) text += static_cast<char>('A' + Random() % 26);
      text += Random() % 8 == 0 ? ", " : " ";
    }
    text.resize(static_cast<std::size_t>(letters));
    return text;
  }
  std::uint32_t Random() {
    state_ = state_ * 1664525 + 1013904223;  // a plain congruential sequence, the same everywhere
    return state_ >> 16;
  }

  const Unit width_, height_;
  std::uint32_t state_ = 1;
  std::vector<std::unique_ptr<Shape>> shapes_;
};

class ChartPage : public PageSource {
 public:
  ChartPage(PageSize size, std::uint32_t number)
      : size_(size), shapes_(Layout(size, number).Take()) {}
  PageSize Size() const override { return size_; }
  std::unique_ptr<PageRaster> Open(const RasterWindow& window) const override;

 private:
  class Raster;
  const PageSize size_;
  const std::vector<std::unique_ptr<Shape>> shapes_;
};

class ChartPage::Raster : public PageRaster {
 public:
  Raster(const ChartPage& page, const RasterWindow& window) : page_(page), window_(window) {}
  void DrawRow(std::int64_t y, std::span<std::uint8_t> rgb) override {
    std::fill(rgb.begin(), rgb.end(), 255);
    const Unit centre = (2 * y + 1) * kInch / (2 * Unit{window_.y_resolution});
    RowCanvas row(window_, rgb);
    for (const auto& shape : page_.shapes_) {
      if (centre >= shape->box.top && centre < shape->box.bottom) shape->Draw(centre, row);
    }
  }

 private:
  const ChartPage& page_;
  const RasterWindow window_;
};

std::unique_ptr<PageRaster> ChartPage::Open(const RasterWindow& window) const {
  return std::make_unique<Raster>(*this, window);
}

class BlankPage : public PageSource {
 public:
  explicit BlankPage(PageSize size) : size_(size) {}
  PageSize Size() const override { return size_; }
  std::unique_ptr<PageRaster> Open(const RasterWindow&) const override {
    return std::make_unique<Raster>();
  }

 private:
  class Raster : public PageRaster {
   public:
    void DrawRow(std::int64_t, std::span<std::uint8_t> rgb) override {
      std::fill(rgb.begin(), rgb.end(), 255);
    }
  };
  const PageSize size_;
};

}  // namespace

PagePtr MakeTestChart(PageSize size, std::uint32_t number) {
  return std::make_shared<ChartPage>(size, number);
}
PagePtr MakeBlankPage(PageSize size) {
  return std::make_shared<BlankPage>(size);
}

}  // namespace vox::sim
