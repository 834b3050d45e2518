// Values and dictionaries in memory: what each accessor says of each type, copies and equality.
#include "vox/platform/PropertyValue.h"

#include <cmath>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include "tests/support/NoMemory.h"

namespace vox {
namespace {

static_assert(!std::is_constructible_v<PropertyValue, void*>, "a pointer is no truth value");
static_assert(!std::is_default_constructible_v<PropertyValue>, "no value is std::nullopt");

constexpr Date kDay{std::chrono::seconds(978307200)};

// One value of each type, in the order of PropertyValue::Type.
const PropertyValue kEach[] = {"text",     7,    1.5,      true,
                               Data{1, 2}, kDay, Array{1}, Dictionary{{"k", 1}}};

TEST(PropertyValue, EachAccessorAnswersItsOwnTypeAlone) {
  for (const PropertyValue& value : kEach) {
    const auto type = value.GetType();
    SCOPED_TRACE(static_cast<int>(type));
    EXPECT_EQ(&value - kEach, static_cast<int>(type));
    EXPECT_EQ(value.String().has_value(), type == PropertyValue::Type::kString);
    EXPECT_EQ(value.Integer().has_value(), type == PropertyValue::Type::kInteger);
    EXPECT_EQ(value.Unsigned().has_value(), type == PropertyValue::Type::kInteger);
    EXPECT_EQ(value.Real().has_value(), type == PropertyValue::Type::kReal);
    EXPECT_EQ(value.Boolean().has_value(), type == PropertyValue::Type::kBoolean);
    EXPECT_EQ(value.GetData().has_value(), type == PropertyValue::Type::kData);
    EXPECT_EQ(value.GetDate().has_value(), type == PropertyValue::Type::kDate);
    EXPECT_EQ(value.AsString() != nullptr, type == PropertyValue::Type::kString);
    EXPECT_EQ(value.AsData() != nullptr, type == PropertyValue::Type::kData);
    EXPECT_EQ(value.AsArray() != nullptr, type == PropertyValue::Type::kArray);
    EXPECT_EQ(value.AsDictionary() != nullptr, type == PropertyValue::Type::kDictionary);
  }
}

TEST(PropertyValue, ValuesComeBack) {
  EXPECT_EQ(kEach[0].String(), "text");
  EXPECT_EQ(kEach[1].Integer(), 7);
  EXPECT_EQ(kEach[2].Real(), 1.5);
  EXPECT_EQ(kEach[3].Boolean(), true);
  EXPECT_EQ(kEach[4].GetData(), (Data{1, 2}));
  EXPECT_EQ(kEach[5].GetDate(), kDay);
  EXPECT_EQ(*kEach[6].AsArray(), Array{1});
  EXPECT_EQ(kEach[7].AsDictionary()->Integer("k"), 1);
}

TEST(PropertyValue, IntegersOfBothKindsHaveOneForm) {
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
  constexpr auto kWide = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(PropertyValue(5u), PropertyValue(std::int64_t{5}));
  EXPECT_EQ(PropertyValue(std::uint64_t{kMax}), PropertyValue(kMax));
  EXPECT_EQ(PropertyValue(kMin).Integer(), kMin);
  EXPECT_EQ(PropertyValue(kMin).Unsigned(), std::nullopt);
  EXPECT_EQ(PropertyValue(kWide).Unsigned(), kWide);
  EXPECT_EQ(PropertyValue(kWide).Integer(), std::nullopt);
  EXPECT_EQ(PropertyValue(kWide).GetType(), PropertyValue::Type::kInteger);
  EXPECT_NE(PropertyValue(kWide), PropertyValue(-1));
}

TEST(PropertyValue, NumberAndTruthReadAllThatCounts) {
  EXPECT_EQ(PropertyValue(-3).Number(), -3.0);
  EXPECT_EQ(PropertyValue(std::numeric_limits<std::uint64_t>::max()).Number(), std::ldexp(1.0, 64));
  EXPECT_EQ(PropertyValue(0.25).Number(), 0.25);
  EXPECT_EQ(PropertyValue(true).Number(), 1.0);
  EXPECT_EQ(PropertyValue("1").Number(), std::nullopt);
  EXPECT_EQ(PropertyValue(2).Truth(), true);
  EXPECT_EQ(PropertyValue(0.0).Truth(), false);
  EXPECT_EQ(PropertyValue(false).Truth(), false);
  EXPECT_EQ(PropertyValue("true").Truth(), std::nullopt);
}

TEST(PropertyValue, TextOfANullPointerIsEmpty) {
  EXPECT_EQ(PropertyValue(static_cast<const char*>(nullptr)).String(), "");
}

TEST(PropertyValue, EqualityIsOfTypeAndContent) {
  for (const PropertyValue& a : kEach) {
    for (const PropertyValue& b : kEach) EXPECT_EQ(a == b, &a == &b);
  }
  EXPECT_NE(PropertyValue(1), PropertyValue(1.0));
  EXPECT_NE(PropertyValue(1), PropertyValue(true));
  EXPECT_EQ(PropertyValue(std::nan("")), PropertyValue(std::nan("")));
  EXPECT_EQ(PropertyValue(Array{1, Array{"a"}}), PropertyValue(Array{1, Array{"a"}}));
  EXPECT_NE(PropertyValue(Array{1, Array{"a"}}), PropertyValue(Array{1, Array{"b"}}));
}

TEST(PropertyValue, CopiesDoNotShareChanges) {
  const PropertyValue original = Dictionary{{"name", "one"}};
  Dictionary changed = *original.AsDictionary();
  changed.Set("name", "two");
  EXPECT_EQ(original.AsDictionary()->String("name"), "one");
}

TEST(PropertyValue, MayBecomeAPartOfItself) {
  PropertyValue value = Array{PropertyValue(Array{7})};
  value = (*value.AsArray())[0];
  value = (*value.AsArray())[0];
  EXPECT_EQ(value, PropertyValue(7));
}

const std::string kLong(100, 'x');  // beyond what a string holds in itself

template <class Call>
void BearingShortage(Call call) {
  try {
    call();
  } catch (const std::bad_alloc&) {  // which is what it may do
  }
}

// AddressSanitizer sees what a copy that failed has left, and what it has destroyed that never was.
TEST(PropertyValue, ACopyWithoutMemoryLeavesNothing) {
  const PropertyValue originals[] = {kLong, Data(100), Array{kLong}, Dictionary{{kLong, kLong}}, 7};
  for (const PropertyValue& original : originals) {
    std::optional<PropertyValue> copy;
    test::EachShortage([&] { BearingShortage([&] { copy = PropertyValue(original); }); },
                       [&](bool failed) {
                         ASSERT_EQ(copy.has_value(), !failed);
                         if (copy) {
                           EXPECT_EQ(*copy, original);
                         }
                       });
  }
}

TEST(PropertyValue, AnAssignmentWithoutMemoryLeavesTheFormerValue) {
  const PropertyValue former = Array{kLong, kLong}, next = kLong;
  PropertyValue value = former;
  test::EachShortage([&] { BearingShortage([&] { value = next; }); },
                     [&](bool failed) { EXPECT_EQ(value, failed ? former : next); });
}

TEST(Dictionary, ACopyWithoutMemoryLeavesNothing) {
  const Dictionary original{{"a", kLong}, {"b", Data(100)}, {"c", Array{kLong}}, {kLong, 1}};
  Dictionary copy;
  test::EachShortage([&] { BearingShortage([&] { copy = Dictionary(original); }); },
                     [&](bool failed) { EXPECT_EQ(copy, failed ? Dictionary() : original); });
}

TEST(Dictionary, AnArrayCopiedWithoutMemoryLeavesNothing) {
  const Array original{kLong, 7, Data(100), kLong};
  Array copy;
  test::EachShortage([&] { BearingShortage([&] { copy = Array(original); }); },
                     [&](bool failed) { EXPECT_EQ(copy, failed ? Array() : original); });
}

TEST(Dictionary, AnswersLikeItsValues) {
  const Dictionary all{{"s", "t"},  {"i", 1},       {"r", 0.5},
                       {"b", true}, {"a", Array{}}, {"d", Dictionary{}}};
  EXPECT_EQ(all.String("s"), "t");
  EXPECT_EQ(all.Integer("i"), 1);
  EXPECT_EQ(all.Number("r"), 0.5);
  EXPECT_EQ(all.Boolean("b"), true);
  EXPECT_EQ(all.Truth("i"), true);
  EXPECT_NE(all.AsArray("a"), nullptr);
  EXPECT_NE(all.AsDictionary("d"), nullptr);
  EXPECT_EQ(all.Value("i"), PropertyValue(1));
}

TEST(Dictionary, SaysNothingOfWrongTypesAndMissingKeys) {
  const Dictionary all{{"s", "t"}, {"i", 1}};
  for (const char* key : {"i", "missing"}) {
    EXPECT_EQ(all.String(key), std::nullopt);
    EXPECT_EQ(all.Boolean(key), std::nullopt);
    EXPECT_EQ(all.AsArray(key), nullptr);
    EXPECT_EQ(all.AsDictionary(key), nullptr);
  }
  for (const char* key : {"s", "missing"}) {
    EXPECT_EQ(all.Integer(key), std::nullopt);
    EXPECT_EQ(all.Number(key), std::nullopt);
    EXPECT_EQ(all.Truth(key), std::nullopt);
  }
  EXPECT_EQ(all.Value("missing"), std::nullopt);
}

TEST(Dictionary, SetsReplacesAndRemoves) {
  Dictionary all;
  EXPECT_TRUE(all.IsEmpty());
  all.Set("b", 1);
  all.Set("a", 2);
  all.Set("b", "new");
  EXPECT_EQ(all.Keys(), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(all.String("b"), "new");
  EXPECT_TRUE(all.Remove("b"));
  EXPECT_FALSE(all.Remove("b"));
  EXPECT_EQ(all, (Dictionary{{"a", 2}}));
  EXPECT_EQ(all.Size(), 1u);
}

}  // namespace
}  // namespace vox
