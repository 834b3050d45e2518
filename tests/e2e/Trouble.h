// Trouble is a road with one small device that is told what to do wrong, and the good scan that
// must follow.
#pragma once

#include <chrono>

#include "tests/e2e/RoadFixture.h"
#include "tests/support/Moment.h"
#include "tests/support/SmallDevice.h"

namespace vox::test {

using namespace std::chrono_literals;
using sim::EventKind;
using sim::Faults;

class Trouble : public RoadTest {
 protected:
  static constexpr std::uint32_t kBlockLines = 64;

  using RoadTest::RoadTest;

  // A job that nobody goes on with makes way for the next one at once.
  static sim::DeviceOptions Options(const Faults& faults = {}) {
    sim::DeviceOptions options = SmallDevice();
    options.coding.lines_per_block = kBlockLines;
    options.limits.idle_job = 1ms;
    options.faults = faults;
    return options;
  }
  sim::VirtualDevice& Device(const Faults& faults) { return road.Device(Options(faults)); }

  // A device that was left in the middle of a page is busy for a moment.
  static Page ScanWhenFree(Road& on, const tagTWSCANPARAM& request) {
    Page page;
    Eventually([&] {
      page = on.Scan(request);
      return page.status != IF_ERR_STS_DEVICE_BUSY;
    });
    return page;
  }
  // A scan that fails by waiting; the good ones before and after it wait as long as they must.
  static Page ScanWithShortWaits(Road& on, const tagTWSCANPARAM& request,
                                 std::chrono::milliseconds channels = ShortWaits::kChannels) {
    const ShortWaits waits(on, channels);
    return ScanWhenFree(on, request);
  }
  void ExpectGoodScan() {
    road.FirstDevice().SetFaults({});
    for (const unsigned bits : {1u, 8u}) {
      const Page page = ScanWhenFree(road, Ask::Depth(bits));
      EXPECT_EQ(page.status, 0u);
      EXPECT_TRUE(SameLines(page.lines, road.Expected(Ask::Depth(bits))));
    }
  }
};

}  // namespace vox::test
