#include "frontends/sane/Options.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <sane/saneopts.h>

#include "tools/vox/Failure.h"

namespace vox::sane {

namespace {

constexpr char kFlatbedName[] = "Flatbed", kFeederName[] = "ADF", kDuplexName[] = "ADF Duplex";
constexpr SANE_Int kUsualResolution = 300;
constexpr SANE_Word kLowestResolution = 75, kHighestResolution = 600;  // where a device names none
constexpr SANE_Word kMostResolution = 19'200;
constexpr double kUsualWidth = 8.5, kUsualHeight = 11.7;  // inches, likewise
constexpr double kMostBed = 1'000;                        // inches
constexpr double kPerMillimetre = 10'000;  // what a SANE_Fixed can tell apart, and less

const SANE_Range kPercent{-100, 100, 1};
const SANE_Range kLevels{0, 255, 1};

const char* NameOf(cli::Mode mode) {
  switch (mode) {
    case cli::Mode::kLineart:
      return SANE_VALUE_SCAN_MODE_LINEART;
    case cli::Mode::kGray:
      return SANE_VALUE_SCAN_MODE_GRAY;
    case cli::Mode::kColor:
      break;
  }
  return SANE_VALUE_SCAN_MODE_COLOR;
}

SANE_Int LongestSize(const std::vector<SANE_String_Const>& names) {
  std::size_t longest = 0;
  for (const char* name : names)
    longest = std::max(longest, name != nullptr ? std::strlen(name) : 0);
  return static_cast<SANE_Int>(longest + 1);
}

cli::Frame BedOf(const tagSCANDEVINFO& unit) {
  cli::Frame bed = cli::BedOf(unit);
  if (!(bed.right > 0 && bed.right <= kMostBed)) bed.right = kUsualWidth;
  if (!(bed.bottom > 0 && bed.bottom <= kMostBed)) bed.bottom = kUsualHeight;
  return bed;
}

SANE_Fixed FixedMillimetres(double inches) {
  return static_cast<SANE_Fixed>(inches * cli::kMillimetresPerInch * (1 << SANE_FIXED_SCALE_SHIFT));
}

// What a person wrote as a decimal number comes cut off to a SANE_Fixed; it is taken for that
// number again, so that 25.4 mm are an inch. The edge of the bed is the bed's.
double Inches(SANE_Fixed value, SANE_Fixed edge, double bed) {
  if (value >= edge) return bed;
  return std::round(SANE_UNFIX(value) * kPerMillimetre) / kPerMillimetre / cli::kMillimetresPerInch;
}

// The resolutions that are the same across and down.
SANE_Range ResolutionsOf(const tagSCANDEVINFO& unit) {
  const auto low = std::max(unit.dwXResMin, unit.dwYResMin);
  const auto high = std::min(unit.dwXResMax, unit.dwYResMax);
  if (low == 0 || low > high || low > kMostResolution)
    return {kLowestResolution, kHighestResolution, 1};
  return {static_cast<SANE_Word>(low),
          static_cast<SANE_Word>(std::min<std::uint32_t>(high, kMostResolution)), 1};
}

}  // namespace

Options::Options(const cli::Abilities& device)
    : device_(device), modes_(cli::ModesOf(device.common)) {
  if (modes_.empty())
    throw cli::Failure(cli::ExitStatus::kCannot, "the device names no mode that it can scan in");
  FindSources();
  FindModes();
  values_.source = sources_.front().source;
  values_.mode = modes_.back();
  Describe();
  DescribeArea();
  UseSource(true);
  UseMode();
  values_.resolution = std::clamp(kUsualResolution, resolutions_.min, resolutions_.max);
}

void Options::FindSources() {
  const bool both_sides = device_.common.dwDuplex != 0;
  for (const tagSCANDEVINFO& unit : device_.units) {
    if (!cli::IsFeeder(unit) && sources_.empty())
      sources_.push_back({Source::kFlatbed, kFlatbedName, unit});
  }
  for (const tagSCANDEVINFO& unit : device_.units) {
    if (!cli::IsFeeder(unit)) continue;
    sources_.push_back({Source::kFeeder, kFeederName, unit});
    if (both_sides) sources_.push_back({Source::kFeederDuplex, kDuplexName, unit});
    break;
  }
  if (sources_.empty()) sources_.push_back({Source::kFlatbed, kFlatbedName, device_.common});
  for (const SourceRow& row : sources_) source_names_.push_back(row.name);
  source_names_.push_back(nullptr);
}

void Options::FindModes() {
  for (const cli::Mode mode : modes_) mode_names_.push_back(NameOf(mode));
  mode_names_.push_back(nullptr);
}

const Options::SourceRow& Options::InUse() const {
  return *std::find_if(sources_.begin(), sources_.end(),
                       [&](const SourceRow& row) { return row.source == values_.source; });
}

void Options::Describe() {
  const auto group = [&](SANE_Int option, const char* name, const char* title, const char* desc) {
    Row(option) = {
        name, title, desc, SANE_TYPE_GROUP, SANE_UNIT_NONE, 0, 0, SANE_CONSTRAINT_NONE, {nullptr}};
  };
  const auto words = [&](SANE_Int option, const char* name, const char* title, const char* desc,
                         SANE_Value_Type type, SANE_Unit unit, const SANE_Range* range) {
    Row(option) = {name,
                   title,
                   desc,
                   type,
                   unit,
                   sizeof(SANE_Word),
                   SANE_CAP_SOFT_SELECT | SANE_CAP_SOFT_DETECT,
                   range != nullptr ? SANE_CONSTRAINT_RANGE : SANE_CONSTRAINT_NONE,
                   {nullptr}};
    Row(option).constraint.range = range;
  };
  const auto texts = [&](SANE_Int option, const char* name, const char* title, const char* desc,
                         const std::vector<SANE_String_Const>& names) {
    Row(option) = {name,
                   title,
                   desc,
                   SANE_TYPE_STRING,
                   SANE_UNIT_NONE,
                   LongestSize(names),
                   SANE_CAP_SOFT_SELECT | SANE_CAP_SOFT_DETECT,
                   SANE_CONSTRAINT_STRING_LIST,
                   {nullptr}};
    Row(option).constraint.string_list = names.data();
  };
  words(kOptCount, "", SANE_TITLE_NUM_OPTIONS, SANE_DESC_NUM_OPTIONS, SANE_TYPE_INT, SANE_UNIT_NONE,
        nullptr);
  Row(kOptCount).cap = SANE_CAP_SOFT_DETECT;
  group(kOptScanGroup, SANE_NAME_STANDARD, SANE_TITLE_STANDARD, SANE_DESC_STANDARD);
  texts(kOptMode, SANE_NAME_SCAN_MODE, SANE_TITLE_SCAN_MODE, SANE_DESC_SCAN_MODE, mode_names_);
  words(kOptResolution, SANE_NAME_SCAN_RESOLUTION, SANE_TITLE_SCAN_RESOLUTION,
        SANE_DESC_SCAN_RESOLUTION, SANE_TYPE_INT, SANE_UNIT_DPI, &resolutions_);
  texts(kOptSource, SANE_NAME_SCAN_SOURCE, SANE_TITLE_SCAN_SOURCE, SANE_DESC_SCAN_SOURCE,
        source_names_);
  words(kOptPreview, SANE_NAME_PREVIEW, SANE_TITLE_PREVIEW, SANE_DESC_PREVIEW, SANE_TYPE_BOOL,
        SANE_UNIT_NONE, nullptr);
  group(kOptAreaGroup, SANE_NAME_GEOMETRY, SANE_TITLE_GEOMETRY, SANE_DESC_GEOMETRY);
  group(kOptToneGroup, SANE_NAME_ENHANCEMENT, SANE_TITLE_ENHANCEMENT, SANE_DESC_ENHANCEMENT);
  words(kOptBrightness, SANE_NAME_BRIGHTNESS, SANE_TITLE_BRIGHTNESS, SANE_DESC_BRIGHTNESS,
        SANE_TYPE_INT, SANE_UNIT_PERCENT, &kPercent);
  words(kOptContrast, SANE_NAME_CONTRAST, SANE_TITLE_CONTRAST, SANE_DESC_CONTRAST, SANE_TYPE_INT,
        SANE_UNIT_PERCENT, &kPercent);
  words(kOptThreshold, SANE_NAME_THRESHOLD, SANE_TITLE_THRESHOLD,
        "The level from which on a grey point becomes white; 0 leaves that to the device.",
        SANE_TYPE_INT, SANE_UNIT_NONE, &kLevels);
}

void Options::DescribeArea() {
  struct AreaRow {
    SANE_Int option;
    const char *name, *title, *desc;
    const SANE_Range* range;
  };
  const AreaRow rows[] = {
      {kOptLeft, SANE_NAME_SCAN_TL_X, SANE_TITLE_SCAN_TL_X, SANE_DESC_SCAN_TL_X, &widths_},
      {kOptTop, SANE_NAME_SCAN_TL_Y, SANE_TITLE_SCAN_TL_Y, SANE_DESC_SCAN_TL_Y, &heights_},
      {kOptRight, SANE_NAME_SCAN_BR_X, SANE_TITLE_SCAN_BR_X, SANE_DESC_SCAN_BR_X, &widths_},
      {kOptBottom, SANE_NAME_SCAN_BR_Y, SANE_TITLE_SCAN_BR_Y, SANE_DESC_SCAN_BR_Y, &heights_},
  };
  for (const AreaRow& row : rows) {
    Row(row.option) = {row.name,
                       row.title,
                       row.desc,
                       SANE_TYPE_FIXED,
                       SANE_UNIT_MM,
                       sizeof(SANE_Word),
                       SANE_CAP_SOFT_SELECT | SANE_CAP_SOFT_DETECT,
                       SANE_CONSTRAINT_RANGE,
                       {nullptr}};
    Row(row.option).constraint.range = row.range;
  }
}

// UseSource takes over the limits of the source in use. What reached to an edge of the bed reaches
// to the new one; all else is brought inside.
void Options::UseSource(bool whole_bed) {
  const cli::Frame bed = BedOf(InUse().unit);
  const SANE_Word was_wide = widths_.max, was_high = heights_.max;
  widths_ = {0, FixedMillimetres(bed.right), 0};
  heights_ = {0, FixedMillimetres(bed.bottom), 0};
  auto& [left, top, right, bottom] = values_.area;
  right = whole_bed || right == was_wide ? widths_.max : std::min(right, widths_.max);
  bottom = whole_bed || bottom == was_high ? heights_.max : std::min(bottom, heights_.max);
  left = std::min(left, widths_.max);
  top = std::min(top, heights_.max);
  resolutions_ = ResolutionsOf(InUse().unit);
  values_.resolution = std::clamp(values_.resolution, resolutions_.min, resolutions_.max);
}

// A threshold is set on grey lines, which the device must be able to scan.
void Options::UseMode() {
  const bool grey = std::find(modes_.begin(), modes_.end(), cli::Mode::kGray) != modes_.end();
  SANE_Int& cap = Row(kOptThreshold).cap;
  if (values_.mode == cli::Mode::kLineart && grey) {
    cap &= ~SANE_CAP_INACTIVE;
  } else {
    cap |= SANE_CAP_INACTIVE;
  }
}

const SANE_Option_Descriptor* Options::Descriptor(SANE_Int option) const {
  if (option < 0 || option >= kOptNumber) return nullptr;
  return &rows_[static_cast<std::size_t>(option)];
}

bool Options::IsActive(SANE_Int option) const {
  const SANE_Option_Descriptor* const row = Descriptor(option);
  return row != nullptr && row->type != SANE_TYPE_GROUP && SANE_OPTION_IS_ACTIVE(row->cap);
}

SANE_Word* Options::Word(SANE_Int option) {
  switch (option) {
    case kOptResolution:
      return &values_.resolution;
    case kOptPreview:
      return &values_.preview;
    case kOptLeft:
    case kOptTop:
    case kOptRight:
    case kOptBottom:
      return &values_.area[static_cast<std::size_t>(option - kOptLeft)];
    case kOptBrightness:
      return &values_.brightness;
    case kOptContrast:
      return &values_.contrast;
    case kOptThreshold:
      return &values_.threshold;
    default:
      return nullptr;
  }
}

SANE_Status Options::Get(SANE_Int option, void* value) const {
  if (!IsActive(option) || value == nullptr) return SANE_STATUS_INVAL;
  if (option == kOptMode || option == kOptSource) {
    const char* const text = option == kOptMode ? NameOf(values_.mode) : InUse().name;
    std::memcpy(value, text, std::strlen(text) + 1);  // the option's size has room for each
    return SANE_STATUS_GOOD;
  }
  const SANE_Word count = kOptNumber;
  const SANE_Word* const word =
      option == kOptCount ? &count : const_cast<Options*>(this)->Word(option);
  std::memcpy(value, word, sizeof *word);
  return SANE_STATUS_GOOD;
}

SANE_Status Options::Set(SANE_Int option, void* value, SANE_Int* info) {
  if (!IsActive(option) || value == nullptr || !SANE_OPTION_IS_SETTABLE(Row(option).cap))
    return SANE_STATUS_INVAL;
  if (Row(option).type == SANE_TYPE_STRING) {
    const auto* const text = static_cast<const char*>(value);
    const std::string name(text, ::strnlen(text, static_cast<std::size_t>(Row(option).size)));
    return option == kOptMode ? SetMode(name, info) : SetSource(name, info);
  }
  SANE_Word wish = 0;
  std::memcpy(&wish, value, sizeof wish);
  return SetWord(option, wish, value, info);
}

SANE_Status Options::SetWord(SANE_Int option, SANE_Word wish, void* value, SANE_Int* info) {
  const SANE_Option_Descriptor& row = Row(option);
  SANE_Word fit = wish;
  if (row.type == SANE_TYPE_BOOL && wish != SANE_FALSE && wish != SANE_TRUE)
    return SANE_STATUS_INVAL;
  if (row.constraint_type == SANE_CONSTRAINT_RANGE)
    fit = std::clamp(wish, row.constraint.range->min, row.constraint.range->max);
  if (fit != wish) {
    *info |= SANE_INFO_INEXACT;
    std::memcpy(value, &fit, sizeof fit);
  }
  SANE_Word& word = *Word(option);
  const bool shapes = option == kOptResolution || (option >= kOptLeft && option <= kOptBottom);
  if (shapes && word != fit) *info |= SANE_INFO_RELOAD_PARAMS;
  word = fit;
  return SANE_STATUS_GOOD;
}

SANE_Status Options::SetMode(const std::string& name, SANE_Int* info) {
  const auto mode = std::find_if(modes_.begin(), modes_.end(),
                                 [&](cli::Mode each) { return name == NameOf(each); });
  if (mode == modes_.end()) return SANE_STATUS_INVAL;
  if (*mode == values_.mode) return SANE_STATUS_GOOD;
  values_.mode = *mode;
  UseMode();
  *info |= SANE_INFO_RELOAD_OPTIONS | SANE_INFO_RELOAD_PARAMS;
  return SANE_STATUS_GOOD;
}

SANE_Status Options::SetSource(const std::string& name, SANE_Int* info) {
  const auto row = std::find_if(sources_.begin(), sources_.end(),
                                [&](const SourceRow& each) { return name == each.name; });
  if (row == sources_.end()) return SANE_STATUS_INVAL;
  if (row->source == values_.source) return SANE_STATUS_GOOD;
  values_.source = row->source;
  UseSource(false);
  *info |= SANE_INFO_RELOAD_OPTIONS | SANE_INFO_RELOAD_PARAMS;
  return SANE_STATUS_GOOD;
}

cli::ScanPlan Options::Plan() const {
  const cli::Frame bed = BedOf(InUse().unit);
  const auto& [left, top, right, bottom] = values_.area;
  if (left >= right || top >= bottom)
    throw cli::Failure(cli::ExitStatus::kCannot, "the area is empty");
  cli::ScanOptions wish;
  wish.mode = values_.mode;
  const auto dpi = static_cast<unsigned>(values_.resolution);
  wish.resolution = cli::Resolution{dpi, dpi};
  const bool whole = left == 0 && top == 0 && right == widths_.max && bottom == heights_.max;
  const cli::Frame said = cli::BedOf(InUse().unit);
  const bool told = said.right == bed.right && said.bottom == bed.bottom;
  if (!whole || !told)
    wish.frame =
        cli::Frame{Inches(left, widths_.max, bed.right), Inches(top, heights_.max, bed.bottom),
                   Inches(right, widths_.max, bed.right), Inches(bottom, heights_.max, bed.bottom)};
  wish.brightness = values_.brightness;
  wish.contrast = values_.contrast;
  if (IsActive(kOptThreshold) && values_.threshold > 0) wish.threshold = values_.threshold;
  wish.duplex = values_.source == Source::kFeederDuplex;
  return cli::PlanScan(wish, {device_.common, {InUse().unit}});
}

}  // namespace vox::sane
