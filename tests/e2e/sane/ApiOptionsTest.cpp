// The options of a handle: what they are, how they are set, and what they may not do.
#include <cstring>

#include "tests/e2e/sane/SaneApi.h"

namespace vox::cli::test {
namespace {

using testing::ElementsAre;

class SaneOptions : public SaneApi {
 protected:
  void SetUp() override {
    SaneApi::SetUp();
    if (IsSkipped()) return;
    PutFeeder(2, true);
    session_.emplace(*sane_);
    scanner_ = std::make_unique<SaneScanner>(*sane_, kSmall);
  }
  void TearDown() override {
    scanner_.reset();
    session_.reset();
    SaneApi::TearDown();
  }
  SaneScanner& Scanner() { return *scanner_; }
  std::vector<std::string> Choices(const std::string& name) {
    const SANE_Option_Descriptor& descriptor = Scanner().Descriptor(name);
    std::vector<std::string> choices;
    if (descriptor.constraint_type != SANE_CONSTRAINT_STRING_LIST) return choices;
    for (auto text = descriptor.constraint.string_list; *text != nullptr; ++text)
      choices.emplace_back(*text);
    return choices;
  }
  SANE_Range Range(const std::string& name) {
    const SANE_Option_Descriptor& descriptor = Scanner().Descriptor(name);
    EXPECT_EQ(descriptor.constraint_type, SANE_CONSTRAINT_RANGE) << name;
    return descriptor.constraint_type == SANE_CONSTRAINT_RANGE ? *descriptor.constraint.range
                                                               : SANE_Range{};
  }
  // Every value of every option, as text.
  std::string Everything() {
    std::string all;
    for (SANE_Int i = 1; i < Scanner().Options(); ++i) {
      const SANE_Option_Descriptor* option = sane_->get_option_descriptor(Scanner().Handle(), i);
      if (option->type == SANE_TYPE_GROUP || option->type == SANE_TYPE_BUTTON ||
          !SANE_OPTION_IS_ACTIVE(option->cap))
        continue;
      all += std::string(option->name) + "=" +
             (option->type == SANE_TYPE_STRING ? Scanner().Text(option->name)
                                               : std::to_string(Scanner().Word(option->name))) +
             "\n";
    }
    return all;
  }

