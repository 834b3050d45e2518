// What the Debian packages say that is said elsewhere, too: the version, and which packages build
// Vox.
#include <set>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/packaging/Said.h"

namespace vox::test {
namespace {

using testing::Contains;
using testing::SizeIs;

constexpr char kDebian[] = VOX_SOURCE_DIR "/packaging/debian/";

// The packages of the list without the sections that only tests want.
std::set<std::string> ThatAreInstalled() {
  std::set<std::string> packages;
  std::istringstream lines(TextOf(VOX_SOURCE_DIR "/packaging/build-packages.txt"));
  bool wanted = true;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '[') {
      wanted = line == "[usb]" || line == "[debs]";
    } else if (wanted) {
      packages.insert(line);
    }
  }
  return packages;
}

// The names behind "Build-Depends:", without versions; what begins with "debhelper" or "dh-" is
// debhelper's own.
std::set<std::string> ThatAreAskedFor() {
  std::set<std::string> packages;
  const std::string control = TextOf(std::string(kDebian) + "control"), field = "Build-Depends:";
  const std::size_t begin = control.find(field);
  if (begin == control.npos) return packages;
  std::istringstream entries(control.substr(
      begin + field.size(), control.find("\nStandards-Version", begin) - begin - field.size()));
  for (std::string entry; std::getline(entries, entry, ',');) {
    std::istringstream words(entry);
    std::string name;
    words >> name;
    if (name.starts_with("debhelper") || name.starts_with("dh-")) name = "debhelper";
    packages.insert(name);
  }
  return packages;
}

TEST(DebsTest, WhatTheyAreBuiltWithIsInstalledByTheScripts) {
  const std::set<std::string> asked = ThatAreAskedFor(), installed = ThatAreInstalled();
  ASSERT_THAT(asked, SizeIs(testing::Gt(10U)));
  for (const std::string& package : asked) EXPECT_THAT(installed, Contains(package));
}

TEST(DebsTest, TheirVersionIsThatOfThePrograms) {
  const std::string changelog = TextOf(std::string(kDebian) + "changelog");
  EXPECT_EQ(changelog.substr(0, changelog.find(')') + 1), "vox (" VOX_VERSION ")");
}

}  // namespace
}  // namespace vox::test
