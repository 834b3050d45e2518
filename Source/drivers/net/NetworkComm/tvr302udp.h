// The datagram layer: IPv4 sockets, waits, and exchanges of one request. Every call opens a socket
// of its own and closes it before it returns. A host is dotted IPv4 text, or a name that is looked
// up and whose first address is used; "dotted" in a comment means that no name is looked up.
//
// Units:       time-outs in whole seconds. A signal does not lengthen a wait.
// Failures:    nothing is logged. NET_* codes or null.
// Thread rule: any thread; the settings are read when a call sends.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

#include <netinet/in.h>
#include <sys/socket.h>

#include "vox/drivers/net/NetworkComm/tvr302udpconst.h"
#include "vox/drivers/net/NetworkComm/wnxsnmpmem.h"
#include "vox/platform/Export.h"

namespace vox {

// The port that UDP commands go to; 0 stands for 3892.
VOX_EXPORT extern std::atomic<std::uint16_t> udpCommandPort;

// The port that SNMP requests go to, initially 161; trials and tests name another one.
VOX_EXPORT extern std::atomic<std::uint16_t> snmpPort;

// How long a second of this layer lasts, in milliseconds, initially 1000. Only tests of time-outs
// shorten it.
extern std::atomic<std::uint32_t> netMsPerSecond;

// How often this process had no socket to ask with because it, or the machine, had no descriptor
// left. Inside the library only.
extern std::atomic<std::uint32_t> netDescriptorsRefused;

// net_note_refusal counts an error that says so, here and for the calling thread
// (platform/DescriptorRefusals.h). Inside the library only.
void net_note_refusal(int error);

// The clock that time-outs are counted on, initially steady_clock's. Only tests of them replace it.
using net_clock = std::chrono::steady_clock::time_point (*)();
extern std::atomic<net_clock> netClock;

// NetInterrupt lets another thread hurry this thread's exchanges while it lives: once the
// descriptor is readable, a wait ends after nGraceMs at the latest, and fails then (-1), so that no
// further attempt is made. An answer within that time is still taken. One at a time on a thread; a
// wait without limit (recvfrom_timeo, 0 seconds) is not hurried. Inside the library only.
class NetInterrupt {
 public:
  NetInterrupt(int fd, int nGraceMs);
  ~NetInterrupt();
  NetInterrupt(const NetInterrupt&) = delete;
  NetInterrupt& operator=(const NetInterrupt&) = delete;
};

// packet_data is one received datagram.
struct packet_data {
  snmp_ip_address IPAddress;  // sender
  std::uint8_t buf[NET_DATAGRAM_SIZE];
  std::int32_t nLen;  // bytes received
};

// packet_data_list owns received datagrams, in arrival order.
struct packet_data_list {
  packet_data_list* lpPacketDataListNext;
  packet_data* lpPacketData;
};

// free_packet_data_list releases a whole chain; null is accepted.
VOX_EXPORT void free_packet_data_list(packet_data_list* list);

// net_start gives 0: nothing needs to be set up on this platform.
VOX_EXPORT std::int32_t net_start();

// net_socket opens an IPv4 datagram socket: 0, or -1.
VOX_EXPORT std::int32_t net_socket(int* sock);

// net_close closes a socket; the number 0 is left alone.
VOX_EXPORT void net_close(int sock);

// net_select gives 0 when a datagram is waiting, -1 when none came in time or the wait failed.
VOX_EXPORT std::int32_t net_select(int sock, std::int32_t seconds);

// readable_timeo waits until the socket is readable: 1 readable, 0 time-out, -1 error.
VOX_EXPORT std::int32_t readable_timeo(int sock, std::int32_t seconds);

// recvfrom_timeo receives one datagram; 0 seconds means without limit.
// Shapes:  buffer[0, length) out; *sender, *sender_length as recvfrom(2) has them.
// Returns: the bytes received; -1 error; -3 time-out. `reserved` is not used.
VOX_EXPORT std::int32_t recvfrom_timeo(int sock, void* buffer, std::int32_t length, int flags,
                                       sockaddr* sender, socklen_t* sender_length,
                                       std::int32_t seconds, void* reserved);

// udp_send sends one datagram to the host's UDP command port and awaits nothing: 0 or -1.
// `seconds` is not used.
VOX_EXPORT std::int32_t udp_send(const char* host, std::int32_t seconds, const std::uint8_t* bytes,
                                 std::int32_t length);

// udp_send_rev sends one datagram to the host's UDP command port and waits for one answer.
// Shapes:  reply[0, *reply_length): cleared when a datagram came, then the answer; *reply_length
//          its bytes.
// Returns: 0; -1 refused, unreachable, or an answer larger than the buffer; -3 time-out.
VOX_EXPORT std::int32_t udp_send_rev(const char* host, std::int32_t seconds,
                                     const std::uint8_t* bytes, std::int32_t length,
                                     std::uint8_t* reply, std::int32_t* reply_length);

// net_send_rev sends one datagram to the host's SNMP port and gives the first one that comes back,
// from whomever; null when none comes in time.
VOX_EXPORT packet_data_list* net_send_rev(const char* host, std::int32_t seconds,
                                          const std::uint8_t* bytes, std::int32_t length);

// multi_net_send_rev sends one datagram to the SNMP port of a dotted address, a broadcast address
// mostly, and gathers what comes back until nothing came for `seconds`, or the address itself
// answered. However many answer, it ends after 4,096 datagrams or 60 time-outs. Null when none
// came.
VOX_EXPORT packet_data_list* multi_net_send_rev(const char* address, std::int32_t seconds,
                                                const std::uint8_t* bytes, std::int32_t length);

// packet_observer hears of each datagram of a broadcast query when it has come; false ends the
// query. It must not throw. Inside the library only, as are the two calls below.
using packet_observer = std::function<bool(const packet_data&)>;
packet_data_list* multi_net_send_rev_each(const char* address, std::int32_t seconds,
                                          const std::uint8_t* bytes, std::int32_t length,
                                          const packet_observer& observer);

// net_look_up finds the address of a host. Returns: false when it has none; *address is then as it
// was.
bool net_look_up(const char* host, in_addr* address);

}  // namespace vox
