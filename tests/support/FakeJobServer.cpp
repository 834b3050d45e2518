#include "tests/support/FakeJobServer.h"

#include <cstring>
#include <string_view>

#include "vox/drivers/net/bonjour.h"

namespace vox::test {
namespace {

constexpr std::size_t kRegistrationSize = 15;
constexpr std::uint8_t kPageNotice = 0x80;

}  // namespace

Bytes FakeChannel::Notice(std::uint8_t command) const {
  constexpr std::string_view kText = "MFPP0200ML01";
  Bytes notice(kText.begin(), kText.end());
  Bytes from = registration;
  from.resize(kRegistrationSize);
  notice.insert(notice.end(), {from[13], from[14], 0x32, command, 8, 0, 0, 0});
  notice.insert(notice.end(), from.begin() + 5, from.begin() + 13);
  return notice;
}

bool FakeChannel::OpenPage(const _SCANINFO& info) {
  return peer.Send(Notice(kPageNotice)) && peer.Receive(1) == Bytes{0x01} &&
         peer.Send(WireInfo(info));
}

Bytes FakeChannel::EndPage(std::uint8_t command) {
  peer.Send(Notice(command));
  return peer.Receive(1);
}

FakeJobServer::FakeJobServer()
    : lock_(bonjour_register("vox", kScannerServiceType, door_.Port())) {}

FakeJobServer::~FakeJobServer() {
  bonjour_unregister(lock_);
}

FakeChannel FakeJobServer::AwaitChannel() {
  FakeChannel channel{door_.Accept(), {}};
  if (channel.peer.IsOpen()) channel.registration = channel.peer.Receive(kRegistrationSize);
  return channel;
}

FakeChannel FakeJobServer::TakeChannel(std::uint8_t answer) {
  FakeChannel channel = AwaitChannel();
  if (channel.peer.IsOpen()) channel.peer.SendByte(answer);
  return channel;
}

Bytes WireInfo(const _SCANINFO& info) {
  _SCANINFO wire{};
  scaninfo2le(&wire, &info);
  Bytes bytes(sizeof wire);
  std::memcpy(bytes.data(), &wire, sizeof wire);
  return bytes;
}

}  // namespace vox::test
