// The search of attached scanners, over a fake registry.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/FakeUsbPort.h"
#include "tests/unit/stores/ResourceFolder.h"
#include "vox/SupportedDevices.h"
#include "vox/drivers/usb/UsbSearch.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

using test::FakeUsbDevice;
using test::kFakeUsbProduct;
using test::kFakeUsbVendor;
using test::StillImageDevice;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kModels[] =
    "<dict><key>Devices</key><array>"
    "<dict><key>searchString</key><string>A</string>"
    "<key>vendorId</key><string>0x5658</string><key>productId</key><string>0x1520</string></dict>"
    "<dict><key>searchString</key><string>B</string>"
    "<key>vendorId</key><string>0x5658</string><key>productId</key><string>0x1521</string></dict>"
    "<dict><key>searchString</key><string>C</string>"
    "<key>vendorId</key><string>0x5659</string><key>productId</key><string>0x1520</string></dict>"
    "</array></dict>";

class CancelsAt final : public CancelDelegate {
 public:
  explicit CancelsAt(int n) : n_(n) {}
  bool isCancelled() override { return ++asked == n_; }
  int asked = 0;

 private:
  const int n_;
};

class UsbSearch : public testing::Test {
 protected:
  UsbSearch() { models_.Put("SupportedDevices", kModels); }
  // Nothing is opened and nothing leaks, whatever a test does.
  ~UsbSearch() override {
    EXPECT_EQ(port_.Held(), 0);
    EXPECT_EQ(port_.Count("IOCreatePlugInInterfaceForService"), 0);
  }
  static FakeUsbDevice WithIds(FakeUsbDevice device, int vendor, int product) {
    device.properties.Set(kUSBVendorID, vendor);
    device.properties.Set(kUSBProductID, product);
    return device;
  }
  static std::vector<std::string> Ids(const DeviceInfoDictionary& devices) {
    std::vector<std::string> ids;
    for (const auto& [id, info] : devices) {
      ids.push_back(id);
      EXPECT_EQ(info->String("deviceId"), id);
    }
    return ids;
  }
  static std::string ModelName(const DeviceInfoDictionary& devices, const std::string& id) {
    const auto found = devices.find(id);
    return found != devices.end() ? found->second->String("modelName").value_or("?") : "none";
  }
  static int SearchOne(DeviceInfoDictionary& found, unsigned long location = 0) {
    return searchOneUsbDevice(found, kFakeUsbVendor, kFakeUsbProduct, location);
  }

  test::FakeUsbPort port_;
  ResourceFolder models_;
  SupportedDevices::Fresh table_;
};

TEST_F(UsbSearch, OfAMachineWithoutDevicesIsEmpty) {
  EXPECT_THAT(searchUsbDevices(nullptr, 0), IsEmpty());
  EXPECT_EQ(port_.Count("IOServiceGetMatchingServices"), 3) << "once a model";
}

TEST_F(UsbSearch, DescribesADeviceWithFourTexts) {
  FakeUsbDevice device = StillImageDevice("SN1");
  device.properties.Set(kUSBVendorString, "A");
  device.properties.Set(kUSBProductString, "B C");
  port_.Attach(device);
  const DeviceInfoDictionary found = searchUsbDevices(nullptr, 0);
  ASSERT_THAT(Ids(found), ElementsAre("SN1"));
  EXPECT_EQ(
      *found.at("SN1"),
      (Dictionary{
          {"type", "usb"}, {"serialNumber", "SN1"}, {"modelName", "A B C"}, {"deviceId", "SN1"}}));
}

TEST_F(UsbSearch, FindsTheDevicesOfAllSupportedModelsAndNoOthers) {
  port_.Attach(WithIds(StillImageDevice("SN1"), 0x5658, 0x1521));
  port_.Attach(WithIds(StillImageDevice("SN2"), 0x5659, 0x1520));
  port_.Attach(StillImageDevice("SN3"));
  port_.Attach(WithIds(StillImageDevice("other product"), 0x5658, 0x1522));
  port_.Attach(WithIds(StillImageDevice("other vendor"), 0x5657, 0x1520));
  port_.Attach(WithIds(StillImageDevice("crossed"), 0x5659, 0x1521));
  EXPECT_THAT(Ids(searchUsbDevices(nullptr, 0)), ElementsAre("SN1", "SN2", "SN3"));
}

TEST_F(UsbSearch, WithALocationFindsTheDeviceThereOnly) {
  port_.Attach(StillImageDevice("SN1", 0x01100000));
  port_.Attach(WithIds(StillImageDevice("SN2", 0xFE200000), 0x5658, 0x1521));
  EXPECT_THAT(Ids(searchUsbDevices(nullptr, 0)), ElementsAre("SN1", "SN2"));
  EXPECT_THAT(Ids(searchUsbDevices(nullptr, 0x01100000)), ElementsAre("SN1"));
  EXPECT_THAT(Ids(searchUsbDevices(nullptr, 0xFE200000)), ElementsAre("SN2"));
  EXPECT_THAT(searchUsbDevices(nullptr, 1), IsEmpty());
  DeviceInfoDictionary found;
  EXPECT_EQ(SearchOne(found, 0xFE200000), 0);
  EXPECT_EQ(SearchOne(found, 0x01100000), 1);
}

TEST_F(UsbSearch, WithALocationSkipsDevicesThatDoNotTellTheirsAsANumber) {
  FakeUsbDevice text = StillImageDevice("SN1"), none = StillImageDevice("SN2"),
                truth = StillImageDevice("SN3", 1);
  text.properties.Set(kUSBDevicePropertyLocationID, "17825792");
  none.properties.Remove(kUSBDevicePropertyLocationID);
  truth.properties.Set(kUSBDevicePropertyLocationID, true);
  for (const FakeUsbDevice& device : {text, none, truth}) port_.Attach(device);
  EXPECT_THAT(searchUsbDevices(nullptr, 17825792), IsEmpty());
  EXPECT_THAT(searchUsbDevices(nullptr, 1), IsEmpty());
  EXPECT_THAT(Ids(searchUsbDevices(nullptr, 0)), SizeIs(3)) << "nobody asks where they are";
}

