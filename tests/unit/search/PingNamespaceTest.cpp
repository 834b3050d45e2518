// The liveness probe against the kernel: in a network namespace of its own, whose loopback answers,
// with and without the permissions that it may have.
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/support/FreshNamespace.h"
#include "vox/drivers/net/searchping.h"

namespace vox::test {
namespace {

bool RaiseLoopback() {
  const int sock = ::socket(AF_INET, SOCK_DGRAM, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP;
  const bool raised = ::ioctl(sock, SIOCSIFFLAGS, &request) == 0;
  ::close(sock);
  return raised;
}

// A fresh network namespace admits no group to datagram sockets. Group 0 is the tests' own there.
bool AdmitOwnGroup() {
  return WriteFile("/proc/sys/net/ipv4/ping_group_range", "0 0");
}

bool DropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct none[2] = {};
  return ::syscall(SYS_capset, &header, none) == 0;
}

// Runs the work where only a loopback of its own is; its exit code, or -1.
template <typename Work>
int OnFreshLoopback(Work work) {
  return InFreshNamespace(CLONE_NEWNET,
                          [work] { return RaiseLoopback() ? work() : kNotPermitted; });
}

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

TEST(PingInTheKernel, WhoMayDoNeitherGetsNobodyAndIsTold) {
  const int code = OnFreshLoopback([] {
    if (!DropCapabilities()) return kNotPermitted;
    if (network_ping_permitted()) return 1;
    const auto own = std::make_shared<Dictionary>(Dictionary{{"ip", "127.0.0.1"}});
    return filterWithNetworkPing({own}, nullptr).empty() ? 0 : 2;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

}  // namespace
}  // namespace vox::test
