// Work of a test in a child process that has a network of its own, whose only interface is a
// loopback that is up:
//
//   const int code = OnFreshLoopback([] { return AdmitOwnGroup() && Works() ? 0 : 1; });
//   SKIP_IF_NOT_PERMITTED(code);
#pragma once

#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "tests/support/FreshNamespace.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::test {

inline bool RaiseLoopback() {
  const FileDescriptor sock(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP;
  return ::ioctl(sock.Get(), SIOCSIFFLAGS, &request) == 0;
}

// RouteBroadcasts has what goes to 255.255.255.255 come back on loopback.
inline bool RouteBroadcasts() {
  const FileDescriptor sock(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_in everybody{};
  everybody.sin_family = AF_INET;
  everybody.sin_addr.s_addr = INADDR_BROADCAST;
  char name[] = "lo";
  rtentry route{};
  std::memcpy(&route.rt_dst, &everybody, sizeof everybody);
  std::memcpy(&route.rt_genmask, &everybody, sizeof everybody);
  route.rt_flags = RTF_UP | RTF_HOST;
  route.rt_dev = name;
  return ::ioctl(sock.Get(), SIOCADDRT, &route) == 0;
}

// AdmitOwnGroup lets datagram sockets ping, for which a fresh network admits no group. Group 0 is
// the test's own there.
inline bool AdmitOwnGroup() {
  return WriteFile("/proc/sys/net/ipv4/ping_group_range", "0 0");
}

// IgnoreEchoRequests lets nobody of the network answer a ping.
inline bool IgnoreEchoRequests() {
  return WriteFile("/proc/sys/net/ipv4/icmp_echo_ignore_all", "1");
}

// OnFreshLoopback gives what InFreshNamespace does.
template <typename Work>
int OnFreshLoopback(Work work) {
  return InFreshNamespace(CLONE_NEWNET,
                          [work] { return RaiseLoopback() ? work() : kNotPermitted; });
}

}  // namespace vox::test
