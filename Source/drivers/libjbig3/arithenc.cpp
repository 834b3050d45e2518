#include "vox/drivers/libjbig3/arithenc.h"

#include "vox/drivers/libjbig3/rf2jbig.h"

namespace vox {

void ENCODER::load(BYTEW* state) {
  work = state;
  c = state->Creg;
  a = static_cast<DWORD>(state->Areg);
  m = 8 - state->CTreg;
}

void ENCODER::store() {
  emit();
  work->Creg = static_cast<DWORD>(c);
  work->Areg = static_cast<std::int32_t>(a);
  work->CTreg = 8 - m;
}

[[gnu::noinline]] void ENCODER::emit() {
  while (m >= 8) {
    m -= 8;
    work->Creg = static_cast<DWORD>(c >> m);
    Byte_out(work);
    c &= (std::uint64_t{1} << (19 + m)) - 1;
  }
}

}  // namespace vox
