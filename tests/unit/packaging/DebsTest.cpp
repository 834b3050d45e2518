// What the Debian packages say that is said elsewhere, too: the version, which packages build Vox,
// and what the library exports.
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/core/Scratch.h"
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

// The build of the packages does the same, at the level that debian/rules names.
class SymbolsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!IsHere("dpkg-gensymbols"))
      GTEST_SKIP() << "dpkg-gensymbols is not here (Debian: dpkg-dev)";
    ASSERT_NE(TextOf(std::string(kDebian) + "rules").find("DPKG_GENSYMBOLS_CHECK_LEVEL = 2"),
              std::string::npos);
  }
  // What dpkg-gensymbols finds wrong when the library is to have the symbols that the text lists.
  std::string Objections(const std::string& symbols) const {
    std::ofstream(scratch_.Path("symbols")) << symbols;
    int status = -1;
    const std::string said =
        Said("dpkg-gensymbols -c2 -plibvox1 -v" VOX_VERSION " -e'" VOX_LIBRARY "' -I'" +
                 scratch_.Path("symbols") + "' -O'" + scratch_.Path("found") + "' 2>&1 | c++filt",
             &status);
    return said.find("error: ") == said.npos ? "" : said;
  }
  const std::string symbols_ = TextOf(std::string(kDebian) + "libvox1.symbols");
  Scratch scratch_;
};

TEST_F(SymbolsTest, TheLibraryHasAllThatAreListedAndNoOthers) {
  EXPECT_EQ(Objections(symbols_), "");
}

TEST_F(SymbolsTest, ALostFunctionAndOneThatIsNotListedAreErrors) {
  EXPECT_THAT(Objections(symbols_ + " (c++)\"vox::Lost()@Base\" 1.0.0~\n"),
              testing::HasSubstr("+#MISSING: " VOX_VERSION "# (c++)\"vox::Lost()@Base"));
  const std::string line = " (c++)\"vox::SetUdpCommandPort(unsigned short)@Base\" 1.0.0~\n";
  std::string shorter = symbols_;
  const std::size_t at = shorter.find(line);
  ASSERT_NE(at, shorter.npos);
  EXPECT_THAT(Objections(shorter.erase(at, line.size())),
              testing::HasSubstr("+ vox::SetUdpCommandPort(unsigned short)@Base"));
}

}  // namespace
}  // namespace vox::test
