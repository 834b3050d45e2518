// Every object that a host reads, asked for with net-snmp's tools over a real socket.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "sim/VirtualDevice.h"

namespace vox::sim {
namespace {

const std::string kUnits = ".1.3.6.1.4.1.32473.203.1.4.5.1.1.";
const std::string kPaper = ".1.3.6.1.4.1.32473.405.4.5.1.1.";
const std::string kTypes = ".1.3.6.1.4.1.32473.405.4.10.1.1.2.";

std::string Shell(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), &::pclose);
  std::string output;
  std::array<char, 4096> piece;
  while (const std::size_t got = std::fread(piece.data(), 1, piece.size(), pipe.get())) {
    output.append(piece.data(), got);
  }
  return output;
}

class SnmpTools : public ::testing::Test {
 protected:
  ~SnmpTools() override { std::filesystem::remove_all(folder_); }
  void Start(DeviceOptions options) {
    device_ = std::make_unique<VirtualDevice>(std::move(options));
    ASSERT_TRUE(device_->Start()) << device_->Error();
    // No MIB and no configuration is read; what the tools keep goes into a folder of our own.
    std::filesystem::create_directories(folder_ / "cert_indexes");
    ::setenv("MIBS", "", 1);
    ::setenv("SNMP_PERSISTENT_DIR", folder_.c_str(), 1);
    ::setenv("SNMPCONFPATH", folder_.c_str(), 1);
  }
  // -On numeric names, -Oe numbers, -OQ without types, -Ot ticks.
  std::string Tool(const std::string& tool, const std::string& arguments) {
    return Shell(tool + " -v1 -c public -t 3 -r 0 -OneQtU 127.0.0.1:" +
                 std::to_string(device_->SnmpPort()) + " " + arguments + " 2>&1");
  }
  std::string Get(const std::string& oid) { return Tool("snmpget", oid); }
  static std::string Line(const std::string& oid, std::uint64_t value) {
    return oid + " = " + std::to_string(value) + "\n";
  }
  const std::filesystem::path folder_ =
      std::filesystem::path(::testing::TempDir()) / ("vox-snmp-" + std::to_string(::getpid()));
  std::unique_ptr<VirtualDevice> device_;
};

DeviceOptions TwoUnits() {
  DeviceOptions options;
  options.model = "QD7999";
  options.name = "Third floor";
  options.mac = {0x00, 0x1B, 0xA0, 0xFF, 0x7F, 0x01};
  options.flatbed = UnitOptions{75, 76, 1200, 1201, 77, 152, 11, 12, 13, 14, 117000, 165400};
  options.feeder = UnitOptions{100, 101, 600, 601, 102, 153, 21, 22, 23, 24, 85000, 140000};
  options.duplex = 2;
  options.support_paper = 0x1234;
  options.compression = 3;
  return options;
}

TEST_F(SnmpTools, WalkListsEveryObjectOfBothUnits) {
  Start(TwoUnits());
  EXPECT_EQ(
      Tool("snmpwalk", "1.3.6.1.4.1.32473"),
      Line(kUnits + "2.1.1", 5) + Line(kUnits + "2.1.2", 3) + Line(kUnits + "4.1.1", 12010000) +
          Line(kUnits + "4.1.2", 6010000) + Line(kUnits + "5.1.1", 12000000) +
          Line(kUnits + "5.1.2", 6000000) + Line(kUnits + "6.1.1", 760000) +
          Line(kUnits + "6.1.2", 1010000) + Line(kUnits + "7.1.1", 750000) +
          Line(kUnits + "7.1.2", 1000000) + Line(kUnits + "8.1.1", 1520000) +
          Line(kUnits + "8.1.2", 1530000) + Line(kUnits + "9.1.1", 1520000) +
          Line(kUnits + "9.1.2", 1530000) + Line(kUnits + "10.1.1", 11) +
          Line(kUnits + "10.1.2", 21) + Line(kUnits + "11.1.1", 12) + Line(kUnits + "11.1.2", 22) +
          Line(kUnits + "12.1.1", 13) + Line(kUnits + "12.1.2", 23) + Line(kUnits + "13.1.1", 14) +
          Line(kUnits + "13.1.2", 24) + Line(kUnits + "14.1.1", 770000) +
          Line(kUnits + "14.1.2", 1020000) + Line(kUnits + "15.1.1", 770000) +
          Line(kUnits + "15.1.2", 1020000) + Line(".1.3.6.1.4.1.32473.203.1.4.13.1.1.2.1.1", 4660) +
          Line(".1.3.6.1.4.1.32473.203.1.7.2.0", 3) +
          ".1.3.6.1.4.1.32473.405.1.1.1.3.0 = \"QD7999\"\n" + Line(kPaper + "4.1.1", 117000) +
          Line(kPaper + "4.1.2", 85000) + Line(kPaper + "5.1.1", 165400) +
          Line(kPaper + "5.1.2", 140000) + Line(kPaper + "10.1.1", 3) + Line(kPaper + "10.1.2", 3) +
          Line(kPaper + "16.1.1", 5) + Line(kPaper + "16.1.2", 5) + Line(kTypes + "1.1", 1) +
          Line(kTypes + "1.2", 22) + Line(kTypes + "1.3", 61) + "End of MIB\n");
}

