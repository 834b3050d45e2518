// The Linux side of what the library asks the desktop for.
#include <algorithm>
#include <string>
#include <vector>

#include <sched.h>

#include "tests/unit/prefs/Desktop.h"
#include "tests/unit/prefs/Process.h"
#include "vox/platform/DisplayNames.h"
#include "vox/platform/HelpViewer.h"

namespace vox {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;

class MountTableOnLinux : public ::testing::Test {
 protected:
  std::vector<Mount> Read(const std::string& text) {
    std::ofstream(scratch_.Path("mounts"), std::ios::binary) << text;
    return ReadMounts(scratch_.Path("mounts"));
  }
  Scratch scratch_;
};

TEST_F(MountTableOnLinux, IsReadInItsOrder) {
  EXPECT_THAT(Read("/dev/sda1 / ext4 rw,relatime 0 0\nproc /proc proc rw 0 0\n"),
              ElementsAre(Mount{"/dev/sda1", "/"}, Mount{"proc", "/proc"}));
}

TEST_F(MountTableOnLinux, EscapesAreDecoded) {
  EXPECT_THAT(Read("//nas/my\\040scans /media/my\\040scans cifs rw 0 0\n"),
              ElementsAre(Mount{"//nas/my scans", "/media/my scans"}));
  EXPECT_THAT(Read("a\\011b /c\\012d\\134e\\043f t o 0 0\n"),
              ElementsAre(Mount{"a\tb", "/c\nd\\e#f"}));
}

TEST_F(MountTableOnLinux, LinesMayBeLong) {
  std::string escaped = "/";
  for (int blank = 0; blank < 4095; ++blank) escaped += "\\040";
  const std::string longest = "/" + std::string(4095, ' '), options(40'000, 'o');
  EXPECT_THAT(Read(escaped + " " + escaped + " t " + options + " 0 0\nproc /proc proc rw 0 0\n"),
              ElementsAre(Mount{longest, longest}, Mount{"proc", "/proc"}));
}

TEST_F(MountTableOnLinux, MissingTableHasNoMounts) {
  EXPECT_THAT(ReadMounts(scratch_.Path("none")), IsEmpty());
}

TEST_F(MountTableOnLinux, ThisMachineHasARoot) {
  EXPECT_THAT(MountTable::Current().Mounts(), Contains(Field(&Mount::point, "/")));
}

TEST(HostNameOnLinux, IsTheMachines) {
  char name[256] = {};
  ASSERT_EQ(::gethostname(name, sizeof name - 1), 0);
  EXPECT_EQ(HostName::Current().Name(), name);
}

TEST(HostNameOnLinux, LongestNameIsWhole) {
  const std::string longest(64, 'n');
  constexpr int kMayNot = 77;
  const int failed =
      Process([&](Process&) {
        if (::unshare(CLONE_NEWUTS) != 0 || ::sethostname(longest.data(), longest.size()) != 0) {
          return kMayNot;
        }
        return HostName::Current().Name() == longest ? 0 : 1;
      }).Wait();
  if (failed == kMayNot) GTEST_SKIP() << "this user may not have a host name of its own";
  EXPECT_EQ(failed, 0);
}

class UnitsOnLinux : public ::testing::Test {
 protected:
  static std::string Units(const char* all, const char* measurement, const char* lang) {
    const Variable held_all("LC_ALL", all), held_measurement("LC_MEASUREMENT", measurement),
        held_lang("LANG", lang);
    return MeasurementUnits::Current().Name();
  }
};

TEST_F(UnitsOnLinux, WithoutALocaleAreMetric) {
  EXPECT_EQ(Units("", "", ""), "Centimeters");
  EXPECT_EQ(Units("C", "en_US.UTF-8", "en_US.UTF-8"), "Centimeters");
}

TEST_F(UnitsOnLinux, FollowTheMeasurementLocaleInstalledOrNot) {
  EXPECT_EQ(Units("", "en_US.UTF-8", "de_DE.UTF-8"), "Inches");
  EXPECT_EQ(Units("", "de_DE.UTF-8", "en_US.UTF-8"), "Centimeters");
  EXPECT_EQ(Units("", "", "en_US.UTF-8"), "Inches");
  EXPECT_EQ(Units("en_US.UTF-8", "de_DE.UTF-8", "de_DE.UTF-8"), "Inches");
}

TEST_F(UnitsOnLinux, TerritoriesOfInchesAreThree) {
  for (const char* inches : {"en_US.UTF-8", "es_US", "en_LR.UTF-8", "my_MM", "en_US@euro"}) {
    EXPECT_TRUE(MeasuresInInches(inches)) << inches;
  }
  for (const char* metric : {"", "C", "POSIX", "C.UTF-8", "en_GB.UTF-8", "en", "en_USA", "US"}) {
    EXPECT_FALSE(MeasuresInInches(metric)) << metric;
  }
}

class HelpViewerOnLinux : public Desktop {
 protected:
  std::string Book(const std::string& place) { return Folder(place + "/Guide.bundle"); }
  std::string Registered() const { return Path("home/.local/share/help/C/Guide"); }
};

TEST_F(HelpViewerOnLinux, BookAppearsInTheUsersHelpFolder) {
  EXPECT_EQ(HelpViewer::Current().RegisterBook(Book("a")), 0);
  EXPECT_EQ(std::filesystem::read_symlink(Registered()), Path("a/Guide.bundle"));
  EXPECT_EQ(HelpViewer::Current().RegisterBook(Book("a")), 0) << "a second time";
}

TEST_F(HelpViewerOnLinux, DataFolderOfTheUserIsHeeded) {
  const Variable data("XDG_DATA_HOME", Path("data"));
  EXPECT_EQ(HelpViewer::Current().RegisterBook(Book("a")), 0);
  EXPECT_TRUE(std::filesystem::is_symlink(Path("data/help/C/Guide")));
}

TEST_F(HelpViewerOnLinux, BookThatMovedIsRegisteredAnew) {
  EXPECT_EQ(HelpViewer::Current().RegisterBook(Book("a")), 0);
  EXPECT_EQ(HelpViewer::Current().RegisterBook(Book("b")), 0);
  EXPECT_EQ(std::filesystem::read_symlink(Registered()), Path("b/Guide.bundle"));
  const std::filesystem::directory_iterator entries(Path("home/.local/share/help/C"));
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1) << "nothing is left beside it";
}

TEST_F(HelpViewerOnLinux, WhatTheUserKeepsUnderTheNameIsLeftAlone) {
  Folder("home/.local/share/help/C/Guide");
  EXPECT_EQ(HelpViewer::Current().RegisterBook(Book("a")), EEXIST);
  EXPECT_TRUE(std::filesystem::is_directory(std::filesystem::symlink_status(Registered())));
  std::filesystem::remove(Registered());
  std::filesystem::create_symlink("/somewhere/else", Registered());
  EXPECT_EQ(HelpViewer::Current().RegisterBook(Book("a")), EEXIST);
  EXPECT_EQ(std::filesystem::read_symlink(Registered()), "/somewhere/else");
}

TEST_F(HelpViewerOnLinux, HelpFolderThatCannotBeMadeIsAnError) {
  Write(Path("home/.local"), "a file");
  EXPECT_EQ(HelpViewer::Current().RegisterBook(Book("a")), ENOTDIR);
}

class DisplayNamesOnLinux : public Desktop {
 protected:
  static std::optional<std::string> NameOf(const std::string& path) {
    return DisplayNames::Current().NameOf(path);
  }
};

TEST_F(DisplayNamesOnLinux, AreTheLeaves) {
  Write(Path("home/Scan 1.pdf"), "");
  EXPECT_EQ(NameOf(Path("home/Scan 1.pdf")), "Scan 1.pdf");
  EXPECT_EQ(NameOf(Path("home")), "home");
  EXPECT_EQ(NameOf(Path("home") + "//"), "home");
  EXPECT_EQ(NameOf("/"), "/");
  EXPECT_EQ(NameOf("//"), "/");
}

TEST_F(DisplayNamesOnLinux, AreValidText) {
  Write(Path("home/a\xFFz"), "");
  EXPECT_EQ(NameOf(Path("home/a\xFFz")), "a\uFFFDz");
}

TEST_F(DisplayNamesOnLinux, LinkIsShownByItsOwnName) {
  std::filesystem::create_symlink("/nowhere/at/all", Path("home/link"));
  EXPECT_EQ(NameOf(Path("home/link")), "link");
}

TEST_F(DisplayNamesOnLinux, FileMustBeThere) {
  EXPECT_EQ(NameOf(Path("home/none")), std::nullopt);
  EXPECT_EQ(NameOf(""), std::nullopt);
  EXPECT_EQ(NameOf(Path("home") + std::string("\0x", 2)), std::nullopt);
}

}  // namespace
}  // namespace vox
