// Every protocol function and global that users may call: this links only while all are exported.
#include <vox/vox.h>

using namespace vox;

// In the order of the headers; `used` has outside linkage, so that no reference is dropped.
extern const void* const used[];

template <typename any>
static const void* at(any* function) {
  return reinterpret_cast<const void*>(function);
}

const void* const used[] = {
    at(asn_parse_length),
    at(asn_build_length),
    at(asn_parse_header),
    at(asn_build_header),
    at(asn_build_sequence),
    at(asn_parse_int),
    at(asn_build_int),
    at(asn_parse_unsigned_int),
    at(asn_build_unsigned_int),
    at(asn_parse_string),
    at(asn_build_string),
    at(asn_parse_oid),
    at(asn_build_oid),
    at(asn_parse_null),
    at(asn_build_null),
    at(oid_string2array),
    at(oid_array2string),
    at(&szDefaultComName),
    at(snmp_simple2standard),
    at(snmp_standard2simple),
    at(snmp_auth_parse),
    at(snmp_auth_build),
    at(snmp_parse_var_op),
    at(snmp_build_var_op),
    at(snmp_build),
    at(snmp_parse),
    at(shift_array),
    at(get_pdu_memory),
    at(free_snmp_pdu),
    at(WNXSNMP_MallocSnmpSimplePdu),
    at(WNXSNMP_FreeSnmpSimplePdu),
    at(&udpCommandPort),
    at(&snmpPort),
    at(free_packet_data_list),
    at(net_start),
    at(net_socket),
    at(net_close),
    at(net_select),
    at(readable_timeo),
    at(recvfrom_timeo),
    at(udp_send),
    at(udp_send_rev),
    at(net_send_rev),
    at(multi_net_send_rev),
    at(free_snmp_pdu_list),
    at(snmp_request),
    at(snmp_request_simple),
    at(multi_snmp_request),
    at(multi_snmp_request_simple),
    at(SnmpGet),
    at(SnmpGetNext),
    at(SnmpMemoryFree),
    at(SnmpSet),
    at(UdpCommandSend),
    at(UdpCommandSendResponse),
    at(SetUdpCommandPort),
};
