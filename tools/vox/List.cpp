// vox list: what is remembered; the network is asked for --online alone.
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tools/vox/CancelWatch.h"
#include "tools/vox/DeviceText.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/Output.h"
#include "tools/vox/Premises.h"
#include "tools/vox/Presence.h"
#include "tools/vox/Verbs.h"

namespace vox::cli {

namespace {

// What is known of a device without asking it, if anything.
std::optional<Presence> Unasked(const Dictionary& device) {
  return HasBrokenAddress(device) ? std::optional(Presence::kBrokenAddress) : std::nullopt;
}

Json IsOnline(Presence presence) {
  if (presence == Presence::kUnknown || presence == Presence::kNoDescriptors) return nullptr;
  return presence == Presence::kOnline || presence == Presence::kRenamed;
}

std::vector<Presence> AskAll(const DeviceInfoArray& devices, CancelWatch& watch) {
  const CancelWatch::Attachment waits(watch, [] {});  // they end by the watch's descriptor
  return AskPresence(devices, watch.Fd());
}

std::string Row(const Dictionary& device, const ListOptions& options,
                std::optional<Presence> presence) {
  if (!options.json) return DeviceLine(device, presence ? PresenceWords(*presence) : "");
  Json record = DeviceRecord(device);
  if (options.online) record["online"] = IsOnline(*presence);
  if (presence) record["state"] = PresenceName(*presence);
  return JsonLine(record);
}

}  // namespace

void RunList(const ListOptions& options) {
  CancelWatch watch;
  const Premises premises(options.with, false, watch);
  premises.RememberVirtual();
  const DeviceInfoArray devices = SortedDevices(OpenRegistry());
  std::vector<Presence> answers;
  if (options.online) answers = AskAll(devices, watch);
  watch.Finish();  // what is known is told, cancelled or not
  std::string text;
  for (std::size_t i = 0; i < devices.size(); ++i)
    text += Row(*devices[i], options, options.online ? answers[i] : Unasked(*devices[i]));
  PrintOut(text);
  for (const DeviceInfo& device : devices) {
    if (HasBrokenAddress(*device)) Note(BrokenAddressLine(*device));
  }
  if (watch.Requested())
    throw Failure(ExitStatus::kCancelled, "cancelled; what was known till then is listed");
  if (std::find(answers.begin(), answers.end(), Presence::kNoDescriptors) != answers.end())
    throw Failure(ExitStatus::kNoMemory,
                  std::string("cannot ask every device: ") + kTooFewDescriptors);
  if (devices.empty()) Note("no device is remembered; find some with vox discover");
}

}  // namespace vox::cli
