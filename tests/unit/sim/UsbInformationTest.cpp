// What the device tells of itself at USB, byte for byte.
#include "tests/unit/sim/UsbHost.h"

namespace vox::sim {
namespace {

class UsbInformation : public UsbTest {
 protected:
  Bytes Ask(std::uint32_t code) {
    EXPECT_EQ(Send(0x22, Le32(code)), UsbStatus::kOk);
    return Read(512);
  }
};

std::string Zeros(std::size_t words) {
  std::string text;
  while (words-- > 0) text += "00 00 00 00 ";
  return text;
}

TEST_F(UsbInformation, OfAFlatbedAlone) {
  DeviceOptions options;
  options.flatbed->physical_width = 0x12345;
  options.flatbed->physical_height = 117000;
  Start(options);
  const Bytes reply = Ask(0xA201);
  EXPECT_EQ(ToHex(reply), ToHex(Hex("00 00 68 00 00 00 00 00 "
                                    "05 00 00 00 03 00 00 00 45 23 01 00 08 C9 01 00 01 00 00 00 "
                                    "80 8D 5B 00 80 8D 5B 00 B0 71 0B 00 B0 71 0B 00 "
                                    "60 E3 16 00 60 E3 16 00 B0 71 0B 00 B0 71 0B 00 " +
                                    Zeros(13))));
}

TEST_F(UsbInformation, OfAFeederAloneStandsInTheSecondRecord) {
  DeviceOptions options;
  options.feeder = UnitOptions{.x_resolution_min = 100,
                               .y_resolution_min = 150,
                               .x_resolution_max = 1200,
                               .y_resolution_max = 300,
                               .preview_low = {},
                               .preview_high = 200,
                               .physical_width = 85000,
                               .physical_height = 140000};
  options.flatbed.reset();
  Start(options);
  EXPECT_EQ(ToHex(Ask(0xA201)),
            ToHex(Hex("00 00 68 00 00 00 00 00 " + Zeros(13) +
                      "03 00 00 00 03 00 00 00 08 4C 01 00 E0 22 02 00 32 00 00 00 "
                      "C0 C6 2D 00 00 1B B7 00 60 E3 16 00 40 42 0F 00 "
                      "80 84 1E 00 80 84 1E 00 00 00 00 00 00 00 00 00")));
}

TEST_F(UsbInformation, OfFormats) {
  Start();
  EXPECT_EQ(ToHex(Ask(0xA206)), "00 00 0C 00 00 00 00 00 01 00 00 00 16 00 00 00 3D 00 00 00");
  DeviceOptions grey_alone;
  grey_alone.bilevel = grey_alone.colour = false;
  Start(grey_alone);
  EXPECT_EQ(ToHex(Ask(0xA206)), "00 00 0C 00 00 00 00 00 16 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(UsbInformation, OfMargins) {
  DeviceOptions options;
  options.flatbed->margin_top = 1;
  options.flatbed->margin_bottom = 0x1234;
  options.feeder = UnitOptions{.margin_left = 4000, .margin_right = 4001};
  Start(options);
  EXPECT_EQ(ToHex(Ask(0xA204)),
            ToHex(Hex("00 00 24 00 00 00 00 00 02 00 00 00 01 00 00 00 " + Zeros(7))));
  EXPECT_EQ(ToHex(Ask(0xA207)),
            "00 00 20 00 00 00 00 00 "
            "01 00 00 00 34 12 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 A0 0F 00 00 A1 0F 00 00");
}

TEST_F(UsbInformation, ThatThereAreNoMargins) {
  DeviceOptions options;
  options.usb.tells_margins = false;
  Start(options);
  EXPECT_EQ(ToHex(Ask(0xA204)), ToHex(Hex("00 00 24 00 00 00 00 00 " + Zeros(9))));
}

TEST_F(UsbInformation, OfTheProduct) {
  DeviceOptions options;
  options.support_paper = 0x89ABCDEF;
  Start(options);
  EXPECT_EQ(ToHex(Ask(0xA208)),
            ToHex(Hex("00 00 44 00 00 00 00 00 00 00 00 00 EF CD AB 89 01 00 00 00 " + Zeros(14))));
  options.duplex = 2;
  Start(options);
  EXPECT_EQ(Ask(0xA208)[16], 3);
}

TEST_F(UsbInformation, OfWhatNobodyKnowsIsEmpty) {
  Start();
  EXPECT_EQ(ToHex(Ask(0xA203)), "00 00 00 00 00 00 00 00");
}

TEST_F(UsbInformation, MayComeInTwoPieces) {
  DeviceOptions options;
  options.usb.information_in_two = true;
  Start(options);
  EXPECT_EQ(ToHex(Ask(0xA206)), "00 00 0C 00 00 00 00 00");
  EXPECT_EQ(ToHex(Read(512)), "01 00 00 00 16 00 00 00 3D 00 00 00");
}

TEST_F(UsbInformation, MayBeCutOrLieAboutItsLength) {
  StartWith("info-bytes=20,info-length=0xFFFFFFFF");
  EXPECT_EQ(ToHex(Ask(0xA208)), ToHex(Hex("00 00 FF FF FF FF 00 00 00 00 00 00 3F 00 00 00 01 00 "
                                          "00 00")));
  EXPECT_EQ(Events().Count(EventKind::kInformation), 1u);
}

TEST_F(UsbInformation, IsNotGivenForAnotherParameter) {
  Start();
  EXPECT_EQ(Send(0x22, Hex("01 A2")), UsbStatus::kOk);
  Read(512);
  EXPECT_EQ(status_, UsbStatus::kNothing);
}

TEST_F(UsbInformation, ComesWhenTheEmptyPacketHas) {
  Start();
  EXPECT_EQ(Scanner().OnBulkOut(UsbCommand(0x22, Le32(0xA206))), UsbStatus::kOk);
  Read(512);
  EXPECT_EQ(status_, UsbStatus::kNothing);
  EXPECT_FALSE(again_);
  EXPECT_EQ(Scanner().OnBulkOut({}), UsbStatus::kOk);
  EXPECT_EQ(Read(512).size(), 20u);
}

TEST_F(UsbInformation, IsAskedInOnePacketOrInSeveral) {
  Start();
  const Bytes packet = UsbCommand(0x22, Le32(0xA206));
  for (const std::uint8_t& byte : packet) {
    EXPECT_EQ(Scanner().OnBulkOut({&byte, 1}), UsbStatus::kOk);
  }
  EXPECT_EQ(Scanner().OnBulkOut({}), UsbStatus::kOk);
  EXPECT_EQ(Read(512).size(), 20u);
}

TEST_F(UsbInformation, IsNotGivenForWhatIsNoCommand) {
  Start();
  const Bytes good = UsbCommand(0x22, Le32(0xA206));
  for (std::size_t i = 0; i < 17; ++i) {
    if (i == 12 || i == 13) continue;  // the sequence id, which is the host's own
    Bytes bad = good;
    bad[i] ^= 0x10;
    EXPECT_EQ(Scanner().OnBulkOut(bad), UsbStatus::kOk);
    EXPECT_EQ(Scanner().OnBulkOut({}), UsbStatus::kOk);
    Read(512);
    EXPECT_EQ(status_, UsbStatus::kNothing) << i;
  }
  EXPECT_EQ(Events().Count(EventKind::kBadDatagram), 15u);
  EXPECT_EQ(Scanner().OnBulkOut(good + Bytes(100000)), UsbStatus::kOk);
  EXPECT_EQ(Scanner().OnBulkOut({}), UsbStatus::kOk);
  Read(512);
  EXPECT_EQ(status_, UsbStatus::kNothing);
  EXPECT_EQ(Send(0x22, Le32(0xA206)), UsbStatus::kOk);
  EXPECT_EQ(Read(512).size(), 20u);
}

}  // namespace
}  // namespace vox::sim
