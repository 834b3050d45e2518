// Descriptors that end what a thread does with USB.
#include <chrono>
#include <csignal>
#include <deque>
#include <memory>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "vox/platform/FileDescriptor.h"
#include "vox/platform/UsbPort.h"

namespace vox {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::vector<int> InForce() {
  return {UsbInterrupt::Fds().begin(), UsbInterrupt::Fds().end()};
}

TEST(UsbInterrupts, AreInForceWhileTheyLiveWhateverTheirOrder) {
  EXPECT_THAT(InForce(), IsEmpty());
  auto first = std::make_unique<UsbInterrupt>(7);
  auto second = std::make_unique<UsbInterrupt>(8);
  EXPECT_THAT(InForce(), UnorderedElementsAre(7, 8));
  first.reset();
  EXPECT_THAT(InForce(), ElementsAre(8));
  second.reset();
  EXPECT_THAT(InForce(), IsEmpty());
}

TEST(UsbInterrupts, OfOneDescriptorTwiceEndOneByOne) {
  const UsbInterrupt outer(7);
  {
    const UsbInterrupt inner(7);
    EXPECT_THAT(InForce(), ElementsAre(7, 7));
  }
  EXPECT_THAT(InForce(), ElementsAre(7));
}

TEST(UsbInterrupts, OfNoDescriptorAreIgnored) {
  const UsbInterrupt real(7);
  {
    const UsbInterrupt none(-1);
    EXPECT_THAT(InForce(), ElementsAre(7));
  }
  EXPECT_THAT(InForce(), ElementsAre(7));
}

TEST(UsbInterrupts, AreSixteenAtMost) {
  EventFd quiet, raised;
  std::deque<UsbInterrupt> all;
  for (std::size_t i = 1; i < UsbInterrupt::kMost; ++i) all.emplace_back(quiet.Get());
  EXPECT_FALSE(UsbInterrupt::Wait(milliseconds(1)));
  all.emplace_back(raised.Get());
  raised.Raise();
  EXPECT_TRUE(UsbInterrupt::Wait(milliseconds(1))) << "the last one counts like the others";
  const UsbInterrupt none(-1);
  EXPECT_EXIT(const UsbInterrupt one_more(quiet.Get()), testing::KilledBySignal(SIGABRT), "");
}

TEST(UsbInterrupts, BelongToTheirThread) {
  const UsbInterrupt mine(7);
  std::thread([] { EXPECT_THAT(InForce(), IsEmpty()); }).join();
}

TEST(UsbInterrupts, EndAWaitOfTheirThread) {
  EventFd quiet, raised;
  const UsbInterrupt one(quiet.Get()), other(raised.Get());
  std::thread raiser([&] {
    std::this_thread::sleep_for(milliseconds(20));
    raised.Raise();
  });
  EXPECT_TRUE(UsbInterrupt::Wait(hours(1)));
  raiser.join();
  EXPECT_TRUE(UsbInterrupt::Wait(hours(1))) << "it stays raised";
}

TEST(UsbInterrupts, LetAWaitLastWhenNoneIsRaised) {
  EventFd quiet;
  const UsbInterrupt one(quiet.Get());
  const auto start = steady_clock::now();
  EXPECT_FALSE(UsbInterrupt::Wait(milliseconds(30)));
  EXPECT_GE(steady_clock::now() - start, milliseconds(30));
  EXPECT_FALSE(UsbInterrupt::Wait(milliseconds(-5)));
}

TEST(UsbPorts, OfAMachineWithNothingAttachedFindNothing) {
  UsbPort& port = UsbPort::Current();
  const auto matching = port.IOServiceMatching("NoSuchClass");
  io_iterator_t iterator = 0;
  if (matching && port.IOServiceGetMatchingServices(*matching, &iterator) == kIOReturnSuccess) {
    EXPECT_EQ(port.IOIteratorNext(iterator), 0u);
    port.IOObjectRelease(iterator);
  }
  EXPECT_EQ(port.IORegistryEntryCreateCFProperty(0, kUSBVendorString), std::nullopt);
  IOCFPlugInInterface* plugin = nullptr;
  port.IOCreatePlugInInterfaceForService(0, kIOUSBDeviceUserClientTypeID, &plugin);
  EXPECT_EQ(plugin, nullptr);
}

}  // namespace
}  // namespace vox
