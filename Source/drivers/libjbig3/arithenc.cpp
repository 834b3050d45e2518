#include "vox/drivers/libjbig3/arithenc.h"

#include <cstring>

#include "vox/drivers/libjbig3/jbigtbl.h"
#include "vox/drivers/libjbig3/rf2jbig.h"

namespace vox {
namespace {

// What Byte_out does with most bytes: the one before goes out, with the carry, and `top` waits for
// the next. Returns false, with nothing done, where 0x00 or 0xFF bytes or a full buffer are met.
bool pass_on(BYTEW* work, DWORD top) {
  const auto byte = static_cast<BYTE>(work->Breg + (top >> 8));
  if (top == 0xFF || byte == 0 || byte == 0xFF || work->c_rsize == 0) return false;
  if ((work->First | work->Zeros | static_cast<DWORD>(work->SCreg)) != 0) return false;
  *work->c_addr++ = work->fillorder ? byte : LSBMSB[byte];
  --work->c_rsize;
  work->Breg = static_cast<BYTE>(top);
  return true;
}

}  // namespace

void ENCODER::load(BYTEW* state) {
  work = state;
  regs.c = state->Creg;
  regs.a = static_cast<DWORD>(state->Areg);
  regs.m = 8 - state->CTreg;
}

void ENCODER::store() {
  emit();
  work->Creg = static_cast<DWORD>(regs.c);
  work->Areg = static_cast<std::int32_t>(regs.a);
  work->CTreg = 8 - regs.m;
}

[[gnu::noinline]] void ENCODER::emit() {
  while (regs.m >= 8) {
    regs.m -= 8;
    const auto code = static_cast<DWORD>(regs.c >> regs.m);
    if (!pass_on(work, code >> 19)) {
      work->Creg = code;
      Byte_out(work);
    }
    regs.c &= (std::uint64_t{1} << (19 + regs.m)) - 1;
  }
}

template <int LINES>
void ENCODER::load_contexts(const WORD* context_buff) {
  CXBANK bank;
  cx_load<LINES>(bank, context_buff);
  for (DWORD i = 0; i < kContexts; ++i) {
    const ENCPAIR pair = enc_pair(bank.word[i]);
    std::memcpy(word + 2 * i, &pair, sizeof pair);
  }
}

template <int LINES>
void ENCODER::store_contexts(WORD* context_buff) const {
  CXBANK bank;
  for (DWORD i = 0; i < kContexts; ++i) bank.word[i] = word[2 * i];  // state and mps are in both
  cx_store<LINES>(bank, context_buff);
}

template void ENCODER::load_contexts<2>(const WORD*);
template void ENCODER::load_contexts<3>(const WORD*);
template void ENCODER::store_contexts<2>(WORD*) const;
template void ENCODER::store_contexts<3>(WORD*) const;

}  // namespace vox