TEST_F(UsbSearch, LeavesOutDevicesWithoutAllThreeTexts) {
  for (const char* key : {kUSBProductString, kUSBSerialNumberString, kUSBVendorString}) {
    FakeUsbDevice missing = StillImageDevice("missing"), number = StillImageDevice("number"),
                  data = StillImageDevice("data");
    missing.properties.Remove(key);
    number.properties.Set(key, 7);
    data.properties.Set(key, Data{0x41});
    for (const FakeUsbDevice& device : {missing, number, data}) port_.Attach(device);
  }
  DeviceInfoDictionary found;
  EXPECT_EQ(SearchOne(found), 0);
  EXPECT_THAT(found, IsEmpty());
  port_.Attach(StillImageDevice("SN1"));
  EXPECT_EQ(SearchOne(found), 1);
  EXPECT_THAT(Ids(found), ElementsAre("SN1"));
}

TEST_F(UsbSearch, OfTwoEqualSerialNumbersTheLaterStaysAndBothCount) {
  FakeUsbDevice later = StillImageDevice("SN1");
  later.properties.Set(kUSBProductString, "Later");
  port_.Attach(StillImageDevice("SN1"));
  port_.Attach(later);
  DeviceInfoDictionary found;
  EXPECT_EQ(SearchOne(found), 2);
  EXPECT_THAT(Ids(found), ElementsAre("SN1"));
  EXPECT_EQ(ModelName(found, "SN1"), "Veltronix Later");
  EXPECT_EQ(SearchOne(found), 2) << "again";
  EXPECT_THAT(found, SizeIs(1));
}

TEST_F(UsbSearch, AddsToWhatWasFound) {
  port_.Attach(StillImageDevice("SN1"));
  DeviceInfoDictionary found = {{"m", std::make_shared<Dictionary>(Dictionary{{"deviceId", "m"}})}};
  EXPECT_EQ(SearchOne(found), 1);
  EXPECT_THAT(Ids(found), ElementsAre("SN1", "m"));
}

TEST_F(UsbSearch, TextsAreMadeFitForAPropertyList) {
  FakeUsbDevice device = StillImageDevice("SN\x01");
  device.properties.Set(kUSBVendorString, "V\xFF");
  device.properties.Set(kUSBProductString, std::string("P\0Q", 3));
  port_.Attach(device);
  const DeviceInfoDictionary found = searchUsbDevices(nullptr, 0);
  EXPECT_THAT(Ids(found), ElementsAre("SN\xEF\xBF\xBD"));
  EXPECT_EQ(ModelName(found, "SN\xEF\xBF\xBD"), "V\xEF\xBF\xBD P\xEF\xBF\xBDQ");
}

TEST_F(UsbSearch, LogsThatItCannotMatch) {
  port_.Attach(StillImageDevice("SN1"));
  port_.no_matching = true;
  std::vector<std::string> lines;
  const SystemLogSink former =
      SetSystemLogSink([&](const std::string& line) { lines.push_back(line); });
  DeviceInfoDictionary found;
  EXPECT_EQ(SearchOne(found), 0);
  EXPECT_THAT(lines, ElementsAre("searchOneUsbDevice: Failed to create matching dict"));
  EXPECT_THAT(searchUsbDevices(nullptr, 0), IsEmpty());
  EXPECT_THAT(lines, SizeIs(4)) << "once more for each model";
  SetSystemLogSink(former);
}

TEST_F(UsbSearch, IsEmptyAndSilentWhenTheRegistryDoesNotAnswer) {
  port_.Attach(StillImageDevice("SN1"));
  port_.services = kIOReturnError;
  std::vector<std::string> lines;
  const SystemLogSink former =
      SetSystemLogSink([&](const std::string& line) { lines.push_back(line); });
  EXPECT_THAT(searchUsbDevices(nullptr, 0), IsEmpty());
  SetSystemLogSink(former);
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(UsbSearch, AsksTheDelegateBeforeEachModel) {
  port_.Attach(WithIds(StillImageDevice("SN2"), 0x5658, 0x1521));
  port_.Attach(StillImageDevice("SN1"));
  CancelsAt first(1), third(3), never(99);
  EXPECT_THAT(searchUsbDevices(&first, 0), IsEmpty());
  EXPECT_EQ(first.asked, 1);
  EXPECT_THAT(port_.Calls(), IsEmpty());
  EXPECT_THAT(Ids(searchUsbDevices(&third, 0)), ElementsAre("SN1", "SN2"));
  EXPECT_EQ(port_.Count("IOServiceMatching"), 2);
  CancelsAt second(2);
  EXPECT_THAT(Ids(searchUsbDevices(&second, 0)), ElementsAre("SN1"))
      << "what was found before stays";
  EXPECT_THAT(Ids(searchUsbDevices(&never, 0)), ElementsAre("SN1", "SN2"));
  EXPECT_EQ(never.asked, 3);
}

TEST_F(UsbSearch, ADeviceThatIsUnpluggedIsGone) {
  const int id = port_.Attach(StillImageDevice("SN1"));
  EXPECT_THAT(searchUsbDevices(nullptr, 0), SizeIs(1));
  port_.Detach(id);
  EXPECT_THAT(searchUsbDevices(nullptr, 0), IsEmpty());
}

}  // namespace
}  // namespace vox
