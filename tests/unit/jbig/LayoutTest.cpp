// The codec's parameter and state blocks have their fields in the order that clients compiled
// against.
#include <algorithm>
#include <array>
#include <cstddef>

#include <gtest/gtest.h>

#include "vox/drivers/libjbig3/codec32s.h"

namespace vox {
namespace {

constexpr std::array kParameters = {
    offsetof(CODECCSTR, Command),      offsetof(CODECCSTR, Mode),
    offsetof(CODECCSTR, Rtc),          offsetof(CODECCSTR, Kpara),
    offsetof(CODECCSTR, BitMin),       offsetof(CODECCSTR, Error),
    offsetof(CODECCSTR, lpCBuff),      offsetof(CODECCSTR, szCBuff),
    offsetof(CODECCSTR, CodeSize),     offsetof(CODECCSTR, lpIBuff),
    offsetof(CODECCSTR, PitchIBuff),   offsetof(CODECCSTR, HeightIBuff),
    offsetof(CODECCSTR, LineIBuff),    offsetof(CODECCSTR, DoubleErr),
    offsetof(CODECCSTR, OutputHeight), offsetof(CODECCSTR, ImageWidth),
    offsetof(CODECCSTR, Reserve2),     offsetof(CODECCSTR, ImageHeight),
    offsetof(CODECCSTR, lpABuff),      offsetof(CODECCSTR, lpBBuff),
    offsetof(CODECCSTR, ContextBuff),  offsetof(CODECCSTR, Tpv),
    offsetof(CODECCSTR, Atm),          offsetof(CODECCSTR, Tpb),
    offsetof(CODECCSTR, Vln),          offsetof(CODECCSTR, Strip),
    offsetof(CODECCSTR, CCallBack),    offsetof(CODECCSTR, user_p1),
    offsetof(CODECCSTR, user_p2),      offsetof(CODECCSTR, user_i1),
    offsetof(CODECCSTR, user_i2),      offsetof(CODECCSTR, work)};

constexpr std::array kState = {
    offsetof(BYTEW, codecstr),  offsetof(BYTEW, c_addr),       offsetof(BYTEW, c_rsize),
    offsetof(BYTEW, Atmf),      offsetof(BYTEW, Fend),         offsetof(BYTEW, fillorder),
    offsetof(BYTEW, Breg),      offsetof(BYTEW, SCreg),        offsetof(BYTEW, First),
    offsetof(BYTEW, Error),     offsetof(BYTEW, Sdnm),         offsetof(BYTEW, Sdrst),
    offsetof(BYTEW, Lntpc),     offsetof(BYTEW, Atm),          offsetof(BYTEW, Vln),
    offsetof(BYTEW, nlsd),      offsetof(BYTEW, Stripc),       offsetof(BYTEW, Yat),
    offsetof(BYTEW, Nwln),      offsetof(BYTEW, Areg),         offsetof(BYTEW, Creg),
    offsetof(BYTEW, CTreg),     offsetof(BYTEW, Atm2),         offsetof(BYTEW, rsv),
    offsetof(BYTEW, ucEx_Code), offsetof(BYTEW, ucEx_Code_bfr)};

TEST(CodecLayout, HasItsFieldsInOrder) {
  EXPECT_EQ(kParameters.front(), 0u);
  EXPECT_TRUE(std::is_sorted(kParameters.begin(), kParameters.end()));
  EXPECT_EQ(kState.front(), 0u);
  EXPECT_TRUE(std::is_sorted(kState.begin(), kState.end()));
}

TEST(CodecLayout, PacksItsFieldsNaturally) {
  EXPECT_EQ(offsetof(CODECCSTR, BitMin), 4u);
  EXPECT_EQ(offsetof(CODECCSTR, lpCBuff), 8u);
  EXPECT_EQ(offsetof(CODECCSTR, OutputHeight) - offsetof(CODECCSTR, lpIBuff), sizeof(void*) + 8);
  EXPECT_EQ(offsetof(CODECCSTR, Strip) - offsetof(CODECCSTR, Tpv), 4u);
  EXPECT_EQ(offsetof(CODECCSTR, work) % alignof(void*), 0u);
  EXPECT_EQ(offsetof(BYTEW, SCreg) - offsetof(BYTEW, Atmf), 4u);
  EXPECT_EQ(offsetof(BYTEW, Stripc) - offsetof(BYTEW, First), 8u);
  EXPECT_EQ(offsetof(BYTEW, Atm2) - offsetof(BYTEW, Stripc), 24u);
}

}  // namespace
}  // namespace vox