TEST_F(SnmpTools, GetGivesNameModelAndHardwareAddress) {
  Start(TwoUnits());
  EXPECT_EQ(Get("1.3.6.1.2.1.1.5.0"), ".1.3.6.1.2.1.1.5.0 = \"Third floor\"\n");
  EXPECT_EQ(Get("1.3.6.1.4.1.32473.405.1.1.1.3.0"),
            ".1.3.6.1.4.1.32473.405.1.1.1.3.0 = \"QD7999\"\n");
  EXPECT_EQ(Get("-Ox 1.3.6.1.2.1.2.2.1.6.1"), ".1.3.6.1.2.1.2.2.1.6.1 = \"00 1B A0 FF 7F 01 \"\n");
  EXPECT_EQ(Get("1.3.6.1.2.1.1.2.0"), ".1.3.6.1.2.1.1.2.0 = .1.3.6.1.4.1.32473.405\n");
}

TEST_F(SnmpTools, GetNextFromTheModelColumnFindsTheModel) {
  Start(TwoUnits());
  EXPECT_EQ(Tool("snmpgetnext", "1.3.6.1.4.1.32473.405.1.1.1.3"),
            ".1.3.6.1.4.1.32473.405.1.1.1.3.0 = \"QD7999\"\n");
}

TEST_F(SnmpTools, ADeviceOfOneUnitHasOneRow) {
  DeviceOptions options;
  Start(options);
  EXPECT_EQ(Tool("snmpwalk", kUnits + "2"), Line(kUnits + "2.1.1", 5));
  options.flatbed.reset();
  options.feeder = UnitOptions{};
  Start(options);
  EXPECT_EQ(Tool("snmpwalk", kUnits + "2"), Line(kUnits + "2.1.1", 3));
}

TEST_F(SnmpTools, PreviewObjectsMayBeAbsent) {
  DeviceOptions options;
  options.flatbed->preview_low.reset();
  options.flatbed->preview_high.reset();
  Start(options);
  for (const char* column : {"8", "9", "14", "15"}) {
    EXPECT_NE(Get(kUnits + column + ".1.1").find("noSuchName"), std::string::npos) << column;
  }
}

TEST_F(SnmpTools, ImageTypesAreThoseSupported) {
  DeviceOptions options;
  options.grey = false;
  Start(options);
  EXPECT_EQ(Tool("snmpwalk", kTypes + "1"),
            Line(kTypes + "1.1", 1) + Line(kTypes + "1.2", 61) + "End of MIB\n");
}

TEST_F(SnmpTools, DuplexIsToldByItsThreeValues) {
  for (const std::uint32_t duplex : {0u, 1u, 2u}) {
    DeviceOptions options;
    options.duplex = duplex;
    Start(options);
    EXPECT_EQ(Get(kPaper + "16.1.1"), Line(kPaper + "16.1.1", 3 + duplex));
  }
}

TEST_F(SnmpTools, PaperInTheFeederIsToldAsItIsNow) {
  DeviceOptions options;
  options.sheets.push_back({MakeBlankPage({10000, 10000}), nullptr});
  Start(options);
  EXPECT_EQ(Get(kPaper + "10.1.1"), Line(kPaper + "10.1.1", 3));  // the flatbed has no tray
  EXPECT_EQ(Get(kPaper + "10.1.2"), Line(kPaper + "10.1.2", 0));
  device_->LoadFeeder({});
  EXPECT_EQ(Get(kPaper + "10.1.2"), Line(kPaper + "10.1.2", 3));
}

TEST_F(SnmpTools, TheNameCanBeSet) {
  Start(DeviceOptions{});
  EXPECT_EQ(Tool("snmpset", "1.3.6.1.2.1.1.5.0 s Upstairs"), ".1.3.6.1.2.1.1.5.0 = \"Upstairs\"\n");
  EXPECT_EQ(Get("1.3.6.1.2.1.1.5.0"), ".1.3.6.1.2.1.1.5.0 = \"Upstairs\"\n");
  EXPECT_NE(Tool("snmpset", "1.3.6.1.2.1.1.5.0 i 5").find("badValue"), std::string::npos);
  EXPECT_NE(Tool("snmpset", kPaper + "4.1.1 i 5").find("noSuchName"), std::string::npos);
}

TEST_F(SnmpTools, AnotherCommunityIsNotAnswered) {
  DeviceOptions options;
  options.community = "secret";
  Start(options);
  EXPECT_EQ(Shell("snmpget -v1 -c public -t 0.2 -r 0 127.0.0.1:" +
                  std::to_string(device_->SnmpPort()) + " 1.3.6.1.2.1.1.5.0 2>&1"),
            "Timeout: No Response from 127.0.0.1:" + std::to_string(device_->SnmpPort()) + ".\n");
}

}  // namespace
}  // namespace vox::sim
