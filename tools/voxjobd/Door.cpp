#include "tools/voxjobd/Door.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

constexpr int kAcceptsAtOnce = 64;  // then the other connections get their turn

FileDescriptor Listen(const sockaddr_in& address) {
  FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const int on = 1;
  if (!socket) return {};
  // A server that follows another one finds the port still marked by connections that ended.
  ::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  if (::bind(socket.Get(), generic, sizeof address) != 0) return {};
  if (::listen(socket.Get(), SOMAXCONN) != 0) return {};
  return socket;
}

// A connection that was gone before it was accepted, or a signal: the next one may be had at once.
bool IsPassing(int error) {
  return error == ECONNABORTED || error == EPROTO || error == EINTR;
}

}  // namespace

Door::Door(Poller& poller, std::chrono::milliseconds pause, OnVisit on_visit)
    : poller_(poller), pause_(pause), on_visit_(std::move(on_visit)) {}

bool Door::Open(const std::string& address, std::uint16_t port) {
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_port = htons(port);
  if (::inet_pton(AF_INET, address.c_str(), &place.sin_addr) != 1) {
    errno = EINVAL;
    return false;
  }
  socket_ = Listen(place);
  if (!socket_) return false;
  socklen_t size = sizeof place;
  ::getsockname(socket_.Get(), reinterpret_cast<sockaddr*>(&place), &size);
  port_ = ntohs(place.sin_port);
  return poller_.Add(socket_.Get(), EPOLLIN, this);
}

void Door::Close() {
  if (!socket_) return;
  poller_.Remove(socket_.Get(), this);
  socket_.Reset();
  opens_again_.reset();
}

bool Door::SomebodyKnocks() const {
  pollfd entry{socket_.Get(), POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1;
}

void Door::OnReady(std::uint32_t /*events*/) {
  for (int i = 0; i < kAcceptsAtOnce && AcceptOne(); ++i) {
  }
}

bool Door::AcceptOne() {
  sockaddr_in peer{};
  socklen_t size = sizeof peer;
  FileDescriptor socket(::accept4(socket_.Get(), reinterpret_cast<sockaddr*>(&peer), &size,
                                  SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (socket) {
    in_trouble_ = false;
    on_visit_(std::move(socket), ntohl(peer.sin_addr.s_addr));
    return static_cast<bool>(socket_);
  }
  if (IsPassing(errno)) return true;
  if (errno != EAGAIN && errno != EWOULDBLOCK) Pause(errno);
  return false;
}

// Once a trouble is logged, it is not logged again before a connection was accepted.
void Door::Pause(int error) {
  if (!in_trouble_) {
    LogToSystem("voxjobd: port %d cannot accept connections for now: %s", port_,
                std::generic_category().message(error).c_str());
  }
  in_trouble_ = true;
  poller_.Remove(socket_.Get(), this);
  opens_again_ = Poller::Clock::now() + pause_;
}

void Door::Tick(Poller::Clock::time_point now) {
  if (!opens_again_ || now < *opens_again_) return;
  if (poller_.Add(socket_.Get(), EPOLLIN, this)) {
    opens_again_.reset();
  } else {
    opens_again_ = now + pause_;
  }
}

}  // namespace vox
