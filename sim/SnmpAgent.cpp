#include "sim/SnmpAgent.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

namespace vox::sim {
namespace {

// PDU tags, RFC 1157 4.1.
constexpr std::uint8_t kGetRequest = 0xA0;
constexpr std::uint8_t kGetNextRequest = 0xA1;
constexpr std::uint8_t kGetResponse = 0xA2;
constexpr std::uint8_t kSetRequest = 0xA3;

// error-status, RFC 1157 4.1.1.
constexpr std::int32_t kNoError = 0;
constexpr std::int32_t kTooBig = 1;
constexpr std::int32_t kNoSuchName = 2;
constexpr std::int32_t kBadValue = 3;

std::optional<std::int32_t> TakeInteger(ByteReader& reader) {
  const auto contents = TakeBerContents(reader, kBerInteger);
  if (!contents) return std::nullopt;
  return ParseBerInteger(*contents);
}

void AppendInteger(Bytes& out, std::int32_t value) {
  AppendBerItem(out, kBerInteger, BerIntegerContents(value));
}

}  // namespace

struct SnmpAgent::Message {
  std::string community;
  std::uint8_t pdu = 0;
  std::int32_t request_id = 0;
  std::int32_t error_status = kNoError;
  std::int32_t error_index = 0;
  std::vector<Binding> bindings;
};

struct SnmpAgent::Result {
  std::int32_t status = kNoError;
  std::size_t index = 0;  // of the binding at fault, from 1
};

MibValue IntegerValue(std::int32_t value) {
  return {kBerInteger, BerIntegerContents(value)};
}

MibValue TextValue(const std::string& text) {
  return {kBerOctetString, Bytes(text.begin(), text.end())};
}

void SnmpAgent::Add(const std::string& oid, MibObject object) {
  const auto arcs = ParseDottedOid(oid);
  if (!arcs) throw std::invalid_argument("not an object identifier: " + oid);
  objects_[*arcs] = std::move(object);
}

void SnmpAgent::Remove(const std::string& oid) {
  if (const auto arcs = ParseDottedOid(oid)) objects_.erase(*arcs);
}

std::optional<SnmpAgent::Binding> SnmpAgent::ParseBinding(ByteReader& list) {
  const auto contents = TakeBerContents(list, kBerSequence);
  if (!contents) return std::nullopt;
  ByteReader reader(contents->data(), contents->size());
  const auto name = TakeBerContents(reader, kBerOid);
  if (!name) return std::nullopt;
  const auto oid = ParseBerOid(*name);
  const auto value = TakeBerItem(reader);
  if (!oid || !value || reader.Left() != 0) return std::nullopt;
  return Binding{*oid, {value->tag, Bytes(value->contents.begin(), value->contents.end())}};
}

std::optional<SnmpAgent::Message> SnmpAgent::Parse(std::span<const std::uint8_t> datagram) {
  ByteReader outer(datagram.data(), datagram.size());
  const auto message = TakeBerContents(outer, kBerSequence);
  if (!message) return std::nullopt;
  ByteReader reader(message->data(), message->size());
  const auto version = TakeInteger(reader);
  if (!version || *version != 0) return std::nullopt;
  const auto community = TakeBerContents(reader, kBerOctetString);
  if (!community) return std::nullopt;
  const auto pdu = TakeBerItem(reader);
  if (!pdu) return std::nullopt;

  Message result;
  result.community.assign(community->begin(), community->end());
  result.pdu = pdu->tag;
  ByteReader fields(pdu->contents.data(), pdu->contents.size());
  const auto request_id = TakeInteger(fields);
  const auto status = TakeInteger(fields);
  const auto index = TakeInteger(fields);
  if (!request_id || !status || !index) return std::nullopt;
  result.request_id = *request_id;
  const auto list = TakeBerContents(fields, kBerSequence);
  if (!list) return std::nullopt;
  ByteReader bindings(list->data(), list->size());
  while (bindings.Left() > 0) {
    auto binding = ParseBinding(bindings);
    if (!binding) return std::nullopt;
    result.bindings.push_back(std::move(*binding));
  }
  return result;
}

Bytes SnmpAgent::Build(const Message& message) {
  Bytes list;
  for (const Binding& binding : message.bindings) {
    Bytes pair;
    AppendBerItem(pair, kBerOid, BerOidContents(binding.oid));
    AppendBerItem(pair, binding.value.tag, binding.value.contents);
    AppendBerItem(list, kBerSequence, pair);
  }
  Bytes fields;
  AppendInteger(fields, message.request_id);
  AppendInteger(fields, message.error_status);
  AppendInteger(fields, message.error_index);
  AppendBerItem(fields, kBerSequence, list);
  Bytes contents;
  AppendInteger(contents, 0);
  AppendBerItem(contents, kBerOctetString,
                Bytes(message.community.begin(), message.community.end()));
  AppendBerItem(contents, message.pdu, fields);
  Bytes out;
  AppendBerItem(out, kBerSequence, contents);
  return out;
}

SnmpAgent::Result SnmpAgent::Get(Message& message) const {
  for (std::size_t i = 0; i < message.bindings.size(); ++i) {
    Binding& binding = message.bindings[i];
    const auto object = objects_.find(binding.oid);
    if (object == objects_.end()) return {kNoSuchName, i + 1};
    binding.value = object->second.read();
  }
  return {};
}

SnmpAgent::Result SnmpAgent::GetNext(Message& message) const {
  for (std::size_t i = 0; i < message.bindings.size(); ++i) {
    Binding& binding = message.bindings[i];
    const auto object = objects_.upper_bound(binding.oid);
    if (object == objects_.end()) return {kNoSuchName, i + 1};
    binding = {object->first, object->second.read()};
  }
  return {};
}

// All bindings are judged before the first is written: RFC 1157 4.1.5 wants them set as if
// simultaneously. A read-only object is not available for setting: noSuchName.
SnmpAgent::Result SnmpAgent::Set(const Message& message) const {
  std::vector<const MibObject*> targets;
  for (std::size_t i = 0; i < message.bindings.size(); ++i) {
    const auto object = objects_.find(message.bindings[i].oid);
    if (object == objects_.end() || !object->second.check) return {kNoSuchName, i + 1};
    if (!object->second.check(message.bindings[i].value)) return {kBadValue, i + 1};
    targets.push_back(&object->second);
  }
  for (std::size_t i = 0; i < targets.size(); ++i) targets[i]->write(message.bindings[i].value);
  return {};
}

SnmpAgent::Result SnmpAgent::Run(Message& message) const {
  switch (message.pdu) {
    case kGetRequest:
      return Get(message);
    case kGetNextRequest:
      return GetNext(message);
    default:
      return Set(message);
  }
}

std::optional<Bytes> SnmpAgent::Answer(std::span<const std::uint8_t> datagram) const {
  auto request = Parse(datagram);
  if (!request || request->community != community_) return std::nullopt;
  const bool known =
      request->pdu == kGetRequest || request->pdu == kGetNextRequest || request->pdu == kSetRequest;
  if (!known) return std::nullopt;

  Message response = *request;
  Result result = Run(response);
  response.pdu = kGetResponse;
  if (result.status == kNoError) {
    Bytes bytes = Build(response);
    if (bytes.size() <= kMaxMessage) return bytes;
    result = {kTooBig, 0};
  }
  // In an error response the bindings stand as they came.
  response.bindings = std::move(request->bindings);
  response.error_status = result.status;
  response.error_index = static_cast<std::int32_t>(result.index);
  return Build(response);
}

}  // namespace vox::sim
