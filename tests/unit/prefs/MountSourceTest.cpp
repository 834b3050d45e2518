// Which mounted volume a chosen folder is said to lie on.
#include <optional>
#include <string>
#include <vector>

#include "tests/unit/prefs/Desktop.h"

namespace vox {
namespace {

class MountSource : public Desktop {
 protected:
  std::optional<std::string> Of(const std::string& path) {
    Prefs().setPushScanTargetFolder(path);
    EXPECT_EQ(Stored(UserFile()).String("pushScanTargetPath"), path);
    return Stored(UserFile()).String("pushScanTargetPathMountPoint");
  }
};

TEST_F(MountSource, IsThatOfTheLongestMatch) {
  mounts_.mounts = {{"/dev/root", "/"},
                    {"/dev/home", "/home"},
                    {"/dev/stick", "/home/me/stick"},
                    {"tmpfs", "/tmp"}};
  EXPECT_EQ(Of("/home/me/scans"), "/dev/home");
  EXPECT_EQ(Of("/home/me/stick/scans"), "/dev/stick");
  EXPECT_EQ(Of("/home/me/stick"), "/dev/stick");
  EXPECT_EQ(Of("/tmp/scans"), "tmpfs");
}

TEST_F(MountSource, OrderOfTheTableDoesNotMatterForTheLength) {
  mounts_.mounts = {{"/dev/stick", "/home/me/stick"}, {"/dev/home", "/home"}, {"/dev/root", "/"}};
  EXPECT_EQ(Of("/home/me/stick/scans"), "/dev/stick");
  EXPECT_EQ(Of("/home/me/scans"), "/dev/home");
}

TEST_F(MountSource, IsThatOfTheFirstMountWhenNothingMatches) {
  mounts_.mounts = {{"proc", "/proc"}, {"/dev/root", "/"}, {"/dev/home", "/home"}};
  EXPECT_EQ(Of("/srv/scans"), "proc") << "the root is never chosen for a match";
  mounts_.mounts = {{"/dev/root", "/"}, {"/dev/home", "/home"}};
  EXPECT_EQ(Of("/srv/scans"), "/dev/root") << "for being the first";
  EXPECT_EQ(Of(""), "/dev/root");
}

TEST_F(MountSource, LastCharacterOfTheMountPointIsLeftOut) {
  mounts_.mounts = {{"/dev/root", "/"}, {"/dev/one", "/media/disk1"}};
  EXPECT_EQ(Of("/media/disk"), "/dev/one");
  EXPECT_EQ(Of("/media/disk2/scans"), "/dev/one");
  EXPECT_EQ(Of("/media/diskette"), "/dev/one");
  EXPECT_EQ(Of("/media/dis"), "/dev/root") << "shorter than what is compared";
}

TEST_F(MountSource, OneCharacterBelowTheRootMatchesEveryPath) {
  mounts_.mounts = {{"/dev/root", "/"}, {"/dev/a", "/a"}};
  EXPECT_EQ(Of("/srv/scans"), "/dev/a") << "a match of one character, the slash";
}

TEST_F(MountSource, EqualMatchesKeepTheEarlierMount) {
  mounts_.mounts = {{"/dev/root", "/"}, {"/dev/one", "/media/disk1"}, {"/dev/two", "/media/disk2"}};
  EXPECT_EQ(Of("/media/disk2/scans"), "/dev/one") << "both match but for the last character";
  mounts_.mounts = {{"/dev/root", "/"}, {"/dev/below", "/mnt"}, {"/dev/above", "/mnt"}};
  EXPECT_EQ(Of("/mnt/scans"), "/dev/below");
}

TEST_F(MountSource, MountPointWithoutTextMatchesNothing) {
  mounts_.mounts = {{"/dev/root", "/"}, {"/dev/odd", ""}};
  EXPECT_EQ(Of("/srv/scans"), "/dev/root");
}

TEST_F(MountSource, IsForgottenWhenNothingIsMounted) {
  mounts_.mounts = {{"/dev/root", "/"}};
  EXPECT_EQ(Of("/srv/scans"), "/dev/root");
  mounts_.mounts.clear();
  EXPECT_EQ(Of("/srv/scans"), std::nullopt);
}

TEST_F(MountSource, NilTakesTheFolderAndItsVolumeAway) {
  mounts_.mounts = {{"/dev/root", "/"}};
  EXPECT_EQ(Of("/srv/scans"), "/dev/root");
  Prefs().setPushScanTargetFolder(std::nullopt);
  EXPECT_TRUE(Stored(UserFile()).IsEmpty());
}

}  // namespace
}  // namespace vox
