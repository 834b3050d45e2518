// What is encoded decodes to the same lines, whatever the image and the coding; and the bytes are
// those of a plain encoder, however the lines come in and the output buffers are cut.
//
// Input: 6 bytes of parameters, then the picture's bits.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tests/support/PlainJbigEncoder.h"

using namespace vox::test;

namespace {

// The picture of that width whose bits are the data, zeros beyond the width.
Picture PictureOf(unsigned width, const std::uint8_t* data, std::size_t size) {
  const std::size_t bytes = (width + 7) / 8;
  Picture picture(width, static_cast<unsigned>(std::min<std::size_t>(size / bytes, 200)));
  std::copy_n(data, picture.bits.size(), picture.bits.begin());
  if (width % 8 != 0)
    for (unsigned y = 0; y < picture.height; ++y)
      picture.Line(y)[bytes - 1] &= static_cast<std::uint8_t>(0xFF00 >> width % 8);
  return picture;
}

void Demand(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 7) return 0;
  const unsigned options = data[0];
  const Picture picture = PictureOf(1 + data[1] + (options & 0x10 ? 256u : 0), data + 6, size - 6);
  JbigShape shape{picture.width, picture.height, 1u + data[2], (options & 1) ? 2 : 3};
  shape.tp = options & 2;
  shape.vlength = options & 4;
  shape.msb_first = !(options & 8);
  shape.tx = data[3] & 0x7F;
  const Bytes whole = Encode(picture, shape);
  const EncodeHow cut{RandomSizes(1 + data[4] % 40u, data[5]), RandomSizes(60, data[5] + 1u)};
  Demand(whole == PlainEncode(picture, shape), "the plain encoder's bytes");
  Demand(Encode(picture, shape, cut) == whole, "cuts do not show");
  Decoding decoding(shape, std::span(whole).subspan(20));
  Demand(picture.height == 0 || decoding.Run(Always(picture.height)) == 192, "decoding ends");
  Demand(decoding.Lines() == picture.bits, "the lines come back");
  Demand(decoding.Callbacks() == 0, "a complete image never asks for more");
  return 0;
}
