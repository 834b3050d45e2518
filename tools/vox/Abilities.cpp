#include "tools/vox/Abilities.h"

namespace vox::cli {

namespace {

constexpr double kUnitsPerInch = 10000.0;  // of physical sizes

}  // namespace

const char* ModeName(Mode mode) {
  switch (mode) {
    case Mode::kLineart:
      return "lineart";
    case Mode::kGray:
      return "gray";
    case Mode::kColor:
      break;
  }
  return "color";
}

const tagSCANDEVINFO& Abilities::InUse() const {
  for (const tagSCANDEVINFO& unit : units) {
    if (IsFeeder(unit) && unit.byAdfPaper != 0) return unit;
  }
  for (const tagSCANDEVINFO& unit : units) {
    if (!IsFeeder(unit)) return unit;
  }
  return units.empty() ? common : units.front();
}

bool IsFeeder(const tagSCANDEVINFO& unit) {
  return unit.byPaperSources == 2;
}

std::vector<Mode> ModesOf(const tagSCANDEVINFO& device) {
  std::vector<Mode> modes;
  if (device.byImageTypes & 0x01) modes.push_back(Mode::kLineart);
  if (device.byImageTypes & 0x02) modes.push_back(Mode::kGray);
  if (device.byImageTypes & 0x04) modes.push_back(Mode::kColor);
  return modes;
}

Frame BedOf(const tagSCANDEVINFO& unit) {
  return {0, 0, unit.dwPhysicalWidth / kUnitsPerInch, unit.dwPhysicalHeight / kUnitsPerInch};
}

}  // namespace vox::cli
