// What users of the shared library may call and read: all of it is there to be linked.
#include <vector>

#include <gtest/gtest.h>

#include "vox/drivers/JbigBuf.h"
#include "vox/drivers/libjbig3/henkaten.h"
#include "vox/drivers/libjbig3/jbig2rf.h"
#include "vox/drivers/libjbig3/jbigtbl.h"
#include "vox/drivers/libjbig3/rf2jbig.h"

namespace vox {
namespace {

template <typename... F>
bool AllThere(F*... functions) {
  return (... && (functions != nullptr));
}

TEST(SharedLibrary, HasTheCodec) {
  EXPECT_TRUE(AllThere(DECOMPRESS, DEC_JBIG, DEC_JBIG2, DEC_JBIG3, Get_BIE));
  EXPECT_TRUE(AllThere(init_jbig_d, Byte_in, Get_Byte, Check_Marker, Check_Newlen));
  EXPECT_TRUE(AllThere(COMPRESS, CMP_JBIG, CMP_JBIG2, CMP_JBIG3, Put_BIE));
  EXPECT_TRUE(AllThere(init_jbig_c, cmp_line, Byte_out, Put_Byte, Flush));
  EXPECT_TRUE(AllThere(SCD_SDNORM, SCD_SDRST, SCD_NEWLEN, SCD_ATMOVE));
}

TEST(SharedLibrary, HasTheListsOfChangePoints) {
  EXPECT_TRUE(AllThere(henkaten_init, henkaten_copy, raw_to_henkaten, henkaten_to_raw));
}

TEST(SharedLibrary, HasTheTables) {
  EXPECT_EQ(JbigTbl[0].LSZ, 0x5A1D);
  EXPECT_EQ(LSBMSB[1], 0x80);
  EXPECT_EQ(CXsetup2[1], 1);
}

TEST(SharedLibrary, HasTheMarksForCutting) {
  for (auto* mark : {&nag_ct, &nag_pe, &nag_sc, &nag_16_in, &nag_16_in_pre, &nag_16bit, &nag_8bit,
                     &nag_Tbyte_enc, &nag_Tbyte_dec, &nag_index, &nag_stuff, &nag_pixel, &nag_i})
    EXPECT_EQ(*mark, 0);
  for (const BYTE* bytes : {nag_KeepByte, nag_KeepByte2, nag_line, nag_freeze})
    EXPECT_EQ(bytes[kNagEntries - 1], 0);
}

TEST(SharedLibrary, HasTheBlocks) {
  CJbigDataCtrl control;
  ASSERT_TRUE(control.AllocImageData());
  control.SetJbigParam(2, 0, 8);
  std::vector<BYTE> block = {16, 0, 4, 0, 2, 0, 0, 0, 0xFF, 0x02};
  control.m_lpJbigData = block.data();
  EXPECT_TRUE(control.Decompress());
  control.m_lpJbigData = nullptr;
  BYTE lines[8];
  EXPECT_EQ(control.GetImageDataCtrl()->SetImageData(lines, 8), 8u);
  EXPECT_EQ(control.CopyJbigData(nullptr, 0), 0u);
  EXPECT_FALSE(control.IsAvail());
  EXPECT_NE(CJbigTmpBuf(16).GetABuff(), nullptr);
  JbigFree(JbigAlloc(1));
}

}  // namespace
}  // namespace vox
