// The registration and the notice, byte for byte.
#include "tools/voxjobd/Messages.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace vox::test {
namespace {

constexpr std::array<std::uint8_t, kRegistrationSize> kRegistration = {
    0x00, 0xC0, 0xA8, 0x00, 0x05, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x12, 0x34};
constexpr std::array<std::uint8_t, kNoticeSize> kNotice = {
    'M',  'F',  'P',  'P',  '0',  '2',  '0',  '0',  'M',  'L',  '0',  '1',  0x12, 0x34,
    0x32, 0x80, 0x08, 0x00, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
constexpr std::array<std::uint8_t, kJobIdSize> kJobId = {0x11, 0x22, 0x33, 0x44,
                                                         0x55, 0x66, 0x77, 0x88};

TEST(Registration, ReadsAndBuildsTheSameBytes) {
  const Registration registration = ParseRegistration(kRegistration);
  EXPECT_EQ(registration.type, 0);
  EXPECT_EQ(registration.key, (JobKey{0xC0A80005, kJobId, 0x1234}));
  EXPECT_EQ(BuildRegistration(registration), kRegistration);
}

TEST(Notice, ReadsAndBuildsTheSameBytes) {
  const auto notice = ParseNotice(kNotice);
  ASSERT_TRUE(notice);
  EXPECT_EQ(notice->job_id, kJobId);
  EXPECT_EQ(notice->sequence_id, 0x1234);
  EXPECT_EQ(notice->command, kPageNotice);
  EXPECT_EQ(BuildNotice(*notice), kNotice);
}

struct Change {
  std::size_t offset;
  std::uint8_t value;
  bool good;
  const char* reason;
};

void PrintTo(const Change& change, std::ostream* stream) {
  *stream << change.reason;
}

class ChangedNotice : public ::testing::TestWithParam<Change> {};

TEST_P(ChangedNotice, IsTakenOrRefused) {
  auto bytes = kNotice;
  bytes[GetParam().offset] = GetParam().value;
  EXPECT_EQ(ParseNotice(bytes).has_value(), GetParam().good);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ChangedNotice,
    ::testing::Values(Change{0, 'm', false, "first letter of the text"},
                      Change{5, '1', false, "another version"},
                      Change{11, '2', false, "another model code"},
                      Change{12, 0xFF, true, "sequence id: any"},
                      Change{14, 0x31, false, "application 1"},
                      Change{15, 0x90, true, "end notice, another page follows"},
                      Change{15, 0xF0, true, "end notice, not finished yet"},
                      Change{15, 0x00, true, "any other end notice"},
                      Change{16, 7, false, "a parameter byte too few"},
                      Change{16, 128, false, "a scan command's parameters"},
                      Change{17, 1, true, "the byte behind the parameter size is not looked at"},
                      Change{19, 1, true, "reserved bytes are not looked at"},
                      Change{27, 0, true, "job id: any"}));

TEST(Notice, EveryBitOfTheTextCounts) {
  for (std::size_t bit = 0; bit < 12 * 8; ++bit) {
    auto bytes = kNotice;
    bytes[bit / 8] = static_cast<std::uint8_t>(bytes[bit / 8] ^ (1u << (bit % 8)));
    EXPECT_FALSE(ParseNotice(bytes)) << "bit " << bit;
  }
}

}  // namespace
}  // namespace vox::test
