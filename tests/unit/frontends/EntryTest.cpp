// The entry points without memory, at every place where they ask for some: NO_MEM or a good result,
// and a good one as soon as there is memory again.
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sane/sane.h>

#include "tests/support/NoMemory.h"
#include "tests/unit/core/Scratch.h"
#include "vox/DevicesManager.h"

extern "C" {
SANE_Status sane_vox_init(SANE_Int*, SANE_Auth_Callback);
void sane_vox_exit();
SANE_Status sane_vox_get_devices(const SANE_Device***, SANE_Bool);
SANE_Status sane_vox_open(SANE_String_Const, SANE_Handle*);
}

namespace vox::sane {
namespace {

using testing::AnyOf;

class SaneShortage : public testing::Test {
 protected:
  SaneShortage()
      : root_("VOX_ROOT", scratch_.Path("root")),
        home_("XDG_CONFIG_HOME", scratch_.Path("")),
        config_("SANE_CONFIG_DIR", scratch_.Path("")) {
    std::filesystem::create_directories(scratch_.Path("root/var/lib/Veltronix Vox"));
    std::ofstream(scratch_.Path("vox.conf")) << "discovery off\ndevice usb:NOBODY\n";
  }
  ~SaneShortage() override { sane_vox_exit(); }

  static void Remember() {
    Dictionary device;
    device.Set(kDeviceTypeKey, std::string(kDeviceTypeNetwork));
    device.Set(kDeviceIpKey, std::string("127.0.0.5"));
    device.Set(kDeviceModelNameKey, std::string("Veltronix QD7200"));
    device.Set(kDeviceMacKey, std::string("00:1b:21:0a:4c:7e"));
    device.Set(kDeviceIdKey, std::string("00:1b:21:0a:4c:7e"));
    DevicesManager::instance().synchronizeDevices();
    DevicesManager::instance().appendOneDeviceInfo(std::make_shared<Dictionary>(device));
  }
  static int Listed() {
    const SANE_Device** list = nullptr;
    if (sane_vox_get_devices(&list, SANE_FALSE) != SANE_STATUS_GOOD) return -1;
    int count = 0;
    while (list[count] != nullptr) ++count;
    return count;
  }

 private:
  Scratch scratch_;
  Variable root_, home_, config_;
};

TEST_F(SaneShortage, OfInit) {
  SANE_Status status = SANE_STATUS_GOOD;
  int missed = 0;
  test::EachShortage([&] { status = sane_vox_init(nullptr, nullptr); },
                     [&](bool failed) {
                       EXPECT_THAT(status, failed ? AnyOf(SANE_STATUS_GOOD, SANE_STATUS_NO_MEM)
                                                  : AnyOf(SANE_STATUS_GOOD, SANE_STATUS_GOOD));
                       missed += status == SANE_STATUS_NO_MEM;
                       sane_vox_exit();
                     });
  EXPECT_GT(missed, 0);
}

TEST_F(SaneShortage, OfAList) {
  Remember();
  ASSERT_EQ(sane_vox_init(nullptr, nullptr), SANE_STATUS_GOOD);
  ASSERT_EQ(Listed(), 1);
  SANE_Status status = SANE_STATUS_GOOD;
  const SANE_Device** list = nullptr;
  int missed = 0;
  test::EachShortage([&] { status = sane_vox_get_devices(&list, SANE_FALSE); },
                     [&](bool failed) {
                       EXPECT_THAT(status, failed ? AnyOf(SANE_STATUS_GOOD, SANE_STATUS_NO_MEM)
                                                  : AnyOf(SANE_STATUS_GOOD, SANE_STATUS_GOOD));
                       missed += status == SANE_STATUS_NO_MEM;
                       EXPECT_EQ(Listed(), 1) << "with memory again";
                     });
  EXPECT_GT(missed, 0);
}

TEST_F(SaneShortage, OfAnOpenThatFindsNobody) {
  ASSERT_EQ(sane_vox_init(nullptr, nullptr), SANE_STATUS_GOOD);
  SANE_Status status = SANE_STATUS_GOOD;
  SANE_Handle handle = nullptr;
  int missed = 0;
  test::EachShortage([&] { status = sane_vox_open("usb:a-serial-number-of-nobody", &handle); },
                     [&](bool failed) {
                       EXPECT_THAT(status, failed ? AnyOf(SANE_STATUS_INVAL, SANE_STATUS_NO_MEM)
                                                  : AnyOf(SANE_STATUS_INVAL, SANE_STATUS_INVAL));
                       missed += status == SANE_STATUS_NO_MEM;
                     });
  EXPECT_GT(missed, 0);
}

}  // namespace
}  // namespace vox::sane
