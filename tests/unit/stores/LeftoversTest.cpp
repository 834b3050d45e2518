// What killed writers have left goes with the next replacement in the folder, and nothing else
// does.
#include "vox/platform/Leftovers.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/unit/core/Scratch.h"
#include "vox/platform/FileReplacement.h"

namespace vox {
namespace {

namespace fs = std::filesystem;

class Leftovers : public ::testing::Test {
 protected:
  Leftovers() : folder_(scratch_.Path("folder")) { fs::create_directory(folder_); }

  std::string Path(const std::string& leaf) const { return folder_ + "/" + leaf; }
  // A file, or what else bears the name already, that was changed `seconds` ago.
  void Put(const std::string& leaf, std::time_t seconds) const {
    if (!fs::exists(fs::symlink_status(Path(leaf)))) std::ofstream(Path(leaf)) << "half";
    const timespec then{std::time(nullptr) - seconds, 0};
    const timespec times[] = {then, then};
    ASSERT_EQ(::utimensat(AT_FDCWD, Path(leaf).c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << leaf;
  }
  std::vector<std::string> Leaves() const {
    std::vector<std::string> leaves;
    for (const auto& entry : fs::directory_iterator(folder_))
      leaves.push_back(entry.path().filename());
    std::sort(leaves.begin(), leaves.end());
    return leaves;
  }

  Scratch scratch_;
  std::string folder_;
};

TEST_F(Leftovers, OldOnesGoWithTheNextReplacement) {
  Put(".vox-aB3xyZ", kLeftoverAge + 60);
  Put(".vox-young1", kLeftoverAge - 60);
  Put(".vox-future", -kLeftoverAge);
  EXPECT_EQ(ReplaceFile(Path("a.plist"), "whole"), 0);
  EXPECT_THAT(Leaves(), testing::ElementsAre(".vox-future", ".vox-young1", "a.plist"));
}

TEST_F(Leftovers, WhatIsNoWritersFileStays) {
  constexpr std::time_t kOld = 100 * kLeftoverAge;
  fs::create_directory(Path(".vox-folder"));
  fs::create_symlink("a.plist", Path(".vox-linked"));
  const std::vector<std::string> others = {".vox-",        ".vox-folder", ".vox-linked",
                                           ".vox-seven77", ".vox-short",  "a.plist",
                                           "vox-abcdef",   "x.vox-abcde"};
  for (const std::string& leaf : others) Put(leaf, kOld);
  EXPECT_EQ(ReplaceFile(Path("a.plist"), "whole"), 0);
  EXPECT_THAT(Leaves(), testing::ElementsAreArray(others));
}

TEST_F(Leftovers, OtherPeoplesFilesStay) {
  Put(".vox-theirs", 0);
  if (::chown(Path(".vox-theirs").c_str(), 12345, 12345) != 0)
    GTEST_SKIP() << "needs a file of somebody else's";
  Put(".vox-theirs", 100 * kLeftoverAge);
  EXPECT_EQ(ReplaceFile(Path("a.plist"), "whole"), 0);
  EXPECT_THAT(Leaves(), testing::ElementsAre(".vox-theirs", "a.plist"));
}

}  // namespace
}  // namespace vox
