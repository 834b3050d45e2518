#include "bench/LoopbackCopy.h"

#include <algorithm>
#include <cstddef>
#include <thread>
#include <vector>

#include <sys/socket.h>

namespace vox::bench {
namespace {

constexpr std::size_t kPiece = 64 * 1024;

void SendAll(int socket, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket, bytes.data(), std::min(bytes.size(), kPiece), MSG_NOSIGNAL);
    if (sent <= 0) return;
    bytes = bytes.subspan(static_cast<std::size_t>(sent));
  }
}

// Every piece is looked at where it begins and ends.
bool ReceiveAll(int socket, std::span<const std::uint8_t> expected) {
  std::vector<std::uint8_t> piece(kPiece);
  while (!expected.empty()) {
    const ssize_t got = ::recv(socket, piece.data(), std::min(expected.size(), kPiece), 0);
    if (got <= 0) return false;
    const auto size = static_cast<std::size_t>(got);
    if (piece[0] != expected[0] || piece[size - 1] != expected[size - 1]) return false;
    expected = expected.subspan(size);
  }
  return true;
}

}  // namespace

bool Carry(test::TcpPeer& from, test::TcpPeer& to, std::span<const std::uint8_t> page) {
  std::thread sender([&] { SendAll(from.Socket(), page); });
  const bool came = ReceiveAll(to.Socket(), page);
  if (!came) to.Close();  // so that the sender ends
  sender.join();
  return came;
}

bool CopyOverLoopback(std::span<const std::uint8_t> page) {
  test::TcpListener door;
  test::TcpPeer from = test::TcpPeer::Connect(door.Port());
  test::TcpPeer to = door.Accept();
  return from.IsOpen() && to.IsOpen() && Carry(from, to, page);
}

}  // namespace vox::bench
