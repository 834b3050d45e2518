#include "vox/drivers/libjbig3/arithdec.h"

#include <algorithm>
#include <cstring>

#include "vox/drivers/libjbig3/jbig2rf.h"
#include "vox/drivers/libjbig3/jbigmark.h"
#include "vox/drivers/libjbig3/jbigtbl.h"
#include "vox/drivers/libjbig3/reflines.h"

namespace vox {
namespace {

// Eight bytes, the first one uppermost.
std::uint64_t load_be64(const BYTE* p) {
  std::uint64_t value = 0;
  std::memcpy(&value, p, sizeof value);
  if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap64(value);
  return value;
}

std::uint64_t reverse_in_bytes(std::uint64_t v) {
  v = (v >> 1 & 0x5555555555555555) | (v & 0x5555555555555555) << 1;
  v = (v >> 2 & 0x3333333333333333) | (v & 0x3333333333333333) << 2;
  return (v >> 4 & 0x0F0F0F0F0F0F0F0F) | (v & 0x0F0F0F0F0F0F0F0F) << 4;
}

// True when no byte is 0xFF (which is its own reversal); false is no certain "yes".
bool free_of_markers(std::uint64_t v) {
  const std::uint64_t zeros = ~v;
  return ((zeros - 0x0101010101010101) & v & 0x8080808080808080) == 0;
}

bool may_read_ahead(const BYTEW* work) {
  return !(work->Sdnm | work->Fend | work->nlsd);
}

void advance(BYTEW* work, int bytes) {
  work->c_addr += bytes;
  work->c_rsize -= static_cast<DWORD>(bytes);
}

BYTE in_order(const BYTEW* work, BYTE byte) {
  return work->fillorder ? byte : LSBMSB[byte];
}

}  // namespace

void init_jbig_d(BYTEW* work) {
  if (work->Sdrst) {
    start_afresh(work->codecstr);
    work->Yat = 0;
    work->Lntpc = 1;
    work->Atm2 = work->Atmf = work->Atm = work->Sdrst = 0;
  }
  work->Sdnm = work->Error = 0;
  work->Creg = 0;
  work->CTreg = 0;
  for (int shift = 24; shift > 0; shift -= 8) {
    Byte_in(work);
    work->Creg |= DWORD{work->Breg} << shift;
  }
  work->CTreg = 8;
  work->Areg = 0x10000;
  work->Stripc = 0;
}

void DECODER::load(BYTEW* state) {
  work = state;
  regs.c = std::uint64_t{state->Creg} << 32;
  regs.a = static_cast<DWORD>(state->Areg);
  regs.nb = state->CTreg;
  regs.set_threshold();
  ahead = 0;
}

void DECODER::store() {
  const int unread = std::min(regs.nb / 8, ahead);
  const int ct = regs.nb - 8 * unread;
  advance(work, -unread);
  if (ahead > unread) work->Breg = in_order(work, work->c_addr[-1]);
  work->Creg = static_cast<DWORD>(regs.c >> (48 - ct) << (16 - ct));
  work->Areg = static_cast<std::int32_t>(regs.a);
  work->CTreg = ct;
  load(work);
}

// The bytes that are due come through Byte_in; then as many plain ones as there is room for.
[[gnu::noinline]] void DECODER::refill() {
  if (may_read_ahead(work) && work->c_rsize >= 8) {
    const std::uint64_t bytes = load_be64(work->c_addr);
    if (free_of_markers(bytes)) {
      take_eight(bytes);
      return;
    }
  }
  for (; regs.nb < 0; regs.nb += 8) {
    Byte_in(work);
    regs.c |= std::uint64_t{work->Breg} << (40 - regs.nb);
  }
  ahead = 0;
  if (!may_read_ahead(work)) return;
  while (regs.nb <= 40 && work->c_rsize > 0 && *work->c_addr != kMarkerPrefix) {
    regs.c |= std::uint64_t{in_order(work, *work->c_addr)} << (40 - regs.nb);
    regs.nb += 8;
    ++ahead;
    advance(work, 1);
  }
}

// Takes as many of eight plain bytes as there is room for: one or two are due, the others ahead.
void DECODER::take_eight(std::uint64_t bytes) {
  const int count = (48 - regs.nb) >> 3;
  const int due = (7 - regs.nb) >> 3;
  const int unused = 64 - 8 * count;
  const std::uint64_t code = work->fillorder ? bytes : reverse_in_bytes(bytes);
  regs.c |= code >> unused << unused >> (16 + regs.nb);
  regs.nb += 8 * count;
  ahead = count - due;
  work->Breg = in_order(work, work->c_addr[due - 1]);
  advance(work, count);
}

}  // namespace vox
