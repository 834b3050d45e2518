// vox list --online: who answers where a device is remembered, judged as a scan does it.
#include <algorithm>
#include <fstream>

#include "tests/e2e/VoxDevices.h"

namespace vox::cli::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;

class Presence : public VoxDevices {
 protected:
  void SetUp() override {
    VoxDevices::SetUp();
    if (IsSkipped()) return;
    Put(2, "Office");
    Good("add 127.0.0.2");
  }

  void Expect(const std::string& words, const std::string& state, bool online) {
    EXPECT_THAT(Vox("list --online").out, EndsWith("  " + words + "\n"));
    const json record = json::parse(Vox("list --online --json").out);
    EXPECT_EQ(record["state"], state);
    EXPECT_EQ(record["online"], online);
  }
  // What the shared settings have as the device's address.
  void SetAddress(const std::string& address) {
    std::ifstream in(SharedFile());
    std::string text(std::istreambuf_iterator<char>(in), {});
    const std::string old = "<string>127.0.0.2</string>";
    ASSERT_NE(text.find(old), std::string::npos);
    text.replace(text.find(old), old.size(), "<string>" + address + "</string>");
    std::ofstream(SharedFile()) << text;
  }
};

TEST_F(Presence, ADeviceThatIsTheSameIsOnline) {
  Expect("online", "online", true);
}

TEST_F(Presence, ADeviceThatIsOffDoesNotAnswer) {
  devices_.clear();
  Expect("no answer", "no-answer", false);
}

TEST_F(Presence, ADeviceThatWasGivenAnotherNameIsStillUsed) {
  devices_.clear();
  Put(2, "Attic");
  Expect("renamed", "renamed", true);
  EXPECT_EQ(Vox("info office").status, 0) << "as a scan judges it";
}

TEST_F(Presence, AnotherDeviceOfTheSameNameIsNotTakenForIt) {
  devices_.clear();
  sim::DeviceOptions options;
  options.address = "127.0.0.2";
  options.snmp_port = 161;
  options.command_port = 3892;
  options.name = "Office";
  options.mac[5] = 9;
  sim::VirtualDevice other(options);
  ASSERT_TRUE(other.Start()) << other.Error();
  Expect("other device", "other-device", false);
  ExpectFailure("info office", 9, "another device");
}

TEST_F(Presence, ABrokenAddressIsToldOfAndCanBeMended) {
  for (const char* address : {"127.0.0.2.9", "", "copier.example", "\xC2\x9B\x32J"}) {
    SetAddress(address);
    Expect("broken address", "broken-address", false);
    const Outcome list = Vox("list");
    EXPECT_THAT(list.out, EndsWith("  broken address\n"));
    EXPECT_THAT(list.err,
                AllOf(HasSubstr("is remembered with a broken address; find it again with vox "
                                "discover, or name its address with vox add\n"),
                      testing::StartsWith("vox: note: Office (")));
    EXPECT_EQ(json::parse(Vox("list --json").out)["state"], "broken-address");
    ExpectFailure("scan office -o a.png", 4, "is remembered with a broken address; find it");
    EXPECT_EQ(Vox("add 127.0.0.2").status, 0);
    EXPECT_FALSE(json::parse(Good("list --json")).contains("state")) << "mended";
  }
}

}  // namespace
}  // namespace vox::cli::test
