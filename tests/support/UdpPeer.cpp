#include "tests/support/UdpPeer.h"

#include <stdexcept>

#include <arpa/inet.h>
#include <sys/socket.h>

namespace vox::test {
namespace {

sockaddr_in AddressOf(const char* address, std::uint16_t port) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  if (inet_pton(AF_INET, address, &to.sin_addr) != 1) throw std::runtime_error(address);
  return to;
}

FileDescriptor BoundSocket(const char* address, std::uint16_t port) {
  FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in to = AddressOf(address, port);
  if (::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
    throw std::runtime_error(std::string("cannot bind ") + address);
  }
  return socket;
}

}  // namespace

UdpPeer::UdpPeer(Script script, const char* address, std::uint16_t port, bool endless)
    : script_(std::move(script)), endless_(endless), socket_(BoundSocket(address, port)) {
  sockaddr_in bound{};
  socklen_t length = sizeof bound;
  ::getsockname(socket_.Get(), reinterpret_cast<sockaddr*>(&bound), &length);
  port_ = ntohs(bound.sin_port);
  thread_ = std::thread([this] { Run(); });
}

UdpPeer::~UdpPeer() {
  stop_.Raise();
  thread_.join();
}

std::vector<Bytes> UdpPeer::Requests() {
  const MutexLock lock(mutex_);
  return requests_;
}

std::vector<Bytes> UdpPeer::AwaitRequests(std::size_t count) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  MutexLock lock(mutex_);
  while (requests_.size() < count && arrived_.WaitUntil(lock, deadline)) {
  }
  return requests_;
}

bool UdpPeer::IsStopped(std::chrono::milliseconds wait) const {
  pollfd entry{stop_.Get(), POLLIN, 0};
  return ::poll(&entry, 1, static_cast<int>(wait.count())) > 0;
}

void UdpPeer::Run() {
  for (;;) {
    pollfd entries[] = {{socket_.Get(), POLLIN, 0}, {stop_.Get(), POLLIN, 0}};
    if (::poll(entries, 2, -1) < 0) continue;
    if (entries[1].revents) return;
    Bytes request(65536);
    sockaddr_in client{};
    socklen_t length = sizeof client;
    const ssize_t got = ::recvfrom(socket_.Get(), request.data(), request.size(), 0,
                                   reinterpret_cast<sockaddr*>(&client), &length);
    if (got < 0) continue;
    request.resize(static_cast<std::size_t>(got));
    {
      const MutexLock lock(mutex_);
      requests_.push_back(request);
      arrived_.NotifyAll();
    }
    const Answers answers = script_(request);
    do {
      Reply(answers, client);
    } while (endless_ && !IsStopped(std::chrono::milliseconds(0)));
  }
}

void UdpPeer::Reply(const Answers& answers, const sockaddr_in& client) {
  for (const Answer& answer : answers) {
    if (answer.after.count() > 0 && IsStopped(answer.after)) return;
    const FileDescriptor other = answer.from ? BoundSocket(answer.from, 0) : FileDescriptor();
    ::sendto(other ? other.Get() : socket_.Get(), answer.bytes.data(), answer.bytes.size(), 0,
             reinterpret_cast<const sockaddr*>(&client), sizeof client);
  }
}

}  // namespace vox::test
