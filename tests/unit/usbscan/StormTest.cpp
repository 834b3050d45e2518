// Interleavings that nobody thought of: clients that start, read, end, ask and abort from several
// threads at random moments, of a device that answers, stalls and falls silent. Whatever happens,
// every call returns, and nothing of the device stays claimed.
#include <deque>
#include <random>

#include "tests/unit/usbscan/UsbScanTest.h"

namespace vox::test {
namespace {

// Responder is a device that answers commands as they come. It falls silent at every `silence`th
// read and fails every `failure`th (0 never).
class Responder {
 public:
  Responder(const PageShape& shape, int silence, int failure)
      : shape_(shape), silence_(silence), failure_(failure) {}

  IOReturn Write(const Bytes& packet) {
    const MutexLock lock(mutex_);
    if (packet.size() < 20) return kIOReturnSuccess;
    if (packet[15] == 0x41) answers_ = {Response('C')};
    if (packet[15] == 0x50) answers_ = {kLastPage};
    if (packet[15] == 0x62) SendPage();
    if (packet[15] == 0x22) answers_.push_back(Bytes(7, 0));  // no reply has so few bytes
    return kIOReturnSuccess;
  }
  FakeUsbAnswer Read() {
    const MutexLock lock(mutex_);
    ++reads_;
    if (failure_ != 0 && reads_ % failure_ == 0) return {kIOUSBPipeStalled, {}, false};
    if (silence_ != 0 && (answers_.empty() || reads_ % silence_ == 0)) return {0, {}, true};
    if (answers_.empty()) return {kIOUSBTransactionTimeout, {}, false};
    FakeUsbAnswer answer{kIOReturnSuccess, answers_.front(), false};
    answers_.pop_front();
    return answer;
  }

 private:
  void SendPage() VOX_REQUIRES(mutex_) {
    answers_ = {WireOf(InfoFor(shape_))};
    const Bytes page = PageBytes(shape_);
    for (std::size_t at = 0; at < page.size(); at += 40) {
      const auto first = page.begin() + static_cast<std::ptrdiff_t>(at);
      const Bytes block(first, first + std::min<std::ptrdiff_t>(40, page.end() - first));
      answers_.push_back(Header(static_cast<std::uint32_t>(block.size())));
      answers_.push_back(block);
    }
    answers_.push_back(kNextPage);
  }

  const PageShape shape_;
  const int silence_, failure_;
  Mutex mutex_;
  std::deque<Bytes> answers_ VOX_GUARDED_BY(mutex_);
  int reads_ VOX_GUARDED_BY(mutex_) = 0;
};

struct Weather {
  const char* what;
  int silence, failure;
};
void PrintTo(const Weather& weather, std::ostream* stream) {
  *stream << weather.what;
}

class Storm : public UsbScanTest, public testing::WithParamInterface<Weather> {};

TEST_P(Storm, EveryCallReturnsAndNothingStaysClaimed) {
  constexpr int kRounds = 60;
  const PageShape shape = Bilevel(64, 30);
  Responder responder(shape, GetParam().silence, GetParam().failure);
  device_.on_write = [&](const Bytes& packet, const FakeUsbTransfer&) {
    return responder.Write(packet);
  };
  device_.on_read = [&](std::uint32_t, const FakeUsbTransfer&) { return responder.Read(); };
  Plug();
  std::mt19937 random(20'261'121);  // the same storm each time
  const auto wait = [&random](int us) {
    return std::chrono::microseconds(std::uniform_int_distribution<int>(0, us)(random));
  };
  for (int round = 0; round < kRounds; ++round) {
    const auto until_abort = wait(4'000);
    const bool asks = GetParam().silence == 0 && round % 5 == 0, deletes = round % 4 == 0,
               ends = round % 3 != 0;
    std::atomic<bool> done{false};
    std::thread other([&, until_abort] {
      std::this_thread::sleep_for(until_abort);
      do {  // a page that begins after one abort is ended by the next
        scanner_->Abort();
        std::this_thread::sleep_for(1ms);
      } while (!done);
    });
    Prepare(shape);
    for (int page = 0; page < 3; ++page) {
      if (!scanner_->StartScan(false)) break;
      tagSCANDEVINFO info{};
      if (asks) scanner_->GetDevInfo(&info);
      Bytes line(LineSize());
      for (int i = 0; i < 10 * (page + 1) && scanner_->ReadLine(line.data()) == 0; ++i) {
      }
      if (ends) scanner_->EndScan();
      if (round % 7 == 0) scanner_->SendCmdStandby();
    }
    done = true;
    other.join();
    scanner_->Abort();
    ExpectClosed();
    if (deletes) Plug();
  }
}

INSTANTIATE_TEST_SUITE_P(Table, Storm,
                         testing::Values(Weather{"calm", 0, 0}, Weather{"silences", 23, 0},
                                         Weather{"failures", 0, 17}));

}  // namespace
}  // namespace vox::test
