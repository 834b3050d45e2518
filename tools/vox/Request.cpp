#include "tools/vox/Request.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

constexpr unsigned kUsualResolution = 300;
constexpr unsigned kUsualPreview = 75;
constexpr float kUsualThreshold = 128;

// Text of an area, for people.
std::string InMillimetres(double width, double height) {
  char text[64];
  std::snprintf(text, sizeof text, "%.1f x %.1f mm", width * kMillimetresPerInch,
                height * kMillimetresPerInch);
  return text;
}

Mode ChooseMode(const ScanOptions& options, const tagSCANDEVINFO& device) {
  const std::vector<Mode> modes = ModesOf(device);
  if (modes.empty())
    throw Failure(ExitStatus::kCannot, "the device names no mode that it can scan in");
  if (!options.mode) return modes.back();
  const bool from_gray = options.threshold || options.halftone;
  const Mode wanted = from_gray ? Mode::kGray : *options.mode;
  if (std::find(modes.begin(), modes.end(), wanted) != modes.end()) return *options.mode;
  std::string line = std::string("the device cannot scan in ") + ModeName(wanted) + "; it can in";
  for (const Mode mode : modes) line += std::string(" ") + ModeName(mode);
  throw Failure(ExitStatus::kCannot, line);
}

unsigned Clamp(unsigned value, std::uint32_t low, std::uint32_t high) {
  return low > 0 && low <= high ? std::clamp<unsigned>(value, low, high) : value;
}

Resolution UsualResolution(const ScanOptions& options, const tagSCANDEVINFO& device) {
  if (!options.preview)
    return {Clamp(kUsualResolution, device.dwXResMin, device.dwXResMax),
            Clamp(kUsualResolution, device.dwYResMin, device.dwYResMax)};
  const std::uint32_t x = device.dwXResPre[0], y = device.dwYResPre[0];
  return {x != 0 ? x : kUsualPreview, y != 0 ? y : kUsualPreview};
}

Resolution ChooseResolution(const ScanOptions& options, const tagSCANDEVINFO& device,
                            std::vector<std::string>& notes) {
  Resolution wish = options.resolution.value_or(UsualResolution(options, device));
  if (Clamp(wish.x, device.dwXResMin, device.dwXResMax) != wish.x) return wish;
  const unsigned y = Clamp(wish.y, device.dwYResMin, device.dwYResMax);
  if (y != wish.y)
    notes.push_back("the device scans " + std::to_string(y) + " lines an inch, not " +
                    std::to_string(wish.y) + ": the page will be " + std::to_string(wish.x) + "x" +
                    std::to_string(y) + " dpi");
  return {wish.x, y};
}

Frame ChooseFrame(const ScanOptions& options, const Frame& bed, std::vector<std::string>& notes) {
  if (bed.Width() <= 0 || bed.Height() <= 0) {
    if (options.frame) return *options.frame;
    throw Failure(ExitStatus::kCannot,
                  "the device does not say how large its bed is; name an area with --paper");
  }
  if (!options.frame) return bed;
  Frame frame = *options.frame;
  if (frame.left >= bed.right || frame.top >= bed.bottom)
    throw Failure(ExitStatus::kCannot,
                  "the area lies beside the bed, which is " + InMillimetres(bed.right, bed.bottom));
  frame.right = std::min(frame.right, bed.right);
  frame.bottom = std::min(frame.bottom, bed.bottom);
  // Half a millimetre is what rounding and a bed's tolerance may cost.
  constexpr double kTolerance = 0.5 / kMillimetresPerInch;
  if (frame.right + kTolerance < options.frame->right ||
      frame.bottom + kTolerance < options.frame->bottom)
    notes.push_back("the area reaches beyond the bed: " +
                    InMillimetres(frame.Width(), frame.Height()) + " of it are scanned");
  return frame;
}

// As the library counts pixels: in single precision, half a pixel up.
std::uint32_t Pixels(float from, float to, unsigned dpi) {
  return static_cast<std::uint32_t>((to - from) * static_cast<float>(dpi) + 0.5F);
}

