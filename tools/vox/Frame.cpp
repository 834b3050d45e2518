#include "tools/vox/Frame.h"

#include <strings.h>
#include <array>
#include <charconv>
#include <cmath>

#include "tools/vox/Failure.h"
#include "vox/PaperSizes.h"
#include "vox/UserPreferences.h"

namespace vox::cli {

namespace {

constexpr char kDefaultPaper[] = "default";

PaperSizes::Paper FindPaper(const std::string& name) {
  PaperSizes& table = PaperSizes::instance();
  if (::strcasecmp(name.c_str(), kDefaultPaper) == 0)
    return table.defaultForMeasurementUnits(UserPreferences::instance().measurementUnits());
  for (const PaperSizes::Paper& paper : table.enumerator()) {
    const auto id = paper->String("paperId");
    if (id && ::strcasecmp(id->c_str(), name.c_str()) == 0) return paper;
  }
  return nullptr;
}

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
  const PaperSizes::Paper paper = FindPaper(name);
  if (paper == nullptr) return std::nullopt;
  const double width = paper->Number("width").value_or(0);
  const double height = paper->Number("height").value_or(0);
  if (!(width > 0 && height > 0)) return std::nullopt;
  return Frame{0, 0, width / kMillimetresPerInch, height / kMillimetresPerInch};
}

std::vector<std::string> PaperNames() {
  std::vector<std::string> names;
  for (const PaperSizes::Paper& paper : PaperSizes::instance().enumerator())
    names.push_back(paper->String("paperId").value_or(""));
  return names;
}

}  // namespace vox::cli
