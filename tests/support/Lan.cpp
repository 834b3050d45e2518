#include "tests/support/Lan.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/FreshNamespace.h"

namespace vox::test {
namespace {

constexpr const char* kNetwork = "10.77.0.";
constexpr const char* kNetmask = "255.255.255.0";

std::string LastError(const std::string& what) {
  return what + ": " + std::generic_category().message(errno);
}

// For what cannot fail in a network that was set up.
void Demand(bool done, const char* what) {
  if (!done) throw std::runtime_error(LastError(what));
}

FileDescriptor OwnNetwork() {
  return FileDescriptor(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
}

sockaddr Inet(const std::string& dotted) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  Demand(::inet_pton(AF_INET, dotted.c_str(), &address.sin_addr) == 1, dotted.c_str());
  sockaddr plain;
  static_assert(sizeof plain == sizeof address);
  std::memcpy(&plain, &address, sizeof plain);
  return plain;
}

// One request about an interface of the calling thread's network.
class Request {
 public:
  explicit Request(const char* interface)
      : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    std::snprintf(ask.ifr_name, sizeof ask.ifr_name, "%s", interface);
  }
  void Make(unsigned long code, const char* what) {
    Demand(::ioctl(socket_.Get(), code, &ask) == 0, what);
  }
  void AddRoute(rtentry& route) {
    Demand(::ioctl(socket_.Get(), SIOCADDRT, &route) == 0, "the default route");
  }
  ifreq ask{};

 private:
  FileDescriptor socket_;
};

void Raise(const char* interface) {
  Request request(interface);
  request.ask.ifr_flags = IFF_UP;
  request.Make(SIOCSIFFLAGS, "an interface that is to come up");
}

// The kernel lets a switch's port forward a moment after both ends of the cable are up.
void AwaitCarrier(const char* port) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (Request request(port);; ::usleep(1000)) {
    request.Make(SIOCGIFFLAGS, "an interface's flags");
    if ((request.ask.ifr_flags & IFF_RUNNING) != 0) return;
    Demand(std::chrono::steady_clock::now() < deadline, "the carrier of a network cable");
  }
}

void Address(const char* interface, const std::string& dotted) {
  Request request(interface);
  request.ask.ifr_addr = Inet(dotted);
  request.Make(SIOCSIFADDR, "an address");
  request.ask.ifr_netmask = Inet(kNetmask);
  request.Make(SIOCSIFNETMASK, "a netmask");
}

// Without it there is no way to 255.255.255.255.
void RouteByDefault() {
  char interface[] = "eth0";
  rtentry route{};
  route.rt_dst = route.rt_genmask = Inet("0.0.0.0");
  route.rt_dev = interface;
  route.rt_flags = RTF_UP;
  Request("eth0").AddRoute(route);
}

}  // namespace

std::array<std::uint8_t, 6> Machine::Mac() const {
  const Inside inside(*this);
  Request request("eth0");
  request.Make(SIOCGIFHWADDR, "a hardware address");
  std::array<std::uint8_t, 6> mac;
  std::memcpy(mac.data(), request.ask.ifr_hwaddr.sa_data, mac.size());
  return mac;
}

void Machine::SetAddress(const std::string& dotted) {
  const Inside inside(*this);
  vox::test::Address("eth0", dotted);
  RouteByDefault();
  address_ = dotted;
}

void Machine::AddAddress(const std::string& dotted) const {
  const Inside inside(*this);
  vox::test::Address("eth0:1", dotted);
}

void Machine::Unplug() const {
  const Inside inside(*switch_);
  Request(port_.c_str()).Make(SIOCSIFFLAGS, "an interface that is to go down");
}

void Machine::Plug() const {
  const Inside inside(*switch_);
  Raise(port_.c_str());
  AwaitCarrier(port_.c_str());
}

void Machine::AdmitToPing(const std::string& groups) const {
  const Inside inside(*this);
  Demand(WriteFile("/proc/sys/net/ipv4/ping_group_range", groups), "ping_group_range");
}

Inside::Inside(const Machine& machine) : Inside(machine.network_) {}
Inside::Inside(const FileDescriptor& network) : before_(OwnNetwork()) {
  Demand(::setns(network.Get(), CLONE_NEWNET) == 0, "entering a network");
}
Inside::~Inside() {
  if (::setns(before_.Get(), CLONE_NEWNET) != 0) std::abort();
}

Lan::Lan(std::size_t machines) {
  // Without the right to make networks the process becomes root of a user namespace of its own.
  const FileDescriptor before = OwnNetwork();
  if (!Unshare(CLONE_NEWNET)) {
    error_ = LastError("no network namespaces here");
    return;
  }
  switch_ = OwnNetwork();
  machines_.resize(machines);
  for (Machine& machine : machines_) {
    if (::unshare(CLONE_NEWNET) != 0) error_ = LastError("a network namespace");
    machine.network_ = OwnNetwork();
    machine.switch_ = &switch_;
    machine.port_.append("p").append(std::to_string(&machine - machines_.data()));
  }
  // A process that became root of its user namespace cannot go back, and need not.
  if (::setns(before.Get(), CLONE_NEWNET) != 0 && errno != EPERM) std::abort();
  if (error_.empty()) error_ = Join();
}

// Join lays the cables and gives the machines their addresses.
std::string Lan::Join() {
  const Inside inside(switch_);
  FILE* const ip = ::popen("PATH=$PATH:/usr/sbin:/sbin ip -batch -", "we");
  if (!ip) return LastError("the program ip (Debian package iproute2)");
  std::fputs("link add br0 type bridge\nlink set br0 up\n", ip);
  for (std::size_t i = 0; i < machines_.size(); ++i) {
    std::fprintf(ip, "link add p%zu type veth peer name eth0 netns /proc/%d/fd/%d\n", i,
                 static_cast<int>(::getpid()), machines_[i].network_.Get());
    std::fprintf(ip, "link set p%zu master br0 up\n", i);
  }
  if (::pclose(ip) != 0) return "the program ip (Debian package iproute2) made no bridge";
  for (std::size_t i = 0; i < machines_.size(); ++i) {
    {
      const Inside machine(machines_[i]);
      Raise("lo");
      Raise("eth0");
    }
    machines_[i].SetAddress(kNetwork + std::to_string(i + 1));
  }
  for (const Machine& machine : machines_) AwaitCarrier(machine.port_.c_str());
  return {};
}

}  // namespace vox::test
