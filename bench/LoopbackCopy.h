// The peer of everything that goes over TCP here: the same bytes from one socket to another on
// loopback, sent and received in pieces of 64 KiB, and nothing else.
//
// Thread rule: the calling thread receives; the sender is a thread of its own.
#pragma once

#include <cstdint>
#include <span>

#include "tests/support/TcpPeer.h"

namespace vox::bench {

// Carry sends `page` from one end and receives it at the other, which two connected ends or
// something between them join. False: not all of it came, or the last piece came with other bytes.
bool Carry(test::TcpPeer& from, test::TcpPeer& to, std::span<const std::uint8_t> page);

// CopyOverLoopback carries `page` over a connection that is made for it.
bool CopyOverLoopback(std::span<const std::uint8_t> page);

}  // namespace vox::bench
