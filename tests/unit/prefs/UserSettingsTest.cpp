// The settings of the user: what is kept under which key, and when it reaches the file.
#include <string>

#include "tests/unit/prefs/Desktop.h"

namespace vox {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class UserSettings : public Desktop {
 protected:
  // What another program of the user sets.
  void OtherProgramSets(const char* key, const PropertyValue& value) {
    PreferencesStore other(UserFile());
    other.Set(key, value);
    ASSERT_EQ(other.Synchronise(), 0);
  }
};

TEST_F(UserSettings, MeasurementUnitsAreReadOnceAtCreation) {
  EXPECT_EQ(Prefs().measurementUnits(), "Centimeters");
  EXPECT_TRUE(Prefs().isMetricMeasurementUnits());
  units_.name = "Inches";
  EXPECT_EQ(Prefs().measurementUnits(), "Centimeters");
  EXPECT_EQ(units_.asked, 1);
  Start();
  EXPECT_EQ(Prefs().measurementUnits(), "Inches");
  EXPECT_FALSE(Prefs().isMetricMeasurementUnits());
}

TEST_F(UserSettings, MetricIsExactlyOneWord) {
  for (const char* other : {"", "centimeters", "Centimeter", "Centimeters ", "Inches"}) {
    units_.name = other;
    Start();
    EXPECT_FALSE(Prefs().isMetricMeasurementUnits()) << other;
  }
}

TEST_F(UserSettings, NothingIsWrittenBeforeSomethingIsSet) {
  EXPECT_EQ(Prefs().lastScannerDeviceId(), std::nullopt);
  EXPECT_EQ(Prefs().settingsForDevice("id"), std::nullopt);
  EXPECT_EQ(Prefs().pushScanOCRApplication(), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(UserFile()));
}

TEST_F(UserSettings, LastScannerReachesTheFileAtOnce) {
  Prefs().setLastScannerDeviceId("00:11:22:33:44:55");
  EXPECT_EQ(Stored(UserFile()), (Dictionary{{"LastScannerDeviceId", "00:11:22:33:44:55"}}));
  EXPECT_EQ(Prefs().lastScannerDeviceId(), "00:11:22:33:44:55");
  Start();
  EXPECT_EQ(Prefs().lastScannerDeviceId(), "00:11:22:33:44:55");
}

TEST_F(UserSettings, NilTakesTheLastScannerAway) {
  Prefs().setLastScannerDeviceId("id");
  Prefs().setLastScannerDeviceId(std::nullopt);
  EXPECT_EQ(Prefs().lastScannerDeviceId(), std::nullopt);
  EXPECT_THAT(Stored(UserFile()).Keys(), IsEmpty());
}

TEST_F(UserSettings, LastScannerIsNotSynchronisedByReading) {
  EXPECT_EQ(Prefs().lastScannerDeviceId(), std::nullopt);
  OtherProgramSets("LastScannerDeviceId", "other");
  EXPECT_EQ(Prefs().lastScannerDeviceId(), std::nullopt);
  EXPECT_EQ(Prefs().pushScanOCRApplication(), std::nullopt) << "which synchronises";
  EXPECT_EQ(Prefs().lastScannerDeviceId(), "other");
}

TEST_F(UserSettings, SettingsAreKeptForEachDevice) {
  const Dictionary office{{"resolution", 300}, {"duplex", true}, {"name", "Büro"}};
  Prefs().saveSettingsForDevice(office, "a");
  Prefs().saveSettingsForDevice("any value", "b");
  EXPECT_EQ(Stored(UserFile()), (Dictionary{{"Settings.a", office}, {"Settings.b", "any value"}}));
  Start();
  EXPECT_EQ(Prefs().settingsForDevice("a"), office);
  EXPECT_EQ(Prefs().settingsForDevice("b"), "any value");
  EXPECT_EQ(Prefs().settingsForDevice("c"), std::nullopt);
}

TEST_F(UserSettings, SettingsOfOtherProgramsAreSeen) {
  EXPECT_EQ(Prefs().settingsForDevice("a"), std::nullopt);
  OtherProgramSets("Settings.a", 7);
  EXPECT_EQ(Prefs().settingsForDevice("a"), 7);
}

TEST_F(UserSettings, NilTakesTheSettingsOfADeviceAway) {
  Prefs().saveSettingsForDevice(1, "a");
  Prefs().saveSettingsForDevice(std::nullopt, "a");
  EXPECT_THAT(Stored(UserFile()).Keys(), IsEmpty());
}

TEST_F(UserSettings, NothingIsSavedWithoutAKey) {
  Prefs().saveSettingsForDevice(1, std::nullopt);
  Prefs().saveSettingsForDevice(1, "no UTF-8: \xFF");
  EXPECT_FALSE(std::filesystem::exists(UserFile()));
  EXPECT_EQ(Prefs().settingsForDevice(std::nullopt), std::nullopt);
  EXPECT_EQ(Prefs().settingsForDevice("no UTF-8: \xFF"), std::nullopt);
}

TEST_F(UserSettings, OcrApplicationIsReadAfterSynchronising) {
  Prefs().setPushScanOCRApplication("/usr/bin/reader");
  EXPECT_EQ(Stored(UserFile()), (Dictionary{{"ocrApplicationPath", "/usr/bin/reader"}}));
  OtherProgramSets("ocrApplicationPath", "/usr/bin/other");
  EXPECT_EQ(Prefs().pushScanOCRApplication(), "/usr/bin/other");
  Prefs().setPushScanOCRApplication(std::nullopt);
  EXPECT_EQ(Prefs().pushScanOCRApplication(), std::nullopt);
}

TEST_F(UserSettings, ValueOfTheWrongTypeIsNoText) {
  OtherProgramSets("LastScannerDeviceId", 5);
  OtherProgramSets("ocrApplicationPath", Dictionary{});
  EXPECT_EQ(Prefs().lastScannerDeviceId(), std::nullopt);
  EXPECT_EQ(Prefs().pushScanOCRApplication(), std::nullopt);
}

TEST_F(UserSettings, KeysOfOtherProgramsStay) {
  OtherProgramSets("theirs", 1);
  Prefs().setLastScannerDeviceId("id");
  EXPECT_THAT(Stored(UserFile()).Keys(), ElementsAre("LastScannerDeviceId", "theirs"));
}

TEST_F(UserSettings, OutcomeTellsWhatTheCallsDoNot) {
  Prefs().setLastScannerDeviceId("id");
  EXPECT_EQ(Prefs().lastOutcome().error, 0);
  EXPECT_EQ(Prefs().lastOutcome().path, UserFile());
  std::filesystem::remove_all(Path("home/.config"));
  Write(Path("home/.config"), "a file where the folder should be");
  Prefs().setLastScannerDeviceId("other");
  EXPECT_EQ(Prefs().lastOutcome().error, ENOTDIR);
  EXPECT_EQ(Prefs().lastScannerDeviceId(), "other") << "kept until it can be stored";
}

}  // namespace
}  // namespace vox
