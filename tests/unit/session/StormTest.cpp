// Storms: pages start, end and are aborted at random moments, a thousand times, from one and two
// client threads, on a device that fails and throws now and then. Nothing may hang, race or leak,
// and every page that started is ended by the transport exactly once.
//
// The random numbers are seeded; VOX_STORM_SEED repeats a storm, VOX_STORM_CYCLES makes it longer.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/unit/session/SessionTest.h"

namespace vox::test {
namespace {

unsigned FromEnvironment(const char* name, unsigned otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? static_cast<unsigned>(std::stoul(text)) : otherwise;
}

class Dice {
 public:
  explicit Dice(unsigned seed) : engine_(seed) {}
  bool OneIn(unsigned n) { return Below(n) == 0; }
  unsigned Below(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(engine_); }
  // A pause of up to 50 us moves the threads against each other.
  void Dawdle() {
    if (OneIn(3)) std::this_thread::sleep_for(std::chrono::microseconds(Below(50)));
  }

 private:
  std::minstd_rand engine_;
};

class StormTest : public SessionTest {
 protected:
  static constexpr std::uint32_t kLines = 24;

  StormTest() {
    WithSystem([](SessionSystem& system) { system.standby_interval = 0.0001; });
    RecordProperty("seed", std::to_string(seed_));
    for (std::uint32_t line = 0; line < kLines; ++line) device_->AtLine(line, Weather());
    device_->AtEnd([this](FakeTransport& device) {
      Dice dice(seed_ + static_cast<unsigned>(draws_++));
      dice.Dawdle();
      device.multipage = dice.OneIn(3);
      device.m_semaphore.Up();
      if (dice.OneIn(50)) throw std::runtime_error("after the page");
      return 0;
    });
  }

  // What befalls a line: now and then a failure or an exception.
  FakeTransport::Action Weather() {
    return [this](FakeTransport&) {
      Dice dice(seed_ + static_cast<unsigned>(draws_++));
      dice.Dawdle();
      const bool throws = dice.OneIn(300), fails = throws || dice.OneIn(150);
      if (fails) ++failures_;
      if (throws) throw std::runtime_error("in mid page");
      return fails ? -1 : 0;
    };
  }

  void OnePage(Dice& dice) {
    if (dice.OneIn(2)) device_->PrepareScan(request_, true, false);
    if (device_->StartScan(false)) ++started_;
    Line line(request_.dwLineSize);
    for (unsigned lines = dice.Below(2 * kLines); lines > 0; --lines) {
      if (device_->ReadLine(line.data()) != 0) break;
    }
    dice.Dawdle();
    if (dice.OneIn(4)) return;  // the next start has to cope
    if (dice.OneIn(2)) {
      device_->Abort();
    } else {
      device_->EndScan();
    }
    if (dice.OneIn(5)) device_->stopStandBy();
  }
  void Meddle(Dice& dice) {
    dice.Dawdle();
    switch (dice.Below(6)) {
      case 0:
        device_->EndScan();
        break;
      case 1:
        device_->stopStandBy();
        break;
      case 2:
        OnePage(dice);
        break;
      case 3:
        device_->GetScanParam();
        break;
      default:
        device_->Abort();
    }
  }

  void ExpectCalm() {
    device_->StopSession();
    EXPECT_EQ(device_->ends, started_) << "seed " << seed_;
    EXPECT_LE(device_->m_semaphore.Value(), 1u);
    EXPECT_EQ(footprint_.SetsLeft(), 0u) << "seed " << seed_;
    // A page that fails by itself takes the semaphores from who posts; one that is stopped does
    // not.
    EXPECT_LE(LinesLogged("Sem post fail!\n"), failures_) << "seed " << seed_;
  }

  const unsigned seed_ = FromEnvironment("VOX_STORM_SEED", 20260101);
  const unsigned cycles_ = FromEnvironment("VOX_STORM_CYCLES", 1000);
  const tagTWSCANPARAM request_ = RequestFor({8, 30, kLines, 300, 300});
  std::atomic<unsigned> draws_{0};
  std::atomic<int> started_{0};
  std::atomic<int> failures_{0};  // of lines
};

TEST_F(StormTest, OneClient) {
  Dice dice(seed_);
  device_->PrepareScan(request_, true, false);
  for (unsigned cycle = 0; cycle < cycles_; ++cycle) OnePage(dice);
  ExpectCalm();
}

TEST_F(StormTest, TwoClients) {
  device_->PrepareScan(request_, true, false);
  std::atomic<bool> over{false};
  std::thread meddler([this, &over] {
    Dice dice(seed_ + 1);
    while (!over) Meddle(dice);
  });
  Dice dice(seed_);
  for (unsigned cycle = 0; cycle < cycles_; ++cycle) OnePage(dice);
  over = true;
  meddler.join();
  ExpectCalm();
}

TEST_F(StormTest, ObjectsThatComeAndGo) {
  Dice dice(seed_);
  for (unsigned cycle = 0; cycle < cycles_; ++cycle) {
    FakeTransport device;
    device.AtLine(dice.Below(kLines), Weather());
    device.HasMorePages(static_cast<int>(dice.Below(2)));
    device.PrepareScan(request_, true, false);
    ASSERT_TRUE(device.StartScan(false)) << "seed " << seed_ << " cycle " << cycle;
    Line line(request_.dwLineSize);
    for (unsigned lines = dice.Below(kLines); lines > 0; --lines) device.ReadLine(line.data());
    if (dice.OneIn(2)) device.EndScan();
  }
}

}  // namespace
}  // namespace vox::test
