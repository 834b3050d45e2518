// The folders of the machine and of the user, each test in a scratch folder of its own.
#include "vox/platform/Folders.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/unit/core/Scratch.h"

namespace vox {
namespace {

namespace fs = std::filesystem;

class Folders : public ::testing::Test {
 protected:
  Folders() : tmpdir_("TMPDIR", scratch_.Path("tmp")), root_("VOX_ROOT", scratch_.Path("root")) {
    fs::create_directory(scratch_.Path("tmp"));
    fs::create_directory(scratch_.Path("root"));
  }
  static std::string Leaf() { return "com.veltronix.vox-" + std::to_string(::geteuid()); }
  std::string InTmpdir() const { return scratch_.Path("tmp/" + Leaf()); }
  std::string InVarTmp() const { return scratch_.Path("root/var/tmp/" + Leaf()); }
  static unsigned ModeOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0;
  }

  Scratch scratch_;
  Variable tmpdir_;
  Variable root_;
};

TEST_F(Folders, MachinePathHasTheRootInFront) {
  EXPECT_EQ(MachinePath("/var/tmp/x"), scratch_.Path("root") + "/var/tmp/x");
  const Variable slashed("VOX_ROOT", "/a/b//");
  EXPECT_EQ(MachinePath("/var/tmp/x"), "/a/b/var/tmp/x");
}

TEST_F(Folders, MachinePathIsUnchangedWithoutARoot) {
  const Variable unset("VOX_ROOT");
  EXPECT_EQ(MachinePath("/var/tmp/x"), "/var/tmp/x");
  const Variable empty("VOX_ROOT", "");
  EXPECT_EQ(MachinePath("/var/tmp/x"), "/var/tmp/x");
}

TEST_F(Folders, TemporaryFolderIsMadeForTheUserAlone) {
  const mode_t before = ::umask(0300);
  const std::string folder = UserTemporaryFolder();
  ::umask(before);
  EXPECT_EQ(folder, InTmpdir());
  EXPECT_EQ(ModeOf(folder), 0700u);
  EXPECT_EQ(UserTemporaryFolder(), folder);
}

TEST_F(Folders, TemporaryFolderThatIsTooOpenIsNarrowed) {
  fs::create_directory(InTmpdir());
  ::chmod(InTmpdir().c_str(), 0777);
  EXPECT_EQ(UserTemporaryFolder(), InTmpdir());
  EXPECT_EQ(ModeOf(InTmpdir()), 0700u);
}

TEST_F(Folders, LinkIsNotFollowed) {
  fs::create_directory(scratch_.Path("elsewhere"));
  fs::create_directory_symlink(scratch_.Path("elsewhere"), InTmpdir());
  EXPECT_EQ(UserTemporaryFolder(), InVarTmp());
}

TEST_F(Folders, FolderOfSomebodyElseIsNotUsed) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
  fs::create_directory(InTmpdir());
  ASSERT_EQ(::chown(InTmpdir().c_str(), 12345, 12345), 0);
  EXPECT_EQ(UserTemporaryFolder(), InVarTmp());
}

TEST_F(Folders, WithoutTmpdirItLiesInVarTmp) {
  for (const char* useless : {"", "relative", "/nowhere/at/all"}) {
    const Variable tmpdir("TMPDIR", useless);
    EXPECT_EQ(UserTemporaryFolder(), InVarTmp()) << useless;
  }
  const Variable unset("TMPDIR");
  EXPECT_EQ(UserTemporaryFolder(), InVarTmp());
}

TEST_F(Folders, EmptyWhenNoPlaceWillDo) {
  std::ofstream(InTmpdir()) << "a file";
  std::ofstream(scratch_.Path("root/var")) << "a file";
  EXPECT_EQ(UserTemporaryFolder(), "");
}

}  // namespace
}  // namespace vox
