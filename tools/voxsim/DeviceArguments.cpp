#include "tools/voxsim/DeviceArguments.h"

#include <algorithm>
#include <cstdio>

#include "sim/JobPlan.h"

namespace vox {
namespace {

constexpr std::uint32_t kMostSheets = 10000;
constexpr std::uint32_t kLowestPageDpi = 10;
constexpr std::uint32_t kMostCache = 1 << 20;  // MiB
constexpr std::uint64_t kMebibyte = 1 << 20;

bool ReadImageHeader(const std::string& text, sim::ImageHeader& place) {
  if (text == "data") place = sim::ImageHeader::kInData;
  if (text == "header") place = sim::ImageHeader::kInHeader;
  if (text == "none") place = sim::ImageHeader::kNone;
  return text == "data" || text == "header" || text == "none";
}

void SetReach(const std::vector<std::uint32_t>& range, const std::vector<double>& bed,
              sim::UnitOptions& unit) {
  if (range.size() == 2) {
    unit.x_resolution_min = unit.y_resolution_min = range[0];
    unit.x_resolution_max = unit.y_resolution_max = range[1];
  }
  if (bed.size() == 2) {
    unit.physical_width = static_cast<std::uint32_t>(bed[0] * 10000 + 0.5);
    unit.physical_height = static_cast<std::uint32_t>(bed[1] * 10000 + 0.5);
  }
}

}  // namespace

void DeviceArguments::AddTo(CLI::App& app) {
  AddPaper(app);
  AddCoding(app);
  app.add_option("--fault", faults_, "make something go wrong (docs/virtual-device.md)");
  app.add_option("--cache", cache_, "MiB of coded pages kept for the next request")
      ->check(Between(0, kMostCache));
  app.add_flag("--trace", arguments_.trace, "write what happens to standard error");
}

void DeviceArguments::AddPaper(CLI::App& app) {
  app.add_option("pages", arguments_.page_files,
                 "PNM, PNG or TIFF files; none: a test chart. Several make a feeder");
  app.add_option("--feeder", arguments_.sheets, "so many sheets in the feeder, pages in turn")
      ->check(Between(1, kMostSheets));
  app.add_flag("--duplex", arguments_.duplex, "a duplex feeder: two pages make one sheet");
  app.add_flag("--reload", arguments_.device.reload_feeder, "the sheets are back after each job");
  app.add_flag("--empty", arguments_.device.empty_glass, "nothing lies on the glass");
  app.add_option("--page-dpi", arguments_.page_limits.force_dpi,
                 "resolution of the page files, whatever they say")
      ->check(Between(kLowestPageDpi, sim::kMaxResolution));
  app.add_option("--bed", bed_, "width and height in inches")->expected(2)->delimiter(',');
  app.add_option("--range", range_, "lowest and highest resolution, dpi")
      ->expected(2)
      ->delimiter(',');
}

void DeviceArguments::AddCoding(CLI::App& app) {
  sim::DeviceOptions& device = arguments_.device;
  auto* jbig = app.add_flag("--jbig", device.coding.jbig, "bilevel pages as JBIG blocks (usual)");
  app.add_flag("--raw", raw_lines_, "bilevel pages as raw lines")->excludes(jbig);
  app.add_option("--lines-per-block", device.coding.lines_per_block, "lines of a JBIG block")
      ->check(Between(1, 65535));
  app.add_option("--template", device.coding.line_template, "template lines, 2 or 3")
      ->check(Between(2, 3));
  app.add_flag("--no-typical-prediction", no_typical_prediction_, "JBIG without TPBON");
  app.add_option("--image-header", image_header_,
                 "where a block's image header is: data, header or none");
  app.add_option("--margins", margins_, "left and right cut margin, pixels")
      ->expected(2)
      ->delimiter(',');
  app.add_option("--plane-order", device.plane_order, "order of the colour planes, 0 to 5")
      ->check(Between(0, 5));
  app.add_option("--threshold", device.threshold, "grey that is white on bilevel pages, 1 to 255")
      ->check(Between(1, 255));
}

std::string DeviceArguments::Settle() {
  sim::DeviceOptions& device = arguments_.device;
  if (!image_header_.empty() && !ReadImageHeader(image_header_, device.coding.image_header))
    return "--image-header " + image_header_ + ": choose data, header or none";
  for (const double side : bed_) {
    if (!(side >= 0.1 && side <= 100)) return "--bed: 0.1 to 100 inches";
  }
  for (const std::string& words : faults_) {
    const std::string error = sim::ParseFault(words, device.faults);
    if (!error.empty()) return "--fault: " + error;
  }
  if (margins_.size() == 2) {
    device.left_cut_margin = margins_[0];
    device.right_cut_margin = margins_[1];
  }
  if (raw_lines_) device.coding.jbig = false;
  if (no_typical_prediction_) device.coding.typical_prediction = false;
  device.cache_bytes = cache_ * kMebibyte;
  SetReach(range_, bed_, *device.flatbed);
  sim::DeviceOptions trial = device;
  return sim::SettleOptions(trial);
}

int ReadCommandLine(CLI::App& app, int argc, char** argv,
                    const std::function<std::string()>& settle) {
  const auto complain = [&](std::string line) {
    std::replace(line.begin(), line.end(), '\n', ' ');
    std::fprintf(stderr, "%s: %s\n", app.get_name().c_str(), line.c_str());
    return kUsageError;
  };
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& answer) {
    return app.exit(answer);
  } catch (const CLI::ParseError& error) {
    return complain(std::string(error.what()) + "; see " + app.get_name() + " --help");
  }
  const std::string error = settle();
  return error.empty() ? -1 : complain(error);
}

}  // namespace vox
