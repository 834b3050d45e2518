// Registration for scans that are started at a device's panel: this computer enters its name and
// address in a device's list, or has them struck. docs/wire/discovery.md has the packets.
//
// Thread rule: any thread; an answer is awaited for 9 s at most, up to three times while the device
// is busy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "vox/DeviceDictionary.h"
#include "vox/platform/Export.h"

namespace vox {

inline constexpr std::uint8_t REG_APPCODE = 0x31;
enum REG_COMMAND : std::uint8_t { REG_CMD_REGISTER = 3, REG_CMD_UNREGISTER = 5 };
enum REG_REPLY : std::uint8_t {
  REG_RSP_ACCEPTED = 0xC4,
  REG_RSP_BUSY = 0xD4,
  REG_RSP_REFUSED = 0xE4,
};
inline constexpr int REG_ATTEMPTS = 3;  // while the device is busy
inline constexpr int REG_THREADS = 16;  // devices that are registered on at the same time

// tagCLIENTREGPARAM: the parameters of both commands, as they lie in the packet.
struct tagCLIENTREGPARAM {
  std::uint32_t hostAddress;        // this computer's IPv4 address, network byte order
  char hostName[16];                // its name, 15 bytes at most, NUL-filled
  std::uint8_t hostMacAaddress[6];  // MAC address of the interface with that address
  std::uint8_t regiTime;            // 0
  std::uint8_t appSupport;          // 1
};
static_assert(sizeof(tagCLIENTREGPARAM) == 28);
static_assert(offsetof(tagCLIENTREGPARAM, hostAddress) == 0);
static_assert(offsetof(tagCLIENTREGPARAM, hostName) == 4);
static_assert(offsetof(tagCLIENTREGPARAM, hostMacAaddress) == 20);
static_assert(offsetof(tagCLIENTREGPARAM, regiTime) == 26);
static_assert(offsetof(tagCLIENTREGPARAM, appSupport) == 27);

enum RegistrationResult : int {
  RegistrationResult_Ok = 0,
  RegistrationResult_Failed = 1,
  RegistrationResult_InvalidDevice = 2,
};

// getmac_and_ip finds this computer's interface on the device's network: one whose IPv4 address has
// the same classful network number, and whose MAC address is known. Of several, one whose own
// subnet holds the device goes first, then one that is up, then the first of the system's list.
// Shapes:  *local the address, network byte order; mac[0, 6). Unchanged on failure.
// Returns: 0; -1 no such interface, or a device address that is not dotted.
VOX_EXPORT std::int32_t getmac_and_ip(const char* device, std::uint32_t* local, std::uint8_t* mac);

// BuildClientRegParam fills in the parameters for a device, with the name that the preferences have
// for this computer, cut to 15 bytes where a character of it ends.
// Returns: 0; -1 when getmac_and_ip fails.
VOX_EXPORT std::int32_t BuildClientRegParam(tagCLIENTREGPARAM* param, const char* device);

// cmd_register asks the device to list this computer, again while it is busy, three times in all.
// Returns: 0 accepted; -1 no parameters or no answer; else the device's reply code, 0xE4 refused,
//          0xD4 still busy.
VOX_EXPORT std::int32_t cmd_register(const char* device);

// register_reply asks as cmd_register does, and gives the code that the device replied last, 0xC4
// and 0 apart; nothing when there are no parameters or the last attempt got no answer. Inside the
// library and its programs only.
std::optional<std::uint8_t> register_reply(const char* device);

// registerOnDevice registers at the dictionary's "ip" and sorts cmd_register's result: 0xC4 is Ok,
// 0xE4 Failed, all else InvalidDevice. An accepted registration, which cmd_register reports as 0,
// is InvalidDevice as well: only a refusal is to count as a failure. Who needs the truth calls
// register_reply. A missing "ip" is InvalidDevice.
VOX_EXPORT RegistrationResult registerOnDevice(const DeviceInfo& device);

// unregisterOnDevice has this computer struck from the device's list; the device does not answer.
// Returns: Ok when the command was sent; InvalidDevice when there is no "ip" or no supported model
//          answers there; else Failed.
VOX_EXPORT RegistrationResult unregisterOnDevice(const DeviceInfo& device);

// reg_one_dev registers when "isNetworkPushEnabled" is true, else unregisters.
// Returns: false when a wanted registration was refused.
VOX_EXPORT bool reg_one_dev(const DeviceInfo& device);

// reg_devices runs reg_one_dev for every device, up to REG_THREADS at the same time. Returns: those
// for which it gave false, in the order given.
VOX_EXPORT DeviceInfoArray reg_devices(const DeviceInfoArray& devices);

}  // namespace vox
