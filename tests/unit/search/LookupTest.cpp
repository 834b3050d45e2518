// What one device is asked: its MAC address, its model, its dictionary.
#include <nlohmann/json.hpp>

#include <gmock/gmock.h>

#include "tests/unit/search/Street.h"
#include "vox/drivers/net/searchdevice.h"
#include "vox/platform/PropertyList.h"

namespace vox::test {
namespace {

const char* const kHome = "127.0.1.2";

std::string MacOf(const Resident& resident) {
  Street street;
  street.Add(resident);
  char text[NET_MAC_TEXT_SIZE] = "old";
  if (get_mac(kHome, text) == 0) return text;
  EXPECT_STREQ(text, "");
  return "refused";
}

std::string ModelOf(const Resident& resident, std::int32_t size = 64) {
  Street street;
  street.Add(resident);
  std::vector<char> model(static_cast<std::size_t>(size), '#');
  model.shrink_to_fit();
  if (get_model(model.data(), size, kHome) == 0) return model.data();
  EXPECT_EQ(model[0], '\0');
  return "refused";
}

DeviceInfo InfoOf(const Resident& resident, bool* success = nullptr) {
  Street street;
  street.Add(resident);
  return getNetworkDeviceInfo(success, kHome);
}

TEST(MacAddress, IsLowerCaseHexWithColons) {
  EXPECT_EQ(MacOf(Resident(kHome).Mac(Hex("00 1A FF 0B C0 09"))), "00:1a:ff:0b:c0:09");
}

TEST(MacAddress, NeedsSixBytesAndTakesTheFirstSix) {
  EXPECT_EQ(MacOf(Resident(kHome).Mac({})), "refused");
  EXPECT_EQ(MacOf(Resident(kHome).Mac(Hex("01 02 03 04 05"))), "refused");
  EXPECT_EQ(MacOf(Resident(kHome).Mac(Hex("01 02 03 04 05 06 07"))), "01:02:03:04:05:06");
  EXPECT_EQ(MacOf(Resident(kHome).Mac(Bytes(256, 0xAA))), "aa:aa:aa:aa:aa:aa");
  EXPECT_EQ(MacOf(Resident(kHome).Mac(Bytes(257, 0xAA))), "refused");
}

TEST(MacAddress, NoAnswerAndNoBufferFail) {
  EXPECT_EQ(MacOf(Resident(kHome).Lacks(kMacOid)), "refused");
  EXPECT_EQ(get_mac(kHome, nullptr), -1);
}

TEST(Model, BearsTheVendorInFront) {
  EXPECT_EQ(ModelOf(Resident(kHome).Model("ABC-100")), "Veltronix ABC-100");
  EXPECT_EQ(ModelOf(Resident(kHome).Model("ABC 100 \r\n")), "Veltronix ABC 100");
  EXPECT_EQ(ModelOf(Resident(kHome).Model("")), "Veltronix ");
}

TEST(Model, NeedsRoomForAllOfIt) {
  EXPECT_EQ(ModelOf(Resident(kHome).Model("ABC"), 14), "Veltronix ABC");
  EXPECT_EQ(ModelOf(Resident(kHome).Model("ABC"), 13), "refused");
  EXPECT_EQ(ModelOf(Resident(kHome).Model(""), 11), "Veltronix ");
  EXPECT_EQ(ModelOf(Resident(kHome).Model(""), 10), "refused");
  EXPECT_EQ(ModelOf(Resident(kHome).Model(""), 1), "refused");
  char none = '#';
  EXPECT_EQ(get_model(&none, 0, kHome), -1);
  EXPECT_EQ(none, '#');
  EXPECT_EQ(get_model(nullptr, 64, kHome), -1);
}

TEST(Model, NoAnswerFails) {
  EXPECT_EQ(ModelOf(Resident(kHome).Lacks(kModelOid)), "refused");
}

TEST(Model, IsSupportedByItsBeginning) {
  EXPECT_TRUE(is_qd7xxx("Veltronix QD7200"));
  EXPECT_FALSE(is_qd7xxx("QD7200"));
  EXPECT_FALSE(is_qd7xxx("Veltronix "));
  EXPECT_FALSE(is_qd7xxx(""));
  EXPECT_FALSE(is_qd7xxx(nullptr));
}

TEST(OneDevice, IsDescribedWithoutABroadcast) {
  bool success = false;
  const DeviceInfo info = InfoOf(Resident(kHome).Name("Office"), &success);
  ASSERT_TRUE(info);
  EXPECT_TRUE(success);
  EXPECT_EQ(*info, (Dictionary{{"type", "network"},
                               {"ip", kHome},
                               {"name", "Office"},
                               {"modelName", "Veltronix QD7200"},
                               {"mac", "02:00:00:00:00:02"},
                               {"deviceId", "02:00:00:00:00:02"}}));
}

TEST(OneDevice, OfAnotherModelAnswersAndIsNone) {
  bool success = false;
  EXPECT_EQ(InfoOf(Resident(kHome).Model("QX1"), &success), nullptr);
  EXPECT_TRUE(success);
}

TEST(OneDevice, ThatDoesNotTellItsModelIsAFailedQuestion) {
  bool success = true;
  EXPECT_EQ(InfoOf(Resident(kHome).Lacks(kModelOid), &success), nullptr);
  EXPECT_FALSE(success);
  success = true;
  EXPECT_EQ(getNetworkDeviceInfo(&success, nullptr), nullptr);
  EXPECT_FALSE(success);
  EXPECT_EQ(getNetworkDeviceInfo(nullptr, "no address at all"), nullptr);
}

TEST(OneDevice, ThatLacksAnObjectIsNone) {
  for (const char* oid : {kNameOid, kMacOid, kWidthOid, kHeightOid}) {
    EXPECT_EQ(InfoOf(Resident(kHome).Lacks(oid)), nullptr) << oid;
  }
}

TEST(OneDevice, FoundUnderAHostNameBearsItsDottedAddress) {
  Street street;
  street.Add(Resident("127.0.0.1"));
  const DeviceInfo info = getNetworkDeviceInfo(nullptr, "localhost");
  ASSERT_TRUE(info);
  EXPECT_EQ(info->String("ip"), "127.0.0.1");
}

TEST(OneDevice, FailureLeavesNoDictionary) {
  Street street;
  street.Add(Resident(kHome).Lacks(kHeightOid));
  auto info = std::make_shared<Dictionary>();
  EXPECT_EQ(get_dev_info(kHome, "Veltronix QD7200", &info), -1);
  EXPECT_EQ(info, nullptr);
  EXPECT_EQ(get_dev_info(kHome, "Veltronix QD7200", nullptr), -1);
}

// Texts as devices may answer them, and what the dictionary says.
struct NameCase {
  const char* reason;
  std::string answered, kept;
};
const NameCase kNames[] = {
    {"plain", "Office 2", "Office 2"},
    {"blanks and a NUL behind", std::string("Office  \0", 9), "Office"},
    {"UTF-8 inside", "B\xC3\xBCro 2", "B\xC3\xBCro 2"},
    {"Latin-1 inside", "B\xFCro 2", "B\xEF\xBF\xBDro 2"},
    {"a cut character", "A\xE2\x82Z", "A\xEF\xBF\xBD\xEF\xBF\xBDZ"},
    {"a surrogate", "A\xED\xA0\x80Z", "A\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDZ"},
    {"control characters", "A\x1B[31mZ", "A\xEF\xBF\xBD[31mZ"},
    {"nothing", "", ""},
    {"nothing but blanks", "    ", ""},
    {"a NUL inside", std::string("A\0Z", 3), "A"},
    {"255 characters", std::string(255, 'n'), std::string(255, 'n')},
    {"more than the standard allows", std::string(1200, 'n'), std::string(1200, 'n')},
};

TEST(OneDevice, NameIsTextThatListsAndJsonCanHold) {
  for (const NameCase& name : kNames) {
    const DeviceInfo info = InfoOf(Resident(kHome).Name(name.answered));
    ASSERT_TRUE(info) << name.reason;
    EXPECT_EQ(info->String("name"), name.kept) << name.reason;
    EXPECT_NO_THROW(nlohmann::json(*info->String("name")).dump()) << name.reason;
    const auto xml = PropertyListXml(PropertyValue(*info));
    ASSERT_TRUE(xml) << name.reason;
    EXPECT_EQ(ParsePropertyList(*xml), PropertyValue(*info)) << name.reason;
  }
}

TEST(OneDevice, ModelIsTextThatListsAndJsonCanHold) {
  const DeviceInfo info = InfoOf(Resident(kHome).Model("QD7200\x07\xFFx"));
  ASSERT_TRUE(info);
  EXPECT_EQ(info->String("modelName"), "Veltronix QD7200\xEF\xBF\xBD\xEF\xBF\xBDx");
}

}  // namespace
}  // namespace vox::test
