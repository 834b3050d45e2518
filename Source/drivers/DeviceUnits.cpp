#include "vox/drivers/DeviceUnits.h"

#include <algorithm>

namespace vox {
namespace {

constexpr std::uint32_t kGreatestMargin = 4'000;  // 1/10000 inch

// The records are packed: their fields are taken by value.
std::uint32_t smaller(std::uint32_t a, std::uint32_t b) {
  return std::min(a, b);
}
std::uint32_t larger(std::uint32_t a, std::uint32_t b) {
  return std::max(a, b);
}

void merge_resolutions(tagSCANDEVINFO* out, const tagSCANDEVINFO& second) {
  out->dwXResMinCmn = larger(out->dwXResMin, second.dwXResMin);
  out->dwYResMinCmn = larger(out->dwYResMin, second.dwYResMin);
  out->dwXResMaxCmn = smaller(out->dwXResMax, second.dwXResMax);
  out->dwYResMaxCmn = smaller(out->dwYResMax, second.dwYResMax);
  out->dwXResMin = smaller(out->dwXResMin, second.dwXResMin);
  out->dwYResMin = smaller(out->dwYResMin, second.dwYResMin);
  out->dwXResMax = larger(out->dwXResMax, second.dwXResMax);
  out->dwYResMax = larger(out->dwYResMax, second.dwYResMax);
  for (int i = 0; i < 2; ++i) {
    out->dwXResPre[i] = smaller(out->dwXResPre[i], second.dwXResPre[i]);
    out->dwYResPre[i] = smaller(out->dwYResPre[i], second.dwYResPre[i]);
  }
}

}  // namespace

std::uint8_t paper_source_of(std::uint32_t dwUnitType) {
  if (dwUnitType == kUnitFeeder) return kPaperSourceFeeder;
  return dwUnitType == kUnitFlatbed ? kPaperSourceFlatbed : 0;
}

std::uint8_t image_type_bit(std::uint32_t dwFormat) {
  switch (dwFormat) {
    case 1:
      return 0x01;
    case 22:
      return 0x02;
    case 61:
      return 0x04;
    default:
      return 0;
  }
}

void set_regular_margin(tagSCANDEVINFO* unit, MARGIN_SIDE side, std::uint32_t dwMargin) {
  if (dwMargin > kGreatestMargin) dwMargin = 0;
  if (side == MARGIN_LEFT) unit->dwRegularLeftMargin = dwMargin;
  if (side == MARGIN_TOP) unit->dwRegularTopMargin = dwMargin;
  if (side == MARGIN_RIGHT) unit->dwRegularRightMargin = dwMargin;
  if (side == MARGIN_BOTTOM) unit->dwRegularBottomMargin = dwMargin;
  if (dwMargin != 0) unit->bySmallPaperSizeType |= side;
}

tagSCANDEVINFO merge_units(const tagSCANDEVINFO* units, std::uint32_t count) {
  tagSCANDEVINFO out = units[0];
  if (count < 2) return out;
  const tagSCANDEVINFO& second = units[1];
  out.byPaperSources |= second.byPaperSources;
  out.byAdfPaper = out.byAdfPaper != 0 || second.byAdfPaper != 0;
  merge_resolutions(&out, second);
  out.dwPhysicalWidth = smaller(out.dwPhysicalWidth, second.dwPhysicalWidth);
  out.dwPhysicalHeight = smaller(second.dwPhysicalHeight, out.dwPhysicalWidth);
  return out;
}

}  // namespace vox
