#include "tools/vox/Presence.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include <poll.h>

#include "tools/vox/DeviceText.h"
#include "tools/vox/Identity.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/UsbDevice.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"
#include "vox/drivers/net/search.h"
#include "vox/drivers/net/searchping.h"
#include "vox/platform/DescriptorRefusals.h"
#include "vox/platform/PropertyList.h"
#include "vox/platform/Threads.h"

namespace vox::cli {

namespace {

constexpr std::size_t kAskedAtOnce = 64;

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
    {Presence::kNotAttached, "not attached", "not-attached"},
    {Presence::kUnknown, "unknown", "unknown"},
    {Presence::kNoDescriptors, "not asked", "no-descriptors"},
};

const PresenceRow& RowOf(Presence presence) {
  return *std::find_if(std::begin(kRows), std::end(kRows),
                       [&](const PresenceRow& row) { return row.presence == presence; });
}

// Stop is whether the question was called off.
class Stop : public CancelDelegate {
 public:
  explicit Stop(int fd) : fd_(fd) {}
  bool isCancelled() override { return IsRaised(); }
  bool IsRaised() const {
    pollfd entry{fd_, POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
  }

 private:
  const int fd_;
};

// As a scan judges it, by the MAC address.
Presence AskNetwork(const DeviceInfo& device) {
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

Presence Ask(const DeviceInfo& device, bool alive) {
  if (is_device_of_type(*device, kDeviceTypeUsb))
    return IsAttached(*device) ? Presence::kOnline : Presence::kNotAttached;
  if (HasBrokenAddress(*device)) return Presence::kBrokenAddress;
  const bool asked = alive && is_device_of_type(*device, kDeviceTypeNetwork);
  return asked ? AskNetwork(device) : Presence::kSilent;
}

}  // namespace

std::vector<Presence> AskPresence(const DeviceInfoArray& devices, int stop_fd) {
  Stop stop(stop_fd);
  const PING_ACCESS access = network_ping_access();
  NoteNoPings(access);
  const bool pings = access == PING_ACCESS_PERMITTED;
  const DeviceInfoArray alive = pings ? filterWithNetworkPing(devices, &stop) : devices;
  std::vector<Presence> answers(devices.size(), Presence::kSilent);
  RunTogether(devices.size(), kAskedAtOnce, [&](std::size_t i) {
    const NetInterrupt hurry(stop_fd, 0);
    const std::uint32_t refused = DescriptorRefusalsHere();
    const bool answers_pings = std::find(alive.begin(), alive.end(), devices[i]) != alive.end();
    answers[i] = Ask(devices[i], answers_pings);
    if (answers[i] != Presence::kSilent && answers[i] != Presence::kNotAttached) return;
    // Who kept silent may have been about to answer, or may not have been asked at all.
    if (answers[i] == Presence::kSilent && stop.IsRaised()) {
      answers[i] = Presence::kUnknown;
    } else if (DescriptorRefusalsHere() != refused) {
      answers[i] = Presence::kNoDescriptors;
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
