// Areas of the page as people give them: a frame in millimetres or inches, or the name of a paper.
//
// Units: inches inside the program. Thread rule: pure functions.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vox::cli {

inline constexpr double kMillimetresPerInch = 25.4;

// Frame is an area of the bed, from its left upper corner.
struct Frame {
  double left = 0, top = 0, right = 0, bottom = 0;  // inches
  double Width() const { return right - left; }
  double Height() const { return bottom - top; }
};

// ParseFrame reads "L,T,R,B", millimetres, with an optional "mm" or "in" behind the last number.
// Throws UsageFailure for anything else, for negative numbers and for an empty area.
Frame ParseFrame(const std::string& text);

// PaperFrame gives the area of a paper laid into the left upper corner: one of the library's table
// of papers, by its name in any case ("a4", "Letter", "B5-ISO"), or "default", the usual one where
// the user's locale measures in centimetres or inches. Nothing for a name that is not in the table.
std::optional<Frame> PaperFrame(const std::string& name);

// PaperNames gives the names in the table, for messages; empty when the table cannot be read.
std::vector<std::string> PaperNames();

}  // namespace vox::cli
