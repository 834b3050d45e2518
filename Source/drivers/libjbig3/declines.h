// Decoding of one line's pixels.
#pragma once

#include "vox/drivers/libjbig3/arithdec.h"

namespace vox {

// dec_line decodes `width` pixels into `dst`, (width + 7) / 8 bytes, under the lines above
// (`above2` is the one two above, three template lines only). tx is the AT offset in use, 0 to 255.
template <int LINES>
void dec_line(DECODER& decoder, BYTE* dst, const BYTE* above, const BYTE* above2, unsigned width,
              unsigned tx);

}  // namespace vox
