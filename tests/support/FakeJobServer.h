// A job server and the device behind it, as a script: the test takes a scan's channels one after
// the other and says on them what the device would say, in lock-step with the scan.
//
//   FakeJobServer server;                              it holds the lock file of VOX_ROOT
//   FakeChannel data = server.TakeChannel();           registered and accepted
//   data.OpenPage(info);                               notice, awaits 0x01, 128 bytes
//   data.peer.Send(lines);
//   FakeChannel end = server.TakeChannel();
//   EXPECT_EQ(end.EndPage(0x00), Bytes{0x00});         notice, the scan's answer
//
// Every wait ends after five seconds, which only a failing test sees.
// Thread rule: each object belongs to one thread.
#pragma once

#include <cstdint>

#include "tests/support/TcpPeer.h"
#include "vox/drivers/ScanRecords.h"

namespace vox::test {

// FakeChannel is the other end of one channel of a scan.
struct FakeChannel {
  TcpPeer peer;
  Bytes registration;  // 15 bytes; fewer: none came

  // Notice gives the 28 bytes that begin a channel, for the job that has registered.
  Bytes Notice(std::uint8_t command) const;

  // OpenPage sends the start notice, awaits the scan's 0x01 and sends the page's information.
  // False when the scan did not answer 0x01.
  bool OpenPage(const _SCANINFO& info);

  // EndPage sends an end notice and gives the scan's answer: one byte, none when it closed.
  Bytes EndPage(std::uint8_t command);
};

class FakeJobServer {
 public:
  FakeJobServer();
  ~FakeJobServer();
  FakeJobServer(const FakeJobServer&) = delete;
  FakeJobServer& operator=(const FakeJobServer&) = delete;

  std::uint16_t Port() const { return door_.Port(); }

  // AwaitChannel takes a connection and its registration, and leaves the answer to the test.
  FakeChannel AwaitChannel();

  // TakeChannel answers too: 0 accepts.
  FakeChannel TakeChannel(std::uint8_t answer = 0);

 private:
  TcpListener door_;
  int lock_ = -1;
};

// WireInfo gives the 128 bytes of a page's information.
Bytes WireInfo(const _SCANINFO& info);

}  // namespace vox::test
