// Scans through libusb that are cancelled, unplugged or refused at every stage, and the good page
// that follows each.
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include <malloc.h>

#include "tests/e2e/usbbus/BusRoadFixture.h"
#include "tests/support/Moment.h"

namespace vox::test {
namespace {

using sim::EventKind;

const Ask kSmall = Ask::Grey().Dpi(100).Frame(0, 0, 0.6F, 0.4F);  // 40 lines

// HeapBytes counts what is allocated; 0 with a sanitizer, which finds leaks itself.
std::size_t HeapBytes() {
  return ::mallinfo2().uordblks;
}

class BusTrouble : public BusRoadTest {
 protected:
  // Meanwhile runs something on another thread once the fault has taken effect; the page is read
  // on this one as far as it goes. Gives the page's status.
  std::uint32_t ScanWhile(const Ask& ask, const std::function<void()>& something) {
    const std::size_t before = scanner_->Count(EventKind::kFault);
    std::thread other([&] {
      EXPECT_TRUE(scanner_->WaitFor(EventKind::kFault, before + 1));
      something();
    });
    const Page page = client_->Scan(ask);
    other.join();
    EXPECT_LT(page.lines.size(), Expected(ask).size());
    return page.status;
  }
};

// The device falls silent at each stage, so that the cancel comes within it: before a header,
// behind it, and behind whole packets of a block, since a short one would end the block.
TEST_F(BusTrouble, CancelledWhereverAPageIs) {
  Plug("blocks=4000 reload sheets=2");
  for (const std::string stage : {"scan", "request", "info", "data:0", "data:8", "data:1544",
                                  "data:4008", "data:4016", "data:17576", "end"}) {
    SCOPED_TRACE(stage);
    scanner_->SetFaults("stall=" + stage);
    const std::size_t commands = scanner_->Count(EventKind::kCancelCommand);
    ScanWhile(Ask::Grey(), [&] { client_->Interface().Abort(); });
    client_->Interface().Abort();
    EXPECT_LE(scanner_->Count(EventKind::kCancelCommand), commands + 2);
    client_->Interface().ClearIfErrorStatus();
    ExpectUsable();
    client_->Interface().Abort();
  }
}

TEST_F(BusTrouble, CancelledAtAnyLine) {
  Plug("blocks=4000 sheets=3 reload");
  for (const std::size_t lines : {0u, 1u, 20u, 200u, 225u}) {
    SCOPED_TRACE(lines);
    ASSERT_TRUE(client_->Start(Ask::Grey()));
    for (std::size_t i = 0; i < lines; ++i) ASSERT_TRUE(client_->ReadLine());
    EXPECT_TRUE(client_->Interface().Abort());
    client_->Finish();
  }
  // Opening the device anew gives a page up as well.
  EXPECT_EQ(scanner_->Count(EventKind::kJobCancelled) + scanner_->Count(EventKind::kJobLost), 5u);
  ExpectUsable();
  client_->Interface().Abort();
}

TEST_F(BusTrouble, CancelledBetweenPages) {
  Plug("sheets=3 reload");
  const Page page = client_->Scan(Ask::Grey());
  EXPECT_TRUE(page.more);
  EXPECT_TRUE(client_->Interface().Abort());
  EXPECT_EQ(scanner_->Count(EventKind::kJobCancelled), 1u);
  EXPECT_EQ(scanner_->Unread(), 0u);
  ExpectUsable();
  client_->Interface().Abort();
}

TEST_F(BusTrouble, CancelledByAnotherThreadAtAnyMoment) {
  Plug("blocks=500 sheets=2 reload");
  for (int round = 0; round < 12; ++round) {
    std::thread other([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(3 * round));
      client_->Interface().Abort();
    });
    client_->Scan(Ask::Grey());
    other.join();
    client_->Interface().Abort();
    client_->Interface().ClearIfErrorStatus();
  }
  ExpectUsable();
  client_->Interface().Abort();
}

TEST_F(BusTrouble, RefusedOrBrokenOffByTheDevice) {
  Plug("blocks=4000");
  const struct {
    const char* faults;
    std::uint32_t status;
  } troubles[] = {{"busy", 4},           {"no-document", 8},     {"halt-out=scan", 3},
                  {"halt-in=scan", 3},   {"info-cut=127", 5},    {"halt-in=data:5000", 3},
                  {"check-error=99", 7}, {"block=cut-data:1", 3}};
  for (const auto& trouble : troubles) {
    SCOPED_TRACE(trouble.faults);
    scanner_->SetFaults(trouble.faults);
    EXPECT_EQ(client_->Scan(Ask::Grey()).status, trouble.status);
    client_->Interface().Abort();
    ExpectUsable();
  }
}

TEST_F(BusTrouble, UnpluggedAndPluggedInAgainAHundredTimes) {
  Plug("blocks=500 sheets=2 reload");
  std::size_t heap = 0;
  for (int round = 0; round < 100 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    if (round == 20) heap = HeapBytes();  // by now all that is kept has been made
    const auto unplug = [&] { scanner_->Unplug(); };
    const std::string byte = std::to_string(round / 10 % 5 * 508 + (round % 2 == 0 ? 0 : 8));
    switch (round % 5) {
      case 0:  // while the host waits for a header or a block
        scanner_->SetFaults("stall=data:" + byte);
        EXPECT_EQ(ScanWhile(kSmall, unplug), 3u);
        break;
      case 1:  // while the host reads lines
        ASSERT_TRUE(client_->Start(kSmall));
        for (int i = 0; i < round % 40; ++i) ASSERT_TRUE(client_->ReadLine());
        unplug();
        client_->Finish();  // of so small a page all may be here already
        break;
      case 2:  // between two pages
        EXPECT_TRUE(client_->Scan(kSmall).more);
        unplug();
        EXPECT_EQ(client_->Scan(kSmall).status, 3u);
        break;
      case 3:  // while a page is begun
        scanner_->SetFaults(round % 2 == 0 ? "stall=info" : "stall=scan");
        EXPECT_NE(ScanWhile(kSmall, unplug), 0u);
        break;
      default:  // while nothing is open
        unplug();
    }
    EXPECT_FALSE(client_->Interface().IsOnLine(0));
    client_->Interface().Abort();
    scanner_->SetFaults("none");
    scanner_->Plug();
    client_->Interface().ClearIfErrorStatus();
    EXPECT_TRUE(client_->Interface().IsOnLine(0));
    ExpectPage(kSmall);
    client_->Interface().Abort();
  }
  EXPECT_EQ(scanner_->Count(EventKind::kPlugged), 100u);
  EXPECT_LT(HeapBytes(), heap + 64 * 1024) << "a KiB in each round would be more";
}

}  // namespace
}  // namespace vox::test
