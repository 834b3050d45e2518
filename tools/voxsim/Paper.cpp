// What lies on the glass or in the feeder of the device that voxsim is asked to be.
#include <algorithm>
#include <utility>

#include "tools/voxsim/Arguments.h"

namespace vox {
namespace {

// Gives the pages in turn: those of the files, or numbered test charts.
class PageTurn {
 public:
  PageTurn(std::vector<sim::PagePtr> pages, const sim::UnitOptions& unit)
      : pages_(std::move(pages)), unit_(unit) {}
  sim::PagePtr Next() {
    ++number_;
    if (!pages_.empty()) return pages_[(number_ - 1) % pages_.size()];
    return sim::MakeTestChart({unit_.physical_width, unit_.physical_height}, number_);
  }

 private:
  const std::vector<sim::PagePtr> pages_;
  const sim::UnitOptions unit_;
  std::uint32_t number_ = 0;
};

std::string LoadFiles(const SimArguments& arguments, std::vector<sim::PagePtr>& pages) {
  for (const std::string& file : arguments.page_files) {
    sim::LoadedPages loaded = sim::LoadPageFile(file, arguments.page_limits);
    if (!loaded.error.empty()) return loaded.error;
    std::move(loaded.pages.begin(), loaded.pages.end(), std::back_inserter(pages));
  }
  return {};
}

}  // namespace

std::string LoadPaper(SimArguments& arguments) {
  std::vector<sim::PagePtr> pages;
  std::string error = LoadFiles(arguments, pages);
  if (!error.empty()) return error;
  sim::DeviceOptions& device = arguments.device;
  const std::size_t sides = arguments.duplex ? 2 : 1;
  std::size_t sheets = arguments.sheets;
  if (sheets == 0 && (pages.size() > 1 || arguments.duplex)) {
    sheets = std::max<std::size_t>((pages.size() + sides - 1) / sides, 1);
  }
  if (sheets > 0) device.feeder = device.flatbed;
  if (arguments.duplex) device.duplex = 2;
  if (sheets == 0 && !pages.empty()) device.glass = pages.front();
  PageTurn turn(std::move(pages), *device.flatbed);
  for (std::size_t i = 0; i < sheets; ++i) {
    sim::Sheet sheet;
    sheet.front = turn.Next();
    if (arguments.duplex) sheet.back = turn.Next();
    device.sheets.push_back(std::move(sheet));
  }
  return {};
}

}  // namespace vox
