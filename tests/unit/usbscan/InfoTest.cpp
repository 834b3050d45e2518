// What a device says of itself: the requests byte for byte, the records' numbers, and what two
// units can do together.
#include "tests/unit/stores/ResourceFolder.h"
#include "tests/unit/usbscan/UsbScanTest.h"
#include "vox/SupportedDevices.h"

namespace vox::test {
namespace {

Bytes Request(std::uint32_t code) {
  return Packet(0x22, Number(code));
}
Bytes Reply(const Bytes& record) {
  return Hex("11 22") + Number(static_cast<std::uint32_t>(record.size())) + Hex("33 44") + record;
}
Bytes Numbers(const std::vector<std::uint32_t>& values) {
  Bytes bytes;
  for (const std::uint32_t value : values) bytes = bytes + Number(value);
  return bytes;
}

// A unit of the first record, resolutions in dpi.
struct Unit {
  std::uint32_t type, width, height, max_y, max_x, min_y, min_x;
};
Bytes Sources(const Unit& first, const Unit& second) {
  Bytes bytes;
  for (const Unit& unit : {first, second}) {
    bytes = bytes + Numbers({unit.type, 9, unit.width, unit.height, 9, unit.max_y * 10'000,
                             unit.max_x * 10'000 + 9'999, unit.min_y * 10'000, unit.min_x * 10'000,
                             9, 9, 9, 9});
  }
  return bytes;
}
constexpr Unit kFeeder{3, 85'000, 140'000, 300, 600, 75, 100};
constexpr Unit kFlatbed{5, 90'000, 117'000, 1200, 400, 50, 150};
constexpr Unit kNone{};

// The fields of a unit's record that come of the first reply, beside previews.
std::vector<std::uint32_t> Resolutions(const tagSCANDEVINFO& unit) {
  return {unit.dwXResMin, unit.dwXResMinCmn, unit.dwYResMin, unit.dwYResMinCmn,
          unit.dwXResMax, unit.dwXResMaxCmn, unit.dwYResMax, unit.dwYResMaxCmn};
}
std::vector<std::uint32_t> Previews(const tagSCANDEVINFO& unit) {
  return {unit.dwXResPre[0], unit.dwYResPre[0], unit.dwXResPre[1], unit.dwYResPre[1]};
}

class Info : public UsbScanTest {
 protected:
  UsbScript& Ask(std::uint32_t code) {
    return script_->Write(Request(code), kInformation).Write(kNull, kInformation);
  }
  UsbScript& Answer(std::uint32_t code, const Bytes& record) {
    return Ask(code).Read(Reply(record), kInformation, 512);
  }
  // The whole series, with no margins to be asked for.
  void Answers(const Bytes& sources, std::uint32_t capability = 0, std::uint32_t paper = 0x1234) {
    Answer(0xA201, sources);
    Answer(0xA206, Numbers({1, 0x16, 0x3D}));
    Answer(0xA204, Numbers({0, 1, 0, 0, 0, 0, 0, 0, 0}));
    Answer(0xA208, Product(capability, paper));
  }
  static Bytes Product(std::uint32_t capability, std::uint32_t paper = 0) {
    return Numbers({9, paper, capability}) + Bytes(56, 0x99);
  }
  void ExpectFails(std::uint32_t status = 3) {
    EXPECT_FALSE(scanner_->GetDevInfo(&info_));
    EXPECT_EQ(Status(), status);
    ExpectClosed();
  }
  tagSCANDEVINFO info_{};
};

TEST_F(Info, RequestIsThisPacket) {
  EXPECT_EQ(ToHex(Request(0xA201)),
            "4D 46 50 50 30 32 30 30 4D 4C 30 31 00 00 32 22 04 00 00 00 01 A2 00 00");
}

TEST_F(Info, OfAFeederAndAFlatbed) {
  Answers(Sources(kFeeder, kFlatbed));
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(scanner_->m_DevInfoAllCount, 2u);
  const tagSCANDEVINFO& feeder = scanner_->m_DevInfoAll[0];
  EXPECT_EQ(std::uint32_t{feeder.byPaperSources}, 2u);
  EXPECT_EQ(std::uint32_t{feeder.dwXResMin}, 100u);
  EXPECT_EQ(std::uint32_t{feeder.dwXResMinCmn}, 100u);
  EXPECT_EQ(std::uint32_t{feeder.dwYResMin}, 75u);
  EXPECT_EQ(std::uint32_t{feeder.dwXResMax}, 600u) << "cut, not rounded";
  EXPECT_EQ(std::uint32_t{feeder.dwYResMaxCmn}, 300u);
  EXPECT_EQ(std::uint32_t{feeder.dwPhysicalHeight}, 140'000u);
  EXPECT_EQ(std::uint32_t{feeder.dwPhysicalWidth}, 85'000u);
  EXPECT_EQ(std::uint32_t{scanner_->m_DevInfoAll[1].byPaperSources}, 1u);
  EXPECT_EQ(std::uint32_t{scanner_->m_DevInfoAll[1].byImageTypes}, 7u);

  EXPECT_EQ(std::uint32_t{info_.byPaperSources}, 3u);
  EXPECT_EQ(std::uint32_t{info_.dwXResMin}, 100u);
  EXPECT_EQ(std::uint32_t{info_.dwXResMinCmn}, 150u);
  EXPECT_EQ(std::uint32_t{info_.dwYResMin}, 50u);
  EXPECT_EQ(std::uint32_t{info_.dwYResMinCmn}, 75u);
  EXPECT_EQ(std::uint32_t{info_.dwXResMax}, 600u);
  EXPECT_EQ(std::uint32_t{info_.dwXResMaxCmn}, 400u);
  EXPECT_EQ(std::uint32_t{info_.dwYResMax}, 1200u);
  EXPECT_EQ(std::uint32_t{info_.dwYResMaxCmn}, 300u);
  EXPECT_EQ(std::uint32_t{info_.dwXResPre[0]}, 75u);
  EXPECT_EQ(std::uint32_t{info_.dwYResPre[1]}, 150u);
  EXPECT_EQ(std::uint32_t{info_.dwPhysicalWidth}, 85'000u);
  EXPECT_EQ(std::uint32_t{info_.dwPhysicalHeight}, 85'000u)
      << "of the second unit's height and the merged width";
  EXPECT_EQ(std::uint32_t{info_.dwSupportPaper}, 0x1234u);
  EXPECT_EQ(std::uint32_t{info_.byImageTypes}, 7u);
  EXPECT_EQ(std::uint32_t{info_.byAutoFeed}, 0u);
  EXPECT_EQ(std::uint32_t{info_.byAutoScan}, 0u);
  EXPECT_EQ(std::memcmp(&scanner_->m_DevInfo, &info_, sizeof info_), 0);
  EXPECT_EQ(Status(), 0u);
  ExpectClosed();
}

TEST_F(Info, OfEachUnitIsItsOwn) {
  Answers(Sources(kFeeder, kFlatbed), 0, 0x55AA);
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  const tagSCANDEVINFO &feeder = scanner_->m_DevInfoAll[0], &bed = scanner_->m_DevInfoAll[1];
  EXPECT_THAT(Resolutions(feeder), testing::ElementsAre(100, 100, 75, 75, 600, 600, 300, 300));
  EXPECT_THAT(Resolutions(bed), testing::ElementsAre(150, 150, 50, 50, 400, 400, 1200, 1200));
  EXPECT_EQ(std::uint32_t{bed.dwPhysicalWidth}, 90'000u);
  EXPECT_EQ(std::uint32_t{bed.dwPhysicalHeight}, 117'000u);
  for (const tagSCANDEVINFO* unit : {&feeder, &bed}) {
    EXPECT_THAT(Previews(*unit), testing::ElementsAre(75, 75, 150, 150));
    EXPECT_EQ(std::uint32_t{unit->dwSupportPaper}, 0x55AAu);
    EXPECT_EQ(std::uint32_t{unit->byImageTypes}, 7u);
  }
}

TEST_F(Info, OfOneUnitInTheFirstRecord) {
  Answers(Sources(kFlatbed, kNone));
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(scanner_->m_DevInfoAllCount, 1u);
  EXPECT_EQ(std::uint32_t{info_.dwPhysicalHeight}, 117'000u);
  EXPECT_THAT(Resolutions(info_), testing::ElementsAre(150, 150, 50, 50, 400, 400, 1200, 1200));
  EXPECT_THAT(Previews(info_), testing::ElementsAre(75, 75, 150, 150));
}

TEST_F(Info, OfOneUnitInTheSecondRecord) {
  Answers(Sources(kNone, kFeeder));
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(scanner_->m_DevInfoAllCount, 1u);
  EXPECT_EQ(std::uint32_t{scanner_->m_DevInfoAll[0].byPaperSources}, 2u);
  EXPECT_EQ(std::uint32_t{info_.dwPhysicalHeight}, 140'000u);
}

TEST_F(Info, OfUnitsOfUnknownKinds) {
  Answers(Sources(Unit{4, 1, 2, 3, 4, 5, 6}, Unit{6, 7, 8, 9, 9, 9, 9}));
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(scanner_->m_DevInfoAllCount, 1u);
  EXPECT_EQ(std::uint32_t{info_.byPaperSources}, 0u);
  EXPECT_EQ(std::uint32_t{info_.dwPhysicalWidth}, 1u);
}

TEST_F(Info, UnknownFormatsAreIgnored) {
  Answer(0xA201, Sources(kFlatbed, kNone));
  Answer(0xA206, Numbers({0x16, 0x17, 0}));
  Answer(0xA204, Numbers({0, 0, 0, 0, 0, 0, 0, 0, 0}));
  Answer(0xA208, Product(0));
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(std::uint32_t{info_.byImageTypes}, 2u);
}

TEST_F(Info, MarginsAreAskedForWhereTheDeviceKnowsThem) {
  Answer(0xA201, Sources(kFlatbed, kFeeder));
  Answer(0xA206, Numbers({1, 0, 0}));
  Answer(0xA204, Numbers({2, 1, 0, 0, 0, 0, 0, 0, 0}));
  Answer(0xA207, Numbers({10, 20, 4'000, 4'001, 0, 0, 1, 5'000}));
  Answer(0xA208, Product(0));
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(std::uint32_t{info_.dwRegularTopMargin}, 10u);
  EXPECT_EQ(std::uint32_t{info_.dwRegularBottomMargin}, 20u);
  EXPECT_EQ(std::uint32_t{info_.dwRegularLeftMargin}, 4'000u);
  EXPECT_EQ(std::uint32_t{info_.dwRegularRightMargin}, 0u) << "a device that does not know";
  EXPECT_EQ(std::uint32_t{info_.bySmallPaperSizeType}, 1u | 2u | 8u);
  EXPECT_EQ(std::uint32_t{scanner_->m_DevInfoAll[1].bySmallPaperSizeType}, 1u);
  EXPECT_TRUE(scanner_->IsSmallRegularPaperSize());
}

struct ExtraRow {
  const char* why;
  Bytes extra;
};
class NoMargins : public Info, public testing::WithParamInterface<ExtraRow> {};

TEST_P(NoMargins, AreAskedFor) {
  Answer(0xA201, Sources(kFlatbed, kNone));
  Answer(0xA206, Numbers({1, 0, 0}));
  Ask(0xA204).Read(GetParam().extra, kInformation, 512);
  Answer(0xA208, Product(0));
  EXPECT_TRUE(scanner_->GetDevInfo(&info_)) << GetParam().why;
  EXPECT_FALSE(scanner_->IsSmallRegularPaperSize());
}

INSTANTIATE_TEST_SUITE_P(
    Table, NoMargins,
    testing::Values(ExtraRow{"flag", Reply(Numbers({5, 1, 0, 0, 0, 0, 0, 0, 0}))},
                    ExtraRow{"table", Reply(Numbers({2, 2, 0, 0, 0, 0, 0, 0, 0}))},
                    ExtraRow{"35 of 36 bytes came",
                             Hex("00 00 24 00 00 00 00 00") + Numbers({2, 1}) + Bytes(27, 0)},
                    ExtraRow{"37 came, 36 were announced",
                             Hex("00 00 24 00 00 00 00 00") + Numbers({2, 1}) + Bytes(29, 0)}));

TEST_F(Info, TheSizeThatCountsIsWhatCameAndNotWhatWasAnnounced) {
  Answer(0xA201, Sources(kFlatbed, kNone));
  Answer(0xA206, Numbers({1, 0, 0}));
  Ask(0xA204).Read(Hex("00 00 08 00 00 00 00 00") + Numbers({2, 1}) + Bytes(28, 0), kInformation,
                   512);
  Answer(0xA207, Numbers({1, 0, 0, 0, 0, 0, 0, 0}));
  Answer(0xA208, Product(0));
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(std::uint32_t{info_.dwRegularTopMargin}, 1u);
}

TEST_F(Info, ARecordMayComeBehindItsHeader) {
  const Bytes sources = Sources(kFlatbed, kNone);
  Ask(0xA201).Read(Hex("00 00 68 00 00 00 00 00"), kInformation, 512).Read(sources, 300, 104);
  Answer(0xA206, Numbers({1, 0, 0}));
  Ask(0xA204)
      .Read(Hex("00 00 24 00 00 00 00 00"), kInformation, 512)
      .Read(Numbers({2, 1, 0, 0, 0, 0, 0, 0, 0}), 300, 36);
  Answer(0xA207, Bytes(32, 0));
  Answer(0xA208, Product(0));
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(std::uint32_t{info_.dwPhysicalHeight}, 117'000u);
}

TEST_F(Info, ARecordThatIsCutIsFilledWithZeros) {
  Ask(0xA201).Read(Hex("00 00 68 00 00 00 00 00") + Number(5), kInformation, 512);
  Answer(0xA206, {});
  Answer(0xA204, {});
  Answer(0xA208, {});
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(std::uint32_t{info_.byPaperSources}, 1u);
  EXPECT_EQ(std::uint32_t{info_.dwXResMax}, 0u);
  EXPECT_EQ(std::uint32_t{info_.dwSupportPaper}, 0u);
}

TEST_F(Info, MarginsThatAreCutAreNoneAndNotWhatCameBefore) {
  Answer(0xA201, Sources(kFlatbed, kNone));
  Answer(0xA206, Numbers({1, 0, 0}));
  Answer(0xA204, Numbers({2, 1, 3, 4, 5, 6, 7, 8, 9}));
  Answer(0xA207, {});
  Answer(0xA208, Product(0));
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(std::uint32_t{info_.dwRegularTopMargin}, 0u);
  EXPECT_FALSE(scanner_->IsSmallRegularPaperSize());
}

TEST_F(Info, WhatWasKnownBeforeIsForgotten) {
  Answer(0xA201, Sources(kFlatbed, kFeeder));
  Answer(0xA206, Numbers({1, 0, 0}));
  Answer(0xA204, Numbers({2, 1, 0, 0, 0, 0, 0, 0, 0}));
  Answer(0xA207, Numbers({10, 20, 30, 40, 50, 60, 70, 80}));
  Answer(0xA208, Product(0));
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(std::uint32_t{info_.bySmallPaperSizeType}, 15u);
  Answers(Sources(kFlatbed, kNone));
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_FALSE(scanner_->IsSmallRegularPaperSize());
  EXPECT_EQ(std::uint32_t{info_.dwRegularTopMargin}, 0u);
  EXPECT_EQ(std::uint32_t{scanner_->m_DevInfoAll[1].dwRegularRightMargin}, 0u);
  EXPECT_EQ(scanner_->m_DevInfoAllCount, 1u);
}

TEST_F(Info, ThatFailsClearsTheClientsRecordOnceTheDeviceIsOpen) {
  Answer(0xA201, Sources(kFlatbed, kNone));
  Ask(0xA206).FailRead(kIOReturnError, kInformation);
  std::memset(&info_, 0xEE, sizeof info_);
  ExpectFails();
  const tagSCANDEVINFO none{};
  EXPECT_EQ(std::memcmp(&info_, &none, sizeof info_), 0);
  port_.Detach(id_);
  std::memset(&info_, 0xEE, sizeof info_);
  ExpectFails();
  EXPECT_EQ(std::uint32_t{info_.dwXResMin}, 0xEEEEEEEEu) << "nobody was asked";
}

TEST_F(Info, ARecordBeyondItsSizeFails) {
  Ask(0xA201).Read(Hex("00 00 69 00 00 00 00 00"), kInformation, 512);
  ExpectFails();
}

TEST_F(Info, ALengthBeyondAnyFails) {
  Ask(0xA201).Read(Hex("00 00 FF FF FF FF 00 00") + Bytes(504, 1), kInformation, 512);
  ExpectFails();
}

TEST_F(Info, AReplyOfLessThanAHeaderFails) {
  Ask(0xA201).Read(Hex("00 00 00 00 00 00 00"), kInformation, 512);
  ExpectFails();
}

TEST_F(Info, ARemainderThatIsShortFails) {
  Ask(0xA201).Read(Hex("00 00 68 00 00 00 00 00"), kInformation, 512).Read(Bytes(103, 0), 300, 104);
  ExpectFails();
}

TEST_F(Info, NoReplyFails) {
  Ask(0xA201).FailRead(kIOUSBTransactionTimeout, kInformation);
  ExpectFails();
}

TEST_F(Info, ARequestThatCannotBeSentFails) {
  script_->Write(Request(0xA201), kInformation, kIOUSBPipeStalled);
  ExpectFails();
}

TEST_F(Info, AZeroLengthPacketThatCannotBeSentFails) {
  script_->Write(Request(0xA201), kInformation).Write(kNull, kInformation, kIOUSBPipeStalled);
  ExpectFails();
}

TEST_F(Info, EveryQueryIsNeeded) {
  for (int last = 0; last < 5; ++last) {
    Plug();
    std::vector<std::pair<std::uint32_t, Bytes>> queries = {
        {0xA201, Sources(kFlatbed, kNone)},
        {0xA206, Numbers({1, 0, 0})},
        {0xA204, Numbers({2, 1, 0, 0, 0, 0, 0, 0, 0})},
        {0xA207, Bytes(32, 0)},
        {0xA208, Product(0)}};
    for (int i = 0; i < last; ++i) {
      const auto& [code, record] = queries[static_cast<std::size_t>(i)];
      Answer(code, record);
    }
    Ask(queries[static_cast<std::size_t>(last)].first).FailRead(kIOReturnError, kInformation);
    ExpectFails();
    EXPECT_EQ(scanner_->m_DevInfoAllCount, 0u);
    script_->Done();
  }
}

struct DuplexRow {
  std::uint32_t product, capability, duplex;
};
class Duplex : public Info, public testing::WithParamInterface<DuplexRow> {
 protected:
  // A table with products on both sides of the bounds.
  Duplex() {
    std::string entries;
    for (const char* id : {"0F04", "0F05", "0F06", "1501", "1502", "1511", "1512", "1520"}) {
      entries += std::string("<dict><key>searchString</key><string>Model ") + id +
                 "</string><key>vendorId</key><string>5658</string><key>productId</key><string>" +
                 id + "</string></dict>";
    }
    models_.Put("SupportedDevices",
                "<dict><key>Devices</key><array>" + entries + "</array></dict>");
  }

  ResourceFolder models_;
  SupportedDevices::Fresh table_;
};

TEST_P(Duplex, IsWhatTheDeviceSaysUnlessItsModelHasNone) {
  char model[16];
  std::snprintf(model, sizeof model, "Model %04X", GetParam().product);
  device_.properties.Set(kUSBProductID, GetParam().product);
  Plug();
  scanner_ = std::make_unique<UsbScanner>(model);
  Answers(Sources(kFlatbed, kNone), GetParam().capability);
  ASSERT_TRUE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(std::uint32_t{info_.dwDuplex}, GetParam().duplex);
}

INSTANTIATE_TEST_SUITE_P(Table, Duplex,
                         testing::Values(DuplexRow{0x1520, 3, 2}, DuplexRow{0x1520, 2, 0},
                                         DuplexRow{0x1520, 7, 0}, DuplexRow{0x1501, 3, 2},
                                         DuplexRow{0x1502, 3, 0}, DuplexRow{0x1511, 3, 0},
                                         DuplexRow{0x1512, 3, 2}, DuplexRow{0x0F04, 3, 2},
                                         DuplexRow{0x0F05, 3, 0}, DuplexRow{0x0F06, 3, 2}));

// ---- whom to ask

TEST_F(Info, OfADeviceThatIsNotThereIsStatus3) {
  port_.Detach(id_);
  ExpectFails(3);
}

TEST_F(Info, OfAnUnknownModelIsStatus1) {
  scanner_ = std::make_unique<UsbScanner>("Nobody's Scanner");
  ExpectFails(1);
}

TEST_F(Info, AnAbortCutsItShortWithoutAStatus) {
  Ask(0xA201).SilentRead(kInformation);
  auto asking = std::async(std::launch::async, [this] { return scanner_->GetDevInfo(&info_); });
  ASSERT_TRUE(Eventually([this] { return script_->Left() == 0; }));
  const auto took = Took([&] {
    scanner_->Abort();
    ExpectClosed();
    EXPECT_FALSE(asking.get());
  });
  EXPECT_LT(took, 5s);
  EXPECT_EQ(Status(), 0u);
}

TEST_F(Info, CanBeAskedAgainAfterAnAbortAndCutShortByTheNext) {
  scanner_->Abort();
  Answers(Sources(kFlatbed, kNone));
  EXPECT_TRUE(scanner_->GetDevInfo(&info_));
  script_->Done();
  Ask(0xA201).SilentRead(kInformation);
  auto asking = std::async(std::launch::async, [this] { return scanner_->GetDevInfo(&info_); });
  ASSERT_TRUE(Eventually([this] { return script_->Left() == 0; }));
  EXPECT_LT(Took([this] { scanner_->Abort(); }), 5s);
  ExpectClosed();
  EXPECT_FALSE(asking.get());
  EXPECT_EQ(Status(), 0u);
}

// Pages end again and again while the device is asked.
TEST_F(Info, OutlastsPagesThatEndMeanwhile) {
  for (int round = 0; round < 20 && !HasFailure(); ++round) {
    Answers(Sources(kFlatbed, kFeeder));
    std::atomic<bool> asked{false};
    std::thread ends([&] {
      while (!asked) scanner_->Close();
    });
    EXPECT_TRUE(scanner_->GetDevInfo(&info_));
    asked = true;
    ends.join();
    ExpectClosed();
    EXPECT_EQ(port_.Count("USBDeviceOpenSeize"), round + 1);
  }
}

class OnLine : public Info {};

TEST_F(OnLine, IsADeviceOfTheModelAndTheSerialNumber) {
  EXPECT_TRUE(scanner_->IsOnLine(0));
  EXPECT_EQ(Status(), 0u);
  EXPECT_EQ(port_.Count("USBDeviceOpenSeize"), 0);
  EXPECT_EQ(port_.Held(), 0);
}

TEST_F(OnLine, IsFoundBehindOthers) {
  port_.Detach(id_);
  FakeUsbDevice nameless = StillImageDevice("x");
  nameless.properties.Remove(kUSBSerialNumberString);
  port_.Attach(nameless);
  port_.Attach(StillImageDevice("SN2"));
  Plug();
  EXPECT_TRUE(scanner_->IsOnLine(0));
  EXPECT_EQ(port_.Held(), 0);
}

TEST_F(OnLine, TakesASerialNumberAlsoAsADeviceDictionaryHoldsIt) {
  device_.properties.Set(kUSBSerialNumberString, "SN\x01");
  Plug();
  scanner_ = std::make_unique<UsbScanner>(kModel, "SN\xEF\xBF\xBD");
  EXPECT_TRUE(scanner_->IsOnLine(0));
  EXPECT_EQ(Status(), 0u);
}

TEST_F(OnLine, AnotherSerialNumberIsNotAndStatus3) {
  scanner_ = std::make_unique<UsbScanner>(kModel, "SN2");
  EXPECT_FALSE(scanner_->IsOnLine(0));
  EXPECT_EQ(Status(), 3u);
}

TEST_F(OnLine, AnotherProductIsNotAndStatus3) {
  device_.properties.Set(kUSBProductID, 0x1502);
  Plug();
  EXPECT_FALSE(scanner_->IsOnLine(0));
  EXPECT_EQ(Status(), 3u);
}

TEST_F(OnLine, ARegistryThatDoesNotAnswerIsStatus3) {
  port_.services = kIOReturnError;
  EXPECT_FALSE(scanner_->IsOnLine(0));
  EXPECT_EQ(Status(), 3u);
}

TEST_F(OnLine, NoMatchingDictionaryIsNoStatus) {
  port_.no_matching = true;
  EXPECT_FALSE(scanner_->IsOnLine(0));
  EXPECT_EQ(Status(), 0u);
}

TEST_F(OnLine, AnUnknownModelIsStatus1) {
  scanner_ = std::make_unique<UsbScanner>("Nobody's Scanner");
  EXPECT_FALSE(scanner_->IsOnLine(0));
  EXPECT_EQ(Status(), 1u);
}

class Opening : public Info {};

TEST_F(Opening, TwiceIsOnce) {
  EXPECT_TRUE(scanner_->Open());
  EXPECT_TRUE(scanner_->Open());
  EXPECT_EQ(port_.Count("USBDeviceOpenSeize"), 1);
  EXPECT_TRUE(scanner_->Close());
  ExpectClosed();
  EXPECT_TRUE(scanner_->Close());
}

TEST_F(Opening, LeavesNothingOpenWhenTheInterfaceIsMissing) {
  device_.interfaces.clear();
  Plug();
  EXPECT_FALSE(scanner_->Open());
  EXPECT_EQ(Status(), 3u);
  ExpectNothingHeld();
}

TEST_F(Opening, IsOfAUsbDevice) {
  EXPECT_EQ(scanner_->GetDeviceType(), CTwainImageIF::dtUSB);
  EXPECT_EQ(scanner_->GetType(), CTwainImageIF::dtUSB);
  EXPECT_STREQ(scanner_->GetDispName(), kModel);
}

}  // namespace
}  // namespace vox::test
