// An SNMP agent made of the library's own codec, for net-snmp's tools to query.
#pragma once

#include <map>

#include "tests/support/SnmpMessage.h"
#include "tests/support/UdpPeer.h"

namespace vox::test {

struct Object {
  std::uint8_t tag;
  Bytes value;  // as a record holds it in memory
};
using Objects = std::map<Arcs, Object>;

// TestAgent answers GET and GETNEXT from its objects and lets SET replace those that exist.
class TestAgent {
 public:
  explicit TestAgent(Objects objects);
  std::uint16_t Port() const { return peer_.Port(); }
  // Asked gives the only request so far.
  Bytes Asked();

 private:
  Answers Serve(const Bytes& request);

  Objects objects_;  // the peer's thread alone
  UdpPeer peer_;
};

}  // namespace vox::test
