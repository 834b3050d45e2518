// The shapes that a test chart is made of. A pixel has the colour of the last shape under its
// centre.
//
// Units: 1/1,000,000 inch, in 64 bits, so that a pixel's centre is exact at every resolution.
// Thread rule: shapes are constant; a RowCanvas belongs to one thread.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "sim/PageSource.h"

namespace vox::sim {

using Unit = std::int64_t;
inline constexpr Unit kInch = 1'000'000;

using Rgb = std::array<std::uint8_t, 3>;
inline constexpr Rgb kBlack = {0, 0, 0};

struct Box {
  Unit left = 0, top = 0, right = 0, bottom = 0;  // right and bottom lie outside
};

// One row of pixels and where it lies on the page.
class RowCanvas {
 public:
  RowCanvas(const RasterWindow& window, std::span<std::uint8_t> rgb) : window_(window), rgb_(rgb) {}
  // Fill colours the pixels whose centres lie at or behind `from` and before `to`.
  void Fill(Unit from, Unit to, const Rgb& colour);

 private:
  Unit CentreOf(Unit column) const;
  std::uint32_t ColumnAt(Unit x) const;

  const RasterWindow& window_;
  std::span<std::uint8_t> rgb_;
};

class Shape {
 public:
  explicit Shape(Box area) : box(area) {}
  virtual ~Shape() = default;
  // Draw draws what lies on the row with centre y, which is inside the box.
  virtual void Draw(Unit y, RowCanvas& row) const = 0;
  const Box box;
};

class Rectangle : public Shape {
 public:
  Rectangle(Box area, Rgb colour) : Shape(area), colour_(colour) {}
  void Draw(Unit y, RowCanvas& row) const override;

 private:
  const Rgb colour_;
};

// The upper left half of a box, black.
class Triangle : public Shape {
 public:
  using Shape::Shape;
  void Draw(Unit y, RowCanvas& row) const override;
};

// One line of text. dot: the size of one dot of the font; a character takes 6 dots across.
class Text : public Shape {
 public:
  Text(Unit left, Unit top, Unit dot, std::string text);
  void Draw(Unit y, RowCanvas& row) const override;

 private:
  void DrawGlyphRow(std::uint8_t dots, Unit x, RowCanvas& row) const;
  const Unit dot_;
  const std::string text_;
};

// Grey from black at the left to white at the right, in `steps` steps.
class Ramp : public Shape {
 public:
  Ramp(Box area, Unit steps) : Shape(area), steps_(steps) {}
  void Draw(Unit y, RowCanvas& row) const override;

 private:
  const Unit steps_;
};

// Upright or level lines, as wide as the gaps between them.
class Lines : public Shape {
 public:
  Lines(Box area, Unit lines_per_inch, bool upright)
      : Shape(area), width_(kInch / (2 * lines_per_inch)), upright_(upright) {}
  void Draw(Unit y, RowCanvas& row) const override;

 private:
  const Unit width_;
  const bool upright_;
};

// Lines that converge downwards, from `top_lines` to `bottom_lines` an inch: a resolution wedge.
class Wedge : public Shape {
 public:
  Wedge(Box area, Unit top_lines, Unit bottom_lines)
      : Shape(area), top_(kInch / (2 * top_lines)), bottom_(kInch / (2 * bottom_lines)) {}
  void Draw(Unit y, RowCanvas& row) const override;

 private:
  const Unit top_, bottom_;  // width of one line
};

// A line from corner to corner of the box, falling or rising to the right.
class Diagonal : public Shape {
 public:
  Diagonal(Box area, Unit width, bool falling) : Shape(area), width_(width), falling_(falling) {}
  void Draw(Unit y, RowCanvas& row) const override;

 private:
  const Unit width_;
  const bool falling_;
};

}  // namespace vox::sim
