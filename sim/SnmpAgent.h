// SnmpAgent answers SNMP version 1 requests (RFC 1157): GET, GETNEXT and SET over an ordered map of
// objects. It holds no socket: a datagram in, a datagram out.
//
// Thread rule: an SnmpAgent belongs to one thread; so do the reads and writes that it calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>

#include "sim/Ber.h"

namespace vox::sim {

// A value as it stands in a message: its tag and its BER contents.
struct MibValue {
  std::uint8_t tag = kBerNull;
  Bytes contents;
  bool operator==(const MibValue&) const = default;
};
MibValue IntegerValue(std::int32_t value);
MibValue TextValue(const std::string& text);

struct MibObject {
  std::function<MibValue()> read;
  // check says whether a value may be written; absent: the object is read-only.
  std::function<bool(const MibValue&)> check;
  std::function<void(const MibValue&)> write;
};

class SnmpAgent {
 public:
  static constexpr std::size_t kMaxMessage = 1472;  // one Ethernet frame; more is tooBig

  explicit SnmpAgent(std::string community) : community_(std::move(community)) {}

  // Add places an object; the text is dotted and well-formed.
  void Add(const std::string& oid, MibObject object);
  // Remove takes an object away, if it is there.
  void Remove(const std::string& oid);

  // Answer gives the response; nothing for what is no SNMPv1 request of this community, which
  // RFC 1157 4.1 has dropped in silence.
  std::optional<Bytes> Answer(std::span<const std::uint8_t> datagram) const;

 private:
  struct Binding {
    Oid oid;
    MibValue value;
  };
  struct Message;
  struct Result;
  using Objects = std::map<Oid, MibObject>;

  static std::optional<Message> Parse(std::span<const std::uint8_t> datagram);
  static std::optional<Binding> ParseBinding(ByteReader& list);
  static Bytes Build(const Message& message);
  Result Run(Message& message) const;
  Result Get(Message& message) const;
  Result GetNext(Message& message) const;
  Result Set(const Message& message) const;

  std::string community_;
  Objects objects_;
};

}  // namespace vox::sim
