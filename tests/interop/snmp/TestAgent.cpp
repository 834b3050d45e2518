#include "tests/interop/snmp/TestAgent.h"

#include <gtest/gtest.h>

namespace vox::test {
namespace {

constexpr std::int32_t kNoSuchName = 2;  // RFC 1157 4.1.2

// Find gives the object that a request is about, or the end.
Objects::iterator Find(Objects* objects, const snmp_pdu& request, const Arcs& oid) {
  return request.byCommand == WNXSNMP_PDU_GETNEXT ? objects->upper_bound(oid) : objects->find(oid);
}

}  // namespace

TestAgent::TestAgent(Objects objects)
    : objects_(std::move(objects)),
      peer_([this](const Bytes& request) { return Serve(request); }) {}

Bytes TestAgent::Asked() {
  const auto requests = peer_.AwaitRequests(1);
  EXPECT_EQ(requests.size(), 1u);
  return requests.empty() ? Bytes{} : requests[0];
}

Answers TestAgent::Serve(const Bytes& bytes) {
  const PduOwner request = Parse(bytes);
  if (!request) return {};
  Message response(WNXSNMP_PDU_RESPONSE);
  response.Community(request->pcComName).Id(request->nReqID);
  std::int32_t index = 0;
  for (const snmp_val_list* at = request->lpSnmpValList; at; at = at->lpNextSnmpValList) {
    ++index;
    const Arcs oid(at->pdwOid, at->pdwOid + at->nOidLen);
    const auto found = Find(&objects_, *request, oid);
    if (found == objects_.end()) {
      response.Record().nErrStat = kNoSuchName;
      response.Record().nErrIndex = index;
      response.Binding(oid, WNXSNMP_TAG_NULL);
      continue;
    }
    if (request->byCommand == WNXSNMP_PDU_SET) {
      const std::uint8_t* const value = at->uniVal.pbyData;
      found->second = {at->byDataType, Bytes(value, value + at->nValSize)};
    }
    response.Binding(found->first, found->second.tag, found->second.value);
  }
  return {Answer(response.Built())};
}

}  // namespace vox::test
