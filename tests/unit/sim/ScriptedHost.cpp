#include "tests/unit/sim/ScriptedHost.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cstdio>

namespace vox::sim {
namespace {

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

const sockaddr* Plain(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

std::string TextOf(const sockaddr_in& address) {
  char text[INET_ADDRSTRLEN] = "";
  ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  return text;
}

bool WaitFor(int fd, std::chrono::milliseconds patience) {
  pollfd entry{fd, POLLIN, 0};
  return ::poll(&entry, 1, static_cast<int>(patience.count())) == 1;
}

}  // namespace

Bytes Packet(std::uint16_t sequence_id, std::uint8_t application, std::uint8_t command,
             const Bytes& parameters) {
  Bytes packet = {'M', 'F', 'P', 'P', '0', '2', '0', '0', 'M', 'L', '0', '1'};
  packet.push_back(static_cast<std::uint8_t>(sequence_id >> 8));
  packet.push_back(static_cast<std::uint8_t>(sequence_id & 0xFF));
  packet.push_back(application);
  packet.push_back(command);
  packet.push_back(static_cast<std::uint8_t>(parameters.size()));
  packet.insert(packet.end(), {0, 0, 0});
  packet.insert(packet.end(), parameters.begin(), parameters.end());
  return packet;
}

Bytes Notice(std::uint16_t sequence_id, std::uint8_t code, const Bytes& job) {
  return Packet(sequence_id, 0x32, code, job);
}

std::string Hex(const Bytes& bytes) {
  std::string text;
  char pair[4];
  for (const std::uint8_t byte : bytes) {
    std::snprintf(pair, sizeof pair, "%02X ", byte);
    text += pair;
  }
  if (!text.empty()) text.pop_back();
  return text;
}

bool Connection::WaitReadable(std::chrono::milliseconds patience) {
  return WaitFor(socket_.Get(), patience);
}

Bytes Connection::Read(std::size_t n, std::chrono::milliseconds patience) {
  Bytes bytes(n);
  std::size_t got = 0;
  while (got < n && WaitReadable(patience)) {
    const ssize_t count = ::recv(socket_.Get(), bytes.data() + got, n - got, 0);
    if (count <= 0) break;
    got += static_cast<std::size_t>(count);
  }
  bytes.resize(got);
  return bytes;
}

Bytes Connection::ReadToEnd(bool* ended) {
  Bytes bytes;
  std::array<std::uint8_t, 65536> piece;
  ssize_t count = -1;
  while (WaitReadable(kPatience)) {
    count = ::recv(socket_.Get(), piece.data(), piece.size(), 0);
    if (count <= 0) break;
    bytes.insert(bytes.end(), piece.begin(), piece.begin() + count);
  }
  if (ended != nullptr) *ended = count == 0;
  return bytes;
}

bool Connection::IsSilent() {
  return socket_ && !WaitReadable(kMoment);
}

void Connection::Write(std::uint8_t byte) {
  EXPECT_EQ(::send(socket_.Get(), &byte, 1, MSG_NOSIGNAL), 1);
}

std::string Connection::PeerAddress() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ::getpeername(socket_.Get(), reinterpret_cast<sockaddr*>(&address), &size);
  return TextOf(address);
}

ScriptedHost::ScriptedHost(VirtualDevice& device)
    : device_(device),
      datagrams_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in any = Loopback(0);
  EXPECT_EQ(::bind(listener_.Get(), Plain(any), sizeof any), 0);
  EXPECT_EQ(::listen(listener_.Get(), 16), 0);
  sockaddr_in bound{};
  socklen_t size = sizeof bound;
  ::getsockname(listener_.Get(), reinterpret_cast<sockaddr*>(&bound), &size);
  device.SetJobServerPort(ntohs(bound.sin_port));
}

