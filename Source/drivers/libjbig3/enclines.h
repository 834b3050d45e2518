// Encoding of one line's pixels.
#pragma once

#include "vox/drivers/libjbig3/arithenc.h"

namespace vox {

// enc_line encodes the `width` pixels of `src`, (width + 7) / 8 bytes, under the lines above, whose
// bits beyond the width are 0 (`above2` is the one two above, three template lines only). tx is the
// AT offset, 0 to 127.
template <int LINES>
void enc_line(ENCODER& encoder, const BYTE* src, const BYTE* above, const BYTE* above2,
              unsigned width, unsigned tx);

}  // namespace vox
