#include "sim/PaperTray.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vox::sim {
namespace {

// Gives the pages in turn: those of the files, or numbered test charts.
class PageTurn {
 public:
  PageTurn(std::vector<PagePtr> pages, const UnitOptions& unit)
      : pages_(std::move(pages)), unit_(unit) {}
  PagePtr Next() {
    ++number_;
    if (!pages_.empty()) return pages_[(number_ - 1) % pages_.size()];
    return MakeTestChart({unit_.physical_width, unit_.physical_height}, number_);
  }

 private:
  const std::vector<PagePtr> pages_;
  const UnitOptions unit_;
  std::uint32_t number_ = 0;
};

PaperProblem LoadFiles(const PaperWish& wish, std::vector<PagePtr>& pages) {
  for (const std::string& file : wish.files) {
    LoadedPages loaded = LoadPageFile(file, wish.limits);
    if (!loaded.error.empty()) return {loaded.error, loaded.error_number};
    std::move(loaded.pages.begin(), loaded.pages.end(), std::back_inserter(pages));
  }
  return {};
}

void FillFeeder(PageTurn turn, std::size_t sheets, bool both_sides, DeviceOptions& device) {
  if (!device.feeder) device.feeder = device.flatbed;
  for (std::size_t i = 0; i < sheets; ++i) {
    Sheet sheet;
    sheet.front = turn.Next();
    if (both_sides) sheet.back = turn.Next();
    device.sheets.push_back(std::move(sheet));
  }
  if (sheets == 0) device.empty_glass = true;
}

}  // namespace

PaperProblem LayPaper(const PaperWish& wish, DeviceOptions& device) {
  std::vector<PagePtr> pages;
  PaperProblem problem = LoadFiles(wish, pages);
  if (!problem.text.empty()) return problem;
  if (!wish.sheets && !wish.both_sides && pages.size() <= 1) {
    if (!pages.empty()) device.glass = pages.front();
    return {};
  }
  const std::size_t sides = wish.both_sides ? 2 : 1;
  const std::size_t needed = std::max<std::size_t>((pages.size() + sides - 1) / sides, 1);
  const UnitOptions unit = device.flatbed.value_or(UnitOptions{});
  FillFeeder(PageTurn(std::move(pages), unit), wish.sheets ? *wish.sheets : needed, wish.both_sides,
             device);
  return {};
}

}  // namespace vox::sim
