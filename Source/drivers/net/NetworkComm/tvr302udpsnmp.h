// SNMP requests over the datagram layer: one device, or everybody that a broadcast reaches.
//
// Answers are not matched by request-id: the first datagram on the call's own socket is the answer.
// Units:       time-outs in whole seconds.
// Thread rule: any thread.
#pragma once

#include <cstdint>
#include <functional>

#include "vox/drivers/net/NetworkComm/wnxsnmp.h"
#include "vox/platform/Export.h"

namespace vox {

// snmp_pdu_list owns parsed answers, in arrival order.
struct snmp_pdu_list {
  snmp_pdu_list* lpSnmpPduListNext;
  snmp_pdu* lpSnmpPdu;
};

// free_snmp_pdu_list releases a whole chain; null is accepted.
VOX_EXPORT void free_snmp_pdu_list(snmp_pdu_list* list);

// snmp_request sends one message to a host and gives the parsed answer (free_snmp_pdu); null when
// none comes in time or it does not parse. No retry.
VOX_EXPORT snmp_pdu* snmp_request(const char* host, std::int32_t seconds, const snmp_pdu* pdu);

// snmp_request_simple does the same with flat records: 0, or -1 when any step fails.
VOX_EXPORT std::int32_t snmp_request_simple(const char* host, std::int32_t seconds,
                                            snmp_simple_pdu* request, snmp_simple_pdu* answer);

// multi_snmp_request sends one message to a dotted address and gives every answer that parses
// (free_snmp_pdu_list); null when there is none.
VOX_EXPORT snmp_pdu_list* multi_snmp_request(const char* address, std::int32_t seconds,
                                             const snmp_pdu* pdu);

// multi_snmp_request_simple does the same with flat records. *count becomes the number of answers,
// which may exceed the capacity; answers that cannot be converted are skipped and not counted.
// Shapes:  answers[0, min(*count, capacity)) out.
// Returns: 0; -1 when the request cannot be converted or nobody answers.
VOX_EXPORT std::int32_t multi_snmp_request_simple(const char* address, std::int32_t seconds,
                                                  snmp_simple_pdu* request,
                                                  snmp_simple_pdu* answers, std::int32_t capacity,
                                                  std::int32_t* count);

// snmp_answer_observer hears of each answer that was stored, when it has come; false ends the
// query; it must not throw. Inside the library only.
using snmp_answer_observer = std::function<bool(const snmp_simple_pdu&)>;
std::int32_t multi_snmp_request_each(const char* address, std::int32_t seconds,
                                     snmp_simple_pdu* request, snmp_simple_pdu* answers,
                                     std::int32_t capacity, std::int32_t* count,
                                     const snmp_answer_observer& observer);

}  // namespace vox
