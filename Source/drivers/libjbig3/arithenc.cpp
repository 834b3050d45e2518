#include "vox/drivers/libjbig3/arithenc.h"

#include "vox/drivers/libjbig3/rf2jbig.h"

namespace vox {

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
    work->Creg = static_cast<DWORD>(regs.c >> regs.m);
    Byte_out(work);
    regs.c &= (std::uint64_t{1} << (19 + regs.m)) - 1;
  }
}

}  // namespace vox
