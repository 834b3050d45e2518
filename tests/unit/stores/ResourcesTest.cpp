// Where the library finds its own tables.
#include "vox/platform/Resources.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tests/unit/core/Scratch.h"

namespace vox {
namespace {

bool IsInAFolder(const std::string& path) {
  return std::filesystem::is_directory(std::filesystem::path(path).parent_path());
}

TEST(Resources, AreThoseOfTheBuildTreeInTheBuildTree) {
  const Variable unset("VOX_RESOURCES");
  EXPECT_TRUE(IsInAFolder(ResourcePath("SupportedDevices", "plist")));
}

TEST(Resources, FolderOfTheEnvironmentComesFirst) {
  const Variable named("VOX_RESOURCES", "/some/where");
  EXPECT_EQ(ResourcePath("PaperSizes", "plist"), "/some/where/PaperSizes.plist");
}

TEST(Resources, EmptyVariableIsNone) {
  const Variable empty("VOX_RESOURCES", "");
  EXPECT_TRUE(IsInAFolder(ResourcePath("PaperSizes", "plist")));
}

}  // namespace
}  // namespace vox
