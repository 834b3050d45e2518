// vox register and unregister where something is not as it should be, and devices at USB, which
// none of the verbs asks.
#include <csignal>
#include <cstdlib>
#include <fstream>

#include <sys/inotify.h>
#include <sys/resource.h>

#include "tests/e2e/VoxDevices.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::cli::test {
namespace {

using nlohmann::json;
using sim::EventKind;
using testing::HasSubstr;
using testing::IsEmpty;

// Replacements counts how often a file of the folder is replaced while it lives.
class Replacements {
 public:
  explicit Replacements(const std::string& folder) {
    EXPECT_GE(::inotify_add_watch(notify_.Get(), folder.c_str(), IN_MOVED_TO), 0);
  }
  int Count() {
    alignas(inotify_event) char events[4096];
    int count = 0;
    ssize_t got = 0;
    while ((got = ::read(notify_.Get(), events, sizeof events)) > 0) {
      const char* const end = events + got;
      for (const char* at = events; at < end; ++count)
        at += sizeof(inotify_event) + reinterpret_cast<const inotify_event*>(at)->len;
    }
    return count;
  }

 private:
  FileDescriptor notify_{::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)};
};

class VoxRegister : public VoxDevices {
 protected:
  // A device that is no longer where it was, and a stranger in its place.
  sim::VirtualDevice& PassOfficesAddressOn() {
    Put(2, "Office");
    Good("add 127.0.0.2");
    devices_.clear();
    return PutOther("QD7200");
  }
  sim::VirtualDevice& PutOther(const std::string& model) {
    sim::DeviceOptions other = At(2, 1);
    other.model = model;
    return Put(std::move(other));
  }
  json Only(const std::string& arguments) {
    const auto objects = Objects(Vox(arguments).out);
    EXPECT_EQ(objects.size(), 1U) << arguments;
    return objects.empty() ? json() : objects[0];
  }
  void RememberAtUsb() {
    std::ofstream(SharedFile())
        << R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>Device.S1</key>)"
           "<dict><key>deviceId</key><string>S1</string><key>type</key><string>usb</string>"
           "<key>modelName</key><string>Veltronix QD7200</string>"
           "<key>serialNumber</key><string>S1</string></dict></dict></plist>";
  }
};

TEST_F(VoxRegister, AnAddressThatPassedToAnotherDeviceIsSentNothing) {
  sim::VirtualDevice& other = PassOfficesAddressOn();
  const std::string before = Good("list --json");
  for (const char* verb : {"register", "unregister"}) {
    const std::string line = verb;
    ExpectFailure(line + " office", 9,
                  "Office (127.0.0.2): another device, 02:56:58:00:00:01, answers at its address");
    ExpectFailure(line + " --all", 9, "another device, 02:56:58:00:00:01, answers");
    const json told = Only(line + " office --json");
    EXPECT_EQ(told["result"], "other-device");
    EXPECT_EQ(told["reply"], json(nullptr));
    EXPECT_EQ(told["deviceId"], "02:56:58:00:00:02");
  }
  EXPECT_EQ(other.Events().Count(EventKind::kRegister), 0U);
  EXPECT_EQ(other.Events().Count(EventKind::kUnregister), 0U);
  EXPECT_EQ(Good("list --json"), before);
}

TEST_F(VoxRegister, WhoIsNamedByItsAddressIsNotTakenForTheRememberedDevice) {
  const sim::VirtualDevice& other = PassOfficesAddressOn();
  const std::string before = Good("list --json");
  EXPECT_EQ(Only("unregister net:127.0.0.2 --json").count("deviceId"), 0U);
  Good("register net:127.0.0.2");
  EXPECT_EQ(other.Registrations().size(), 1U);
  EXPECT_EQ(Good("list --json"), before) << "nothing of it is Office's";
  ExpectFailure("register net:127.0.0.2 office", 9, "another device");
  ExpectFailure("register office net:127.0.0.2", 9, "another device");
}

