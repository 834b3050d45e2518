// The line kernels make the same bytes as the plain formulas for whatever widths and pixels, and
// touch nothing outside buffers of the stated sizes.
#include <cstdlib>
#include <memory>

#include "fuzz/LineInput.h"
#include "tests/support/PlainKernels.h"
#include "vox/drivers/LineKernels.h"

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

  const Line wide = Made(scaled, [&](auto* out) { ExpandWidth(out, src.data(), to, from, ps); });
  Require(wide == test::PlainExpandWidth(src, to, from, ps));
  const Line narrow = Made(scaled, [&](auto* out) { ReduceWidth(out, src.data(), to, from, ps); });
  Require(narrow == test::PlainReduceWidth(src, to, from, ps));
  const Line bits = Made((bytes + 7) / 8,
                         [&](auto* out) { BitReduceMonoLine(out, src.data(), bytes, threshold); });
  Require(bits == test::PlainBitReduced(src, bytes, threshold));
  const Line blend =
      Made(bytes, [&](auto* out) { GradeLine(out, src.data(), upper.data(), bytes, f); });
  Require(blend == test::PlainGradeLine(src, upper, f));
  return 0;
}
