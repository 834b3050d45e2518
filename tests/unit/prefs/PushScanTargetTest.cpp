// Where pushed scans go: the chosen folder, the documents folder in its place, or nowhere yet.
#include <optional>
#include <string>

#include "tests/unit/prefs/Desktop.h"
#include "tests/unit/prefs/Process.h"

namespace vox {
namespace {

using ::testing::ElementsAre;

class PushScanTarget : public Desktop {
 protected:
  PushScanTarget() { Folder("home/Documents"); }

  std::string Documents() const { return Path("home/Documents"); }
  // The chosen folder, and what is stored as the volume that held it.
  void Choose(const std::string& path, const std::optional<PropertyValue>& volume) {
    PreferencesStore store(UserFile());
    store.Set("pushScanTargetPath", path);
    if (volume) {
      store.Set("pushScanTargetPathMountPoint", *volume);
    } else {
      store.Remove("pushScanTargetPathMountPoint");
    }
    ASSERT_EQ(store.Synchronise(), 0);
  }
  std::optional<std::string> Target() { return Prefs().pushScanTargetFolder(&unavailable_); }

  std::optional<std::string> unavailable_ = "to be cleared";
};

TEST_F(PushScanTarget, IsTheDocumentsFolderUntilOneIsChosen) {
  EXPECT_EQ(Target(), Documents());
  EXPECT_EQ(unavailable_, std::nullopt);
}

TEST_F(PushScanTarget, IsTheChosenFolder) {
  mounts_.mounts = {{"/dev/root", "/"}};
  const std::string scans = Folder("home/scans");
  Prefs().setPushScanTargetFolder(scans);
  EXPECT_EQ(Target(), scans);
  EXPECT_EQ(unavailable_, std::nullopt);
  Start();
  EXPECT_EQ(Target(), scans);
}

TEST_F(PushScanTarget, ChoiceOfAnotherProgramIsSeen) {
  EXPECT_EQ(Target(), Documents());
  Choose(Folder("home/scans"), "/dev/sda1");
  EXPECT_EQ(Target(), Path("home/scans"));
}

TEST_F(PushScanTarget, OnAnUnmountedVolumeTheDocumentsFolderStandsIn) {
  Choose(Path("media/stick/scans"), Path("media/stick"));
  EXPECT_EQ(Target(), Documents());
  EXPECT_EQ(unavailable_, Path("media/stick/scans"));
  EXPECT_EQ(Prefs().pushScanTargetFolder(), Documents()) << "without interest in the chosen one";
}

TEST_F(PushScanTarget, OnAMountedVolumeTheFolderIsMadeAgainAndTheAnswerIsNil) {
  Folder("media/stick");
  Choose(Path("media/stick/scans"), Path("media/stick"));
  EXPECT_EQ(Target(), std::nullopt) << "not available this time";
  EXPECT_EQ(unavailable_, std::nullopt);
  EXPECT_TRUE(std::filesystem::is_directory(Path("media/stick/scans")));
  EXPECT_EQ(Target(), Path("media/stick/scans")) << "asked again";
}

TEST_F(PushScanTarget, NoMoreThanOneFolderIsMade) {
  Folder("media/stick");
  Choose(Path("media/stick/in/scans"), Path("media/stick"));
  EXPECT_EQ(Target(), Documents());
  EXPECT_EQ(unavailable_, Path("media/stick/in/scans"));
  EXPECT_FALSE(std::filesystem::exists(Path("media/stick/in")));
}

TEST_F(PushScanTarget, FileInThePlaceOfTheFolderIsLeftAlone) {
  Folder("media/stick");
  Write(Path("media/stick/scans"), "a file");
  Choose(Path("media/stick/scans"), Path("media/stick"));
  EXPECT_EQ(Target(), Documents());
  EXPECT_EQ(unavailable_, Path("media/stick/scans"));
  EXPECT_EQ(Text(Path("media/stick/scans")), "a file");
}

TEST_F(PushScanTarget, VolumeThatIsNoFolderIsNotMounted) {
  Write(Path("device"), "like a device node");
  for (const auto& volume :
       {std::optional<PropertyValue>(Path("device")), std::optional<PropertyValue>(""),
        std::optional<PropertyValue>(7), std::optional<PropertyValue>()}) {
    Choose(Path("home/gone"), volume);
    EXPECT_EQ(Target(), Documents());
    EXPECT_EQ(unavailable_, Path("home/gone"));
    EXPECT_FALSE(std::filesystem::exists(Path("home/gone")));
  }
}

TEST_F(PushScanTarget, VolumeOfAMereWordIsNoFolderBesideTheProgram) {
  const int failed = Process([&](Process&) {
                       Folder("work/tmpfs");
                       std::filesystem::current_path(Path("work"));
                       Choose(Path("home/gone"), "tmpfs");
                       return Target() == Documents() && unavailable_ == Path("home/gone") ? 0 : 1;
                     }).Wait();
  EXPECT_EQ(failed, 0);
}

TEST_F(PushScanTarget, ChosenPathOfTheWrongTypeIsNone) {
  PreferencesStore store(UserFile());
  store.Set("pushScanTargetPath", 5);
  ASSERT_EQ(store.Synchronise(), 0);
  EXPECT_EQ(Target(), Documents());
  EXPECT_EQ(unavailable_, std::nullopt);
}

TEST_F(PushScanTarget, IsNilWithoutADocumentsFolder) {
  std::filesystem::remove(Documents());
  EXPECT_EQ(Target(), std::nullopt);
  Choose(Path("home/gone"), std::nullopt);
  EXPECT_EQ(Target(), std::nullopt);
  EXPECT_EQ(unavailable_, Path("home/gone"));
}

}  // namespace
}  // namespace vox
