// The liveness probe: ICMP echo requests (RFC 792) to many devices at once.
//
// The socket is of the datagram kind, which needs no privilege where the kernel's ping_group_range
// admits the user's group; else a raw one is tried, for which a privilege is needed.
// Thread rule: any thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vox/CancelDelegate.h"
#include "vox/DeviceDictionary.h"
#include "vox/platform/Export.h"

struct icmphdr;

namespace vox {

inline constexpr std::size_t PING_PACKET_SIZE = 64;  // bytes of a request, its header included
inline constexpr std::size_t PING_REPLY_SIZE = 80;   // bytes that are received of a reply
inline constexpr int PING_RECEIVE_MS = 100;          // of one receive
inline constexpr int PING_QUIET_MS = 1100;           // without a reply: the rest is off

// in_cksum gives the Internet checksum (RFC 1071) of bytes[0, length): the complement of the sum of
// big-endian words, an odd last byte being the high part of one. The result is a number; it goes
// into a packet with its high byte first. A negative length counts as 0.
VOX_EXPORT std::uint16_t in_cksum(const std::uint8_t* bytes, std::int32_t length);

// create_icmp makes an echo request with a random identifier and sequence number 0 of the header at
// the beginning of a packet of PING_PACKET_SIZE bytes, whose payload is the caller's.
// Returns: the packet's checksum, as in_cksum gives it.
VOX_EXPORT std::uint16_t create_icmp(icmphdr* header);

// filterWithNetworkPing gives the devices that answer an echo request at their "ip", in the order
// given; a device without one does not answer. It ends when all have answered, or 1.1 s after the
// last that did.
// delegate: asked before each request, each reply and every 0.1 s; when it is cancelled, those that
//           have answered are the result. May be null.
// Returns: nothing when no echo request can be sent; network_ping_access tells why.
VOX_EXPORT DeviceInfoArray filterWithNetworkPing(const DeviceInfoArray& devices,
                                                 CancelDelegate* delegate);

// PING_ACCESS is whether this process can send echo requests now.
enum PING_ACCESS : int {
  PING_ACCESS_PERMITTED,
  PING_ACCESS_FORBIDDEN,       // the system lets it have neither kind of socket
  PING_ACCESS_NO_DESCRIPTORS,  // it, or the machine, has no descriptor left
  PING_ACCESS_FAILED,          // anything else, want of memory among it
};

// network_ping_access finds out by opening a socket for them. Where they cannot be sent, devices
// can only be asked over SNMP. network_ping_permitted is whether they can.
VOX_EXPORT PING_ACCESS network_ping_access();
VOX_EXPORT bool network_ping_permitted();

}  // namespace vox
