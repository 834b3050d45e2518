#include "tools/vox/NetworkName.h"

#include <memory>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

constexpr char kPrefix[] = "net:";

Failure NobodyBears(const std::string& host) {
  return Failure(ExitStatus::kCannot, "nobody bears the name " + CleanText(host) +
                                          "; check the spelling, or give the dotted address");
}

}  // namespace

bool IsNetworkName(const std::string& device) {
  return device.rfind(kPrefix, 0) == 0;
}

bool IsDottedAddress(const std::string& text) {
  in_addr address{};
  return ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

std::string NetworkAddress(const std::string& device) {
  std::string host = IsNetworkName(device) ? device.substr(sizeof kPrefix - 1) : device;
  if (IsDottedAddress(host)) return host;
  if (host.empty()) throw UsageFailure("net: wants an address, as in net:192.168.0.5");
  addrinfo hints{}, *found = nullptr;
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_DGRAM;
  if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) throw NobodyBears(host);
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> list(found, ::freeaddrinfo);
  char text[NI_MAXHOST];
  if (::getnameinfo(list->ai_addr, list->ai_addrlen, text, sizeof text, nullptr, 0,
                    NI_NUMERICHOST) != 0)
    throw NobodyBears(host);
  return text;
}

}  // namespace vox::cli