void ScriptedHost::Send(const Bytes& datagram) {
  sockaddr_in to = Loopback(device_.CommandPort());
  ::inet_pton(AF_INET, device_.Address().c_str(), &to.sin_addr);
  EXPECT_EQ(::sendto(datagrams_.Get(), datagram.data(), datagram.size(), 0, Plain(to), sizeof to),
            static_cast<ssize_t>(datagram.size()));
}

Bytes ScriptedHost::Receive(std::chrono::milliseconds patience) {
  if (!WaitFor(datagrams_.Get(), patience)) return {};
  Bytes reply(65536);
  sockaddr_in from{};
  socklen_t size = sizeof from;
  const ssize_t got = ::recvfrom(datagrams_.Get(), reply.data(), reply.size(), 0,
                                 reinterpret_cast<sockaddr*>(&from), &size);
  reply.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  last_sender_ = TextOf(from);
  return reply;
}

Bytes ScriptedHost::Exchange(const Bytes& datagram) {
  Send(datagram);
  return Receive();
}

Bytes ScriptedHost::ScanCommand(const ScanInfo& request, std::uint16_t sequence_id) const {
  const auto block = BuildScanInfo(request);
  return Packet(sequence_id, 0x32, 0x41, {block.begin(), block.end()});
}

Bytes ScriptedHost::StartJob(const ScanInfo& request, std::uint16_t sequence_id) {
  const Bytes reply = Exchange(ScanCommand(request, sequence_id));
  EXPECT_EQ(reply.size(), 28u) << Hex(reply);
  if (reply.size() != 28) return Bytes(8);
  EXPECT_EQ(reply[15], 0x43) << Hex(reply);
  return {reply.begin() + 20, reply.end()};
}

void ScriptedHost::RequestPage(const Bytes& job, std::uint16_t sequence_id) {
  Send(Packet(sequence_id, 0x32, 0x62, job));
}

Bytes ScriptedHost::Cancel(const Bytes& job) {
  return Exchange(Packet(0x4321, 0x32, 0x51, job));
}

Connection ScriptedHost::Accept(std::chrono::milliseconds patience) {
  if (!WaitFor(listener_.Get(), patience)) return Connection(FileDescriptor());
  return Connection(FileDescriptor(::accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
}

Connection ScriptedHost::OpenPage(const Bytes& job, std::uint16_t sequence_id, ScanInfo* info) {
  RequestPage(job, sequence_id);
  Connection data = Accept();
  EXPECT_TRUE(data) << "no data channel";
  EXPECT_EQ(Hex(data.Read(28)), Hex(Notice(sequence_id, 0x80, job)));
  data.Write(0x01);
  const Bytes block = data.Read(128);
  const auto parsed = ParseScanInfo(block);
  EXPECT_TRUE(parsed) << block.size() << " bytes of scan information";
  if (parsed && info != nullptr) *info = *parsed;
  return data;
}

std::uint8_t ScriptedHost::TakeEnd(const Bytes& job, std::uint16_t sequence_id) {
  Connection end = Accept();
  EXPECT_TRUE(end) << "no end channel";
  if (!end) return 0;
  const Bytes notice = end.Read(28);
  EXPECT_EQ(notice.size(), 28u);
  if (notice.size() != 28) return 0;
  EXPECT_EQ(Hex(notice), Hex(Notice(sequence_id, notice[15], job)));
  end.Write(0x00);
  EXPECT_TRUE(end.Read(1).empty());  // the device closes
  return notice[15];
}

ScriptedHost::Page ScriptedHost::TakePage(const Bytes& job, std::uint16_t sequence_id) {
  Page page;
  Connection data = OpenPage(job, sequence_id, &page.info);
  page.data = data.ReadToEnd();
  page.end_code = TakeEnd(job, sequence_id);
  return page;
}

ScanInfo SmallRequest(std::uint32_t data_type) {
  ScanInfo request;
  request.data_type = data_type;
  request.x_resolution = request.y_resolution = 100;
  request.x_extent = 64;
  request.y_extent = 40;
  request.encode_type = 1;
  return request;
}

}  // namespace vox::sim
