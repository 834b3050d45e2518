// Options is the table of a device's options and what a frontend has set in it.
//
//   number  name          type    what it depends on
//   1       (group)
//   2       mode          string  the device's modes
//   3       resolution    dpi     the range of the source in use
//   4       source        string  the device's paper sources
//   5       preview       bool
//   6       (group)
//   7-10    tl-x tl-y br-x br-y   mm, the whole bed of the source in use
//   11      (group)
//   12, 13  brightness, contrast  -100 to 100 percent
//   14      threshold     int     active for black and white; 0 leaves it to the device
//
// Option 0 is their number. The descriptors keep their addresses; what a source changes in them is
// told by SANE_INFO_RELOAD_OPTIONS. Thread rule: one thread at a time.
#pragma once

#include <array>
#include <string>
#include <vector>

#include <sane/sane.h>

#include "tools/vox/Abilities.h"
#include "tools/vox/Request.h"

namespace vox::sane {

enum class Source { kFlatbed, kFeeder, kFeederDuplex };

enum OptionNumber : SANE_Int {
  kOptCount,
  kOptScanGroup,
  kOptMode,
  kOptResolution,
  kOptSource,
  kOptPreview,
  kOptAreaGroup,
  kOptLeft,
  kOptTop,
  kOptRight,
  kOptBottom,
  kOptToneGroup,
  kOptBrightness,
  kOptContrast,
  kOptThreshold,
  kOptNumber,
};

// What a frontend has set. Areas are SANE_Fixed millimetres.
struct Settings {
  cli::Mode mode = cli::Mode::kColor;
  SANE_Int resolution = 0;  // dpi
  Source source = Source::kFlatbed;
  SANE_Bool preview = SANE_FALSE;
  std::array<SANE_Fixed, 4> area{};  // left, top, right, bottom
  SANE_Int brightness = 0, contrast = 0;
  SANE_Int threshold = 0;

  friend bool operator==(const Settings&, const Settings&) = default;
};

class Options {
 public:
  // Throws cli::Failure kCannot for a device that names no mode.
  explicit Options(const cli::Abilities& device);
  Options(const Options&) = delete;
  Options& operator=(const Options&) = delete;

  // Descriptor gives null for a number that there is not.
  const SANE_Option_Descriptor* Descriptor(SANE_Int option) const;
  // Get and Set are sane_control_option's; `info` is not null.
  SANE_Status Get(SANE_Int option, void* value) const;
  SANE_Status Set(SANE_Int option, void* value, SANE_Int* info);

  const Settings& Values() const { return values_; }

  // Plan works the page out that a scan would give now. Throws cli::Failure kCannot for an area
  // without a pixel.
  cli::ScanPlan Plan() const;

 private:
  struct SourceRow {
    Source source;
    const char* name;
    tagSCANDEVINFO unit;
  };

  void FindSources();
  void FindModes();
  void Describe();
  void DescribeArea();
  SANE_Option_Descriptor& Row(SANE_Int option) { return rows_[static_cast<std::size_t>(option)]; }
  void UseSource(bool whole_bed);
  void UseMode();
  const SourceRow& InUse() const;
  SANE_Word* Word(SANE_Int option);
  bool IsActive(SANE_Int option) const;
  SANE_Status SetWord(SANE_Int option, SANE_Word wish, void* value, SANE_Int* info);
  SANE_Status SetMode(const std::string& name, SANE_Int* info);
  SANE_Status SetSource(const std::string& name, SANE_Int* info);

  const cli::Abilities device_;
  std::vector<SourceRow> sources_;
  std::vector<cli::Mode> modes_;
  Settings values_;
  std::vector<SANE_String_Const> source_names_, mode_names_;  // null-terminated
  SANE_Range resolutions_{}, widths_{}, heights_{};
  std::array<SANE_Option_Descriptor, kOptNumber> rows_{};
};

}  // namespace vox::sane
