// The arithmetic of the line pipeline, one line a call. All of it is in single precision, one
// rounding an operation, so that every machine makes the same bytes (contraction is off, see
// cmake/).
//
// Shapes:  widths are in pixels, ps is bytes of a pixel. Nothing is read or written outside the
//          sizes that stand at each function, whatever the widths are.
// Aliases: source and destination do not overlap.
// Errors:  none; no memory is asked for.
// Thread:  pure functions.
#pragma once

#include "vox/platform/Export.h"

namespace vox {

// ExpandWidth enlarges one line: the first and the last pixel are copied, each other one is blended
// from the two source pixels around its place.
// Shapes:  src[0, srcW * ps) in; dst[0, dstW * ps) out; nothing is written when a width or ps is 0.
// A page's lines are better scaled by one WidthScaler, which works the places out once.
VOX_EXPORT void ExpandWidth(unsigned char* dst, const unsigned char* src, unsigned dstW,
                            unsigned srcW, unsigned ps) noexcept;

// ReduceWidth shrinks one line: each pixel is the weighted mean of the source pixels around its
// place. A span without a positive weight gives its last source pixel as it is.
// Shapes: as ExpandWidth.
VOX_EXPORT void ReduceWidth(unsigned char* dst, const unsigned char* src, unsigned dstW,
                            unsigned srcW, unsigned ps) noexcept;

// BitReduceMonoLine packs grey pixels into bits, the first pixel in the highest: a bit is 1 (white)
// when its byte is at or above the threshold, for which 0 stands for 170. The bits after the last
// pixel are 0.
// Shapes:  src[0, width) in; dst[0, (width + 7) / 8) out.
VOX_EXPORT void BitReduceMonoLine(unsigned char* dst, const unsigned char* src, unsigned width,
                                  unsigned threshold) noexcept;

// GradeLine blends two lines: lower * (1 - f) + upper * f, rounded. f is cut to 0..1; what is no
// number counts as 0.
// Shapes:  lower[0, n), upper[0, n) in; dst[0, n) out.
VOX_EXPORT void GradeLine(unsigned char* dst, const unsigned char* lower,
                          const unsigned char* upper, unsigned n, float f) noexcept;

}  // namespace vox
