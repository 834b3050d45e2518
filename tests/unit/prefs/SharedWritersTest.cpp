// Several processes at the settings at once: whoever reads sees a whole file, always.
#include <string>

#include "tests/unit/prefs/Desktop.h"
#include "tests/unit/prefs/Process.h"

namespace vox {
namespace {

constexpr int kChanges = 60;  // of each writer
constexpr int kKills = 15;

class SharedWriters : public Desktop {
 protected:
  SharedWriters() { Folder("root/var/lib/Veltronix Vox"); }

  // A value long enough that it does not reach the disk in one piece by chance.
  static std::string Long(int number) {
    return std::string(20'000, static_cast<char>('a' + number % 26));
  }

  static int ChangeShared(const std::string& key) {
    for (int number = 0; number < kChanges; ++number) {
      Prefs().setValueForSharedKey(Long(number), key);
      if (Prefs().lastOutcome().error != 0) return 1;
      if (Prefs().lastOutcome().found == FileState::Damaged) return 2;
    }
    return 0;
  }
};

TEST_F(SharedWriters, ReadersSeeWholeFilesWhileTwoProcessesWrite) {
  Prefs().setValueForSharedKey("stays", "first");
  Process one([](Process& self) {
    self.Tell();
    return ChangeShared("one");
  });
  Process two([](Process& self) {
    self.Tell();
    return ChangeShared("two");
  });
  ASSERT_TRUE(one.AwaitTold());
  ASSERT_TRUE(two.AwaitTold());
  for (int look = 0; look < 200; ++look) {
    ASSERT_EQ(Prefs().valueForSharedKey("first"), "stays");
    ASSERT_EQ(Prefs().lastOutcome().found, FileState::Whole);
  }
  EXPECT_EQ(one.Wait(), 0);
  EXPECT_EQ(two.Wait(), 0);
  // The one that wrote last wrote all of what it had read, and its own value.
  const PropertyValue last = Long(kChanges - 1);
  EXPECT_TRUE(Prefs().valueForSharedKey("one") == last || Prefs().valueForSharedKey("two") == last);
  EXPECT_EQ(Prefs().valueForSharedKey("first"), "stays");
}

TEST_F(SharedWriters, KillLeavesTheOldOrTheNewFile) {
  for (int round = 0; round < kKills; ++round) {
    Process writer([](Process& self) {
      self.Tell();
      for (int number = 0;; ++number) Prefs().setValueForSharedKey(Long(number), "k");
      return 0;
    });
    ASSERT_TRUE(writer.AwaitTold());
    while (!Prefs().valueForSharedKey("k")) {
    }
    writer.Kill();
    const auto value = Prefs().valueForSharedKey("k");
    ASSERT_EQ(Prefs().lastOutcome().found, FileState::Whole);
    ASSERT_TRUE(value && value->String());
    EXPECT_EQ(value->String()->size(), Long(0).size());
  }
}

TEST_F(SharedWriters, SettingsOfTheUserLoseNoKeyOfEither) {
  const auto change = [](const std::string& device) {
    for (int number = 0; number < kChanges; ++number) {
      Prefs().saveSettingsForDevice(number, device);
      if (Prefs().lastOutcome().error != 0) return 1;
      if (Prefs().settingsForDevice(device) != PropertyValue(number)) return 2;
    }
    return 0;
  };
  Process one([&](Process&) { return change("one"); });
  Process two([&](Process&) { return change("two"); });
  EXPECT_EQ(one.Wait(), 0);
  EXPECT_EQ(two.Wait(), 0);
  EXPECT_EQ(Prefs().settingsForDevice("one"), kChanges - 1);
  EXPECT_EQ(Prefs().settingsForDevice("two"), kChanges - 1);
}

}  // namespace
}  // namespace vox