// WholeBytes gives the width of a black-and-white page: a multiple of eight, `room` at most.
std::uint32_t WholeBytes(std::uint32_t width, std::uint32_t room) {
  const std::uint32_t up = (width + 7) / 8 * 8;
  return up <= room ? up : width / 8 * 8;
}

void SetDepth(tagTWSCANPARAM& request, unsigned bits) {
  request.wPixelType = bits == 1 ? 0 : bits == 8 ? 1 : 2;
  request.wBitsPerPixel = static_cast<std::uint16_t>(bits);
  request.wSamplesPerPixel = bits == 24 ? 3 : 1;
  const std::uint16_t each = bits == 1 ? 1 : 8;
  std::fill_n(request.wBitsPerSample, request.wSamplesPerPixel, each);
}

void SetArea(ScanPlan& plan, const Frame& bed, Resolution dpi) {
  tagTWSCANPARAM& request = plan.request;
  request.fXResolution = static_cast<float>(dpi.x);
  request.fYResolution = static_cast<float>(dpi.y);
  request.fLeft = static_cast<float>(plan.frame.left);
  request.fTop = static_cast<float>(plan.frame.top);
  request.fRight = static_cast<float>(plan.frame.right);
  request.fBottom = static_cast<float>(plan.frame.bottom);
  std::uint32_t width = Pixels(request.fLeft, request.fRight, dpi.x);
  const std::uint32_t height = Pixels(request.fTop, request.fBottom, dpi.y);
  if (request.wBitsPerPixel == 1) {
    const float end = static_cast<float>(std::max(bed.right, plan.frame.right));
    width = WholeBytes(width, Pixels(request.fLeft, end, dpi.x));
    plan.frame.right = plan.frame.left + static_cast<double>(width) / dpi.x;
    request.fRight = static_cast<float>(plan.frame.right);
  }
  if (width == 0 || height == 0)
    throw Failure(ExitStatus::kCannot, "at this resolution the area holds no pixel; ask for more");
  request.dwImageWidth = width;
  request.dwImageLength = height;
  request.dwLineSize = (width * std::uint32_t{request.wBitsPerPixel} + 7) / 8;
}

void SetTone(tagTWSCANPARAM& request, const ScanOptions& options) {
  request.fBrightness = static_cast<float>(options.brightness);
  request.fContrast = static_cast<float>(options.contrast);
  request.fGamma = 1.0F;
  request.fThreshold = options.threshold ? static_cast<float>(*options.threshold) : kUsualThreshold;
  request.wBitDepthReduction = options.halftone ? 1 : 0;
}

std::uint32_t ChooseDuplex(const ScanOptions& options, const tagSCANDEVINFO& device) {
  if (!options.duplex) return 0;
  if (device.dwDuplex == 0)
    throw Failure(ExitStatus::kCannot, "the device cannot scan both sides; leave --duplex out");
  return device.dwDuplex;
}

}  // namespace

ScanPlan PlanScan(const ScanOptions& options, const Abilities& abilities) {
  const tagSCANDEVINFO& device = abilities.common;
  const Frame bed = BedOf(abilities.InUse());
  ScanPlan plan;
  plan.mode = ChooseMode(options, device);
  if (options.threshold) plan.reduction = Reduction::kThreshold;
  if (options.halftone) plan.reduction = Reduction::kHalftone;
  plan.threshold = options.threshold.value_or(0);
  const unsigned written = plan.mode == Mode::kLineart ? 1 : plan.mode == Mode::kGray ? 8 : 24;
  SetDepth(plan.request, plan.reduction == Reduction::kNone ? written : 8);
  const Resolution dpi = ChooseResolution(options, device, plan.notes);
  plan.frame = ChooseFrame(options, bed, plan.notes);
  SetArea(plan, bed, dpi);
  SetTone(plan.request, options);
  plan.request.fPhysicalWidth = static_cast<float>(bed.Width());
  plan.request.fPhysicalHeight = static_cast<float>(bed.Height());
  plan.request.wIsUserDefineSize = options.frame && !options.paper ? 1 : 0;
  plan.request.dwDuplex = ChooseDuplex(options, device);
  plan.page = {plan.request.dwImageWidth, plan.request.dwImageLength, written,
               static_cast<double>(dpi.x), static_cast<double>(dpi.y)};
  return plan;
}

}  // namespace vox::cli
