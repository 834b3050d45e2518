#include "vox/drivers/libjbig3/jbigpack.h"

#include <algorithm>
#include <cstring>

namespace vox {
namespace {

// Which entry of CODECCSTR::ContextBuff belongs to a context in raster order. Two lines, raster:
// x-3, x-2, x-1, x, x+1 above; AT; x-4, x-3, x-2, x-1.
constexpr std::array<WORD, kContexts> make_two_line_order() {
  std::array<WORD, kContexts> order{};
  for (unsigned i = 0; i < kContexts; ++i) {
    const unsigned above = (i & 0x200) | (i & 0x1E0) >> 2;
    const unsigned current = (i & 0xC) << 5 | (i & 3);
    order[i] = static_cast<WORD>(above | (i & 0x10) >> 2 | current);
  }
  return order;
}
constexpr std::array<WORD, kContexts> kTwoLineOrder = make_two_line_order();
static_assert(kTwoLineOrder[kTpRaster<2>] == kTpContext);

template <int LINES>
unsigned place(unsigned raster) {
  return LINES == 2 ? kTwoLineOrder[raster] : raster;
}

}  // namespace

template <int LINES>
void cx_load(CXBANK& bank, const WORD* context_buff) {
  const auto* bytes = reinterpret_cast<const BYTE*>(context_buff);
  for (unsigned i = 0; i < kContexts; ++i) {
    const BYTE* entry = bytes + sizeof(CntxTbl) * place<LINES>(i);
    bank.word[i] = JbigWord[(entry[1] << 1 | (entry[0] & 1)) & 0xFF];
  }
}

template <int LINES>
void cx_store(const CXBANK& bank, WORD* context_buff) {
  auto* bytes = reinterpret_cast<BYTE*>(context_buff);
  for (unsigned i = 0; i < kContexts; ++i) {
    BYTE* entry = bytes + sizeof(CntxTbl) * place<LINES>(i);
    entry[0] = bank.word[i] >> 5 & 1;
    entry[1] = bank.word[i] >> 6 & 0x7F;
  }
}

void cx_clear(CXBANK& bank) {
  std::fill_n(bank.word, kContexts, JbigWord[0]);
}

template void cx_load<2>(CXBANK&, const WORD*);
template void cx_load<3>(CXBANK&, const WORD*);
template void cx_store<2>(const CXBANK&, WORD*);
template void cx_store<3>(const CXBANK&, WORD*);

}  // namespace vox
