// The trace, byte for byte, as it appears on standard error.
#include "vox/DSDebugging.h"

#include <array>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/stores/ResourceFolder.h"

namespace vox {
namespace {

template <class Body>
std::string Traced(Body body) {
  ::testing::internal::CaptureStderr();
  body();
  return ::testing::internal::GetCapturedStderr();
}

// A trace without names; each test may give it some.
class Trace : public ::testing::Test {
 protected:
  Trace() { Initialize(); }
  static std::string Initialize() {
    return Traced([] { DS_DebugInitialize(); });
  }
  void Names(const std::string& categories) const {
    folder_.Put("DSDebug", "<dict>" + categories + "</dict>");
    Initialize();
  }

  ResourceFolder folder_;
};

constexpr std::array<std::uint16_t, 2> kFeederEnabled{0x1002, 0xFFFF};

TEST_F(Trace, BannerHasTheTimeBetweenTwoRules) {
  const std::string rule(65, '*');
  EXPECT_EQ(debug_banner(9, 5, 7.25),
            rule + "\nTWAIN mach-o DS Debug Log - 09:05:07.250  \n" + rule + "\n");
  EXPECT_TRUE(std::regex_match(
      Initialize(), std::regex("\\*{65}\nTWAIN mach-o DS Debug Log - [0-2][0-9]:[0-5][0-9]:"
                               "[0-6][0-9]\\.[0-9]{3}  \n\\*{65}\n")));
}

TEST_F(Trace, HalfAMillisecondIsAddedToTheSeconds) {
  EXPECT_NE(debug_banner(0, 0, 3.0002).find(" 00:00:03.001  \n"), std::string::npos);
  EXPECT_NE(debug_banner(0, 0, 3.0007).find(" 00:00:03.001  \n"), std::string::npos);
}

TEST_F(Trace, SecondsDoNotCarryIntoMinutes) {
  EXPECT_NE(debug_banner(23, 59, 59.9996).find(" 23:59:60.000  \n"), std::string::npos);
}

TEST_F(Trace, ClosesWithARule) {
  EXPECT_EQ(Traced([] { DS_DebugTerminate(); }), std::string(80, '-') + "\n");
}

TEST_F(Trace, TripletIsALineForEachPart) {
  EXPECT_EQ(Traced([] { DS_LogTriplet(2, 0x0101, 0x0001, nullptr); }),
            "     group :  [2]\n attribute :  [0x0101]\n   message :  [0x0001]\n\n");
}

TEST_F(Trace, GroupIsASignedNumberOf32Bits) {
  for (const auto& [group, text] : {std::pair(0x7FFFFFFFu, "2147483647"), {0xFFFFFFFFu, "-1"}}) {
    EXPECT_EQ(Traced([group = group] { DS_LogTriplet(group, 0x8001, 0xFFFF, nullptr); }),
              "     group :  [" + std::string(text) +
                  "]\n attribute :  [0x8001]\n   message :  [0xffff]\n\n");
  }
}

TEST_F(Trace, CapabilityIsTheFirstFieldOfItsData) {
  EXPECT_EQ(Traced([] { DS_LogTriplet(1, 1, 6, kFeederEnabled.data()); }),
            "     group :  [1]\n attribute :  [0x0001]\n   message :  [0x0006]\n"
            "capability :  [0x1002]\n\n");
}

TEST_F(Trace, CapabilityWithoutDataIsLeftOut) {
  EXPECT_EQ(Traced([] { DS_LogTriplet(1, 1, 6, nullptr); }),
            "     group :  [1]\n attribute :  [0x0001]\n   message :  [0x0006]\n\n");
}

TEST_F(Trace, DataOfOtherOperationsIsNotRead) {
  EXPECT_EQ(Traced([] { DS_LogTriplet(1, 2, 6, reinterpret_cast<const void*>(1)); }),
            "     group :  [1]\n attribute :  [0x0002]\n   message :  [0x0006]\n\n");
}

TEST_F(Trace, EventsOfTheUserInterfaceAreSilent) {
  EXPECT_EQ(Traced([] { DS_LogTriplet(1, 1, 0x0601, kFeederEnabled.data()); }), "");
}

TEST_F(Trace, ResultsThatAreNoNewsAreSilent) {
  for (const std::uint16_t rc : {0, 4, 5})
    EXPECT_EQ(Traced([&] { DS_LogResult(rc, 3); }), "") << rc;
}

TEST_F(Trace, EveryOtherResultIsNews) {
  for (const std::uint16_t rc : {1, 2, 3, 6, 7, 0xFFFF}) {
    EXPECT_EQ(Traced([&] { DS_LogResult(rc, 0); }),
              "    result :  [" + std::to_string(rc) + "]\n\n");
  }
}

TEST_F(Trace, ResultAndCondition) {
  EXPECT_EQ(Traced([] { DS_LogResult(1, 0); }), "    result :  [1]\n\n");
  EXPECT_EQ(Traced([] { DS_LogResult(1, 10); }), "    result :  [1]\n Condition :  [10]\n\n");
}

TEST_F(Trace, MessageWithoutNames) {
  EXPECT_EQ(Traced([] { DS_LogMessage(0x0301); }), "   message :  [0x0301]\n");
}

TEST_F(Trace, NamesFollowTheNumbersOfTheirCategory) {
  Names(
      "<key>Messages</key><dict><key>0x0301</key><string>OPEN</string><key>0x00ab</key>"
      "<string>LOWER</string></dict><key>Result</key><dict><key>1</key><string>BAD</string></"
      "dict>");
  EXPECT_EQ(Traced([] { DS_LogMessage(0x0301); }), "   message :  [0x0301] - OPEN\n");
  EXPECT_EQ(Traced([] { DS_LogMessage(0x00AB); }), "   message :  [0x00ab] - LOWER\n");
  EXPECT_EQ(Traced([] { DS_LogMessage(1); }), "   message :  [0x0001]\n");
  EXPECT_EQ(Traced([] { DS_LogResult(1, 1); }), "    result :  [1] - BAD\n Condition :  [1]\n\n");
}

TEST_F(Trace, NamesOfTheWrongTypeAreNone) {
  Names(
      "<key>Messages</key><array/><key>Result</key><dict><key>1</key><integer>1</integer></dict>");
  EXPECT_EQ(Traced([] { DS_LogMessage(1); }), "   message :  [0x0001]\n");
  EXPECT_EQ(Traced([] { DS_LogResult(1, 0); }), "    result :  [1]\n\n");
}

TEST_F(Trace, TextMayBeLong) {
  const std::string line = Traced([] { DS_LogValue("label", "Result", "%010000d", 7); });
  EXPECT_EQ(line, "label [" + std::string(9999, '0') + "7]\n");
  EXPECT_EQ(Traced([] { DS_LogValue("l", "Result", "%0255d", 7); }).size(), 255u + 5);
  EXPECT_EQ(Traced([] { DS_LogValue("l", "Result", "%0256d", 7); }).size(), 256u + 5);
}

TEST_F(Trace, TextIsCutInTheEnd) {
  EXPECT_EQ(Traced([] { DS_LogValue("l", "Result", "%0100000d", 7); }).size(), 65535u + 5);
}

TEST_F(Trace, HookIsSilent) {
  EXPECT_EQ(Traced([] { DS_LogText("%s %d\n", "anything", 1); }), "");
}

TEST_F(Trace, LogFileOfClients) {
  EXPECT_STREQ(DEBUG_LOG_FILENAME, "/Users/Shared/twlog.txt");
}

}  // namespace
}  // namespace vox