// As when a router gave the address of a device that is gone to the next one.
TEST_F(VoxRegister, OfTwoRecordsWithOneAddressTheOneThatAnswersIsMeant) {
  PassOfficesAddressOn();
  Good("add 127.0.0.2");
  ExpectFailure("remove net:127.0.0.2", 4, "net:127.0.0.2 means several devices");
  EXPECT_EQ(Objects(Good("list --json")).size(), 2U);
  EXPECT_EQ(Only("unregister net:127.0.0.2 --json")["deviceId"], "02:56:58:00:00:01");
  const auto stored = Objects(Good("list --json"));
  ASSERT_EQ(stored.size(), 2U);
  for (const json& device : stored)
    EXPECT_EQ(device["isNetworkPushEnabled"], device["deviceId"] == "02:56:58:00:00:02") << device;
}

TEST_F(VoxRegister, TheAddressOfARememberedDeviceMeansIt) {
  Put(2, "Office");
  Good("add 127.0.0.2");
  const json told = Only("unregister net:127.0.0.2 --json");
  EXPECT_EQ(told["result"], "accepted");
  EXPECT_EQ(told["deviceId"], "02:56:58:00:00:02");
  EXPECT_EQ(Only("list --json")["isNetworkPushEnabled"], false);
}

TEST_F(VoxRegister, AModelThatIsNotSupportedIsFour) {
  sim::VirtualDevice& other = PutOther("Typewriter");
  for (const char* verb : {"register", "unregister"}) {
    const std::string line = std::string(verb) + " net:127.0.0.2";
    ExpectFailure(line, 4, "net:127.0.0.2: its model is not supported");
    EXPECT_EQ(Only(line + " --json")["result"], "unsupported");
  }
  EXPECT_EQ(other.Events().Count(EventKind::kUnregister), 0U);
}

TEST_F(VoxRegister, ACommandThatCannotBeSentIsNotSent) {
  Put(2, "Office");
  Good("add 127.0.0.2");
  if (std::system("(ip rule add pref 2 lookup local && ip rule add pref 1 ipproto udp dport 3892 "
                  "prohibit && ip rule del pref 0) 2>/dev/null") != 0)
    GTEST_SKIP() << "no rules about ports can be made here";
  ExpectFailure("unregister office", 9, "the command could not be sent");
  EXPECT_EQ(Only("unregister office --json")["result"], "not-sent");
  EXPECT_EQ(Only("list --json")["isNetworkPushEnabled"], true);
}

TEST_F(VoxRegister, AReplyOfZeroIsNotAnAcceptance) {
  sim::Faults odd;
  odd.register_reply = 0x00;
  Put(2, "Office", odd);
  Good("add 127.0.0.2");
  Good("unregister office");
  ExpectFailure("register office", 9, "gave a reply that is not known (0x00)");
  const json told = Only("register office --json");
  EXPECT_EQ(told["result"], "odd-reply");
  EXPECT_EQ(told["reply"], 0);
  EXPECT_EQ(told["isNetworkPushEnabled"], false);
}

TEST_F(VoxRegister, WhatIsAcceptedIsSavedOnce) {
  for (const std::uint8_t host : {2, 3, 4}) {
    Put(host, "Office " + std::to_string(host));
    Good("add 127.0.0." + std::to_string(host));
  }
  Replacements saved(Shared());
  Good("unregister --all");
  EXPECT_EQ(saved.Count(), 1);
  for (const json& device : Objects(Good("list --json")))
    EXPECT_EQ(device["isNetworkPushEnabled"], false) << device;
}

