// The liveness probe against the kernel: in a network namespace of its own, whose loopback answers,
// with and without the permissions that it may have.
#include <string>

#include <gtest/gtest.h>

#include "tests/support/Capabilities.h"
#include "tests/support/FreshLoopback.h"
#include "tests/support/NoDescriptors.h"
#include "tests/unit/search/Street.h"
#include "vox/drivers/net/searchping.h"

namespace vox::test {
namespace {

// SixtyAnswer: 0, or which check failed.
int SixtyAnswer() {
  DeviceInfoArray devices;
  for (int i = 1; i <= 60; ++i) {
    devices.push_back(
        std::make_shared<Dictionary>(Dictionary{{"ip", "127.0.0." + std::to_string(i)}}));
  }
  devices.push_back(std::make_shared<Dictionary>(Dictionary{{"ip", "192.0.2.1"}}));  // no route
  if (!network_ping_permitted()) return 1;
  const DeviceInfoArray alive = filterWithNetworkPing(devices, nullptr);
  devices.pop_back();
  return alive == devices ? 0 : 2;
}

TEST(PingInTheKernel, DatagramSocketsNeedNoPrivilege) {
  const int code = OnFreshLoopback([] {
    if (!AdmitOwnGroup() || !DropCapabilities()) return kNotPermitted;
    return SixtyAnswer();
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST(PingInTheKernel, RawSocketsServeWhoMayOpenThem) {
  const int code = OnFreshLoopback([] { return SixtyAnswer(); });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

// WaitsInVain: 0, or which check failed. On loopback a raw socket sees the request too.
int WaitsInVain() {
  if (!IgnoreEchoRequests()) return kNotPermitted;
  const auto own = std::make_shared<Dictionary>(Dictionary{{"ip", "127.0.0.1"}});
  const Stopwatch watch;
  CancelsAt fourth(4);  // the request, then three receives
  if (!filterWithNetworkPing({own}, &fourth).empty()) return 1;
  if (fourth.asked != 4) return 2;
  return watch.Elapsed() < std::chrono::seconds(10) ? 0 : 3;
}

TEST(PingInTheKernel, ACancelIsSeenBetweenReceivesOfATenthOfASecond) {
  const int code = OnFreshLoopback([] { return AdmitOwnGroup() ? WaitsInVain() : kNotPermitted; });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST(PingInTheKernel, OurOwnRequestOnARawSocketIsNoReply) {
  const int code = OnFreshLoopback([] { return WaitsInVain(); });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

// Permission is another matter than a limit.
TEST(PingInTheKernel, WhoHasNoDescriptorLeftIsToldSo) {
  if (!network_ping_permitted()) GTEST_SKIP() << "pings are not permitted here";
  {
    const NoDescriptors none;
    EXPECT_EQ(network_ping_access(), PING_ACCESS_NO_DESCRIPTORS);
    EXPECT_FALSE(network_ping_permitted());
  }
  EXPECT_NE(network_ping_access(), PING_ACCESS_NO_DESCRIPTORS);
}

TEST(PingInTheKernel, WhoMayDoNeitherGetsNobodyAndIsTold) {
  const int code = OnFreshLoopback([] {
    if (!DropCapabilities()) return kNotPermitted;
    if (network_ping_permitted()) return 1;
    if (network_ping_access() != PING_ACCESS_FORBIDDEN) return 3;
    const auto own = std::make_shared<Dictionary>(Dictionary{{"ip", "127.0.0.1"}});
    return filterWithNetworkPing({own}, nullptr).empty() ? 0 : 2;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

}  // namespace
}  // namespace vox::test
