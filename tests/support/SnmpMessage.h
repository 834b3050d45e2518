// SNMP messages in tests: Message holds a record to be built by the codec; the functions below it
// write the same bytes by hand, so that a test can say what no correct peer would.
#pragma once

#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Hex.h"
#include "vox/drivers/net/NetworkComm/wnxsnmp.h"

namespace vox::test {

struct FreePdu {
  void operator()(snmp_pdu* pdu) const { free_snmp_pdu(pdu); }
};
using PduOwner = std::unique_ptr<snmp_pdu, FreePdu>;

using Arcs = std::vector<std::uint32_t>;

inline const Arcs kSysName = {1, 3, 6, 1, 2, 1, 1, 5, 0};
inline const Arcs kIso3 = {1, 3};  // one octet on the wire

// GetRequest of sysName, community "public", request-id 1.
inline const Bytes kGetRequest =
    Hex("30 82 00 28 02 01 00 04 06 70 75 62 6C 69 63 A0 1B 02 01 01 02 01 00 02 01 00 "
        "30 10 30 82 00 0C 06 08 2B 06 01 02 01 01 05 00 05 00");

inline PduOwner Parse(const Bytes& message, std::uint32_t sender = 0) {
  // An exact-size heap block lets the sanitizers see any read past the message.
  const Bytes block(message);
  return PduOwner(snmp_parse(block.data(), Size(block), sender));
}

template <typename number>
Bytes Memory(number value) {
  Bytes bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

inline Bytes MemoryOf(const Arcs& arcs) {
  Bytes bytes;
  for (const std::uint32_t arc : arcs) bytes = bytes + Memory(arc);
  return bytes;
}

class Message {
 public:
  explicit Message(std::uint8_t command) {
    pdu_.byCommand = command;
    Community("public").Id(1);
  }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  Message& Community(const std::string& community) {
    community_ = community;
    pdu_.pcComName = community_.data();
    pdu_.nComnameLen = static_cast<std::int32_t>(community_.size());
    return *this;
  }
  Message& Id(std::int32_t id) {
    pdu_.nReqID = id;
    return *this;
  }
  Message& Binding(const Arcs& arcs, std::uint8_t tag, const Bytes& value = {}) {
    arcs_.push_back(arcs);
    values_.push_back(value);
    bindings_.push_back({});
    snmp_val_list& binding = bindings_.back();
    binding.pdwOid = arcs_.back().data();
    binding.nOidLen = static_cast<std::int32_t>(arcs.size());
    binding.byDataType = tag;
    binding.uniVal.pbyData = value.empty() ? nullptr : values_.back().data();
    binding.nValSize = Size(value);
    if (bindings_.size() == 1) {
      pdu_.lpSnmpValList = &binding;
    } else {
      bindings_[bindings_.size() - 2].lpNextSnmpValList = &binding;
    }
    return *this;
  }
  snmp_pdu& Record() { return pdu_; }
  snmp_val_list& LastBinding() { return bindings_.back(); }

  // Built gives the message, or nothing when it is refused; `capacity` is that of the buffer.
  Bytes Built(std::int32_t capacity = 1536) const {
    Bytes buffer(static_cast<std::size_t>(capacity));
    std::int32_t length = capacity;
    if (snmp_build(&pdu_, buffer.data(), &length) != 0) return {};
    buffer.resize(static_cast<std::size_t>(length));
    return buffer;
  }

 private:
  snmp_pdu pdu_{};
  std::string community_;
  std::deque<Arcs> arcs_;
  std::deque<Bytes> values_;
  std::deque<snmp_val_list> bindings_;
};

struct FreeSimple {
  void operator()(snmp_simple_pdu* pdu) const { WNXSNMP_FreeSnmpSimplePdu(1, pdu); }
};
using SimpleOwner = std::unique_ptr<snmp_simple_pdu, FreeSimple>;

// Asking gives a flat record of one value.
inline SimpleOwner Asking(const std::string& oid, const std::string& community = "",
                          std::uint8_t command = 0xA0) {
  SimpleOwner simple(WNXSNMP_MallocSnmpSimplePdu(1, 1));
  simple->byCommand = command;
  std::strcpy(simple->szComName, community.c_str());
  std::strcpy(simple->lpSnmpSimpleVal[0].szOid, oid.c_str());
  return simple;
}

// ---- by hand

inline Bytes Item(std::uint8_t tag, const Bytes& contents) {
  const auto size = contents.size();
  const auto high = static_cast<std::uint8_t>(size >> 8), low = static_cast<std::uint8_t>(size);
  if (size < 128) return Bytes{tag, low} + contents;
  return Bytes{tag, 0x82, high, low} + contents;
}
inline Bytes Text(const std::string& text) {
  return Bytes(text.begin(), text.end());
}
inline Bytes Integer(std::uint8_t value) {
  return Item(0x02, {value});
}

inline const Bytes kSysNameItem = Hex("06 08 2B 06 01 02 01 01 05 00");

inline Bytes BindingItem(const Bytes& oid, const Bytes& value) {
  return Item(0x30, oid + value);
}

// MessageItem is a whole message of version 1 with a PDU of the tag and contents given.
inline Bytes MessageItem(std::uint8_t pdu, const Bytes& contents, const Bytes& version = Integer(0),
                         const Bytes& community = Item(0x04, Text("public"))) {
  return Item(0x30, version + community + Item(pdu, contents));
}
inline Bytes Response(const Bytes& bindings, std::uint8_t status = 0, std::uint8_t index = 0) {
  return MessageItem(0xA2, Integer(1) + Integer(status) + Integer(index) + Item(0x30, bindings));
}
inline Bytes NameResponse(const std::string& name) {
  return Response(BindingItem(kSysNameItem, Item(0x04, Text(name))));
}
// An answer whose OID, as text, is longer than a flat record holds.
inline const Bytes kLongOidResponse =
    Response(BindingItem(Item(0x06, Bytes{0x2B} + Bytes(130, 0x7F)), Hex("04 01 61")));

}  // namespace vox::test
