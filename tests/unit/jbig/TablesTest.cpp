// The codec's constant tables.
#include "vox/drivers/libjbig3/jbigtbl.h"

#include <cstring>

#include <gtest/gtest.h>

#include "vox/drivers/libjbig3/jbigpack.h"

namespace vox {
namespace {

TEST(JbigTables, ProbabilityRowsAreStoredBigEndian) {
  const BYTE first[8] = {0x5A, 0x1D, 0, 0, 1, 1, 0, 1};
  EXPECT_EQ(std::memcmp(JbigTbl.data(), first, sizeof first), 0);
  EXPECT_EQ(JbigTbl[0].LSZ, 0x5A1D);
  EXPECT_EQ(JbigTbl[0].SWTCH, 1);
}

TEST(JbigTables, ProbabilityRowsHoldTogether) {
  unsigned switches = 0;
  for (const JBIGTBL& row : JbigTbl) {
    EXPECT_EQ(row.zero, 0);
    EXPECT_LT(row.NLPS, kJbigStates);
    EXPECT_LT(row.NMPS, kJbigStates);
    EXPECT_GT(row.LSZ, 0);
    EXPECT_LT(row.LSZ, 0x8000);
    switches += row.SWTCH;
  }
  EXPECT_EQ(switches, 10u);
  EXPECT_EQ(JbigTbl[13].LSZ, 1);  // the smallest Qe stays where it is
  EXPECT_EQ(JbigTbl[13].NMPS, 13);
  EXPECT_EQ(JbigTbl[112].LSZ, 0x59EB);
}

TEST(JbigTables, ByteReversalIsItsOwnInverse) {
  EXPECT_EQ(LSBMSB[0x01], 0x80);
  EXPECT_EQ(LSBMSB[0x02], 0x40);
  EXPECT_EQ(LSBMSB[0x1D], 0xB8);
  for (unsigned i = 0; i < 256; ++i) EXPECT_EQ(LSBMSB[LSBMSB[i]], i);
}

// The ten pixels of a two-line context as (dx, up), most significant bit first.
constexpr int kTwoLines[10][2] = {{-3, 1}, {-4, 0}, {-3, 0}, {-2, 1}, {-1, 1},
                                  {0, 1},  {1, 1},  {2, 1},  {-2, 0}, {-1, 0}};

TEST(JbigTables, ContextsAdvanceByTheirTable) {
  const auto context_at = [](unsigned above, unsigned current, int x) {
    unsigned context = 0;
    for (const auto& place : kTwoLines)
      context = context * 2 + ((place[1] ? above : current) >> (20 - (x + place[0])) & 1);
    return context;
  };
  for (unsigned seed = 1; seed < 2000; ++seed) {
    const unsigned above = seed * 2654435761u, current = seed * 40503u * 2654435761u;
    const unsigned now = context_at(above, current, 10), next = context_at(above, current, 11);
    const unsigned pixel = current >> 10 & 1;
    const unsigned advanced = CXsetup2[(now & 0xFF) << 1 | pixel];
    EXPECT_EQ(advanced, next & ~4u) << "above " << above << " current " << current;
  }
}

// Fills a context buffer with (mps, st) numbered by the public order, and looks them up by raster.
TEST(JbigTables, ContextBufferKeepsItsOrderThroughTheLoops) {
  std::vector<BYTE> entries(2 * kContexts), back(2 * kContexts);
  for (unsigned i = 0; i < kContexts; ++i) {
    entries[2 * i] = i & 1;
    entries[2 * i + 1] = static_cast<BYTE>(i * 7 % kJbigStates);
  }
  const auto* words = reinterpret_cast<const WORD*>(entries.data());
  auto* out = reinterpret_cast<WORD*>(back.data());
  CXBANK bank;
  cx_load<2>(bank, words);
  EXPECT_EQ(bank.word[kTpRaster<2>], JbigWord[entries[2 * 0xE5 + 1] * 2u + (0xE5 & 1)]);
  cx_store<2>(bank, out);
  EXPECT_EQ(back, entries);
  cx_load<3>(bank, words);
  EXPECT_EQ(bank.word[kTpRaster<3>], JbigWord[entries[2 * 0xE5 + 1] * 2u + (0xE5 & 1)]);
  cx_store<3>(bank, out);
  EXPECT_EQ(back, entries);
}

TEST(JbigTables, StatesBeyondTheTableCannotLeaveIt) {
  std::vector<BYTE> entries(2 * kContexts, 0xFF);
  CXBANK bank;
  cx_load<3>(bank, reinterpret_cast<const WORD*>(entries.data()));
  EXPECT_EQ(bank.word[5], JbigWord[1]);  // state 0, mps 1
}

}  // namespace
}  // namespace vox