// By its second command to Dozy vox has had the others' replies for 3 s.
TEST_F(VoxRegister, WhatWasAcceptedBeforeACancelIsSavedOnce) {
  Put(2, "Office");
  Put(3, "Home");
  sim::VirtualDevice& dozy = Put(4, "Dozy");
  for (const char* host : {"2", "3", "4"}) Good(std::string("add 127.0.0.") + host);
  Good("unregister --all");
  sim::Faults late;
  late.delays.reply = std::chrono::seconds(60);
  dozy.SetFaults(late);
  Replacements saved(Shared());
  vox_.Start("register --all --json");
  ASSERT_TRUE(dozy.Events().WaitFor(EventKind::kRegister, 2, std::chrono::seconds(60)));
  vox_.Signal(SIGINT);
  const Outcome outcome = vox_.Wait();
  EXPECT_EQ(outcome.status, 2) << outcome.err;
  EXPECT_EQ(saved.Count(), 1);
  for (const json& device : Objects(Good("list --json")))
    EXPECT_EQ(device["isNetworkPushEnabled"], device["ip"] != "127.0.0.4") << device;
}

TEST_F(VoxRegister, WhatCannotBeSavedIsNotTakenOver) {
  for (const std::uint8_t host : {2, 3, 4, 5}) {
    Put(host, "Office " + std::to_string(host));
    Good("add 127.0.0." + std::to_string(host));
  }
  const std::string before = Good("list --json");
  vox_.Limit(RLIMIT_FSIZE, {1500, 1500});  // less than the settings, more than what is said
  const Outcome outcome = Vox("unregister 127.0.0.2 127.0.0.3 --json");
  vox_.Unlimit();
  EXPECT_EQ(outcome.status, 9);
  EXPECT_THAT(outcome.err, HasSubstr("cannot write " + SharedFile() + ": File too large"));
  const auto told = Objects(outcome.out);
  EXPECT_EQ(told.size(), 2U);
  for (const json& device : told) {
    EXPECT_EQ(device["result"], "accepted");
    EXPECT_EQ(device["isNetworkPushEnabled"], true) << device;
  }
  EXPECT_EQ(Good("list --json"), before);
}

TEST_F(VoxRegister, OfASilentDeviceWhatWasTriedIsTold) {
  Put(2, "Office");
  Good("add 127.0.0.2");
  devices_.clear();
  ExpectFailure("register office", 9,
                "Office (127.0.0.2): it does not answer; it was asked who it is (SNMP) at "
                "127.0.0.2, port 161 from 127.0.0.1, for ");
  const json told = Only("register office --json");
  EXPECT_EQ(told["result"], "no-answer");
  EXPECT_EQ(told["asked"], "identity");
  EXPECT_EQ(told["from"], "127.0.0.1");
  EXPECT_GE(told["seconds"], 0);
}

TEST_F(VoxRegister, DevicesAtUsbNeedNoRegistration) {
  RememberAtUsb();
  for (const char* verb : {"register", "unregister"}) {
    const std::string line = verb;
    ExpectFailure(line + " --all", 4,
                  "no network device is remembered, and devices at USB need no registration");
    ExpectFailure(line + " usb:S1", 4, "(S1 at USB): devices at USB need no registration");
    ExpectFailure(line + " S1", 4, "(S1 at USB): devices at USB need no registration");
  }
  const sim::VirtualDevice& office = Put(2, "Office");
  Good("add 127.0.0.2");
  Good("register --all");
  EXPECT_EQ(office.Registrations().size(), 1U);
}

TEST_F(VoxRegister, ADeviceAtUsbCanBeForgottenAndIsAddedWhenItIsAttached) {
  RememberAtUsb();
  ExpectFailure("remove usb:S", 4,
                "no device at USB with the serial number of usb:S is remembered");
  EXPECT_EQ(Good("remove usb:S1"), "forgotten: Veltronix QD7200 (S1 at USB)\n");
  EXPECT_THAT(Vox("list").out, IsEmpty());
  ExpectFailure("add usb:S1", 9, "no supported device with the serial number S1 is attached");
  ExpectFailure("add usb:", 64, "usb: wants a serial number");
}

}  // namespace
}  // namespace vox::cli::test
