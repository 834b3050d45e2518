#include "tools/voxjobd/Visitor.h"

#include <cerrno>
#include <utility>

#include <sys/socket.h>

namespace vox {

Visitor::Visitor(Kind kind, FileDescriptor socket, std::uint32_t address, Poller& poller,
                 Owner& owner)
    : kind_(kind), address_(address), poller_(poller), owner_(owner), socket_(std::move(socket)) {}

Visitor::~Visitor() {
  Release();
}

bool Visitor::Listen() {
  return poller_.Add(socket_.Get(), EPOLLIN, this);
}

// Without any wish epoll still tells of resets and of connections that are closed both ways.
bool Visitor::Wait() {
  waiting_ = true;
  return poller_.Change(socket_.Get(), kind_ == Kind::kClient ? EPOLLRDHUP : 0u, this);
}

FileDescriptor Visitor::Release() {
  if (socket_) poller_.Remove(socket_.Get(), this);
  return std::move(socket_);
}

void Visitor::OnReady(std::uint32_t /*events*/) {
  if (waiting_) {
    owner_.OnGone(*this);
  } else {
    Collect();
  }
}

void Visitor::Collect() {
  const ssize_t got = ::recv(socket_.Get(), &bytes_[have_], Wanted() - have_, 0);
  if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return;
  if (got <= 0) return owner_.OnGone(*this);
  have_ += static_cast<std::size_t>(got);
  if (have_ == Wanted()) owner_.OnMessage(*this);
}

}  // namespace vox
