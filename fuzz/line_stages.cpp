// A page that runs through the rescaling stages equals the plain road line by line, whatever the
// request and the device's block say, on every vector path of the machine, and no stage touches
// anything outside its stated buffers.
#include <cstdlib>
#include <new>

#include "fuzz/LineInput.h"
#include "tests/support/PlainRoad.h"
#include "tests/support/StagedPage.h"
#include "tests/support/VectorPaths.h"
#include "vox/drivers/LineStages.h"

namespace {

constexpr std::uint32_t kDataType[] = {0, 2, 3};
constexpr std::uint16_t kBitsPerPixel[] = {1, 8, 24};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vox;
  LineInput in(data, size);
  tagTWSCANPARAM request{};
  _SCANINFO info{};
  info.DataType = kDataType[in.Number(3)];
  info.Xresolution = in.Number(200);
  info.Yresolution = in.Number(200);
  info.Window.xExtent = in.Number(2000);
  info.Window.yExtent = in.Number(40);
  info.dwLeftCutMargin = in.Number(300);
  info.DitherPattern = in.Number(300);
  request.wBitsPerPixel = kBitsPerPixel[in.Number(3)];
  request.fXResolution = in.Resolution();
  request.fYResolution = in.Resolution();
  request.fRight = static_cast<float>(in.Number(100)) / 8 - 1;
  request.dwImageWidth = in.Number(1000);
  request.dwImageLength = in.Number(40);
  request.dwLineSize = in.Number(2000);
  request.wPlaneOrder = static_cast<std::uint16_t>(in.Number(8));
  try {
    const std::size_t line = line_sizes(request, info).raw;
    std::vector<test::Line> raw;
    for (unsigned n = 0; n < info.Window.yExtent; ++n) raw.push_back(in.Pixels(line, n));
    const auto expected = test::ClientLines(request, info, raw);
    for (const std::int64_t target : test::VectorPath::All()) {
      const test::VectorPath path(target);
      if (test::StagedLines(request, info, raw) != expected) std::abort();
    }
  } catch (const std::bad_alloc&) {
    // A page that the stages refuse: a frame of negative width is as wide as no paper.
  }
  return 0;
}
