#include "vox/drivers/net/NetworkComm/tvr302udpsnmp.h"

#include <cstdlib>
#include <memory>

#include "vox/drivers/net/NetworkComm/tvr302udp.h"

namespace vox {
namespace {

using pdu_owner = std::unique_ptr<snmp_pdu, decltype(&free_snmp_pdu)>;
using packets_owner = std::unique_ptr<packet_data_list, decltype(&free_packet_data_list)>;

// built_message is a message on its way out.
struct built_message {
  std::uint8_t bytes[WNXSNMP_MESSAGE_SIZE] = {};
  std::int32_t length = WNXSNMP_MESSAGE_SIZE;
  bool built;
  explicit built_message(const snmp_pdu* pdu) : built(snmp_build(pdu, bytes, &length) == 0) {}
};

snmp_pdu* parse_packet(const packet_data& packet) {
  return snmp_parse(packet.buf, packet.nLen, packet.IPAddress.ulAddress);
}

// parse_packets chains the packets that parse; an allocation failure ends the chain.
snmp_pdu_list* parse_packets(const packet_data_list* packets) {
  snmp_pdu_list* list = nullptr;
  snmp_pdu_list** tail = &list;
  for (; packets; packets = packets->lpPacketDataListNext) {
    pdu_owner pdu(parse_packet(*packets->lpPacketData), &free_snmp_pdu);
    if (!pdu) continue;
    *tail = static_cast<snmp_pdu_list*>(std::calloc(1, sizeof(snmp_pdu_list)));
    if (!*tail) break;
    (*tail)->lpSnmpPdu = pdu.release();
    tail = &(*tail)->lpSnmpPduListNext;
  }
  return list;
}

// answer_store puts the answers of a broadcast query into the caller's records as they come.
struct answer_store {
  snmp_simple_pdu* answers;
  std::int32_t capacity;
  std::int32_t* count;
  const snmp_answer_observer& observer;
  bool answered = false;

  // take gives whether the query goes on.
  bool take(const packet_data& packet) {
    pdu_owner answer(parse_packet(packet), &free_snmp_pdu);
    if (!answer) return true;
    answered = true;
    if (*count >= capacity) {
      ++*count;
      return true;
    }
    snmp_simple_pdu* const record = &answers[*count];
    if (snmp_standard2simple(answer.get(), record) != 0) {
      static_cast<void>(answer.release());  // by the failed conversion
      return true;
    }
    ++*count;
    return !observer || observer(*record);
  }
};

}  // namespace

void free_snmp_pdu_list(snmp_pdu_list* list) {
  while (list) {
    snmp_pdu_list* const next = list->lpSnmpPduListNext;
    free_snmp_pdu(list->lpSnmpPdu);
    std::free(list);
    list = next;
  }
}

snmp_pdu* snmp_request(const char* host, std::int32_t seconds, const snmp_pdu* pdu) {
  const built_message message(pdu);
  if (!message.built) return nullptr;
  const packets_owner packets(net_send_rev(host, seconds, message.bytes, message.length),
                              &free_packet_data_list);
  return packets ? parse_packet(*packets->lpPacketData) : nullptr;
}

std::int32_t snmp_request_simple(const char* host, std::int32_t seconds, snmp_simple_pdu* request,
                                 snmp_simple_pdu* answer) {
  const pdu_owner pdu(snmp_simple2standard(request), &free_snmp_pdu);
  if (!pdu) return NET_FAILED;
  pdu_owner answered(snmp_request(host, seconds, pdu.get()), &free_snmp_pdu);
  if (!answered) return NET_FAILED;
  if (snmp_standard2simple(answered.get(), answer) == 0) return NET_OK;
  static_cast<void>(answered.release());  // by the failed conversion
  return NET_FAILED;
}

snmp_pdu_list* multi_snmp_request(const char* address, std::int32_t seconds, const snmp_pdu* pdu) {
  const built_message message(pdu);
  if (!message.built) return nullptr;
  const packets_owner packets(multi_net_send_rev(address, seconds, message.bytes, message.length),
                              &free_packet_data_list);
  return parse_packets(packets.get());
}

std::int32_t multi_snmp_request_simple(const char* address, std::int32_t seconds,
                                       snmp_simple_pdu* request, snmp_simple_pdu* answers,
                                       std::int32_t capacity, std::int32_t* count) {
  return multi_snmp_request_each(address, seconds, request, answers, capacity, count,
                                 snmp_answer_observer());
}

std::int32_t multi_snmp_request_each(const char* address, std::int32_t seconds,
                                     snmp_simple_pdu* request, snmp_simple_pdu* answers,
                                     std::int32_t capacity, std::int32_t* count,
                                     const snmp_answer_observer& observer) {
  if (!count) return NET_FAILED;
  *count = 0;
  const pdu_owner pdu(snmp_simple2standard(request), &free_snmp_pdu);
  if (!pdu) return NET_FAILED;
  const built_message message(pdu.get());
  if (!message.built) return NET_FAILED;
  answer_store store{answers, capacity, count, observer};
  const packets_owner packets(
      multi_net_send_rev_each(address, seconds, message.bytes, message.length,
                              [&store](const packet_data& packet) { return store.take(packet); }),
      &free_packet_data_list);
  return store.answered ? NET_OK : NET_FAILED;
}

}  // namespace vox
