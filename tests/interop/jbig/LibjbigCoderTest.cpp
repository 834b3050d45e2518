// The arithmetic coder beside libjbig's, one row of the probability table after the other.
#include <random>

#include <gtest/gtest.h>

#include "tests/interop/jbig/LibjbigPeer.h"
#include "vox/drivers/libjbig3/arithenc.h"
#include "vox/drivers/libjbig3/jbigtbl.h"
#include "vox/drivers/libjbig3/rf2jbig.h"

namespace vox::test {
namespace {

// What our coder writes for the pixels, all in one context that starts in the given state.
Bytes OurCode(int state, int mps, std::span<const int> pixels) {
  CodecBlock block(JbigShape{8, 1, 1});
  Bytes out(1000);
  BYTEW& work = block.codec.work.bytew;
  work.codecstr = &block.codec;
  work.fillorder = 1;
  work.c_addr = out.data();
  work.c_rsize = static_cast<DWORD>(out.size());
  init_jbig_c(&work);
  auto* contexts = reinterpret_cast<BYTE*>(block.codec.ContextBuff);
  contexts[0] = static_cast<BYTE>(mps);
  contexts[1] = static_cast<BYTE>(state);
  ENCODER encoder;
  encoder.load(&work);
  encoder.load_contexts<3>(block.codec.ContextBuff);
  for (const int pixel : pixels) encoder.regs.code(encoder, static_cast<DWORD>(pixel));
  encoder.store();
  Flush(&work);
  out.resize(out.size() - work.c_rsize);
  return out;
}

// Pixels that lead out of a state: by its less probable pixel at once, or by as many more probable
// ones as its Qe takes; then pixels that tell the states that follow.
std::vector<int> PixelsFrom(int state, int mps, bool more_probable) {
  const int run = more_probable ? 0x8000 / JbigTbl[static_cast<std::size_t>(state)].LSZ + 1 : 0;
  std::vector<int> pixels(static_cast<std::size_t>(run), mps);
  pixels.push_back(1 - mps);
  std::minstd_rand random(static_cast<unsigned>(state) + 1);
  for (int i = 0; i < 100; ++i) pixels.push_back((random() >> 8) % 3 == 0 ? 1 - mps : mps);
  return pixels;
}

TEST(LibjbigCoder, GoesThroughEveryStateAlike) {
  for (int state = 0; state < kJbigStates; ++state)
    for (const int mps : {0, 1})
      for (const bool more_probable : {false, true}) {
        const std::vector<int> pixels = PixelsFrom(state, mps, more_probable);
        EXPECT_EQ(OurCode(state, mps, pixels), PeerCode(state, mps, pixels))
            << "state " << state << ", mps " << mps << ", by the "
            << (more_probable ? "more" : "less") << " probable pixel";
      }
}

}  // namespace
}  // namespace vox::test
