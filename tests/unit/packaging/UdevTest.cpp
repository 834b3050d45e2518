// The udev rules, the hardware database and the metainfo that are installed for devices at USB:
// every model of the table and no other, and what a rule does to a device.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/core/Scratch.h"
#include "tests/unit/packaging/Said.h"
#include "tests/unit/packaging/UdevRules.h"
#include "vox/SupportedDevices.h"

namespace vox::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kSource[] = VOX_SOURCE_DIR "/packaging/";

std::string Lower(std::int64_t id) {
  char text[8];
  std::snprintf(text, sizeof text, "%04x", static_cast<unsigned>(id) & 0xFFFFU);
  return text;
}
std::string Upper(std::int64_t id) {
  char text[8];
  std::snprintf(text, sizeof text, "%04X", static_cast<unsigned>(id) & 0xFFFFU);
  return text;
}

struct Model {
  std::int64_t vendor, product;
  std::string names;  // without the maker's, a slash between two
};

std::vector<Model> Models() {
  std::vector<Model> models;
  for (const auto& record : SupportedDevices::instance().enumerator()) {
    Model model{*record->Find("vendorId")->Integer(), *record->Find("productId")->Integer(), {}};
    for (const PropertyValue& name : *record->Find("searchString")->AsArray()) {
      const std::string text = *name.String();
      model.names += (model.names.empty() ? "" : "/") + text.substr(text.find(' ') + 1);
    }
    models.push_back(model);
  }
  EXPECT_FALSE(models.empty());
  return models;
}

UdevDevice Attached(std::int64_t vendor, std::int64_t product) {
  UdevDevice device;
  device.attributes = {{"idVendor", Lower(vendor)}, {"idProduct", Lower(product)}};
  device.properties = {
      {"DEVTYPE", "usb_device"}, {"ID_GPHOTO2", "1"}, {"GPHOTO2_DRIVER", "PTP"}, {"OTHER", "1"}};
  return device;
}

bool IsOurs(const UdevDevice& device) {
  return device.mode == "0660" && device.group == "scanner" && device.tags.contains("uaccess") &&
         device.properties.contains("libsane_matched");
}

bool IsUntouched(const UdevDevice& device) {
  return device.mode.empty() && device.group.empty() && device.tags.empty() &&
         device.properties.size() == 4;
}

TEST(UdevRulesTest, EveryModelIsOpenToTheSeatAndTheGroupAndIsNoCamera) {
  const UdevRules rules(TextOf(std::string(kSource) + "60-vox.rules"));
  ASSERT_THAT(rules.Problems(), IsEmpty());
  for (const Model& model : Models()) {
    UdevDevice device = Attached(model.vendor, model.product);
    rules.Apply(device);
    EXPECT_TRUE(IsOurs(device)) << model.names;
    EXPECT_EQ(device.properties.at("libsane_matched"), "yes");
    EXPECT_FALSE(device.properties.contains("ID_GPHOTO2")) << model.names;
    EXPECT_FALSE(device.properties.contains("GPHOTO2_DRIVER")) << model.names;
    EXPECT_EQ(device.properties.at("OTHER"), "1");
  }
}

TEST(UdevRulesTest, NoOtherProductIsTouched) {
  const UdevRules rules(TextOf(std::string(kSource) + "60-vox.rules"));
  std::set<std::int64_t> products;
  for (const Model& model : Models()) products.insert(model.product);
  for (std::int64_t product = 0; product <= 0xFFFF; ++product) {
    if (products.contains(product)) continue;
    UdevDevice device = Attached(0x5658, product);
    rules.Apply(device);
    ASSERT_TRUE(IsUntouched(device)) << product;
  }
}

TEST(UdevRulesTest, OtherMakersInterfacesAndRemovalsAreLeftAlone) {
  const UdevRules rules(TextOf(std::string(kSource) + "60-vox.rules"));
  UdevDevice maker = Attached(0x5659, 0x1520), interface = Attached(0x5658, 0x1520);
  UdevDevice removed = interface, other = interface;
  interface.properties["DEVTYPE"] = "usb_interface";
  removed.action = "remove";
  other.subsystem = "block";
  for (UdevDevice* device : {&maker, &interface, &removed, &other}) {
    rules.Apply(*device);
    EXPECT_TRUE(IsUntouched(*device));
  }
}

