#include "vox/drivers/net/DeviceCommand.h"

#include <cstring>
#include <optional>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "vox/drivers/net/JobChannel.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/platform/FileDescriptor.h"

namespace vox {
namespace {

constexpr std::size_t PARAM_ROOM = 256;  // an answer carries up to 255 bytes, whatever is asked
constexpr int CANCEL_ATTEMPTS = 3;

_tagUDPCMD command_of(SCAN_COMMAND command, void* param, std::size_t size) {
  return {command, SCAN_APPCODE, static_cast<std::int32_t>(size), 0,
          static_cast<std::uint8_t*>(param)};
}

IfErrorStatus status_of_scan_reply(std::uint8_t reply) {
  switch (reply) {
    case SCAN_RSP_ACCEPTED:
      return IF_ERR_STS_NONE;
    case SCAN_RSP_BUSY:
      return IF_ERR_STS_DEVICE_BUSY;
    case SCAN_RSP_NO_DOCUMENT:
      return IF_ERR_STS_NO_DOCUMENT;
    default:
      return IF_ERR_STS_DEVICE_ERROR;
  }
}

// A socket for one exchange, and where the device listens.
struct DeviceSocket {
  FileDescriptor s;
  sockaddr_in device{};

  explicit DeviceSocket(const char* host) {
    const std::uint16_t port = udpCommandPort;
    device.sin_family = AF_INET;
    device.sin_port = htons(port != 0 ? port : UDPCMD_PORT);
    if (::inet_pton(AF_INET, host, &device.sin_addr) != 1) return;
    s.Reset(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  }
  bool send(const std::uint8_t* packet, std::size_t size) const {
    const auto* to = reinterpret_cast<const sockaddr*>(&device);
    return ::sendto(s.Get(), packet, size, MSG_NOSIGNAL, to, sizeof device) >= 0;
  }
};

// The command code of the answer with this sequence id; none when it does not come in time.
std::optional<std::uint8_t> await_reply(int s, std::uint16_t sequenceId, int ms, int wakeFd) {
  std::uint8_t answer[NET_DATAGRAM_SIZE];
  std::uint8_t param[PARAM_ROOM];
  _tagUDPCMD response{0, 0, 0, 0, param};
  std::size_t got = 0;
  if (read_channel(s, answer, sizeof answer, ms, {wakeFd, -1}, &got) != NW_WAIT_READY) return {};
  const auto length = static_cast<std::int32_t>(got);
  if (udp_cmd_sequence(answer, length) != sequenceId) return {};
  if (udp_cmd_parse(answer, length, &response) != NET_OK) return {};
  return response.command;
}

}  // namespace

IfErrorStatus send_scan(const char* host, _SCANINFO* wire, _SCANJOBID* job) {
  std::uint8_t param[PARAM_ROOM] = {};
  _tagUDPCMD request = command_of(SCAN_CMD_SCAN, wire, sizeof *wire);
  _tagUDPCMD response{0, 0, 0, 0, param};
  if (UdpCommandSendResponse(host, &request, &response) != NET_OK) {
    return IF_ERR_STS_DEVICE_COMM_ERR;
  }
  const IfErrorStatus status = status_of_scan_reply(response.command);
  if (status != IF_ERR_STS_NONE) return status;
  // Nothing can be asked for of a job that has no name.
  if (response.paramSize < static_cast<std::int32_t>(sizeof *job)) return IF_ERR_STS_DEVICE_ERROR;
  std::memcpy(job, param, sizeof *job);
  return IF_ERR_STS_NONE;
}

bool send_req_page(const char* host, const _SCANJOBID& job, std::uint16_t sequenceId) {
  _SCANJOBID param = job;
  const _tagUDPCMD request = command_of(SCAN_CMD_REQ_PAGE, &param, sizeof param);
  return UdpCommandSend(host, sequenceId, &request) == NET_OK;
}

// Not UdpCommandSendResponse: its nine seconds would keep the user who cancels waiting.
IfErrorStatus send_cancel(const char* host, const _SCANJOBID& job, int ms, int wakeFd) {
  _SCANJOBID param = job;
  const _tagUDPCMD request = command_of(SCAN_CMD_CANCEL, &param, sizeof param);
  std::uint8_t packet[UDPCMD_HEADER_SIZE + sizeof param];
  const std::uint16_t sequenceId = random_sequence();
  udp_cmd_build(packet, sequenceId, &request);
  const DeviceSocket socket(host);
  for (int i = 0; socket.s && i < CANCEL_ATTEMPTS; ++i) {
    if (!socket.send(packet, sizeof packet)) continue;
    const auto reply = await_reply(socket.s.Get(), sequenceId, ms / CANCEL_ATTEMPTS, wakeFd);
    if (reply) return *reply == SCAN_RSP_CANCELLED ? IF_ERR_STS_NONE : IF_ERR_STS_DEVICE_ERROR;
  }
  return IF_ERR_STS_DEVICE_COMM_ERR;
}

bool send_standby(const char* host, std::uint16_t sequenceId) {
  const _tagUDPCMD request = command_of(SCAN_CMD_STANDBY, nullptr, 0);
  return UdpCommandSend(host, sequenceId, &request) == NET_OK;
}

}  // namespace vox
