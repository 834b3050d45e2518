#include "sim/ChartShapes.h"

#include <algorithm>

#include "sim/Font.h"

namespace vox::sim {
namespace {

constexpr Unit kAdvance = kGlyphColumns + 1;  // dots from one character to the next

}  // namespace

Unit RowCanvas::CentreOf(Unit column) const {
  return (2 * (window_.left + column) + 1) * kInch / (2 * Unit{window_.x_resolution});
}

// The first column whose centre lies at or behind x. The division finds it or its neighbour.
std::uint32_t RowCanvas::ColumnAt(Unit x) const {
  Unit column = x * window_.x_resolution / kInch - window_.left - 1;
  column = std::clamp<Unit>(column, 0, window_.width);
  while (column < window_.width && CentreOf(column) < x) ++column;
  return static_cast<std::uint32_t>(column);
}

void RowCanvas::Fill(Unit from, Unit to, const Rgb& colour) {
  const std::uint32_t end = ColumnAt(to);
  for (std::uint32_t column = ColumnAt(from); column < end; ++column) {
    std::copy(colour.begin(), colour.end(), rgb_.begin() + 3 * std::ptrdiff_t{column});
  }
}

void Rectangle::Draw(Unit, RowCanvas& row) const {
  row.Fill(box.left, box.right, colour_);
}

void Triangle::Draw(Unit y, RowCanvas& row) const {
  const Unit width = (box.right - box.left) * (box.bottom - y) / (box.bottom - box.top);
  row.Fill(box.left, box.left + width, kBlack);
}

Text::Text(Unit left, Unit top, Unit dot, std::string text)
    : Shape({left, top, left + kAdvance * dot * static_cast<Unit>(text.size()),
             top + Unit{kGlyphRows} * dot}),
      dot_(dot),
      text_(std::move(text)) {}

void Text::Draw(Unit y, RowCanvas& row) const {
  const auto line = static_cast<std::uint32_t>((y - box.top) / dot_);
  Unit x = box.left;
  for (const char character : text_) {
    DrawGlyphRow(GlyphRow(character, line), x, row);
    x += kAdvance * dot_;
  }
}

// Runs of dots are filled at once.
void Text::DrawGlyphRow(std::uint8_t dots, Unit x, RowCanvas& row) const {
  for (std::uint32_t from = 0; from < kGlyphColumns;) {
    std::uint32_t to = from;
    while (to < kGlyphColumns && (dots >> (kGlyphColumns - 1 - to) & 1) != 0) ++to;
    if (to > from) row.Fill(x + from * dot_, x + to * dot_, kBlack);
    from = to + 1;
  }
}

void Ramp::Draw(Unit, RowCanvas& row) const {
  const auto edge = [&](Unit step) { return box.left + (box.right - box.left) * step / steps_; };
  for (Unit step = 0; step < steps_; ++step) {
    const auto grey = static_cast<std::uint8_t>(step * 255 / (steps_ - 1));
    row.Fill(edge(step), edge(step + 1), {grey, grey, grey});
  }
}

void Lines::Draw(Unit y, RowCanvas& row) const {
  if (!upright_) {
    if ((y - box.top) / width_ % 2 == 0) row.Fill(box.left, box.right, kBlack);
    return;
  }
  for (Unit x = box.left; x < box.right; x += 2 * width_) {
    row.Fill(x, std::min(x + width_, box.right), kBlack);
  }
}

void Wedge::Draw(Unit y, RowCanvas& row) const {
  const Unit width = top_ + (bottom_ - top_) * (y - box.top) / (box.bottom - box.top);
  const Unit centre = (box.left + box.right) / 2;
  const Unit count = (box.right - box.left) / (4 * top_);
  for (Unit line = -count; line <= count; ++line) {
    const Unit x = centre + 2 * line * width - width / 2;
    row.Fill(x, x + width, kBlack);
  }
}

void Diagonal::Draw(Unit y, RowCanvas& row) const {
  const Unit along = (box.right - box.left) * (y - box.top) / (box.bottom - box.top);
  const Unit x = falling_ ? box.left + along : box.right - along;
  row.Fill(x, x + width_, kBlack);
}

}  // namespace vox::sim
