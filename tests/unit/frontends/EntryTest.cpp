// The entry points without memory, at every place where they ask for some, and the threads that
// they start without any: NO_MEM or a good result, and a good one as soon as there is memory again.
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sane/sane.h>

#include "frontends/sane/Log.h"
#include "tests/e2e/Road.h"
#include "tests/support/NoMemory.h"
#include "tests/support/SmallDevice.h"
#include "tests/unit/core/Scratch.h"
#include "vox/DevicesManager.h"

extern "C" {
SANE_Status sane_vox_init(SANE_Int*, SANE_Auth_Callback);
void sane_vox_exit();
SANE_Status sane_vox_get_devices(const SANE_Device***, SANE_Bool);
SANE_Status sane_vox_open(SANE_String_Const, SANE_Handle*);
void sane_vox_close(SANE_Handle);
SANE_Status sane_vox_start(SANE_Handle);
SANE_Status sane_vox_read(SANE_Handle, SANE_Byte*, SANE_Int, SANE_Int*);
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

TEST_F(SaneShortage, OfALineOfTheTrace) {
  const Variable wanted("SANE_DEBUG_VOX", "1");
  OpenLog();
  testing::internal::CaptureStderr();
  {
    const test::NoMemory none;
    Log(1, "neither %s nor an end", "a \x1b of\xff terminals");
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[vox] neither a ? of? terminals nor an end\n");
}

// Nothing leaves the border though what went wrong is also traced.
TEST_F(SaneShortage, OfAnOpenThatIsTraced) {
  const Variable wanted("SANE_DEBUG_VOX", "9");
  SANE_Status status = SANE_STATUS_GOOD;
  SANE_Handle handle = nullptr;
  testing::internal::CaptureStderr();
  EXPECT_EQ(sane_vox_init(nullptr, nullptr), SANE_STATUS_GOOD);
  EXPECT_NO_THROW(test::EachShortage(
      [&] { status = sane_vox_open("a name that can be nobody's", &handle); },
      [&](bool) { EXPECT_THAT(status, AnyOf(SANE_STATUS_INVAL, SANE_STATUS_NO_MEM)); }));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("is not there\n"));
}

// With a device that a page can be had from.
class SaneShortageOnARoad : public SaneShortage {
 protected:
  SaneShortageOnARoad() {
    road_.Device(test::SmallDevice());
    name_ = "net:" + road_.FirstDevice().Address();
  }
  void SetUp() override { ASSERT_EQ(sane_vox_init(nullptr, nullptr), SANE_STATUS_GOOD); }
  void TearDown() override { sane_vox_exit(); }

  SANE_Handle Open() {
    SANE_Handle handle = nullptr;
    EXPECT_EQ(sane_vox_open(name_.c_str(), &handle), SANE_STATUS_GOOD);
    return handle;
  }
  // Reads to the end of the page.
  static SANE_Status ReadAll(SANE_Handle handle) {
    static SANE_Byte piece[100'000];
    SANE_Status status = SANE_STATUS_GOOD;
    for (SANE_Int got = 0; status == SANE_STATUS_GOOD;)
      status = sane_vox_read(handle, piece, sizeof piece, &got);
    return status;
  }
  static void ExpectPage(SANE_Handle handle) {
    EXPECT_EQ(sane_vox_start(handle), SANE_STATUS_GOOD);
    EXPECT_EQ(ReadAll(handle), SANE_STATUS_EOF);
  }

  test::Road road_;
  std::string name_;
};

TEST_F(SaneShortageOnARoad, OfAnOpen) {
  SANE_Status status = SANE_STATUS_GOOD;
  SANE_Handle handle = nullptr;
  int missed = 0;
  test::EachShortage([&] { status = sane_vox_open(name_.c_str(), &handle); },
                     [&](bool failed) {
                       EXPECT_THAT(status, failed ? AnyOf(SANE_STATUS_GOOD, SANE_STATUS_NO_MEM)
                                                  : AnyOf(SANE_STATUS_GOOD, SANE_STATUS_GOOD));
                       missed += status == SANE_STATUS_NO_MEM;
                       if (status == SANE_STATUS_GOOD) sane_vox_close(handle);
                     });
  EXPECT_GT(missed, 0);
  ExpectPage(Open());
}

TEST_F(SaneShortageOnARoad, OfAStart) {
  SANE_Status status = SANE_STATUS_GOOD;
  int missed = 0;
  SANE_Handle handle = Open();
  test::EachShortage([&] { status = sane_vox_start(handle); },
                     [&](bool failed) {
                       EXPECT_THAT(status, failed ? AnyOf(SANE_STATUS_GOOD, SANE_STATUS_NO_MEM)
                                                  : AnyOf(SANE_STATUS_GOOD, SANE_STATUS_GOOD));
                       missed += status == SANE_STATUS_NO_MEM;
                       if (status == SANE_STATUS_GOOD) {
                         EXPECT_EQ(ReadAll(handle), SANE_STATUS_EOF);
                       }
                       ExpectPage(handle);
                       sane_vox_close(handle);
                       handle = Open();
                     });
  EXPECT_GT(missed, 0);
}

TEST_F(SaneShortageOnARoad, OfARead) {
  const SANE_Handle handle = Open();
  ASSERT_EQ(sane_vox_start(handle), SANE_STATUS_GOOD);
  SANE_Status status = SANE_STATUS_GOOD;
  {
    const test::NoMemory none;
    status = ReadAll(handle);
  }
  EXPECT_EQ(status, SANE_STATUS_EOF);
}

// They live as long as the handle.
TEST_F(SaneShortageOnARoad, OfThePagesThreads) {
  const SANE_Handle handle = Open();
  {
    const test::NoMemoryInNewThreads none;
    EXPECT_EQ(sane_vox_start(handle), SANE_STATUS_NO_MEM);
  }
  EXPECT_EQ(sane_vox_start(handle), SANE_STATUS_NO_MEM);
  sane_vox_close(handle);
  ExpectPage(Open());
}

}  // namespace
}  // namespace vox::sane
