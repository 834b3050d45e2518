// What the system's files say of an attached device, and what of it is believed.
#include "vox/platform/UsbRecords.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mount.h>

#include "tests/support/FreshNamespace.h"
#include "tests/unit/usb/FakeLibUsb.h"
#include "vox/drivers/usb/UsbSearch.h"

namespace vox::test {
namespace {

using Files = std::map<std::string, std::string>;

// The device that libusb knows is at port 1 of bus 1, and its address is 7.
class UsbRecords : public testing::Test {
 protected:
  // Where gives the exit code of a process in which the files of that port are these: 0 when
  // `holds` is true of the record.
  template <class Holds>
  static int Where(const Files& files, Holds holds) {
    return InFreshNamespace(CLONE_NEWNS, [&] {
      const std::string folder = "/sys/bus/usb/devices/1-1/";
      if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
          ::mount("none", "/sys", "tmpfs", 0, nullptr) != 0)
        return kNotPermitted;
      std::filesystem::create_directories(folder);
      for (const auto& [name, text] : files) std::ofstream(folder + name) << text;
      std::vector<UsbRecord> records;
      if (ReadUsbRecords(&records) != kIOReturnSuccess || records.size() != 1) return 2;
      return holds(records[0]) ? 0 : 1;
    });
  }
  static bool HasNoTexts(const UsbRecord& record) {
    return !record.manufacturer && !record.product_name && !record.serial &&
           record.vendor == 0x5658 && record.location == 0x01100000;
  }
  const Files good_ = {{"devnum", "7\n"},
                       {"manufacturer", "Veltronix\n"},
                       {"product", "QD7200\n"},
                       {"serial", "SN1\n"}};
  FakeLibUsb usb_;
};

TEST_F(UsbRecords, HaveTheirTexts) {
  const int code = Where(good_, [](const UsbRecord& record) {
    return record.manufacturer == "Veltronix" && record.product_name == "QD7200" &&
           record.serial == "SN1" && record.bus == 1 && record.address == 7 &&
           record.product == 0x1520 && record.location == 0x01100000;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

// Another device has come to the port since libusb looked: its texts would be given to the former.
TEST_F(UsbRecords, OfADeviceThatIsNoLongerThereHaveNone) {
  for (const char* number : {"8\n", "77\n", "07\n", "7 \n", "", "\n7\n"}) {
    Files files = good_;
    files["devnum"] = number;
    const int code = Where(files, HasNoTexts);
    SKIP_IF_NOT_PERMITTED(code);
    EXPECT_EQ(code, 0) << number;
  }
  Files files = good_;
  files.erase("devnum");
  EXPECT_EQ(Where(files, HasNoTexts), 0);
}

TEST_F(UsbRecords, LeaveOutTextsThatAreMissingOrEmpty) {
  Files files = good_;
  files.erase("manufacturer");
  files["serial"] = "\n";
  files["product"] = "";
  const int code = Where(files, HasNoTexts);
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

// libusb's first context starts a thread, and its last one ends it.
TEST_F(UsbRecords, AreReadWithinOneContextWhereAllModelsAreSearchedFor) {
  searchUsbDevices(nullptr, 0);
  ASSERT_GT(usb_.Calls().size(), 3U);
  EXPECT_EQ(usb_.Calls()[0], "init");
  EXPECT_EQ(usb_.Calls()[1], "init") << "the search's own lives meanwhile";
  EXPECT_EQ(usb_.Calls().back(), "exit");
  EXPECT_EQ(usb_.Held(), 0);
}

TEST_F(UsbRecords, AreNoneWhereLibusbCannotBeHad) {
  usb_.init = LIBUSB_ERROR_NO_MEM;
  EXPECT_TRUE(searchUsbDevices(nullptr, 0).empty());
  EXPECT_EQ(usb_.Held(), 0);
}

}  // namespace
}  // namespace vox::test