TEST(UdevRulesTest, WhatIsNoRuleIsSeen) {
  for (const char* text : {"ATTR{idVendor}=\"1\"", "MODE==\"0660\"", "ATTR==\"1\"", "MODE=\"0660",
                           "MODE=\"1\" GROUP=\"a\"", "MODE=\"1\", ", "GOTO=\"x\"",
                           "LABEL=\"x\"\nGOTO=\"x\"", "NONSENSE=\"1\"", "ENV{a=\"1\""})
    EXPECT_EQ(UdevRules(text).Problems().size(), 1U) << text;
}

TEST(UdevHwdbTest, ItNamesEveryModelAndNoOther) {
  std::string expected = "usb:v5658*\n ID_VENDOR_FROM_DATABASE=Veltronix\n";
  for (const Model& model : Models())
    expected += "\nusb:v" + Upper(model.vendor) + "p" + Upper(model.product) +
                "*\n ID_MODEL_FROM_DATABASE=" + model.names + "\n libsane_matched=yes\n";
  const std::string text = TextOf(std::string(kSource) + "60-vox.hwdb");
  EXPECT_EQ(text.substr(text.find("usb:")), expected);
}

TEST(MetainfoTest, ItHasTheDevicesOfEveryModelAndNoOther) {
  std::string expected;
  for (const Model& model : Models())
    expected += "    <modalias>usb:v" + Upper(model.vendor) + "p" + Upper(model.product) +
                "d*</modalias>\n";
  const std::string text = TextOf(std::string(kSource) + "com.veltronix.vox.metainfo.xml");
  const std::string begin = "<provides>\n", end = "  </provides>";
  const std::size_t at = text.find(begin) + begin.size();
  EXPECT_EQ(text.substr(at, text.find(end) - at), expected);
}

class Installed : public testing::Test {
 protected:
  void SetUp() override {
    int status = -1;
    Said("DESTDIR=" + scratch_.Path("") +
             " " VOX_CMAKE " --install " VOX_BINARY_DIR " --component usb 2>&1",
         &status);
    ASSERT_EQ(status, 0);
  }
  std::string Folder() const { return scratch_.Path("") + VOX_UDEV_FOLDER; }
  Scratch scratch_;
};

TEST_F(Installed, TheComponentHoldsBothFilesAndNothingElse) {
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(scratch_.Path(""))) {
    if (entry.is_regular_file()) files.insert(entry.path().filename());
  }
  EXPECT_THAT(files, ElementsAre("60-vox.hwdb", "60-vox.rules"));
  EXPECT_EQ(TextOf(Folder() + "/rules.d/60-vox.rules"),
            TextOf(std::string(kSource) + "60-vox.rules"));
}

TEST_F(Installed, SystemdsHardwareDatabaseAnswersWithTheNames) {
  if (!IsHere("systemd-hwdb")) GTEST_SKIP() << "systemd-hwdb is not here (Debian: udev)";
  const std::string root = scratch_.Path("");
  int status = -1;
  std::filesystem::create_directories(root + "/etc/udev/hwdb.d");
  std::filesystem::create_directory_symlink("usr/lib", root + "lib");  // as on the machine
  Said("systemd-hwdb update --strict --root=" + root + " 2>&1", &status);
  ASSERT_EQ(status, 0);
  // A query knows the machine's own database alone, so this one is put in its place.
  const std::string bind = "mount --bind " + root + "etc/udev /etc/udev";
  if (std::system(("unshare -rm " + bind + " 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "no mount namespace can be made here, or there is no folder /etc/udev";
  for (const Model& model : Models()) {
    const std::string modalias =
        "usb:v" + Upper(model.vendor) + "p" + Upper(model.product) + "d0100dc00";
    const std::string said =
        Said("unshare -rm sh -c '" + bind + " && systemd-hwdb query " + modalias + "'", &status);
    EXPECT_EQ(said, "ID_VENDOR_FROM_DATABASE=Veltronix\nID_MODEL_FROM_DATABASE=" + model.names +
                        "\nlibsane_matched=yes\n")
        << modalias;
  }
}

}  // namespace
}  // namespace vox::test
