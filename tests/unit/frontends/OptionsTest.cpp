// The option table of a device with a glass of 8.5 x 11.7 inches at 75 to 600 dpi, and a feeder for
// both sides of 8.5 x 14 inches at 100 to 300.
#include "frontends/sane/Options.h"

#include <cstring>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/vox/Failure.h"

namespace vox::sane {
namespace {

using testing::ElementsAre;

constexpr SANE_Int kParams = SANE_INFO_RELOAD_PARAMS;
constexpr SANE_Int kBoth = SANE_INFO_RELOAD_PARAMS | SANE_INFO_RELOAD_OPTIONS;

tagSCANDEVINFO Unit(std::uint8_t source, std::uint32_t low, std::uint32_t high,
                    std::uint32_t height) {
  tagSCANDEVINFO unit{};
  unit.byPaperSources = source;
  unit.byImageTypes = 7;
  unit.dwXResMin = unit.dwYResMin = low;
  unit.dwXResMax = unit.dwYResMax = high;
  unit.dwPhysicalWidth = 85'000;
  unit.dwPhysicalHeight = height;
  unit.dwDuplex = 1;
  return unit;
}

cli::Abilities Device() {
  cli::Abilities device;
  device.common = Unit(3, 75, 600, 117'000);
  device.units = {Unit(2, 100, 300, 140'000), Unit(1, 75, 600, 117'000)};
  return device;
}

SANE_Fixed Millimetres(double value) {
  return static_cast<SANE_Fixed>(value * 65'536);
}

class SaneOptions : public testing::Test {
 protected:
  explicit SaneOptions(const cli::Abilities& device = Device()) : options(device) {}

  SANE_Status Set(SANE_Int option, SANE_Word value) {
    word_ = value;
    info = 0;
    return options.Set(option, &word_, &info);
  }
  SANE_Status Set(SANE_Int option, const char* text) {
    char copy[64]{};
    std::strncpy(copy, text, sizeof copy - 1);
    info = 0;
    return options.Set(option, copy, &info);
  }
  SANE_Word Word(SANE_Int option) {
    SANE_Word value = -12'345;
    EXPECT_EQ(options.Get(option, &value), SANE_STATUS_GOOD) << option;
    return value;
  }
  std::string Text(SANE_Int option) {
    std::vector<char> text(static_cast<std::size_t>(options.Descriptor(option)->size));
    EXPECT_EQ(options.Get(option, text.data()), SANE_STATUS_GOOD) << option;
    return text.data();
  }
  std::vector<std::string> Names(SANE_Int option) {
    std::vector<std::string> names;
    for (auto* name = options.Descriptor(option)->constraint.string_list; *name != nullptr; ++name)
      names.emplace_back(*name);
    return names;
  }
  const SANE_Range& Range(SANE_Int option) { return *options.Descriptor(option)->constraint.range; }

  Options options;
  SANE_Int info = 0;
  SANE_Word word_ = 0;  // what the last Set wrote back
};

TEST_F(SaneOptions, EachHasANameOfItsOwnAndATitle) {
  std::set<std::string> names;
  int count = 0;
  for (SANE_Int i = 0; options.Descriptor(i) != nullptr; ++i, ++count) {
    const SANE_Option_Descriptor& row = *options.Descriptor(i);
    EXPECT_TRUE(names.insert(row.name).second) << row.name;
    EXPECT_STRNE(row.title, "");
    const bool word =
        row.type == SANE_TYPE_INT || row.type == SANE_TYPE_FIXED || row.type == SANE_TYPE_BOOL;
    EXPECT_EQ(word, row.size == 4) << row.name;
  }
  EXPECT_EQ(Word(0), count);
  EXPECT_EQ(options.Descriptor(-1), nullptr);
  EXPECT_EQ(options.Descriptor(count), nullptr);
  EXPECT_TRUE(names.contains("preview"));
  EXPECT_FALSE(names.contains("page-width"));
}

TEST_F(SaneOptions, AtFirstTheWholeBedInColour) {
  EXPECT_THAT(Names(kOptMode), ElementsAre("Lineart", "Gray", "Color"));
  EXPECT_THAT(Names(kOptSource), ElementsAre("Flatbed", "ADF", "ADF Duplex"));
  EXPECT_EQ(Text(kOptMode), "Color");
  EXPECT_EQ(Text(kOptSource), "Flatbed");
  EXPECT_EQ(Word(kOptResolution), 300);
  EXPECT_EQ(Word(kOptPreview), SANE_FALSE);
  EXPECT_EQ(Word(kOptLeft), 0);
  EXPECT_EQ(Word(kOptRight), Millimetres(215.9));
  EXPECT_EQ(Word(kOptBottom), Millimetres(297.18));
  const cli::ScanPlan plan = options.Plan();
  EXPECT_EQ(plan.page.width, 2550U);
  EXPECT_EQ(plan.page.height, 3510U);
  EXPECT_EQ(plan.request.wIsUserDefineSize, 0);
}

TEST_F(SaneOptions, WhatDoesNotFitIsRoundedAndWrittenBack) {
  EXPECT_EQ(Set(kOptResolution, 5'000), SANE_STATUS_GOOD);
  EXPECT_EQ(word_, 600);
  EXPECT_EQ(info, kParams | SANE_INFO_INEXACT);
  EXPECT_EQ(Set(kOptResolution, -1), SANE_STATUS_GOOD);
  EXPECT_EQ(word_, 75);
  EXPECT_EQ(Word(kOptResolution), 75);
  EXPECT_EQ(Set(kOptBrightness, -101), SANE_STATUS_GOOD);
  EXPECT_EQ(word_, -100);
  EXPECT_EQ(info, SANE_INFO_INEXACT);
  EXPECT_EQ(Set(kOptRight, Millimetres(1'000)), SANE_STATUS_GOOD);
  EXPECT_EQ(word_, Millimetres(215.9));
  EXPECT_EQ(Set(kOptLeft, Millimetres(-3)), SANE_STATUS_GOOD);
  EXPECT_EQ(word_, 0);
}

TEST_F(SaneOptions, WhatFitsIsTakenAsItIs) {
  EXPECT_EQ(Set(kOptResolution, 150), SANE_STATUS_GOOD);
  EXPECT_EQ(info, kParams);
  EXPECT_EQ(Set(kOptResolution, 150), SANE_STATUS_GOOD);
  EXPECT_EQ(info, 0) << "nothing has changed";
  EXPECT_EQ(Set(kOptPreview, SANE_TRUE), SANE_STATUS_GOOD);
  EXPECT_EQ(info, 0) << "and a preview changes nothing else";
  EXPECT_EQ(Set(kOptMode, "Gray"), SANE_STATUS_GOOD);
  EXPECT_EQ(info, kBoth);
}

TEST_F(SaneOptions, WhatIsNoValueIsRefused) {
  EXPECT_EQ(Set(kOptPreview, 2), SANE_STATUS_INVAL);
  for (const char* text : {"", "gray", "Grey", "Color ", "ColorColorColorColorColor"})
    EXPECT_EQ(Set(kOptMode, text), SANE_STATUS_INVAL) << text;
  EXPECT_EQ(Set(kOptSource, "adf"), SANE_STATUS_INVAL);
  EXPECT_EQ(Set(kOptCount, 3), SANE_STATUS_INVAL);
  for (const SANE_Int option : {kOptScanGroup, kOptAreaGroup, kOptToneGroup}) {
    SANE_Word value = 0;
    EXPECT_EQ(Set(option, 1), SANE_STATUS_INVAL);
    EXPECT_EQ(options.Get(option, &value), SANE_STATUS_INVAL);
  }
  EXPECT_EQ(options.Get(kOptMode, nullptr), SANE_STATUS_INVAL);
  EXPECT_EQ(options.Set(kOptMode, nullptr, &info), SANE_STATUS_INVAL);
  EXPECT_EQ(Text(kOptMode), "Color");
}

TEST_F(SaneOptions, ALongTextIsReadNoFurtherThanTheOptionIsLong) {
  const std::vector<char> text(static_cast<std::size_t>(options.Descriptor(kOptMode)->size), 'G');
  EXPECT_EQ(options.Set(kOptMode, const_cast<char*>(text.data()), &info), SANE_STATUS_INVAL);
}

TEST_F(SaneOptions, TheLimitsFollowTheSourceAndTheDescriptorsStay) {
  const SANE_Option_Descriptor* const before = options.Descriptor(kOptBottom);
  const SANE_Range* const range = &Range(kOptBottom);
  ASSERT_EQ(Set(kOptResolution, 600), SANE_STATUS_GOOD);
  ASSERT_EQ(Set(kOptRight, Millimetres(100)), SANE_STATUS_GOOD);
  ASSERT_EQ(Set(kOptSource, "ADF"), SANE_STATUS_GOOD);
  EXPECT_EQ(info, kBoth);
  EXPECT_EQ(options.Descriptor(kOptBottom), before);
  EXPECT_EQ(&Range(kOptBottom), range);
  EXPECT_EQ(Range(kOptBottom).max, Millimetres(355.6));
  EXPECT_EQ(Word(kOptBottom), Millimetres(355.6)) << "the whole length stays the whole length";
  EXPECT_EQ(Word(kOptRight), Millimetres(100)) << "and what was cut stays cut";
  EXPECT_EQ(Range(kOptResolution).max, 300);
  EXPECT_EQ(Word(kOptResolution), 300);
  ASSERT_EQ(Set(kOptBottom, Millimetres(350)), SANE_STATUS_GOOD);
  ASSERT_EQ(Set(kOptSource, "Flatbed"), SANE_STATUS_GOOD);
  EXPECT_EQ(Word(kOptBottom), Millimetres(297.18));
}

TEST_F(SaneOptions, BothSidesAreAskedOfTheDevice) {
  ASSERT_EQ(Set(kOptSource, "ADF"), SANE_STATUS_GOOD);
  EXPECT_EQ(options.Plan().request.dwDuplex, 0U);
  ASSERT_EQ(Set(kOptSource, "ADF Duplex"), SANE_STATUS_GOOD);
  EXPECT_EQ(options.Plan().request.dwDuplex, 1U);
}

TEST_F(SaneOptions, AnInchInMillimetresIsAnInch) {
  ASSERT_EQ(Set(kOptLeft, Millimetres(25.4)), SANE_STATUS_GOOD);
  ASSERT_EQ(Set(kOptTop, Millimetres(12.7)), SANE_STATUS_GOOD);
  ASSERT_EQ(Set(kOptRight, Millimetres(127)), SANE_STATUS_GOOD);
  ASSERT_EQ(Set(kOptBottom, Millimetres(63.5)), SANE_STATUS_GOOD);
  const cli::ScanPlan plan = options.Plan();
  EXPECT_EQ(plan.request.fLeft, 1);
  EXPECT_EQ(plan.request.fTop, 0.5);
  EXPECT_EQ(plan.page.width, 1200U);
  EXPECT_EQ(plan.page.height, 600U);
  EXPECT_EQ(plan.request.wIsUserDefineSize, 1);
}

TEST_F(SaneOptions, AnAreaMayBeTurnedAboutUntilItIsPlanned) {
  EXPECT_EQ(Set(kOptRight, Millimetres(10)), SANE_STATUS_GOOD);
  EXPECT_EQ(Set(kOptLeft, Millimetres(20)), SANE_STATUS_GOOD);
  EXPECT_THROW(options.Plan(), cli::Failure);
  EXPECT_EQ(Set(kOptLeft, Millimetres(10)), SANE_STATUS_GOOD);
  EXPECT_THROW(options.Plan(), cli::Failure);
  EXPECT_EQ(Set(kOptLeft, Millimetres(9)), SANE_STATUS_GOOD);
  EXPECT_EQ(options.Plan().page.width, 12U);
}

TEST_F(SaneOptions, AThresholdIsForBlackAndWhiteAlone) {
  EXPECT_EQ(Set(kOptThreshold, 100), SANE_STATUS_INVAL);
  SANE_Word value = 0;
  EXPECT_EQ(options.Get(kOptThreshold, &value), SANE_STATUS_INVAL);
  ASSERT_EQ(Set(kOptMode, "Lineart"), SANE_STATUS_GOOD);
  EXPECT_EQ(options.Plan().reduction, cli::Reduction::kNone);
  ASSERT_EQ(Set(kOptThreshold, 100), SANE_STATUS_GOOD);
  EXPECT_EQ(options.Plan().reduction, cli::Reduction::kThreshold);
  EXPECT_EQ(options.Plan().threshold, 100);
  EXPECT_EQ(options.Plan().page.bits, 1U);
  ASSERT_EQ(Set(kOptMode, "Gray"), SANE_STATUS_GOOD);
  EXPECT_EQ(options.Plan().reduction, cli::Reduction::kNone);
}

TEST_F(SaneOptions, TonesReachTheDevice) {
  ASSERT_EQ(Set(kOptBrightness, -20), SANE_STATUS_GOOD);
  ASSERT_EQ(Set(kOptContrast, 33), SANE_STATUS_GOOD);
  EXPECT_EQ(options.Plan().request.fBrightness, -20);
  EXPECT_EQ(options.Plan().request.fContrast, 33);
}

class SanePoorDevice : public SaneOptions {
 protected:
  static cli::Abilities Poor() {
    cli::Abilities device;
    device.common.byImageTypes = 1;
    return device;
  }
  SanePoorDevice() : SaneOptions(Poor()) {}
};

TEST_F(SanePoorDevice, OneThatTellsNothingCanStillBeAsked) {
  EXPECT_THAT(Names(kOptMode), ElementsAre("Lineart"));
  EXPECT_THAT(Names(kOptSource), ElementsAre("Flatbed"));
  EXPECT_EQ(Set(kOptThreshold, 5), SANE_STATUS_INVAL) << "it cannot scan grey";
  EXPECT_GT(Range(kOptRight).max, 0);
  EXPECT_GT(options.Plan().page.width, 0U);
}

TEST(SaneOptionsOfHostileDevices, NumbersOutOfAllBoundsStayInBounds) {
  cli::Abilities device = Device();
  for (tagSCANDEVINFO& unit : device.units) {
    unit.dwPhysicalWidth = unit.dwPhysicalHeight = 0xFFFFFFFF;
    unit.dwXResMin = unit.dwXResMax = 0xFFFFFFFF;
  }
  const Options options(device);
  const SANE_Range& range = *options.Descriptor(kOptResolution)->constraint.range;
  EXPECT_GE(range.min, 1);
  EXPECT_LE(range.max, 19'200);
  EXPECT_LT(options.Plan().page.width, 100'000U);
  const cli::Abilities none;
  EXPECT_THROW(Options{none}, cli::Failure);
}

}  // namespace
}  // namespace vox::sane
