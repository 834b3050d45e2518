// The settings of the machine: defaults, clamping, and a file that is read at every call.
#include <cmath>
#include <limits>
#include <string>
#include <thread>

#include "tests/unit/prefs/Desktop.h"
#include "tests/unit/prefs/Process.h"

namespace vox {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kNoList = "<plist><dict><key>half of a fi";

class SharedSettings : public Desktop {
 protected:
  SharedSettings() { Folder("root/var/lib/Veltronix Vox"); }

  std::string File() const { return Path("root/var/lib/Veltronix Vox/com.veltronix.vox.plist"); }
  void Hold(const Dictionary& content) { ASSERT_EQ(WriteDictionaryFile(File(), content), 0); }
  void HoldXml(const std::string& entries) {
    Write(File(), "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>");
  }
  double Factor(const PropertyValue& stored) {
    Hold({{"jpegCompressionFactor", stored}});
    return Prefs().jpegCompressionFactor();
  }
  std::string DefaultName(const std::string& host) {
    host_.name = host;
    return Prefs().computerName();
  }
};

TEST_F(SharedSettings, LieInTheMachinesPreferencesFolder) {
  EXPECT_EQ(Prefs().pathToGlobalSettings(), File());
  const Variable unset("VOX_ROOT");
  EXPECT_EQ(Prefs().pathToGlobalSettings(), "/var/lib/Veltronix Vox/com.veltronix.vox.plist");
}

TEST_F(SharedSettings, WithoutAFileThereAreDefaultsAndNoKeys) {
  EXPECT_EQ(Prefs().computerName(), "host");
  EXPECT_TRUE(Prefs().showComputerNameOnDevice());
  EXPECT_EQ(Prefs().jpegCompressionFactor(), 0.8);
  EXPECT_THAT(Prefs().allSharedKeys(), IsEmpty());
  EXPECT_EQ(Prefs().valueForSharedKey("computerName"), std::nullopt);
  EXPECT_EQ(Prefs().lastOutcome().error, 0);
  EXPECT_EQ(Prefs().lastOutcome().found, FileState::Missing);
  EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(SharedSettings, HostNameOfTwentyCharactersIsCutToFifteen) {
  EXPECT_EQ(DefaultName("abcdefghijklmnopqrst"), "abcdefghijklmno");
}

TEST_F(SharedSettings, HostNameOfFifteenCharactersIsWhole) {
  EXPECT_EQ(DefaultName("abcdefghijklmno"), "abcdefghijklmno");
  EXPECT_EQ(DefaultName("abcdefghijklmnop"), "abcdefghijklmno") << "sixteen";
  EXPECT_EQ(DefaultName(""), "");
}

TEST_F(SharedSettings, HostNameIsCutBetweenCharactersNotInThem) {
  EXPECT_EQ(DefaultName("ääääääääääääääää"), "äääääääääääääää") << "16 of two bytes";
  EXPECT_EQ(DefaultName("äääääääääääääää"), "äääääääääääääää") << "15 of two bytes";
  EXPECT_EQ(DefaultName("12345678901234€€"), "12345678901234€");
  EXPECT_EQ(DefaultName("12345678901234🖨🖨"), "12345678901234🖨");
}

TEST_F(SharedSettings, StoredNameIsGivenAsItIs) {
  Prefs().setComputerName("a name of more than fifteen characters");
  EXPECT_EQ(Prefs().computerName(), "a name of more than fifteen characters");
  EXPECT_EQ(Stored(File()),
            (Dictionary{{"computerName", "a name of more than fifteen characters"}}));
  Prefs().setComputerName("");
  EXPECT_EQ(Prefs().computerName(), "") << "present, though empty";
  Prefs().setComputerName(std::nullopt);
  EXPECT_EQ(Prefs().computerName(), "host");
}

TEST_F(SharedSettings, NameOfTheWrongTypeIsNone) {
  Hold({{"computerName", 12}});
  EXPECT_EQ(Prefs().computerName(), "host");
}

TEST_F(SharedSettings, NameIsShownUnlessStoredOtherwise) {
  EXPECT_TRUE(Prefs().showComputerNameOnDevice());
  Prefs().setShowComputerNameOnDevice(false);
  EXPECT_FALSE(Prefs().showComputerNameOnDevice());
  EXPECT_EQ(Stored(File()), (Dictionary{{"showComputerName", false}}));
  Prefs().setShowComputerNameOnDevice(true);
  EXPECT_TRUE(Prefs().showComputerNameOnDevice());
  Hold({{"showComputerName", 0}});
  EXPECT_FALSE(Prefs().showComputerNameOnDevice()) << "as other programs write it";
  Hold({{"showComputerName", "no"}});
  EXPECT_TRUE(Prefs().showComputerNameOnDevice()) << "no truth value: absent";
}

TEST_F(SharedSettings, CompressionFactorIsClamped) {
  EXPECT_EQ(Factor(1.5), 1.0);
  EXPECT_EQ(Factor(-2), 0.0);
  EXPECT_EQ(Factor(-0.001), 0.0);
  EXPECT_EQ(Factor(0.7), 0.7) << "the number itself, to the last bit";
  EXPECT_EQ(Factor(0.0), 0.0);
  EXPECT_EQ(Factor(1), 1.0);
  EXPECT_EQ(Factor(std::numeric_limits<std::uint64_t>::max()), 1.0);
  EXPECT_EQ(Factor("0.5"), 0.8) << "no number: absent";
}

TEST_F(SharedSettings, CompressionFactorThatIsNoNumberIsTheDefault) {
  Prefs().setJpegCompressionFactor(std::nan(""));
  EXPECT_EQ(Prefs().lastOutcome().error, 0);
  EXPECT_EQ(Prefs().jpegCompressionFactor(), 0.8);
  HoldXml("<key>jpegCompressionFactor</key><real>nan</real>");
  EXPECT_EQ(Prefs().jpegCompressionFactor(), 0.8);
  Prefs().setJpegCompressionFactor(std::numeric_limits<double>::infinity());
  EXPECT_EQ(Prefs().jpegCompressionFactor(), 1.0);
}

TEST_F(SharedSettings, CompressionFactorIsStoredAsSet) {
  Prefs().setJpegCompressionFactor(1.5);
  EXPECT_EQ(Stored(File()), (Dictionary{{"jpegCompressionFactor", 1.5}}));
  EXPECT_EQ(Prefs().jpegCompressionFactor(), 1.0);
}

TEST_F(SharedSettings, EveryCallSeesTheFileAsItIsNow) {
  Hold({{"computerName", "one"}, {"k", 1}});
  EXPECT_EQ(Prefs().computerName(), "one");
  EXPECT_EQ(Prefs().valueForSharedKey("k"), 1);
  Hold({{"computerName", "two"},
        {"l", 2},
        {"jpegCompressionFactor", 0.25},
        {"showComputerName", false}});
  EXPECT_EQ(Prefs().computerName(), "two");
  EXPECT_EQ(Prefs().jpegCompressionFactor(), 0.25);
  EXPECT_FALSE(Prefs().showComputerNameOnDevice());
  EXPECT_EQ(Prefs().valueForSharedKey("k"), std::nullopt);
  EXPECT_THAT(Prefs().allSharedKeys(),
              ElementsAre("computerName", "jpegCompressionFactor", "l", "showComputerName"));
  std::filesystem::remove(File());
  EXPECT_THAT(Prefs().allSharedKeys(), IsEmpty());
}

TEST_F(SharedSettings, ChangesKeepWhatOthersWrote) {
  Prefs().setValueForSharedKey(Dictionary{{"ip", "192.168.0.5"}}, "Device.a");
  Hold({{"Device.a", Dictionary{{"ip", "192.168.0.6"}}}, {"Device.b", Dictionary{}}});
  Prefs().setComputerName("me");
  Prefs().removeSharedKey("Device.b");
  EXPECT_EQ(Stored(File()),
            (Dictionary{{"Device.a", Dictionary{{"ip", "192.168.0.6"}}}, {"computerName", "me"}}));
}

TEST_F(SharedSettings, ValuesOfAnyTypeComeBack) {
  const PropertyValue values[] = {"text",
                                  "",
                                  "<&>\"'",
                                  1,
                                  -1,
                                  2.5,
                                  true,
                                  Data{0, 255},
                                  Array{1, "x"},
                                  Dictionary{{"a", Array{}}}};
  for (const PropertyValue& value : values) {
    Prefs().setValueForSharedKey(value, "key");
    EXPECT_EQ(Prefs().valueForSharedKey("key"), value);
  }
}

TEST_F(SharedSettings, SeveralAreReadAtOnce) {
  EXPECT_EQ(Prefs().allSharedValues(), Dictionary());
  EXPECT_EQ(Prefs().lastOutcome().found, FileState::Missing);
  const Dictionary content{{"a", 1}, {"b", Dictionary{{"c", "d"}}}};
  Hold(content);
  EXPECT_EQ(Prefs().allSharedValues(), content);
  Write(File(), kNoList);
  EXPECT_EQ(Prefs().allSharedValues(), Dictionary());
  EXPECT_EQ(Prefs().lastOutcome().found, FileState::Damaged);
}

TEST_F(SharedSettings, SeveralAreSetAtOnceBesideWhatOthersWrote) {
  Hold({{"a", 1}, {"b", 2}});
  Prefs().setValuesForSharedKeys({{"b", 3}, {"c", "d"}});
  EXPECT_EQ(Stored(File()), (Dictionary{{"a", 1}, {"b", 3}, {"c", "d"}}));
  EXPECT_EQ(Prefs().lastOutcome().error, 0);
}

TEST_F(SharedSettings, SettingNoneWritesNothing) {
  Prefs().setValuesForSharedKeys({});
  EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(SharedSettings, SettingNilRemoves) {
  Prefs().setValueForSharedKey(1, "k");
  Prefs().setValueForSharedKey(std::nullopt, "k");
  EXPECT_THAT(Prefs().allSharedKeys(), IsEmpty());
}

TEST_F(SharedSettings, RemovingAnAbsentKeyIsNoError) {
  Hold({{"k", 1}});
  Prefs().removeSharedKey("Device.unknown");
  EXPECT_EQ(Prefs().lastOutcome().error, 0);
  EXPECT_EQ(Stored(File()), (Dictionary{{"k", 1}}));
}

TEST_F(SharedSettings, NewFileIsReadableByAllWhateverTheUmask) {
  const mode_t before = ::umask(0077);
  Prefs().setComputerName("me");
  ::umask(before);
  EXPECT_EQ(ModeOf(File()), 0644u);
}

TEST_F(SharedSettings, ModeAndOwnerOfTheFileStay) {
  Hold({});
  ::chmod(File().c_str(), 0664);
  const bool may_give_away = ::chown(File().c_str(), 12345, 23456) == 0;
  Prefs().setComputerName("me");
  EXPECT_EQ(ModeOf(File()), 0664u);
  if (!may_give_away) GTEST_SKIP() << "only root can give a file away; its mode was tested";
  struct stat status {};
  ASSERT_EQ(::stat(File().c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 12345u);
  EXPECT_EQ(status.st_gid, 23456u);
}

TEST_F(SharedSettings, LinkedFileIsWrittenWhereItLies) {
  Write(Path("elsewhere.plist"), "");
  std::filesystem::create_symlink(Path("elsewhere.plist"), File());
  Prefs().setComputerName("me");
  EXPECT_TRUE(std::filesystem::is_symlink(File()));
  EXPECT_EQ(Stored(Path("elsewhere.plist")), (Dictionary{{"computerName", "me"}}));
  EXPECT_EQ(Prefs().computerName(), "me");
}

TEST_F(SharedSettings, DamagedFileCountsAsEmptyAndIsReplacedByAChange) {
  Write(File(), kNoList);
  EXPECT_EQ(Prefs().computerName(), "host");
  EXPECT_THAT(Prefs().allSharedKeys(), IsEmpty());
  EXPECT_EQ(Text(File()), kNoList) << "reading changes nothing";
  EXPECT_EQ(Prefs().lastOutcome().found, FileState::Damaged);
  Prefs().setComputerName("me");
  EXPECT_EQ(Stored(File()), (Dictionary{{"computerName", "me"}}));
  EXPECT_EQ(Prefs().lastOutcome().error, 0);
  EXPECT_EQ(Prefs().lastOutcome().found, FileState::Damaged) << "it was, before";
}

TEST_F(SharedSettings, TopLevelThatIsNoDictionaryIsDamage) {
  Write(File(), "<plist version=\"1.0\"><array><string>computerName</string></array></plist>");
  EXPECT_EQ(Prefs().globalSettingsOutcome().found, FileState::Damaged);
  EXPECT_EQ(Prefs().computerName(), "host");
}

TEST_F(SharedSettings, DamagedFileCanBeKeptAsideFirst) {
  Write(File(), kNoList);
  ASSERT_EQ(Prefs().globalSettingsOutcome().found, FileState::Damaged);
  const KeptFile kept = Prefs().keepDamagedGlobalSettings();
  ASSERT_EQ(kept.error, 0);
  EXPECT_TRUE(kept.first);
  EXPECT_THAT(kept.path, StartsWith(File()));
  Prefs().setComputerName("me");
  EXPECT_EQ(Text(kept.path), kNoList);
  EXPECT_EQ(Prefs().globalSettingsOutcome().found, FileState::Whole);
  EXPECT_EQ(Prefs().keepDamagedGlobalSettings().error, ENOENT) << "nothing damaged any more";
}

TEST_F(SharedSettings, LookingAtTheFileLeavesTheLastOutcome) {
  Prefs().setComputerName("me");
  Write(File(), kNoList);
  EXPECT_EQ(Prefs().globalSettingsOutcome().path, File());
  EXPECT_EQ(Prefs().lastOutcome().found, FileState::Missing);
}

TEST_F(SharedSettings, MissingFolderIsNotMadeAndTheFailureIsSilent) {
  std::filesystem::remove(Path("root/var/lib/Veltronix Vox"));
  Prefs().setComputerName("me");
  EXPECT_EQ(Prefs().lastOutcome().error, ENOENT);
  EXPECT_EQ(Prefs().lastOutcome().path, File());
  EXPECT_FALSE(std::filesystem::exists(Path("root/var/lib/Veltronix Vox")));
  EXPECT_EQ(Prefs().computerName(), "host");
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(SharedSettings, OutcomeIsThatOfTheThread) {
  std::filesystem::remove(Path("root/var/lib/Veltronix Vox"));
  Prefs().setComputerName("me");
  std::thread([] {
    EXPECT_EQ(UserPreferences::instance().lastOutcome().error, 0);
    EXPECT_EQ(UserPreferences::instance().computerName(), "host");
  }).join();
  EXPECT_EQ(Prefs().lastOutcome().error, ENOENT);
}

constexpr char kNeedsRoot[] =
    "the owner of a folder may write to it, and only root has another one";

// A user who is not root, and a folder and file as their modes say.
class SharedSettingsOfOthers : public SharedSettings {
 protected:
  // The exit status of checks that another user makes: 0, or the number of the one that failed.
  int AsNobody(mode_t folder, mode_t file, const std::function<int()>& checks) {
    Hold({{"k", 1}});
    ::chmod(Path("").c_str(), 0755);
    ::chmod(Path("root/var/lib/Veltronix Vox").c_str(), folder);
    ::chmod(File().c_str(), file);
    Process other([&](Process&) { return BecomeNobody() ? checks() : 99; });
    return other.Wait();
  }
};

TEST_F(SharedSettingsOfOthers, FileThatMayNotBeReadCountsAsEmpty) {
  const int failed = AsNobody(0755, 0000, [] {
    if (!Prefs().allSharedKeys().empty()) return 1;
    if (Prefs().computerName() != "host") return 2;
    const StoreOutcome outcome = Prefs().lastOutcome();
    if (outcome.error != EACCES || outcome.found != FileState::Unreadable) return 3;
    if (Prefs().globalSettingsOutcome().error != EACCES) return 4;
    return 0;
  });
  EXPECT_EQ(failed, 0);
}

TEST_F(SharedSettingsOfOthers, FileThatMayNotBeReadIsReplacedWhereTheFolderAllowsIt) {
  if (::geteuid() != 0) GTEST_SKIP() << kNeedsRoot;
  const int failed = AsNobody(0777, 0000, [] {
    Prefs().setComputerName("me");
    const StoreOutcome outcome = Prefs().lastOutcome();
    return outcome.error == 0 && outcome.found == FileState::Unreadable ? 0 : 1;
  });
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(Stored(File()), (Dictionary{{"computerName", "me"}}));
}

TEST_F(SharedSettingsOfOthers, FolderThatMayNotBeWrittenLeavesTheFileAsItWas) {
  if (::geteuid() != 0) GTEST_SKIP() << kNeedsRoot;
  const int failed = AsNobody(0755, 0644, [] {
    Prefs().setComputerName("me");
    if (Prefs().lastOutcome().error != EACCES) return 1;
    Prefs().removeSharedKey("k");
    if (Prefs().lastOutcome().error != EACCES) return 2;
    return Prefs().valueForSharedKey("k") == PropertyValue(1) ? 0 : 3;
  });
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(Stored(File()), (Dictionary{{"k", 1}}));
}

}  // namespace
}  // namespace vox
