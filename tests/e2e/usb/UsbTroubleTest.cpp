// Devices at USB that refuse, fall silent, break off or vanish: each trouble has its status, ends
// what waits, and leaves the next page to come.
#include <thread>

#include "tests/e2e/usb/UsbRoadFixture.h"

namespace vox::test {
namespace {

using sim::DeviceOptions;
using sim::EventKind;

class UsbTrouble : public UsbRoadTest {
 protected:
  void PlugWith(const std::string& faults, DeviceOptions options = SmallDevice()) {
    SCOPED_TRACE(faults);
    Plug(std::move(options));
    sim::Faults parsed;
    ASSERT_EQ(sim::ParseFault(faults, parsed), "");
    Device().SetFaults(parsed);
  }
  // The device is put in order: a page comes, line for line.
  void ExpectUsable() {
    Device().SetFaults({});
    const Ask ask = Ask::Grey();
    const Page page = client_->Scan(ask);
    EXPECT_EQ(page.status, 0u);
    EXPECT_TRUE(SameLines(page.lines, Expected(ask)));
  }
};

struct Refusal {
  const char* faults;
  std::uint32_t status;
};

TEST_F(UsbTrouble, NoPageBegins) {
  const Refusal refusals[] = {{"stall=scan", 3},     {"stall=info", 5},    {"info-cut=127", 5},
                              {"halt-in=scan", 3},   {"halt-out=scan", 3}, {"halt-out=request", 3},
                              {"halt-out=scan:1", 3}};
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.faults);
    PlugWith(refusal.faults);
    const Page page = client_->Scan(Ask::Grey());
    EXPECT_FALSE(page.started);
    EXPECT_EQ(page.status, refusal.status);
    client_->Interface().Abort();
    ExpectUsable();
  }
}

// Nobody knows the job's id, so nobody can cancel it.
TEST_F(UsbTrouble, AResponseWithoutItsJobIdLeavesTheDeviceBusy) {
  PlugWith("reply=cut:20");
  EXPECT_EQ(client_->Scan(Ask::Grey()).status, 3u);
  Device().SetFaults({});
  EXPECT_EQ(client_->Scan(Ask::Grey()).status, 4u);
  Device().Scanner().Reset();
  ExpectUsable();
}

TEST_F(UsbTrouble, APageBreaksOff) {
  const Refusal breaks[] = {{"halt-in=data:5000", 3},
                            {"halt-in=data:0", 3},
                            {"check-error=1000", 7},
                            {"block=cut-header", 3},
                            {"block=cut-data:1", 3}};
  for (const Refusal& broken : breaks) {
    SCOPED_TRACE(broken.faults);
    DeviceOptions options = SmallDevice();
    options.usb.block_bytes = {4000};
    PlugWith(broken.faults, options);
    const Ask ask = Ask::Grey();
    const std::vector<Line> expected = Expected(ask);
    ASSERT_TRUE(client_->Start(ask));
    std::vector<Line> lines;
    while (auto line = client_->ReadLine()) {
      lines.push_back(std::move(*line));
      ASSERT_LE(lines.size(), expected.size());
    }
    for (std::size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(lines[i], expected[i]) << i;
    EXPECT_LT(lines.size(), expected.size());
    const Page page = client_->Finish();
    EXPECT_EQ(page.status, broken.status);
    client_->Interface().Abort();
    ExpectUsable();
  }
}

TEST_F(UsbTrouble, UnpluggedAtAnyByte) {
  for (const std::string at : {"scan", "info:64", "data:0", "data:4", "data:8", "data:9000"}) {
    SCOPED_TRACE(at);
    PlugWith("unplug=" + at);
    const Page page = client_->Scan(Ask::Grey());
    EXPECT_TRUE(page.status == 3u || page.status == 5u) << page.status;
    EXPECT_LT(page.lines.size(), Expected(Ask::Grey()).size());
    scanner_->Unplug();
    EXPECT_FALSE(client_->Interface().IsOnLine(0));
    scanner_->Plug();
    client_->Interface().ClearIfErrorStatus();
    EXPECT_TRUE(client_->Interface().IsOnLine(0));
    client_->Interface().Abort();
    ExpectUsable();
  }
}

TEST_F(UsbTrouble, CancelledAtAnyLine) {
  DeviceOptions options = SmallFeeder(3);
  options.usb.block_bytes = {4000};
  options.reload_feeder = true;
  Plug(options);
  for (const std::size_t lines : {0u, 1u, 20u, 200u}) {
    ASSERT_TRUE(client_->Start(Ask::Grey()));
    for (std::size_t i = 0; i < lines; ++i) ASSERT_TRUE(client_->ReadLine());
    EXPECT_TRUE(client_->Interface().Abort());
    client_->Finish();
  }
  // Opening the device anew gives a page up as well.
  EXPECT_EQ(Events().Count(EventKind::kJobCancelled) + Events().Count(EventKind::kJobLost), 4u);
  ExpectUsable();
  client_->Interface().Abort();
}

TEST_F(UsbTrouble, CancelledBetweenPages) {
  DeviceOptions options = SmallFeeder(3);
  options.reload_feeder = true;
  Plug(options);
  const Page page = client_->Scan(Ask::Grey());
  EXPECT_TRUE(page.more);
  EXPECT_TRUE(client_->Interface().Abort());
  EXPECT_EQ(Events().Count(EventKind::kJobCancelled), 1u);
  EXPECT_EQ(Unread(), 0u);
}

TEST_F(UsbTrouble, ACancelEndsAWaitForASilentDevice) {
  PlugWith("stall=data:3000");
  ASSERT_TRUE(client_->Start(Ask::Grey()));
  std::thread canceller([&] {
    EXPECT_TRUE(Events().WaitFor(EventKind::kFault, 1, std::chrono::seconds(20)));
    EXPECT_TRUE(client_->Interface().Abort());
  });
  while (client_->ReadLine()) {
  }
  canceller.join();
  client_->Finish();
  ExpectUsable();
}

}  // namespace
}  // namespace vox::test
