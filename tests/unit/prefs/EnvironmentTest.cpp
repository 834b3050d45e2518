// What the environment says about folders, and how help books are registered.
#include "vox/Environment.h"

#include <string>
#include <vector>

#include "tests/unit/prefs/Desktop.h"
#include "vox/platform/HelpViewer.h"

namespace vox {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RefusingHelpViewer final : public HelpViewer {
 public:
  int RegisterBook(const std::string& bundle) override {
    asked.push_back(bundle);
    return EACCES;
  }
  std::vector<std::string> asked;
};

class EnvironmentOfUser : public Desktop {
 protected:
  static Environment& Env() { return Environment::instance(); }
  std::string Bundle() const {
    return Path("root/usr/share/Veltronix Vox/Veltronix_Vox_Help.bundle");
  }
};

TEST_F(EnvironmentOfUser, FindsFoldersThatExist) {
  Folder("home/Documents");
  EXPECT_EQ(Env().findFolderInDomain(kPreferencesFolder, FolderDomain::LocalDomain),
            Path("root/var/lib"));
  EXPECT_EQ(Env().findFolderInDomain(kApplicationSupportFolder, FolderDomain::SystemDisk),
            Path("root/usr/share"));
  EXPECT_EQ(Env().findFolderInDomain(kDocumentsFolder, FolderDomain::UserDomain),
            Path("home/Documents"));
}

TEST_F(EnvironmentOfUser, FolderThatDoesNotExistIsNilAndNotMade) {
  std::filesystem::remove_all(Path("root"));
  EXPECT_EQ(Env().findFolderInDomain(kPreferencesFolder, FolderDomain::LocalDomain), std::nullopt);
  EXPECT_EQ(Env().findFolderInDomain(kApplicationSupportFolder, FolderDomain::SystemDisk),
            std::nullopt);
  EXPECT_EQ(Env().findFolderInDomain(kDocumentsFolder, FolderDomain::UserDomain), std::nullopt);
  EXPECT_EQ(Env().findFolderInDomain(kTemporaryFolder, FolderDomain::UserDomain), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(Path("root")));
  EXPECT_FALSE(std::filesystem::exists(Path("home/Documents")));
  EXPECT_TRUE(std::filesystem::is_empty(Path("tmp")));
}

TEST_F(EnvironmentOfUser, TemporaryFolderIsFoundOnceItWasAskedFor) {
  const std::string folder = Env().userTemporaryFolder();
  EXPECT_EQ(Env().findFolderInDomain(kTemporaryFolder, FolderDomain::UserDomain), folder);
  ::chmod(folder.c_str(), 0777);
  EXPECT_EQ(Env().findFolderInDomain(kTemporaryFolder, FolderDomain::UserDomain), folder);
  EXPECT_EQ(ModeOf(folder), 0700u) << "narrowed before it is used";
}

TEST_F(EnvironmentOfUser, UnknownTypeOrDomainIsNil) {
  EXPECT_EQ(Env().findFolderInDomain({"what"}, FolderDomain::UserDomain), std::nullopt);
  EXPECT_EQ(Env().findFolderInDomain({"pre"}, FolderDomain::LocalDomain), std::nullopt);
  EXPECT_EQ(Env().findFolderInDomain({""}, FolderDomain::LocalDomain), std::nullopt);
  EXPECT_EQ(Env().findFolderInDomain(kPreferencesFolder, FolderDomain::SystemDisk), std::nullopt);
  EXPECT_EQ(Env().findFolderInDomain(kTemporaryFolder, FolderDomain::LocalDomain), std::nullopt);
  EXPECT_EQ(Env().findFolderInDomain(kDocumentsFolder, FolderDomain::SystemDisk), std::nullopt);
}

TEST_F(EnvironmentOfUser, HelpBookIsRegistered) {
  std::filesystem::create_directories(Bundle());
  EXPECT_TRUE(Env().registerHelpBook());
  EXPECT_THAT(log_, ElementsAre("-[Environment registerHelpBook]: success register help book(" +
                                Bundle() + ")"));
  EXPECT_EQ(std::filesystem::read_symlink(Path("home/.local/share/help/C/Veltronix_Vox_Help")),
            Bundle());
}

TEST_F(EnvironmentOfUser, HelpBookWithoutAFolderHasNoUrl) {
  std::filesystem::remove_all(Path("root"));
  EXPECT_TRUE(Env().registerHelpBook());
  EXPECT_THAT(log_, ElementsAre("-[Environment registerHelpBook]: failed to get help bundle url"));
}

TEST_F(EnvironmentOfUser, HelpBookThatIsMissingHasNoReference) {
  EXPECT_TRUE(Env().registerHelpBook());
  EXPECT_THAT(log_,
              ElementsAre("-[Environment registerHelpBook]: failed to get help bundle file system "
                          "reference"));
  EXPECT_FALSE(std::filesystem::exists(Path("home/.local")));
}

TEST_F(EnvironmentOfUser, HelpBookThatTheViewerRefusesIsLogged) {
  std::filesystem::create_directories(Bundle());
  RefusingHelpViewer viewer;
  const HelpViewer::Replaced held(viewer);
  EXPECT_TRUE(Env().registerHelpBook());
  EXPECT_THAT(viewer.asked, ElementsAre(Bundle()));
  EXPECT_THAT(log_, ElementsAre("-[Environment registerHelpBook]: failed to register help book"));
}

}  // namespace
}  // namespace vox
