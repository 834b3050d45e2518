#include "tools/vox/Frame.h"

#include <strings.h>
#include <array>
#include <charconv>
#include <cmath>

#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

struct Paper {
  const char* name;
  double width, height;  // millimetres, upright
};

// ISO 216, JIS P 0138, ANSI/ASME Y14.1 and the sheets of North American offices.
constexpr std::array<Paper, 15> kPapers{{
    {"A3", 297, 420},
    {"A4", 210, 297},
    {"A5", 148, 210},
    {"A6", 105, 148},
    {"B4-ISO", 250, 353},
    {"B5-ISO", 176, 250},
    {"B4", 257, 364},  // JIS, which the devices know
    {"B5", 182, 257},
    {"B6", 128, 182},
    {"Letter", 215.9, 279.4},
    {"Legal", 215.9, 355.6},
    {"Ledger", 279.4, 431.8},
    {"Executive", 184.15, 266.7},
    {"Statement", 139.7, 215.9},
    {"Folio", 210, 330},
}};

[[noreturn]] void RefuseFrame(const std::string& text, const std::string& why) {
  throw UsageFailure("--frame " + text + ": " + why +
                     "; give left,top,right,bottom, as in 10,10,110,160 or 0,0,8.5,11in");
}

// Takes a number off the front of `rest`; false when there is none.
bool TakeNumber(std::string_view& rest, double& value) {
  const auto result = std::from_chars(rest.data(), rest.data() + rest.size(), value);
  if (result.ec != std::errc() || !std::isfinite(value)) return false;
  rest.remove_prefix(static_cast<std::size_t>(result.ptr - rest.data()));
  return true;
}

}  // namespace

Frame ParseFrame(const std::string& text) {
  std::string_view rest(text);
  std::array<double, 4> edges{};
  for (std::size_t i = 0; i < edges.size(); ++i) {
    if (i > 0 && (rest.empty() || rest.front() != ','))
      RefuseFrame(text, "four numbers are wanted");
    if (i > 0) rest.remove_prefix(1);
    if (!TakeNumber(rest, edges[i])) RefuseFrame(text, "four numbers are wanted");
    if (edges[i] < 0) RefuseFrame(text, "a number is negative");
  }
  if (!rest.empty() && rest != "mm" && rest != "in") RefuseFrame(text, "the unit is mm or in");
  const double unit = rest == "in" ? 1.0 : 1.0 / kMillimetresPerInch;
  const Frame frame{edges[0] * unit, edges[1] * unit, edges[2] * unit, edges[3] * unit};
  if (frame.Width() <= 0 || frame.Height() <= 0) RefuseFrame(text, "the area is empty");
  return frame;
}

std::optional<Frame> PaperFrame(const std::string& name) {
  for (const Paper& paper : kPapers) {
    if (::strcasecmp(paper.name, name.c_str()) == 0)
      return Frame{0, 0, paper.width / kMillimetresPerInch, paper.height / kMillimetresPerInch};
  }
  return std::nullopt;
}

std::vector<std::string> PaperNames() {
  std::vector<std::string> names;
  names.reserve(kPapers.size());
  for (const Paper& paper : kPapers) names.emplace_back(paper.name);
  return names;
}

}  // namespace vox::cli
