#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <sys/random.h>

#include "vox/drivers/net/NetworkComm/tvr302udpsnmp.h"

namespace vox {
namespace {

struct simple_deleter {
  void operator()(snmp_simple_pdu* pdu) const { WNXSNMP_FreeSnmpSimplePdu(1, pdu); }
};
using simple_owner = std::unique_ptr<snmp_simple_pdu, simple_deleter>;
using bytes_owner = std::unique_ptr<std::uint8_t, decltype(&std::free)>;

// copy_text copies a text with its NUL to to[0, capacity); false when it is not that short.
bool copy_text(char* to, std::size_t capacity, const char* text) {
  const std::size_t length = strnlen(text, capacity);
  if (length == capacity) return false;
  std::memcpy(to, text, length + 1);
  return true;
}

// snmp_call is one request of one object, and its answer.
struct snmp_call {
  simple_owner request{WNXSNMP_MallocSnmpSimplePdu(1, 1)};
  simple_owner answer{WNXSNMP_MallocSnmpSimplePdu(1, 1)};

  bool has_memory() const { return request && answer; }
  snmp_simple_val& asked() { return request->lpSnmpSimpleVal[0]; }
  const snmp_simple_val& value() const { return answer->lpSnmpSimpleVal[0]; }
  // The tag 0 is what a record without a binding is left with.
  bool has_value() const { return value().byDataType != 0; }

  // address fills in who asks what; false when a text is too long.
  bool address(std::uint8_t command, const char* community, const char* oid) {
    request->byCommand = command;
    if (community && !copy_text(request->szComName, sizeof request->szComName, community)) {
      return false;
    }
    return copy_text(asked().szOid, sizeof asked().szOid, oid);
  }

  bool exchange(const char* host) {
    return snmp_request_simple(host, NET_TIMEOUT_SECONDS, request.get(), answer.get()) == 0;
  }
};

// read_object runs a call up to an answer that holds a value.
std::int32_t read_object(snmp_call* call, std::uint8_t command, const char* host,
                         const char* community, const char* oid) {
  if (!call->has_memory()) return NET_NO_MEMORY;
  if (!call->address(command, community, oid)) return NET_FAILED;
  if (!call->exchange(host) || call->answer->nErrStat != 0) return NET_FAILED;
  return call->has_value() ? NET_OK : NET_NO_ANSWER;
}

// build_packet gives the packet of a command and its size; no packet and the result code when the
// command cannot be sent.
bytes_owner build_packet(const _tagUDPCMD* request, std::uint16_t sequence, std::int32_t* size) {
  bytes_owner packet(nullptr, &std::free);
  *size = request ? udp_cmd_size(request) : NET_FAILED;
  if (*size < 0) return packet;
  packet.reset(static_cast<std::uint8_t*>(std::malloc(static_cast<std::size_t>(*size))));
  if (packet) {
    udp_cmd_build(packet.get(), sequence, request);
  } else {
    *size = NET_NO_MEMORY;
  }
  return packet;
}

}  // namespace

std::uint16_t random_sequence() {
  std::uint16_t number = 0;
  if (::getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number) {
    static std::atomic<std::uint32_t> calls{0};
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    number = static_cast<std::uint16_t>((now >> 10) + ++calls);
  }
  return number == 0 ? std::uint16_t{1} : number;
}

std::int32_t SnmpGet(const char* host, const char* community, _tagMIBREQ* req) {
  if (!req) return NET_FAILED;
  snmp_call call;
  const std::int32_t result = read_object(&call, WNXSNMP_PDU_GET, host, community, req->oid);
  if (result != NET_OK) return result;
  const snmp_simple_val& value = call.value();
  if (value.nValSize > req->dataSize || (value.nValSize > 0 && !req->data)) return NET_TOO_SMALL;
  if (value.nValSize > 0) {
    std::memcpy(req->data, value.SnmpValBuf, static_cast<std::size_t>(value.nValSize));
  }
  req->dataSize = value.nValSize;
  return NET_OK;
}

std::int32_t SnmpGetNext(const char* host, const char* community, _tagMIBNEXTREQ* req) {
  if (!req) return NET_FAILED;
  req->data = nullptr;
  req->dataSize = 0;
  snmp_call call;
  const std::int32_t result = read_object(&call, WNXSNMP_PDU_GETNEXT, host, community, req->oid);
  if (result != NET_OK) return result;
  const snmp_simple_val& value = call.value();
  req->data = static_cast<std::uint8_t*>(wnx_copy(value.SnmpValBuf, value.nValSize));
  if (!req->data) return NET_NO_MEMORY;
  req->dataSize = static_cast<std::uint32_t>(value.nValSize);
  std::memcpy(req->noid, value.szOid, sizeof req->noid);
  return NET_OK;
}

std::int32_t SnmpMemoryFree(_tagMIBNEXTREQ* req) {
  if (!req) return NET_TOO_SMALL;
  std::free(req->data);
  req->data = nullptr;
  return NET_OK;
}

std::int32_t SnmpSet(const char* host, const char* community, const _tagMIBREQ* req) {
  if (!req || req->dataSize < 0 || req->dataSize >= WNXSNMP_VALUE_SIZE) return NET_FAILED;
  if (req->dataSize > 0 && !req->data) return NET_FAILED;
  snmp_call call;
  if (!call.has_memory()) return NET_NO_MEMORY;
  if (!call.address(WNXSNMP_PDU_SET, community, req->oid)) return NET_FAILED;
  if (req->dataSize > 0) {
    std::memcpy(call.asked().SnmpValBuf, req->data, static_cast<std::size_t>(req->dataSize));
  }
  call.asked().byDataType = req->dataType;
  call.asked().nValSize = req->dataSize;
  if (!call.exchange(host)) return NET_FAILED;
  return call.answer->nErrStat == 0 && call.answer->nErrIndex == 0 ? NET_OK : NET_FAILED;
}

std::int32_t UdpCommandSend(const char* host, std::uint16_t seqID, const _tagUDPCMD* request) {
  std::int32_t size = 0;
  const bytes_owner packet = build_packet(request, seqID == 0 ? random_sequence() : seqID, &size);
  if (!packet) return size;
  return udp_send(host, NET_TIMEOUT_SECONDS, packet.get(), size);
}

std::int32_t UdpCommandSendResponse(const char* host, const _tagUDPCMD* request,
                                    _tagUDPCMD* response) {
  if (!response) return NET_FAILED;
  const std::uint16_t sequence = random_sequence();
  std::int32_t size = 0;
  const bytes_owner packet = build_packet(request, sequence, &size);
  if (!packet) return size;
  std::uint8_t reply[NET_DATAGRAM_SIZE];
  // Set once, on purpose: after an answer with another id no longer one than that is taken.
  std::int32_t length = NET_DATAGRAM_SIZE;
  std::int32_t result = NET_TIMED_OUT;
  for (int attempt = 0; attempt < UDPCMD_ATTEMPTS && result == NET_TIMED_OUT; ++attempt) {
    result = udp_send_rev(host, NET_TIMEOUT_SECONDS, packet.get(), size, reply, &length);
    if (result == NET_OK && udp_cmd_sequence(reply, length) != sequence) result = NET_TIMED_OUT;
  }
  if (result == NET_TIMED_OUT) return NET_NO_ANSWER;
  return result == NET_OK ? udp_cmd_parse(reply, length, response) : NET_FAILED;
}

std::int32_t SetUdpCommandPort(std::uint16_t port) {
  udpCommandPort = port;
  return NET_OK;
}

}  // namespace vox
