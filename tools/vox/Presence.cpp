#include "tools/vox/Presence.h"

#include <algorithm>
#include <array>

#include "tools/vox/DeviceText.h"
#include "tools/vox/Identity.h"
#include "tools/vox/KnownDevices.h"
#include "vox/drivers/net/search.h"
#include "vox/drivers/net/searchping.h"
#include "vox/platform/PropertyList.h"
#include "vox/platform/Threads.h"

namespace vox::cli {

namespace {

constexpr std::size_t kAtOnce = 64;

struct PresenceRow {
  Presence presence;
  const char *words, *name;
};

constexpr PresenceRow kRows[] = {
    {Presence::kOnline, "online", "online"},
    {Presence::kRenamed, "renamed", "renamed"},
    {Presence::kOther, "other device", "other-device"},
    {Presence::kSilent, "no answer", "no-answer"},
    {Presence::kBrokenAddress, "broken address", "broken-address"},
};

const PresenceRow& RowOf(Presence presence) {
  return *std::find_if(std::begin(kRows), std::end(kRows),
                       [&](const PresenceRow& row) { return row.presence == presence; });
}

// As a scan judges it, by the MAC address.
Presence Ask(const DeviceInfo& device) {
  const std::string address = device->String(kDeviceIpKey).value_or("");
  const Who who = AskIdentity({{}, address, device}).who;
  if (who != Who::kSame) return who == Who::kOther ? Presence::kOther : Presence::kSilent;
  std::array<char, NET_NAME_SIZE> name{};
  if (get_name(address.c_str(), name.data(), static_cast<std::int32_t>(name.size())) != 0)
    return Presence::kSilent;
  const auto remembered = device->String(kDeviceNameKey);
  const bool same =
      !remembered || *remembered == name.data() || *remembered == FitForXml(name.data());
  return same ? Presence::kOnline : Presence::kRenamed;
}

}  // namespace

std::vector<Presence> AskPresence(const DeviceInfoArray& devices) {
  const bool pings = network_ping_permitted();
  if (!pings) NoteNoPings();
  const DeviceInfoArray alive = pings ? filterWithNetworkPing(devices, nullptr) : devices;
  std::vector<Presence> answers(devices.size(), Presence::kSilent);
  RunTogether(devices.size(), kAtOnce, [&](std::size_t i) {
    const Dictionary& device = *devices[i];
    if (!is_device_of_type(device, kDeviceTypeNetwork)) return;
    if (HasBrokenAddress(device)) {
      answers[i] = Presence::kBrokenAddress;
    } else if (std::find(alive.begin(), alive.end(), devices[i]) != alive.end()) {
      answers[i] = Ask(devices[i]);
    }
  });
  return answers;
}

const char* PresenceWords(Presence presence) {
  return RowOf(presence).words;
}

const char* PresenceName(Presence presence) {
  return RowOf(presence).name;
}

}  // namespace vox::cli
