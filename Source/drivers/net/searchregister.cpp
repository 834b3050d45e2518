#include "vox/drivers/net/searchregister.h"

#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "vox/UserPreferences.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/search.h"
#include "vox/platform/Threads.h"

namespace vox {
namespace {

constexpr std::int32_t PARAM_SIZE = sizeof(tagCLIENTREGPARAM);

// registration_command is a command with its parameters.
struct registration_command {
  tagCLIENTREGPARAM param{};
  std::uint8_t bytes[sizeof(tagCLIENTREGPARAM)] = {};
  _tagUDPCMD request{};

  // build gives false when there are no parameters for the device.
  bool build(REG_COMMAND command, const char* device) {
    if (BuildClientRegParam(&param, device) != NET_OK) return false;
    std::memcpy(bytes, &param, sizeof bytes);
    request.command = command;
    request.appCode = REG_APPCODE;
    request.paramSize = PARAM_SIZE;
    request.param = bytes;
    return true;
  }
};

std::optional<std::string> address_of(const DeviceInfo& device) {
  return device ? device->String(kDeviceIpKey) : std::nullopt;
}

// copy_host_name copies at most size - 1 bytes, and no part of a UTF-8 character whose end does
// not fit.
void copy_host_name(const std::string& name, char* to, std::size_t size) {
  std::size_t length = strnlen(name.c_str(), size);
  if (length == size) {
    --length;
    while (length > 0 && (name[length] & 0xC0) == 0x80) --length;
  }
  std::memcpy(to, name.data(), length);
}

}  // namespace

std::int32_t BuildClientRegParam(tagCLIENTREGPARAM* param, const char* device) try {
  if (!param) return NET_FAILED;
  *param = {};
  copy_host_name(UserPreferences::instance().computerName(), param->hostName,
                 sizeof param->hostName);
  if (getmac_and_ip(device, &param->hostAddress, param->hostMacAaddress) != 0) return NET_FAILED;
  param->regiTime = 0;
  param->appSupport = 1;
  return NET_OK;
} catch (const std::bad_alloc&) {
  return NET_FAILED;
}

std::optional<std::uint8_t> register_reply(const char* device) {
  registration_command command;
  if (!command.build(REG_CMD_REGISTER, device)) return std::nullopt;
  std::uint8_t reply_bytes[UDPCMD_PARAM_MAX];  // a device may say more than it was asked
  _tagUDPCMD reply{};
  for (int attempt = 0; attempt < REG_ATTEMPTS; ++attempt) {
    reply = {};
    reply.param = reply_bytes;
    if (UdpCommandSendResponse(device, &command.request, &reply) != NET_OK) return std::nullopt;
    if (reply.command != REG_RSP_BUSY) break;
  }
  return reply.command;
}

std::int32_t cmd_register(const char* device) {
  const auto reply = register_reply(device);
  if (!reply) return NET_FAILED;
  return *reply == REG_RSP_ACCEPTED ? NET_OK : std::int32_t{*reply};
}

RegistrationResult registerOnDevice(const DeviceInfo& device) try {
  const auto address = address_of(device);
  if (!address) return RegistrationResult_InvalidDevice;
  // An accepted registration comes as 0 and is sorted with the rest, on purpose.
  switch (cmd_register(address->c_str())) {
    case REG_RSP_ACCEPTED:
      return RegistrationResult_Ok;
    case REG_RSP_REFUSED:
      return RegistrationResult_Failed;
    default:
      return RegistrationResult_InvalidDevice;
  }
} catch (const std::bad_alloc&) {
  return RegistrationResult_InvalidDevice;
}

RegistrationResult unregisterOnDevice(const DeviceInfo& device) try {
  const auto address = address_of(device);
  char model[NET_NAME_SIZE];
  if (!address || get_model(model, sizeof model, address->c_str()) != NET_OK || !is_qd7xxx(model)) {
    return RegistrationResult_InvalidDevice;
  }
  registration_command command;
  if (!command.build(REG_CMD_UNREGISTER, address->c_str())) return RegistrationResult_Failed;
  const std::int32_t sent = UdpCommandSend(address->c_str(), 0, &command.request);
  return sent == NET_OK ? RegistrationResult_Ok : RegistrationResult_Failed;
} catch (const std::bad_alloc&) {
  return RegistrationResult_InvalidDevice;
}

bool reg_one_dev(const DeviceInfo& device) {
  if (device && device->Truth(kDevicePushKey).value_or(false)) {
    return registerOnDevice(device) != RegistrationResult_Failed;
  }
  unregisterOnDevice(device);
  return true;
}

DeviceInfoArray reg_devices(const DeviceInfoArray& devices) try {
  std::vector<std::uint8_t> good(devices.size());
  RunTogether(devices.size(), REG_THREADS,
              [&](std::size_t i) { good[i] = reg_one_dev(devices[i]) ? 1 : 0; });
  DeviceInfoArray failed;
  for (std::size_t i = 0; i < devices.size(); ++i) {
    if (good[i] == 0) failed.push_back(devices[i]);
  }
  return failed;
} catch (const std::bad_alloc&) {
  return {};
}

}  // namespace vox
