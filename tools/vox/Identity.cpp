#include "tools/vox/Identity.h"

#include <array>

#include "tools/vox/Failure.h"
#include "vox/drivers/net/search.h"

namespace vox::cli {

Identity AskIdentity(const DeviceTarget& target) {
  std::array<char, NET_MAC_TEXT_SIZE> mac{};
  if (get_mac(target.address.c_str(), mac.data()) != 0) return {};
  const auto remembered =
      target.remembered != nullptr ? target.remembered->String(kDeviceMacKey) : std::nullopt;
  return {remembered.value_or(mac.data()) == mac.data() ? Who::kSame : Who::kOther, mac.data()};
}

std::string OtherDeviceReason(const std::string& mac, const std::string& address) {
  return "another device, " + CleanText(mac) + ", answers at its address; find it again with vox " +
         "discover, or use that one as net:" + CleanText(address);
}

}  // namespace vox::cli
