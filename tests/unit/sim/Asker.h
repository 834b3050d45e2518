// Asker asks an SNMP agent for its name with a datagram that is put together here, and tells where
// the answers come from.
#pragma once

#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "tests/unit/sim/ScriptedHost.h"

namespace vox::sim {

// GET of the device's name, community "public", request 5.
inline const Bytes kGetName = {0x30, 0x26, 0x02, 0x01, 0x00, 0x04, 0x06, 'p',  'u',  'b',
                               'l',  'i',  'c',  0xA0, 0x19, 0x02, 0x01, 0x05, 0x02, 0x01,
                               0x00, 0x02, 0x01, 0x00, 0x30, 0x0E, 0x30, 0x0C, 0x06, 0x08,
                               0x2B, 0x06, 0x01, 0x02, 0x01, 0x01, 0x05, 0x00, 0x05, 0x00};
inline constexpr std::size_t kIdPlace = 17;

class Asker {
 public:
  Asker() : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const int on = 1;
    EXPECT_EQ(::setsockopt(socket_.Get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on), 0);
  }
  void Ask(const std::string& address, std::uint16_t port) {
    sockaddr_in to = At(address, port);
    EXPECT_EQ(::sendto(socket_.Get(), kGetName.data(), kGetName.size(), 0,
                       reinterpret_cast<sockaddr*>(&to), sizeof to),
              static_cast<ssize_t>(kGetName.size()));
  }
  // Take gives the next answer, empty when none comes; Sender() says where it came from.
  Bytes Take(std::chrono::milliseconds patience = kPatience) {
    const timeval wait{patience.count() / 1000, patience.count() % 1000 * 1000};
    ::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    Bytes bytes(2000);
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t got = ::recvfrom(socket_.Get(), bytes.data(), bytes.size(), 0,
                                   reinterpret_cast<sockaddr*>(&from), &size);
    bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    char text[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
    sender_ = got < 0 ? "nobody" : text;
    port_ = ntohs(from.sin_port);
    return bytes;
  }
  const std::string& Sender() const { return sender_; }
  std::uint16_t SenderPort() const { return port_; }

 private:
  static sockaddr_in At(const std::string& address, std::uint16_t port) {
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    EXPECT_EQ(::inet_pton(AF_INET, address.c_str(), &at.sin_addr), 1);
    return at;
  }
  FileDescriptor socket_;
  std::string sender_;
  std::uint16_t port_ = 0;
};

}  // namespace vox::sim
