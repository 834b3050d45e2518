// An event of the emulated bus goes to every program that listens. umockdev 0.17 finds the
// listeners by their sockets' files, and ends the process (abort) when one of them lets go of its
// socket between being found and being sent to. A real bus does not mind who has stopped listening.
// So the process that carries the bus sends by these two: to a Unix datagram socket that nobody
// holds any more a message counts as sent, and one whose file is gone refuses, which umockdev takes
// for what it is.
#include "sim/usbbus/MonitorSend.h"

#include <cerrno>
#include <cstddef>

#include <dlfcn.h>
#include <sys/socket.h>

namespace vox::sim {
namespace {

using SendMessage = decltype(&::sendmsg);
using Connect = decltype(&::connect);

// Those of the system, or of a sanitizer before it.
SendMessage NextSendMessage() {
  static const auto next = reinterpret_cast<SendMessage>(::dlsym(RTLD_NEXT, "sendmsg"));
  return next;
}
Connect NextConnect() {
  static const auto next = reinterpret_cast<Connect>(::dlsym(RTLD_NEXT, "connect"));
  return next;
}

ssize_t LengthOf(const msghdr& message) {
  std::size_t length = 0;
  for (std::size_t i = 0; i < message.msg_iovlen; ++i) length += message.msg_iov[i].iov_len;
  return static_cast<ssize_t>(length);
}

bool IsUnixDatagramSocket(int socket) {
  const int error = errno;
  int domain = 0, type = 0;
  socklen_t domain_size = sizeof domain, type_size = sizeof type;
  const bool is = ::getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &domain, &domain_size) == 0 &&
                  domain == AF_UNIX &&
                  ::getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &type_size) == 0 &&
                  type == SOCK_DGRAM;
  errno = error;
  return is;
}

}  // namespace

bool SendsToMonitorsThatAreGone() {
  return NextSendMessage() != nullptr && NextConnect() != nullptr;
}

}  // namespace vox::sim

extern "C" {

__attribute__((visibility("default"))) ssize_t sendmsg(int socket, const msghdr* message,
                                                       int flags) {
  const ssize_t sent = vox::sim::NextSendMessage()(socket, message, flags);
  if (sent >= 0 || errno != ECONNREFUSED || !vox::sim::IsUnixDatagramSocket(socket)) return sent;
  return vox::sim::LengthOf(*message);
}

__attribute__((visibility("default"))) int connect(int socket, const sockaddr* address,
                                                   socklen_t size) {
  const int result = vox::sim::NextConnect()(socket, address, size);
  if (result != 0 && errno == ENOENT && vox::sim::IsUnixDatagramSocket(socket))
    errno = ECONNREFUSED;
  return result;
}
}
