// The socket of the liveness probe, and the probe itself over any such socket, so that it meets the
// kernel in a program and a script in tests. Inside the library only.
//
// Thread rule: one thread at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "vox/drivers/net/searchping.h"

namespace vox {

enum PING_RECEIVED : int {
  PING_RECEIVED_REPLY,
  PING_RECEIVED_NOTHING,  // in PING_RECEIVE_MS, or nothing that is a reply
  PING_RECEIVED_FAILURE,
};

class CPingSocket {
 public:
  virtual ~CPingSocket() = default;
  // send sends a packet to an address (network byte order); whether the system took it.
  virtual bool send(std::uint32_t address, const std::uint8_t (&packet)[PING_PACKET_SIZE]) = 0;
  // receive waits for one reply, whose sender is *address.
  virtual PING_RECEIVED receive(std::uint32_t* address) = 0;
  virtual std::chrono::steady_clock::time_point now() = 0;
};

// OpenPingSocket makes a socket of a type for ICMP, as socket(2) does.
using OpenPingSocket = int (*)(int type);

// open_ping_socket gives a datagram socket, or a raw one where the system forbids that; null where
// it forbids both, or for another reason. *error becomes the reason, an errno, or 0.
std::unique_ptr<CPingSocket> open_ping_socket(OpenPingSocket open_socket, int* error);

// filter_with_ping is filterWithNetworkPing over a socket.
DeviceInfoArray filter_with_ping(const DeviceInfoArray& devices, CancelDelegate* delegate,
                                 CPingSocket* socket);

}  // namespace vox
