// Two processes that want one device at USB: the second is refused within its time, and has the
// device when the first one is done with it or dead.
#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

#include "tests/e2e/usbbus/BusRoadFixture.h"
#include "tests/support/Moment.h"

namespace vox::test {
namespace {

// Holder is another process, in which a function runs: it says when it holds the device, and goes
// on when it is told to.
class Holder {
 public:
  using Pause = std::function<void()>;
  explicit Holder(const std::function<bool(const Pause&)>& run) {
    int to[2], from[2];
    if (::pipe(to) != 0 || ::pipe(from) != 0) return;
    process_ = ::fork();
    if (process_ == 0) {
      const Pause pause = [&] {
        char letter = 'h';
        if (::write(from[1], &letter, 1) != 1 || ::read(to[0], &letter, 1) != 1) ::_exit(2);
      };
      ::_exit(run(pause) ? 0 : 1);
    }
    ::close(to[0]);
    ::close(from[1]);
    to_.Reset(to[1]);
    from_.Reset(from[0]);
  }
  ~Holder() { Kill(); }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  bool Holds() const {
    char letter = 0;
    return ::read(from_.Get(), &letter, 1) == 1;
  }
  // GoOn lets it end. Gives its exit status.
  int GoOn() {
    if (::write(to_.Get(), "g", 1) != 1) return -1;
    int status = 0;
    ::waitpid(std::exchange(process_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void Kill() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(std::exchange(process_, -1), nullptr, 0);
  }

 private:
  pid_t process_ = -1;
  FileDescriptor to_, from_;
};

class BusSharing : public BusRoadTest {
 protected:
  void SetUp() override {
    Plug("blocks=4000");
    StallInAPage();
  }
  // The device falls silent in the fifth block, or the page would be over before long. Three
  // packets of it are whole: a short one would end it.
  void StallInAPage() {
    scanner_->SetFaults("stall=data:" + std::to_string(4 * 4008 + 8 + 3 * 512));
  }
  // The other process pauses in the middle of a page, which it cancels then.
  bool ScanWithPause(const Holder::Pause& pause) {
    UsbClient theirs(BusScanner::kSerial);
    if (!theirs.KnowsDevice() || !theirs.Start(kAsk)) return false;
    const std::vector<Line> expected = Expected(kAsk);
    for (std::size_t i = 0; i < 10; ++i) {
      if (theirs.ReadLine() != expected[i]) return false;
    }
    pause();
    return theirs.Interface().Abort();
  }
  void ExpectRefused() {
    const auto begun = std::chrono::steady_clock::now();
    const Page page = client_->Scan(kAsk);
    const auto took = std::chrono::steady_clock::now() - begun;
    EXPECT_FALSE(page.started);
    EXPECT_EQ(page.status, 3u);
    EXPECT_GE(took, std::chrono::milliseconds(900)) << "ten attempts, 100 ms apart";
    EXPECT_LT(took, std::chrono::seconds(30));
  }
  // The bus hears of programs that ended when it can.
  void ExpectFreeSoon() {
    scanner_->SetFaults("none");
    Page page;
    EXPECT_TRUE(Eventually([&] {
      page = client_->Scan(kAsk);
      return page.status == 0;
    }));
    EXPECT_TRUE(SameLines(page.lines, Expected(kAsk)));
  }

  const Ask kAsk = Ask::Grey();
};

TEST_F(BusSharing, ASecondProcessIsRefusedInTheMiddleOfAPageAndScansAfterIt) {
  Holder holder([&](const Holder::Pause& pause) { return ScanWithPause(pause); });
  ASSERT_TRUE(holder.Holds());
  ExpectRefused();
  EXPECT_EQ(holder.GoOn(), 0) << "its lines came all the same, and it could cancel";
  EXPECT_EQ(scanner_->Count(sim::EventKind::kJobCancelled), 1u);
  ExpectFreeSoon();
}

TEST_F(BusSharing, ADeviceWhoseHolderWasKilledIsFreeAgain) {
  for (int round = 0; round < 3; ++round) {
    StallInAPage();
    Holder holder([&](const Holder::Pause& pause) { return ScanWithPause(pause); });
    ASSERT_TRUE(holder.Holds());
    holder.Kill();
    ExpectFreeSoon();
  }
}

}  // namespace
}  // namespace vox::test
