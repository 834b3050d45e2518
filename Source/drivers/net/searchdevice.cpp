#include "vox/drivers/net/searchdevice.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <optional>

#include <arpa/inet.h>
#include <netinet/in.h>

#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/search.h"
#include "vox/platform/PropertyList.h"
#include "vox/platform/Threads.h"

namespace vox {
namespace {

// Of the first scanning unit, in 1/10000 inch.
constexpr char OID_PHYSICAL_WIDTH[] = "1.3.6.1.4.1.32473.405.4.5.1.1.4.1.1";
constexpr char OID_PHYSICAL_HEIGHT[] = "1.3.6.1.4.1.32473.405.4.5.1.1.5.1.1";

// has_number asks for an object that holds a number. What it says is of no interest here.
template <std::size_t length>
bool has_number(const char* address, const char (&oid)[length]) {
  std::uint8_t value[WNXSNMP_INTEGER_SIZE];
  _tagMIBREQ req{};
  std::memcpy(req.oid, oid, length);
  req.dataSize = sizeof value;
  req.data = value;
  return SnmpGet(address, nullptr, &req) == NET_OK && is_number_value(req.dataSize);
}

// device_questions are the four that a dictionary takes; each fills in fields of its own.
struct device_questions {
  static constexpr std::size_t COUNT = 4;
  const char* address;
  int stop_fd;
  char name[NET_NAME_SIZE] = {};
  char mac[NET_MAC_TEXT_SIZE] = {};
  std::array<bool, COUNT> answered{};

  void ask(std::size_t which) {
    std::optional<NetInterrupt> stop;
    if (stop_fd >= 0) stop.emplace(stop_fd, 0);
    answered[which] = is_answered(which);
  }

 private:
  bool is_answered(std::size_t which) {
    switch (which) {
      case 0:
        return get_name(address, name, NET_NAME_SIZE) == NET_OK;
      case 1:
        return get_mac(address, mac) == NET_OK;
      case 2:
        return has_number(address, OID_PHYSICAL_WIDTH);
      default:
        return has_number(address, OID_PHYSICAL_HEIGHT);
    }
  }
};

}  // namespace

std::optional<std::string> answered_model(const snmp_simple_pdu& answer) {
  if (answer.nErrStat != 0 || answer.nValNum < 1) return std::nullopt;
  const snmp_simple_val& value = answer.lpSnmpSimpleVal[0];
  if (value.byDataType != WNXSNMP_TAG_OCTETS) return std::nullopt;
  char model[NET_VENDOR_PREFIX_SIZE + WNXSNMP_VALUE_SIZE];
  std::memcpy(model, NET_VENDOR_PREFIX, NET_VENDOR_PREFIX_SIZE);
  const std::int32_t size = std::clamp(value.nValSize, 0, WNXSNMP_VALUE_SIZE - 1);
  std::memcpy(model + NET_VENDOR_PREFIX_SIZE, value.SnmpValBuf, static_cast<std::size_t>(size));
  snmp2c_str(model + NET_VENDOR_PREFIX_SIZE, size);
  return std::string(model);
}

bool mac_text(const std::uint8_t* bytes, std::int32_t size, char* text) {
  if (size < 6) return false;
  std::snprintf(text, NET_MAC_TEXT_SIZE, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1],
                bytes[2], bytes[3], bytes[4], bytes[5]);
  return true;
}

DeviceInfo device_dictionary(const std::string& address, const std::string& model,
                             const std::string& name, const std::string& mac) {
  return std::make_shared<Dictionary>(Dictionary{{kDeviceTypeKey, kDeviceTypeNetwork},
                                                 {kDeviceIpKey, FitForXml(address)},
                                                 {kDeviceNameKey, FitForXml(name)},
                                                 {kDeviceModelNameKey, FitForXml(model)},
                                                 {kDeviceMacKey, mac},
                                                 {kDeviceIdKey, mac}});
}

std::string dotted_text(std::uint32_t address) {
  char text[INET_ADDRSTRLEN] = {};
  ::inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

std::int32_t ask_device(const std::string& address, const std::string& model, DeviceInfo* device,
                        int nStopFd) {
  if (!device) return NET_FAILED;
  device->reset();
  device_questions questions{address.c_str(), nStopFd};
  RunTogether(device_questions::COUNT, device_questions::COUNT,
              [&questions](std::size_t which) { questions.ask(which); });
  for (const bool answered : questions.answered) {
    if (!answered) return NET_FAILED;
  }
  *device = device_dictionary(address, model, questions.name, questions.mac);
  return NET_OK;
}

}  // namespace vox
