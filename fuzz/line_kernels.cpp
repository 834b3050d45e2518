// The line kernels make the same bytes as the plain formulas for whatever widths and pixels, on
// every vector path of the machine, and touch nothing outside buffers of the stated sizes.
#include <cstdlib>
#include <memory>

#include "fuzz/LineInput.h"
#include "tests/support/PlainKernels.h"
#include "tests/support/VectorPaths.h"
#include "vox/drivers/LineKernels.h"
#include "vox/drivers/WidthScaler.h"

namespace {

using vox::test::Line;

void Require(bool holds) {
  if (!holds) std::abort();
}

// Made is what a kernel leaves in a heap block of exactly `size` bytes.
template <class Kernel>
Line Made(std::size_t size, const Kernel& kernel) {
  const std::unique_ptr<unsigned char[]> out(new unsigned char[size]());
  kernel(out.get());
  return Line(out.get(), out.get() + size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vox;
  LineInput in(data, size);
  const unsigned from = in.Number(3000), to = in.Number(3000), ps = 1 + in.Number(3);
  const unsigned threshold = in.Number(300);
  const float f = static_cast<float>(in.Number(1001)) / 1000;
  const Line src = in.Pixels(std::size_t{from} * ps), upper = in.Pixels(src.size(), 3);
  const auto bytes = static_cast<unsigned>(src.size());
  const std::size_t scaled = std::size_t{to} * ps;

  const Line plain_wide = test::PlainExpandWidth(src, to, from, ps);
  const Line plain_narrow = test::PlainReduceWidth(src, to, from, ps);
  const Line plain_bits = test::PlainBitReduced(src, bytes, threshold);
  const Line plain_blend = test::PlainGradeLine(src, upper, f);

  const Line wide = Made(scaled, [&](auto* out) { ExpandWidth(out, src.data(), to, from, ps); });
  Require(wide == plain_wide);
  const Line narrow = Made(scaled, [&](auto* out) { ReduceWidth(out, src.data(), to, from, ps); });
  Require(narrow == plain_narrow);
  const auto expand = WidthScaler::expand(to, from, ps), reduce = WidthScaler::reduce(to, from, ps);
  for (const std::int64_t target : test::VectorPath::All()) {
    const test::VectorPath path(target);
    Require(Made(scaled, [&](auto* out) { expand.run(out, src.data()); }) == plain_wide);
    Require(Made(scaled, [&](auto* out) { reduce.run(out, src.data()); }) == plain_narrow);
    Require(Made((bytes + 7) / 8, [&](auto* out) {
              BitReduceMonoLine(out, src.data(), bytes, threshold);
            }) == plain_bits);
    Require(Made(bytes, [&](auto* out) { GradeLine(out, src.data(), upper.data(), bytes, f); }) ==
            plain_blend);
  }
  return 0;
}
