// How far the stages may run ahead of the client.
#include "vox/drivers/LineLead.h"

#include <gtest/gtest.h>

#include "tests/support/FakeTransport.h"

namespace vox::test {
namespace {

// A page and the lead of it.
class LeadOf {
 public:
  LeadOf(const PageShape& shape, std::uint32_t resolution, std::uint32_t yExtent)
      : request_(RequestFor(shape)), info_(BlockFor(shape, resolution, yExtent)) {}
  const LineLead& operator*() const { return lead_; }
  const LineLead* operator->() const { return &lead_; }
  std::uint32_t Readable(std::uint32_t taken, std::uint32_t freed) const {
    std::uint32_t i = 0;
    while (i < info_.Window.yExtent && lead_.may_read(i, taken, freed)) ++i;
    return i;
  }

 private:
  static _SCANINFO BlockFor(const PageShape& shape, std::uint32_t resolution, std::uint32_t lines) {
    _SCANINFO info{};
    info.DataType = shape.bits == 24 ? 3 : shape.bits == 8 ? 2 : 0;
    info.Xresolution = info.Yresolution = resolution;
    info.Window.xExtent = shape.width;
    info.Window.yExtent = lines;
    return info;
  }
  tagTWSCANPARAM request_;
  _SCANINFO info_;
  VerticalStage vertical_{request_, info_};
  LineLead lead_{line_sizes(request_, info_), vertical_, info_.Window.yExtent,
                 request_.dwImageLength};
};

PageShape Grey(std::uint32_t width, std::uint32_t length, float resolution) {
  return {8, width, length, resolution, resolution};
}

TEST(LineLead, SmallLinesAreBoundedByTheirNumber) {
  const LeadOf lead(Grey(100, 50000, 300), 300, 50000);
  EXPECT_EQ(lead->device_lines(), 16384u);
  EXPECT_EQ(lead->client_lines(), 16384u);
  EXPECT_EQ(lead.Readable(0, 0), 16384u);
  EXPECT_EQ(lead.Readable(100, 0), 16484u);
}

TEST(LineLead, WideLinesAreBoundedByTheirBytes) {
  const LeadOf lead(Grey(1u << 20, 500, 300), 300, 500);
  EXPECT_EQ(lead->device_lines(), 63u);  // of 1 MiB and the room behind it
  EXPECT_EQ(lead->client_lines(), 64u);
}

TEST(LineLead, ClientLinesOfADeviceLineCount) {
  // One device line makes ten client lines of 1 MiB.
  const LeadOf lead(Grey(1u << 20, 1000, 600), 60, 100);
  EXPECT_EQ(lead->device_lines(), 6u);
}

TEST(LineLead, TwoDeviceLinesAtLeast) {
  const LeadOf lead(Grey(1u << 20, 1000, 600), 60, 3);
  EXPECT_EQ(lead->device_lines(), 2u);
}

TEST(LineLead, LinesOfTheNextClientLineMayBeReadAsOthersAreFreed) {
  const LeadOf lead(Grey(10, 1, 100), 200, 100000);
  EXPECT_EQ(lead.Readable(0, 0), 16384u);
  EXPECT_EQ(lead.Readable(0, 20000), 36384u);
  EXPECT_EQ(lead.Readable(0, 99000), 100000u);
}

TEST(LineLead, LinesThatNobodyNeedsAreAhead) {
  const LeadOf lead(Grey(10, 5, 300), 300, 100000);
  EXPECT_EQ(lead.Readable(5, 5), 16384u + 4);
}

TEST(LineLead, PageWithoutClientLinesIsAllAhead) {
  const LeadOf lead(Grey(10, 0, 300), 300, 100000);
  EXPECT_EQ(lead.Readable(0, 0), 16384u);
}

TEST(LineLead, ClientLinesStayWithinTheirNumberOfTheClient) {
  const LeadOf lead(Grey(10, 50000, 600), 60, 2);
  EXPECT_TRUE(lead->may_make(16383, 0));
  EXPECT_FALSE(lead->may_make(16384, 0));
  EXPECT_TRUE(lead->may_make(16384, 1));
}

}  // namespace
}  // namespace vox::test
