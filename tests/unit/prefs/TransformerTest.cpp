// Paths shown as the file browser shows them, and the registry of transformers.
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/prefs/Desktop.h"
#include "vox/FullPathToLeafTransformer.h"
#include "vox/platform/DisplayNames.h"

namespace vox {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FakeDisplayNames final : public DisplayNames {
 public:
  std::optional<std::string> NameOf(const std::string& path) override { return "Shown: " + path; }
};

class Transformer : public Desktop {
 protected:
  ~Transformer() override { ValueTransformer::setValueTransformerForName(nullptr, kName); }
  std::optional<PropertyValue> Shown(const std::optional<PropertyValue>& value) const {
    return transformer_.transformedValue(value);
  }
  static constexpr const char* kName = "FullPathToLeafTransformer";
  FullPathToLeafTransformer transformer_;
};

TEST_F(Transformer, GivesTextAndGoesOneWay) {
  EXPECT_EQ(transformer_.transformedValueClass(), PropertyValue::Type::kString);
  EXPECT_FALSE(transformer_.allowsReverseTransformation());
}

TEST_F(Transformer, PathBecomesTheNameOfItsFile) {
  EXPECT_EQ(Shown(Folder("home/My Scans")), "My Scans");
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(Transformer, NameComesFromTheDesktop) {
  FakeDisplayNames names;
  const DisplayNames::Replaced held(names);
  EXPECT_EQ(Shown("/x"), "Shown: /x");
}

TEST_F(Transformer, WhatIsNoTextIsNil) {
  EXPECT_EQ(Shown(std::nullopt), std::nullopt);
  EXPECT_EQ(Shown(5), std::nullopt);
  EXPECT_EQ(Shown(Data{'/'}), std::nullopt);
  EXPECT_EQ(Shown(Array{"/"}), std::nullopt);
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(Transformer, PathWithoutAFileIsNilWithALogLine) {
  EXPECT_EQ(Shown("/no/such/%s file"), std::nullopt);
  EXPECT_EQ(Shown(""), std::nullopt);
  EXPECT_THAT(log_, ElementsAre("-[FullPathToLeafTransformer transformedValue:]: failed to get "
                                "display name for path /no/such/%s file",
                                "-[FullPathToLeafTransformer transformedValue:]: failed to get "
                                "display name for path "));
}

TEST_F(Transformer, LongestPathIsLoggedWhole) {
  const std::string longest = "/" + std::string(4094, 'x');
  EXPECT_EQ(Shown(longest), std::nullopt);
  EXPECT_THAT(log_, ElementsAre("-[FullPathToLeafTransformer transformedValue:]: failed to get "
                                "display name for path " +
                                longest));
}

TEST_F(Transformer, LineOfTheLogIsCutInTheEnd) {
  EXPECT_EQ(Shown("/" + std::string(100'000, 'x')), std::nullopt);
  ASSERT_EQ(log_.size(), 1u);
  EXPECT_EQ(log_[0].size(), 9215u);
}

TEST_F(Transformer, IsFoundByNameOnceSubmitted) {
  EXPECT_EQ(ValueTransformer::valueTransformerForName(kName), nullptr);
  FullPathToLeafTransformer::submit();
  const auto found = ValueTransformer::valueTransformerForName(kName);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->transformedValue(Folder("home/x")), "x");
}

TEST_F(Transformer, SubmittedAgainTakesThePlaceOfTheFormer) {
  FullPathToLeafTransformer::submit();
  const auto former = ValueTransformer::valueTransformerForName(kName);
  FullPathToLeafTransformer::submit();
  EXPECT_NE(ValueTransformer::valueTransformerForName(kName), former);
  EXPECT_FALSE(former->allowsReverseTransformation()) << "whoever has it may keep it";
}

TEST_F(Transformer, RegistryBearsThreads) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([] {
      for (int turn = 0; turn < 100; ++turn) {
        FullPathToLeafTransformer::submit();
        EXPECT_NE(ValueTransformer::valueTransformerForName(kName), nullptr);
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace vox
