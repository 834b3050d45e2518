// Bi-level lines as lists of change points ("henkaten", the changing elements of ITU-T
// T.4 4.2.1.3.1 as absolute positions), for clients of the library; the codec itself works on
// packed lines.
//
// A list is an array of 16-bit pixel positions, counted from 1, none below the one before it. The
// first is the start of the line, 1; the runs between neighbours are 0 bits, 1 bits, 0 bits and so
// on, where a run may be empty. A line of w pixels is closed by w + 1, w + 1, w + 2, w + 2, each
// modulo 65536, and its list has at most w + 5 entries. The first entry of w + 1 or more is the end
// mark. A packed line of w pixels takes (w + 7) / 8 bytes, the leftmost pixel in the top bit.
//
// Widths count modulo 65536 where a list is made or read. A line of 65535 pixels has an end mark of
// 0, which every entry reaches: henkaten_to_raw makes it white.
//
// Owner: the caller owns all arrays. Nothing is allocated and nothing is thrown.
// Thread: no state; any thread, as long as no two use one array that one of them writes.
#pragma once

#include "vox/drivers/libjbig3/codec32s.h"
#include "vox/platform/Export.h"

namespace vox {

// henkaten_init writes the list of a white line of `width` pixels: 5 entries. Null is left alone.
VOX_EXPORT void henkaten_init(WORD* curp, unsigned int width);

// henkaten_copy copies the entries before the end mark of a line of `width` pixels, then closes the
// list, whatever closed the old one. Of a list without an end mark it copies width + 1 entries, so
// that the copy has width + 5 at most. The two arrays are the same or apart. Null leaves dstp.
VOX_EXPORT void henkaten_copy(WORD* dstp, const WORD* srcp, unsigned int width);

// raw_to_henkaten does nothing and leaves curp: packed lines are not made into lists here.
VOX_EXPORT void raw_to_henkaten(const BYTE* imgp, WORD* curp, unsigned int i_width);

// henkaten_to_raw writes the packed line of d_width pixels for the list of a line of s_width
// pixels. With d_width other than s_width, position p becomes p * ratio / 65536, where ratio is
// d_width * 65536 / s_width, both truncated. Bits beyond d_width in the last byte are 0, and
// nothing outside (d_width + 7) / 8 bytes is touched whatever the list says:
// - a 1 run counts from the first entry and is cut to the line;
// - an entry below the one before it ends a run that has no pixels, and the next run starts there;
// - at most s_width + 5 entries are read.
// With err_chk such a list is refused as soon as that shows: at a 1 run that ends beyond d_width,
// an entry below the one before it, or no end mark. The bits set until then stay.
// Returns: 0; 1 when err_chk refuses the list, and when a pointer is null, which touches nothing.
VOX_EXPORT int henkaten_to_raw(BYTE* d_addr, const WORD* curp, unsigned int s_width,
                               unsigned int d_width, int err_chk);

}  // namespace vox
