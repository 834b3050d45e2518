// The decoder and the oracle agree on any data: status, lines, registers, contexts and reference
// lines, in whatever pieces the data come and whatever image buffers are given.
//
// Input: 7 bytes of parameters, then coded data.
#include <cstdio>
#include <cstdlib>

#include "tests/support/JbigCompare.h"

using namespace vox::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 7) return 0;
  const unsigned options = data[0];
  JbigShape shape;
  shape.lines = (options & 1) ? 2 : 3;
  shape.tp = options & 2;
  shape.vlength = options & 4;
  shape.msb_first = !(options & 8);
  shape.width = data[1] + (options & 0x10 ? 256u : 0);
  shape.height = data[2] % 64u;
  shape.strip = (options & 0x20) ? 0xFFFFFFFF : data[3];
  const Sizes buffers = RandomSizes(1 + data[4] % 70u, data[6]);
  const Sizes pieces = data[5] == 0 ? Sizes{} : RandomSizes(data[5], data[6] + 1u);
  const std::string difference = CompareWithOracle(shape, {data + 7, size - 7}, buffers, pieces);
  if (!difference.empty()) {
    std::fprintf(stderr, "%s\n", difference.c_str());
    std::abort();
  }
  return 0;
}
