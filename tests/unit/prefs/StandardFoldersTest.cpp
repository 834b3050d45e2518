// Where the desktop says that folders lie.
#include <string>

#include "tests/unit/prefs/Desktop.h"
#include "vox/platform/Folders.h"
#include "vox/platform/UserDirectories.h"

namespace vox {
namespace {

class StandardFolders : public Desktop {
 protected:
  static std::optional<std::string> Documents() {
    return StandardFolder(kDocumentsFolder, FolderDomain::UserDomain);
  }
};

TEST_F(StandardFolders, OfTheMachineHaveTheRootInFront) {
  EXPECT_EQ(StandardFolder(kPreferencesFolder, FolderDomain::LocalDomain), Path("root/var/lib"));
  const Variable unset("VOX_ROOT");
  EXPECT_EQ(StandardFolder(kPreferencesFolder, FolderDomain::LocalDomain), "/var/lib");
  EXPECT_EQ(StandardFolder(kApplicationSupportFolder, FolderDomain::SystemDisk), "/usr/share");
}

TEST_F(StandardFolders, HomeIsTheVariableElseTheUserDatabase) {
  EXPECT_EQ(UserHome(), Path("home"));
  const Variable slashed("HOME", "/home/me//");
  EXPECT_EQ(UserHome(), "/home/me");
  for (const char* useless : {"", "me"}) {
    const Variable home("HOME", useless);
    EXPECT_EQ(UserHome().front(), '/') << "this user has an entry";
  }
}

TEST_F(StandardFolders, OfTheUserFollowTheVariables) {
  EXPECT_EQ(UserConfigFolder(), Path("home/.config"));
  EXPECT_EQ(UserDataFolder(), Path("home/.local/share"));
  const Variable data("XDG_DATA_HOME", "/srv/data/");
  EXPECT_EQ(UserDataFolder(), "/srv/data");
  const Variable config("XDG_CONFIG_HOME", "relative");
  EXPECT_EQ(UserConfigFolder(), Path("home/.config"));
  const Variable root("HOME", "/");
  EXPECT_EQ(UserConfigFolder(), "/.config");
}

TEST_F(StandardFolders, DocumentsLieInTheHome) {
  EXPECT_EQ(Documents(), Path("home/Documents"));
}

TEST_F(StandardFolders, DocumentsLieWhereTheUserPutThem) {
  Write(
      Path("home/.config/user-dirs.dirs"),
      "# written by hand\nXDG_MUSIC_DIR=\"$HOME/Musik\"\nXDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n");
  EXPECT_EQ(Documents(), Path("home/Dokumente"));
  const Variable config("XDG_CONFIG_HOME", Folder("other"));
  EXPECT_EQ(Documents(), Path("home/Documents"));
}

TEST_F(StandardFolders, FileInThePlaceOfAFolderIsNotFound) {
  Write(Path("home/Documents"), "a file");
  EXPECT_EQ(FindFolder(kDocumentsFolder, FolderDomain::UserDomain), std::nullopt);
}

TEST(UserDirectories, AreReadAsWritten) {
  const struct {
    const char* text;
    std::optional<std::string> path;
    const char* why;
  } rows[] = {
      {"D=\"$HOME/Docs\"\n", "/h/Docs", "below the home"},
      {"D=\"$HOME/Docs\"", "/h/Docs", "no line end"},
      {" \tD = \"$HOME/Docs\" # mine", "/h/Docs", "blanks and a remark"},
      {"D=\"/srv/docs/\"", "/srv/docs", "absolute, slash at the end"},
      {"D=\"$HOME\"", "/h", "the home itself"},
      {"D=\"$HOME/\"", "/h", "the home itself, with a slash"},
      {"D=\"/\"", "/", "the root"},
      {"D=\"$HOME/a \\\"b\\\" \\$c \\\\\"", "/h/a \"b\" $c \\", "escaped characters"},
      {"D=\"/a\"\nD=\"/b\"\n", "/b", "the last one counts"},
      {"D=\"/a\"\nD=\"relative\"\n", "/a", "the last well-formed one"},
      {"#D=\"/a\"\n", std::nullopt, "a comment"},
      {"DD=\"/a\"\nE=\"/a\"", std::nullopt, "other names"},
      {"D=/a", std::nullopt, "no quotation marks"},
      {"D=\"/a", std::nullopt, "no closing one"},
      {"D=\"/a\\\"", std::nullopt, "the closing one is escaped"},
      {"D=\"/a\\", std::nullopt, "ends within an escape"},
      {"D=\"relative\"", std::nullopt, "relative"},
      {"D=\"$HOMEx\"", std::nullopt, "not the home"},
      {"D=\"~/a\"", std::nullopt, "no shell"},
      {"D=\"\"", std::nullopt, "nothing"},
      {"D", std::nullopt, "a name alone"},
      {"", std::nullopt, "an empty file"},
  };
  for (const auto& row : rows) EXPECT_EQ(UserDirectory(row.text, "D", "/h"), row.path) << row.why;
  EXPECT_EQ(UserDirectory("D=\"$HOME/a\"", "D", "/"), "/a") << "the root as home";
  EXPECT_EQ(UserDirectory(std::string("D=\"/a\0b\"", 8), "D", "/h"), std::nullopt) << "a NUL";
}

}  // namespace
}  // namespace vox