  std::optional<SaneSession> session_;
  std::unique_ptr<SaneScanner> scanner_;
};

TEST_F(SaneOptions, TheFirstTellsTheirNumber) {
  const SANE_Option_Descriptor* first = sane_->get_option_descriptor(Scanner().Handle(), 0);
  ASSERT_NE(first, nullptr);
  EXPECT_STREQ(first->name, "");
  EXPECT_EQ(first->type, SANE_TYPE_INT);
  EXPECT_EQ(first->size, static_cast<SANE_Int>(sizeof(SANE_Word)));
  EXPECT_EQ(first->cap, SANE_CAP_SOFT_DETECT);
  for (const SANE_Int index :
       {-1, Scanner().Options(), Scanner().Options() + 1, 1 << 30, -(1 << 30)})
    EXPECT_EQ(sane_->get_option_descriptor(Scanner().Handle(), index), nullptr) << index;
}

TEST_F(SaneOptions, TheirKindsAndUnitsAreThoseThatFrontendsKnow) {
  struct Kind {
    const char* name;
    SANE_Value_Type type;
    SANE_Unit unit;
  };
  constexpr Kind kKinds[] = {
      {"resolution", SANE_TYPE_INT, SANE_UNIT_DPI}, {"preview", SANE_TYPE_BOOL, SANE_UNIT_NONE},
      {"mode", SANE_TYPE_STRING, SANE_UNIT_NONE},   {"source", SANE_TYPE_STRING, SANE_UNIT_NONE},
      {"tl-x", SANE_TYPE_FIXED, SANE_UNIT_MM},      {"tl-y", SANE_TYPE_FIXED, SANE_UNIT_MM},
      {"br-x", SANE_TYPE_FIXED, SANE_UNIT_MM},      {"br-y", SANE_TYPE_FIXED, SANE_UNIT_MM},
  };
  for (const Kind& kind : kKinds) {
    ASSERT_TRUE(Scanner().Has(kind.name)) << kind.name;
    EXPECT_EQ(Scanner().Descriptor(kind.name).type, kind.type) << kind.name;
    EXPECT_EQ(Scanner().Descriptor(kind.name).unit, kind.unit) << kind.name;
  }
  for (const char* name : {"brightness", "contrast"}) {
    const SANE_Option_Descriptor& option = Scanner().Descriptor(name);
    EXPECT_EQ(option.unit, SANE_UNIT_PERCENT) << name;
    const SANE_Word hundred = option.type == SANE_TYPE_FIXED ? SANE_FIX(100) : 100;
    EXPECT_EQ(Range(name).min, -hundred) << name;
    EXPECT_EQ(Range(name).max, hundred) << name;
  }
  EXPECT_TRUE(Scanner().Has("threshold"));
  EXPECT_FALSE(Scanner().Has("page-width"));
  EXPECT_FALSE(Scanner().Has("page-height"));
}

TEST_F(SaneOptions, TheWordsAreThoseThatFrontendsLookFor) {
  EXPECT_THAT(Choices("mode"), ElementsAre("Lineart", "Gray", "Color"));
  EXPECT_THAT(Choices("source"), ElementsAre("Flatbed", "ADF", "ADF Duplex"));
}

TEST_F(SaneOptions, EachIsCompleteAndSaysWhatItHolds) {
  for (SANE_Int i = 1; i < Scanner().Options(); ++i) {
    const SANE_Option_Descriptor* option = sane_->get_option_descriptor(Scanner().Handle(), i);
    ASSERT_NE(option, nullptr);
    SCOPED_TRACE(option->name != nullptr ? option->name : "(no name)");
    ASSERT_NE(option->name, nullptr);
    ASSERT_NE(option->title, nullptr);
    ASSERT_NE(option->desc, nullptr);
    EXPECT_STRNE(option->title, "");
    if (option->type == SANE_TYPE_GROUP) continue;
    EXPECT_EQ(std::string(option->name).find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"),
              std::string::npos);
    if (option->type == SANE_TYPE_STRING) {
      if (option->constraint_type != SANE_CONSTRAINT_STRING_LIST) continue;
      for (auto text = option->constraint.string_list; *text != nullptr; ++text)
        EXPECT_GT(option->size, static_cast<SANE_Int>(std::strlen(*text))) << *text;
    } else if (option->type != SANE_TYPE_BUTTON) {
      EXPECT_EQ(option->size, static_cast<SANE_Int>(sizeof(SANE_Word)));
    }
  }
}

TEST_F(SaneOptions, TheAreaIsTheWholeBedUntilItIsAskedFor) {
  EXPECT_EQ(Scanner().Word("tl-x"), 0);
  EXPECT_EQ(Scanner().Word("tl-y"), 0);
  EXPECT_NEAR(SANE_UNFIX(Scanner().Word("br-x")), 76.2, 0.001);  // 3 by 2.5 inches
  EXPECT_NEAR(SANE_UNFIX(Scanner().Word("br-y")), 63.5, 0.001);
  for (const char* edge : {"tl-x", "br-x"}) {
    EXPECT_EQ(Range(edge).min, 0) << edge;
    EXPECT_NEAR(SANE_UNFIX(Range(edge).max), 76.2, 0.001) << edge;
  }
  for (const char* edge : {"tl-y", "br-y"})
    EXPECT_NEAR(SANE_UNFIX(Range(edge).max), 63.5, 0.001) << edge;
}

TEST_F(SaneOptions, ResolutionsAreThoseOfTheDevice) {
  const SANE_Option_Descriptor& option = Scanner().Descriptor("resolution");
  if (option.constraint_type == SANE_CONSTRAINT_RANGE) {
    EXPECT_EQ(option.constraint.range->min, 100);
    EXPECT_EQ(option.constraint.range->max, 200);
  } else {
    ASSERT_EQ(option.constraint_type, SANE_CONSTRAINT_WORD_LIST);
    const SANE_Word* const list = option.constraint.word_list;
    ASSERT_GE(list[0], 1);
    for (SANE_Word i = 1; i <= list[0]; ++i) {
      EXPECT_GE(list[i], 100);
      EXPECT_LE(list[i], 200);
    }
  }
}

TEST_F(SaneOptions, AValueBesideTheConstraintIsRoundedWrittenBackAndSaid) {
  struct Case {
    const char* name;
    SANE_Word asked, held;
  };
  const Case cases[] = {
      {"resolution", 1000000, 200},
      {"resolution", -5, 100},
      {"brightness", Range("brightness").max * 5, Range("brightness").max},
      {"contrast", Range("contrast").min * 5, Range("contrast").min},
      {"br-x", SANE_FIX(5000), Range("br-x").max},
      {"tl-y", SANE_FIX(-20), 0},
  };
  for (const Case& one : cases) {
    SANE_Int info = 0;
    SANE_Word written = 0;
    ASSERT_EQ(Scanner().Set(one.name, one.asked, &info, &written), SANE_STATUS_GOOD) << one.name;
    EXPECT_EQ(written, one.held) << one.name;
    EXPECT_EQ(Scanner().Word(one.name), one.held) << one.name;
    EXPECT_NE(info & SANE_INFO_INEXACT, 0) << one.name;
  }
  SANE_Int info = 0;
  ASSERT_EQ(Scanner().Set("resolution", 150, &info), SANE_STATUS_GOOD);
  EXPECT_EQ(Scanner().Word("resolution"), 150);
  EXPECT_EQ(info & SANE_INFO_INEXACT, 0) << "150 is what was asked";
}

TEST_F(SaneOptions, WhatChangesTheParametersSaysSo) {
  const auto info_of = [&](const char* name, auto value) {
    SANE_Int info = 0;
    EXPECT_EQ(Scanner().Set(name, value, &info), SANE_STATUS_GOOD) << name;
    return info;
  };
  EXPECT_NE(info_of("mode", std::string("Lineart")) & SANE_INFO_RELOAD_PARAMS, 0);
  EXPECT_NE(info_of("mode", std::string("Color")) & SANE_INFO_RELOAD_PARAMS, 0);
  EXPECT_NE(info_of("resolution", 100) & SANE_INFO_RELOAD_PARAMS, 0);
  EXPECT_NE(info_of("resolution", 200) & SANE_INFO_RELOAD_PARAMS, 0);
  EXPECT_NE(info_of("tl-x", SANE_FIX(10)) & SANE_INFO_RELOAD_PARAMS, 0);
  EXPECT_NE(info_of("br-y", SANE_FIX(50)) & SANE_INFO_RELOAD_PARAMS, 0);
}

TEST_F(SaneOptions, AnotherSourceHasAnotherBed) {
  devices_.clear();
  scanner_.reset();
  sim::DeviceOptions options = vox::test::SmallFeeder(1);
  options.feeder->physical_height = 40000;
  PutSmall(std::move(options));
  scanner_ = std::make_unique<SaneScanner>(*sane_, kSmall);
  ASSERT_EQ(Scanner().Set("source", "Flatbed"), SANE_STATUS_GOOD);
  EXPECT_NEAR(SANE_UNFIX(Range("br-y").max), 63.5, 0.001);
  SANE_Int info = 0;
  ASSERT_EQ(Scanner().Set("source", "ADF", &info), SANE_STATUS_GOOD);
  EXPECT_NE(info & SANE_INFO_RELOAD_OPTIONS, 0);
  EXPECT_NEAR(SANE_UNFIX(Range("br-y").max), 101.6, 0.001);
  ASSERT_EQ(Scanner().Set("br-y", SANE_FIX(100)), SANE_STATUS_GOOD);
  ASSERT_EQ(Scanner().Set("source", "Flatbed", &info), SANE_STATUS_GOOD);
  EXPECT_LE(Scanner().Word("br-y"), Range("br-y").max) << "no value lies beside its constraint";
}

TEST_F(SaneOptions, TheyStayWhereTheyAre) {
  std::vector<const SANE_Option_Descriptor*> before;
  for (SANE_Int i = 0; i < Scanner().Options(); ++i)
    before.push_back(sane_->get_option_descriptor(Scanner().Handle(), i));
  for (const char* source : {"ADF", "Flatbed", "ADF Duplex"})
    for (const char* mode : {"Lineart", "Gray", "Color"}) {
      ASSERT_EQ(Scanner().Set("source", source), SANE_STATUS_GOOD);
      ASSERT_EQ(Scanner().Set("mode", mode), SANE_STATUS_GOOD);
      SANE_Int count = 0;
      ASSERT_EQ(
          sane_->control_option(Scanner().Handle(), 0, SANE_ACTION_GET_VALUE, &count, nullptr),
          SANE_STATUS_GOOD);
      ASSERT_EQ(count, Scanner().Options());
      for (SANE_Int i = 0; i < count; ++i)
        EXPECT_EQ(sane_->get_option_descriptor(Scanner().Handle(), i),
                  before[static_cast<std::size_t>(i)]);
    }
}

TEST_F(SaneOptions, APreviewChangesNothingElse) {
  const std::string before = Everything();
  ASSERT_NE(before.find("preview=0\n"), std::string::npos);
  ASSERT_EQ(Scanner().Set("preview", SANE_TRUE), SANE_STATUS_GOOD);
  std::string expected = before;
  expected.replace(expected.find("preview=0"), 9, "preview=1");
  EXPECT_EQ(Everything(), expected);
  ASSERT_EQ(Scanner().Set("preview", SANE_FALSE), SANE_STATUS_GOOD);
  EXPECT_EQ(Everything(), before);
}

TEST_F(SaneOptions, WordsThatAreNoneAreInvalidAndChangeNothing) {
  const std::string before = Everything();
  for (const char* word : {"", "Sepia", "Grayy", "adf duplex back"}) {
    EXPECT_EQ(Scanner().Set("mode", word), SANE_STATUS_INVAL) << word;
    EXPECT_EQ(Scanner().Set("source", word), SANE_STATUS_INVAL) << word;
  }
  EXPECT_EQ(Scanner().Set("mode", std::string(100000, 'G')), SANE_STATUS_INVAL);
  EXPECT_EQ(Scanner().Set("preview", 7), SANE_STATUS_INVAL);
  EXPECT_EQ(Everything(), before);
}

TEST_F(SaneOptions, CallsThatMakeNoSenseAreRefused) {
  SANE_Word word = 0;
  const SANE_Handle handle = Scanner().Handle();
  const SANE_Int resolution = Scanner().Index("resolution");
  for (const SANE_Int index : {-1, Scanner().Options(), 1 << 30}) {
    for (const auto action : {SANE_ACTION_GET_VALUE, SANE_ACTION_SET_VALUE, SANE_ACTION_SET_AUTO})
      EXPECT_EQ(sane_->control_option(handle, index, action, &word, nullptr), SANE_STATUS_INVAL);
  }
  EXPECT_EQ(sane_->control_option(handle, 0, SANE_ACTION_SET_VALUE, &word, nullptr),
            SANE_STATUS_INVAL);
  EXPECT_EQ(sane_->control_option(handle, resolution, SANE_ACTION_GET_VALUE, nullptr, nullptr),
            SANE_STATUS_INVAL);
  EXPECT_EQ(sane_->control_option(handle, resolution, SANE_ACTION_SET_VALUE, nullptr, nullptr),
            SANE_STATUS_INVAL);
  EXPECT_NE(sane_->control_option(handle, resolution, SANE_ACTION_SET_AUTO, nullptr, nullptr),
            SANE_STATUS_GOOD)
      << "it is not an option that sets itself";
  EXPECT_NE(sane_->control_option(handle, resolution, static_cast<SANE_Action>(99), &word, nullptr),
            SANE_STATUS_GOOD);
}

TEST_F(SaneOptions, AnAreaInsideOutIsAllowedUntilTheStart) {
  ASSERT_EQ(Scanner().Set("tl-x", SANE_FIX(60)), SANE_STATUS_GOOD);
  ASSERT_EQ(Scanner().Set("br-x", SANE_FIX(30)), SANE_STATUS_GOOD);
  EXPECT_EQ(Scanner().Word("tl-x"), SANE_FIX(60));
  EXPECT_EQ(Scanner().Word("br-x"), SANE_FIX(30));
  const SANE_Parameters estimate = Scanner().Parameters();
  EXPECT_GE(estimate.pixels_per_line, 0);
  EXPECT_EQ(Scanner().Start(), SANE_STATUS_INVAL);
  ASSERT_EQ(Scanner().Set("tl-x", SANE_FIX(0)), SANE_STATUS_GOOD);
  ExpectGood(Scanner().Page());
}

TEST_F(SaneOptions, NothingIsSetWhileAPageRuns) {
  ASSERT_EQ(Scanner().Start(), SANE_STATUS_GOOD);
  const std::string before = Everything();
  for (const char* name : {"resolution", "tl-x", "br-y", "preview", "brightness"})
    EXPECT_NE(Scanner().Set(name, 0), SANE_STATUS_GOOD) << name;
  EXPECT_NE(Scanner().Set("mode", "Lineart"), SANE_STATUS_GOOD);
  EXPECT_NE(Scanner().Set("source", "Flatbed"), SANE_STATUS_GOOD);
  EXPECT_EQ(Everything(), before);
  Scanner().Cancel();
  EXPECT_EQ(Scanner().Set("mode", "Lineart"), SANE_STATUS_GOOD);
}

}  // namespace
}  // namespace vox::cli::test
