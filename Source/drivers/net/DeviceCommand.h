// The four commands of a network scan, as calls. docs/wire/udp-command.md has the packets, docs/
// wire/network-scan.md the commands.
//
// Hosts are dotted IPv4 text. Thread rule: any thread.
#pragma once

#include <cstdint>

#include "vox/drivers/ScanRecords.h"

namespace vox {

constexpr std::uint8_t SCAN_APPCODE = 0x32;
enum SCAN_COMMAND : std::uint8_t {
  SCAN_CMD_STANDBY = 0x10,
  SCAN_CMD_SCAN = 0x41,
  SCAN_CMD_CANCEL = 0x51,
  SCAN_CMD_REQ_PAGE = 0x62,
};
enum SCAN_REPLY : std::uint8_t {
  SCAN_RSP_ACCEPTED = 0x43,
  SCAN_RSP_BUSY = 0x47,
  SCAN_RSP_NO_DOCUMENT = 0x49,
  SCAN_RSP_CANCELLED = 0x53,
};

// send_scan asks the device for a job with the 128 bytes at `wire`, waiting for up to 9 s. *job is
// written when the device accepted.
// Returns: the interface error status that the answer means; IF_ERR_STS_NONE accepted.
IfErrorStatus send_scan(const char* host, _SCANINFO* wire, _SCANJOBID* job);

// send_req_page asks for a page of the job, which the device delivers to the job server under the
// sequence id; 0 stands for a fresh one. Returns: whether it was sent.
bool send_req_page(const char* host, const _SCANJOBID& job, std::uint16_t sequenceId);

// send_cancel cancels the job. It asks up to three times in `ms` milliseconds, which a raised
// `wakeFd` (-1 none) cuts short.
// Returns: the interface error status that the answer means; IF_ERR_STS_NONE cancelled.
IfErrorStatus send_cancel(const char* host, const _SCANJOBID& job, int ms, int wakeFd);

// send_standby keeps the device awake. Returns: whether it was sent.
bool send_standby(const char* host, std::uint16_t sequenceId);

}  // namespace vox
