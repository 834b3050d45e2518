// Which remembered device a DEVICE means, and how devices are shown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/vox/DeviceChoice.h"
#include "tools/vox/DeviceText.h"
#include "tools/vox/Failure.h"

namespace vox::cli::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

DeviceInfo Device(const char* id, const char* name, const char* ip) {
  return std::make_shared<Dictionary>(Dictionary{{kDeviceIdKey, id},
                                                 {kDeviceTypeKey, kDeviceTypeNetwork},
                                                 {kDeviceNameKey, name},
                                                 {kDeviceIpKey, ip},
                                                 {kDeviceModelNameKey, "Veltronix QD7200"},
                                                 {kDeviceMacKey, id},
                                                 {kDevicePushKey, true}});
}

const DeviceInfoArray kKnown = {
    Device("02:56:58:00:00:01", "Office", "10.0.0.1"),
    Device("02:56:58:00:00:02", "Office 2", "10.0.0.12"),
    Device("0a:56:58:00:00:03", "Cellar", "10.0.1.3"),
};

std::vector<std::string> Ids(const std::string& text) {
  std::vector<std::string> ids;
  for (const DeviceInfo& device : MatchDevices(kKnown, text))
    ids.push_back(device->String(kDeviceIdKey)->substr(15));
  return ids;
}

TEST(DeviceChoiceTest, AnIdANameOrAnAddressIsWhole) {
  EXPECT_THAT(Ids("0a:56:58:00:00:03"), ElementsAre("03"));
  EXPECT_THAT(Ids("Cellar"), ElementsAre("03"));
  EXPECT_THAT(Ids("10.0.1.3"), ElementsAre("03"));
}

TEST(DeviceChoiceTest, WhatIsWholeGoesBeforeWhatBeginsSo) {
  EXPECT_THAT(Ids("office"), ElementsAre("01"));
  EXPECT_THAT(Ids("10.0.0.1"), ElementsAre("01"));
}

TEST(DeviceChoiceTest, AnyBeginningNamesEveryDeviceThatHasIt) {
  EXPECT_THAT(Ids("ce"), ElementsAre("03"));
  EXPECT_THAT(Ids("0A:"), ElementsAre("03"));
  EXPECT_THAT(Ids("10.0.0.12"), ElementsAre("02"));
  EXPECT_THAT(Ids("Offi"), ElementsAre("01", "02"));
  EXPECT_THAT(Ids("ellar"), ElementsAre());
  EXPECT_THAT(Ids(""), ElementsAre());
}

template <typename Choose>
std::string Unchosen(Choose choose) {
  try {
    return "chosen: " + DeviceName(*choose());
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Status(), ExitStatus::kCannot);
    EXPECT_THAT(failure.what(), Not(HasSubstr("\n")));
    return failure.what();
  }
}

TEST(DeviceChoiceTest, WhatIsNotUniqueSaysWhichOnesMatch) {
  EXPECT_THAT(Unchosen([] { return ChooseDevice(kKnown, "10.0"); }),
              AllOf(HasSubstr("several devices"), HasSubstr("Office 2 (10.0.0.12)"),
                    HasSubstr("[0a:56:58:00:00:03]")));
  const DeviceInfoArray many(60, kKnown[0]);
  EXPECT_THAT(Unchosen([&] { return ChooseDevice(many, "Off"); }), HasSubstr("and 52 more"));
}

TEST(DeviceChoiceTest, WhatNobodyIsCalledSaysWhatToDo) {
  EXPECT_THAT(Unchosen([] { return ChooseDevice(kKnown, "attic\n"); }),
              AllOf(HasSubstr("called attic?"), HasSubstr("vox discover"), HasSubstr("net:")));
}

TEST(DeviceChoiceTest, LeftOutItIsTheOnlyOneElseTheLastUsed) {
  EXPECT_EQ(UsualDevice({kKnown[1]}, std::nullopt), kKnown[1]);
  EXPECT_EQ(UsualDevice({kKnown[1]}, "0a:56:58:00:00:03"), kKnown[1]);
  EXPECT_EQ(UsualDevice(kKnown, "0a:56:58:00:00:03"), kKnown[2]);
  EXPECT_THAT(Unchosen([] { return UsualDevice(kKnown, "gone"); }),
              HasSubstr("Name one of Office"));
  EXPECT_THAT(Unchosen([] { return UsualDevice({}, "gone"); }), HasSubstr("None is remembered"));
}

TEST(DeviceTextTest, ARowHasNoControlCharactersAndNoTail) {
  const auto device = Device("02", "Of\033fice", "10.0.0.1");
  EXPECT_EQ(DeviceLine(*device, ""),
            "10.0.0.1        Of?fice                 Veltronix QD7200        02\n");
  EXPECT_EQ(DeviceName(*device), "Of?fice (10.0.0.1)");
  EXPECT_EQ(DeviceName({}), "a device without an id");
}

TEST(DeviceTextTest, JsonHasTheKeysThatTheDeviceHas) {
  EXPECT_EQ(JsonLine(DeviceRecord(*kKnown[0])),
            R"({"deviceId":"02:56:58:00:00:01","type":"network","modelName":"Veltronix QD7200",)"
            R"("ip":"10.0.0.1","name":"Office","mac":"02:56:58:00:00:01",)"
            R"("isNetworkPushEnabled":true})"
            "\n");
  EXPECT_EQ(JsonLine(DeviceRecord({{kDeviceNameKey, 7}, {kDevicePushKey, "x"}})), "{}\n");
}

TEST(JsonTest, EveryKindOfStoredValueHasAForm) {
  const PropertyValue value(Dictionary{
      {"a", Array{1, 2.5, true, "t"}},
      {"b", Data{0x0A, 0xFF}},
      {"c", Date(std::chrono::seconds(7))},
      {"d", std::uint64_t{18446744073709551615U}},
  });
  EXPECT_EQ(ValueJson(value).dump(),
            R"({"a":[1,2.5,true,"t"],"b":"0aff","c":7,"d":18446744073709551615})");
}

}  // namespace
}  // namespace vox::cli::test
