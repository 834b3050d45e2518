#include "vox/drivers/libjbig3/jbigtbl.h"

#include <bit>

#include "vox/drivers/libjbig3/arithenc.h"
#include "vox/drivers/libjbig3/jbigpack.h"

namespace vox {
namespace {

constexpr JBIGTBL row(unsigned lsz, unsigned nlps, unsigned nmps, unsigned swtch) {
  return {{static_cast<BYTE>(lsz >> 8), static_cast<BYTE>(lsz)},
          {0, 0},
          static_cast<BYTE>(nlps),
          static_cast<BYTE>(nmps),
          {0, static_cast<BYTE>(swtch)}};
}

constexpr std::array<BYTE, 256> reversed_bytes() {
  std::array<BYTE, 256> table{};
  for (unsigned i = 0; i < 256; ++i) {
    unsigned reversed = 0;
    for (unsigned bit = 0; bit < 8; ++bit) reversed |= (i >> bit & 1) << (7 - bit);
    table[i] = static_cast<BYTE>(reversed);
  }
  return table;
}

constexpr std::array<WORD, 512> next_contexts() {
  std::array<WORD, 512> table{};
  for (unsigned i = 0; i < 512; ++i) {
    const unsigned context = i >> 1;
    const auto bit = [&](unsigned from, unsigned to) { return (context >> from & 1) << to; };
    // Line y - 1: x-2 becomes x-3, x-1 x-2, and so on; line y: x-3 becomes x-4, x-2 x-3, x-1 x-2.
    const unsigned above = bit(6, 9) | bit(5, 6) | bit(4, 5) | bit(3, 4) | bit(2, 3);
    const unsigned current = bit(7, 8) | bit(1, 7) | bit(0, 1) | (i & 1);
    table[i] = static_cast<WORD>(above | current);
  }
  return table;
}

}  // namespace

// T.82 Table 24.
constexpr std::array<JBIGTBL, kJbigStates> JbigTbl = {
    row(0x5A1D, 1, 1, 1),     row(0x2586, 14, 2, 0),    row(0x1114, 16, 3, 0),
    row(0x080B, 18, 4, 0),    row(0x03D8, 20, 5, 0),    row(0x01DA, 23, 6, 0),
    row(0x00E5, 25, 7, 0),    row(0x006F, 28, 8, 0),    row(0x0036, 30, 9, 0),
    row(0x001A, 33, 10, 0),   row(0x000D, 35, 11, 0),   row(0x0006, 9, 12, 0),
    row(0x0003, 10, 13, 0),   row(0x0001, 12, 13, 0),   row(0x5A7F, 15, 15, 1),
    row(0x3F25, 36, 16, 0),   row(0x2CF2, 38, 17, 0),   row(0x207C, 39, 18, 0),
    row(0x17B9, 40, 19, 0),   row(0x1182, 42, 20, 0),   row(0x0CEF, 43, 21, 0),
    row(0x09A1, 45, 22, 0),   row(0x072F, 46, 23, 0),   row(0x055C, 48, 24, 0),
    row(0x0406, 49, 25, 0),   row(0x0303, 51, 26, 0),   row(0x0240, 52, 27, 0),
    row(0x01B1, 54, 28, 0),   row(0x0144, 56, 29, 0),   row(0x00F5, 57, 30, 0),
    row(0x00B7, 59, 31, 0),   row(0x008A, 60, 32, 0),   row(0x0068, 62, 33, 0),
    row(0x004E, 63, 34, 0),   row(0x003B, 32, 35, 0),   row(0x002C, 33, 9, 0),
    row(0x5AE1, 37, 37, 1),   row(0x484C, 64, 38, 0),   row(0x3A0D, 65, 39, 0),
    row(0x2EF1, 67, 40, 0),   row(0x261F, 68, 41, 0),   row(0x1F33, 69, 42, 0),
    row(0x19A8, 70, 43, 0),   row(0x1518, 72, 44, 0),   row(0x1177, 73, 45, 0),
    row(0x0E74, 74, 46, 0),   row(0x0BFB, 75, 47, 0),   row(0x09F8, 77, 48, 0),
    row(0x0861, 78, 49, 0),   row(0x0706, 79, 50, 0),   row(0x05CD, 48, 51, 0),
    row(0x04DE, 50, 52, 0),   row(0x040F, 50, 53, 0),   row(0x0363, 51, 54, 0),
    row(0x02D4, 52, 55, 0),   row(0x025C, 53, 56, 0),   row(0x01F8, 54, 57, 0),
    row(0x01A4, 55, 58, 0),   row(0x0160, 56, 59, 0),   row(0x0125, 57, 60, 0),
    row(0x00F6, 58, 61, 0),   row(0x00CB, 59, 62, 0),   row(0x00AB, 61, 63, 0),
    row(0x008F, 61, 32, 0),   row(0x5B12, 65, 65, 1),   row(0x4D04, 80, 66, 0),
    row(0x412C, 81, 67, 0),   row(0x37D8, 82, 68, 0),   row(0x2FE8, 83, 69, 0),
    row(0x293C, 84, 70, 0),   row(0x2379, 86, 71, 0),   row(0x1EDF, 87, 72, 0),
    row(0x1AA9, 87, 73, 0),   row(0x174E, 72, 74, 0),   row(0x1424, 72, 75, 0),
    row(0x119C, 74, 76, 0),   row(0x0F6B, 74, 77, 0),   row(0x0D51, 75, 78, 0),
    row(0x0BB6, 77, 79, 0),   row(0x0A40, 77, 48, 0),   row(0x5832, 80, 81, 1),
    row(0x4D1C, 88, 82, 0),   row(0x438E, 89, 83, 0),   row(0x3BDD, 90, 84, 0),
    row(0x34EE, 91, 85, 0),   row(0x2EAE, 92, 86, 0),   row(0x299A, 93, 87, 0),
    row(0x2516, 86, 71, 0),   row(0x5570, 88, 89, 1),   row(0x4CA9, 95, 90, 0),
    row(0x44D9, 96, 91, 0),   row(0x3E22, 97, 92, 0),   row(0x3824, 99, 93, 0),
    row(0x32B4, 99, 94, 0),   row(0x2E17, 93, 86, 0),   row(0x56A8, 95, 96, 1),
    row(0x4F46, 101, 97, 0),  row(0x47E5, 102, 98, 0),  row(0x41CF, 103, 99, 0),
    row(0x3C3D, 104, 100, 0), row(0x375E, 99, 93, 0),   row(0x5231, 105, 102, 0),
    row(0x4C0F, 106, 103, 0), row(0x4639, 107, 104, 0), row(0x415E, 103, 99, 0),
    row(0x5627, 105, 106, 1), row(0x50E7, 108, 107, 0), row(0x4B85, 109, 103, 0),
    row(0x5597, 110, 109, 0), row(0x504F, 111, 107, 0), row(0x5A10, 110, 111, 1),
    row(0x5522, 112, 109, 0), row(0x59EB, 112, 111, 1),
};

constexpr std::array<BYTE, 256> LSBMSB = reversed_bytes();
constexpr std::array<WORD, 512> CXsetup2 = next_contexts();

namespace {

constexpr const JBIGTBL& state_row(unsigned index) {
  return JbigTbl[index / 2 < kJbigStates ? index / 2 : 0];
}

constexpr DWORD word_of(unsigned state, unsigned mps) {
  return DWORD{JbigTbl[state].LSZ} << 16 | state << 6 | mps << 5;
}

constexpr std::array<DWORD, 256> all_words() {
  std::array<DWORD, 256> words{};
  for (unsigned i = 0; i < 256; ++i) words[i] = word_of(i / 2 < kJbigStates ? i / 2 : 0, i & 1);
  return words;
}

constexpr CXNEXT all_successors() {
  CXNEXT next{};
  for (unsigned i = 0; i < 256; ++i) {
    next[0][i] = word_of(state_row(i).NMPS, i & 1);
    next[1][i] = word_of(state_row(i).NLPS, (i & 1) ^ state_row(i).SWTCH);
  }
  return next;
}

constexpr ENCNEXT all_pairs() {
  constexpr CXNEXT kNext = all_successors();
  ENCNEXT pairs{};
  for (unsigned lps = 0; lps < 2; ++lps)
    for (unsigned i = 0; i < 256; ++i) pairs[lps][i] = enc_pair(kNext[lps][i]);
  return pairs;
}

constexpr CXSTEP all_steps() {
  const CXNEXT next = all_successors();
  return {all_words(), next[0], next[1]};
}

constexpr std::array<BYTE, 256> all_shifts() {
  std::array<BYTE, 256> shifts{};
  for (unsigned i = 0; i < 256; ++i)
    shifts[i] = static_cast<BYTE>(std::countl_zero(WORD{state_row(i).LSZ}));
  return shifts;
}

}  // namespace

constexpr CXSTEP JbigStep = all_steps();
constexpr std::array<BYTE, 256> JbigShift = all_shifts();
constexpr std::array<DWORD, 256> JbigWord = all_words();
constexpr CXNEXT JbigNext = all_successors();
constexpr ENCNEXT JbigNextPair = all_pairs();

}  // namespace vox
