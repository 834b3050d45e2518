// vox discover: devices are shown and saved while others still answer, so that nothing is left to
// save when the search ends. Those at USB come first, at once.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include <arpa/inet.h>
#include <sys/socket.h>

#include "tools/vox/CancelWatch.h"
#include "tools/vox/DeviceText.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/NetworkSearch.h"
#include "tools/vox/Output.h"
#include "tools/vox/Premises.h"
#include "tools/vox/Verbs.h"
#include "vox/drivers/usb/UsbSearch.h"
#include "vox/platform/DescriptorRefusals.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::cli {

namespace {

using Clock = std::chrono::steady_clock;

// The search itself does not say why nobody answered, so a machine without a road for the question
// is found out before it.
std::optional<Failure> NoRoute(const std::string& address) {
  const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  ::setsockopt(socket.Get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(1);  // nothing is sent
  ::inet_pton(AF_INET, address.c_str(), &to.sin_addr);
  if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0)
    return std::nullopt;
  if (errno != ENETUNREACH) return std::nullopt;
  return Failure(ExitStatus::kIoError,
                 "there is no network to search: this machine has no route to " + address +
                     "; connect it, or name a device's address with vox add");
}

DeviceInfoDictionary SearchUsb(const Premises& premises) {
  return premises.IsVirtual() ? DeviceInfoDictionary() : searchUsbDevices(nullptr, 0);
}

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Of a device that is shown: what it is beside what was remembered.
enum class State { kNew, kChanged, kKnown };

const char* StateName(State state) {
  return state == State::kNew ? "new" : state == State::kChanged ? "changed" : "known";
}

class Discovery {
 public:
  explicit Discovery(bool json) : json_(json), registry_(OpenRegistry()) {
    try {
      BeforeSharedChange();
    } catch (const Failure& failure) {
      unsaved_ = failure;
    }
    for (const DeviceInfo& device : registry_.knownDevices()) {
      if (is_device_of_type(*device, kDeviceTypeNetwork)) unheard_.insert(IdOf(*device));
    }
  }

  // Show saves devices in one piece and prints them; each has another id.
  void Show(const DeviceInfoArray& devices) {
    std::vector<State> states;
    DeviceInfoDictionary by_id;
    for (const DeviceInfo& device : devices) {
      states.push_back(Count(device));
      by_id[IdOf(*device)] = device;
    }
    Save(by_id);
    for (std::size_t i = 0; i < devices.size(); ++i) {
      // What could not be saved is not taken over either, and its record is the old one.
      const DeviceInfo now = registry_.infoForDevice(IdOf(*devices[i]));
      Print(now != nullptr && !unsaved_ ? *now : *devices[i], states[i]);
    }
  }

  bool HasFound() const { return !shown_.empty(); }

  // Settle shows what was found again under another address or name after it was shown, and what
  // was not shown yet.
  void Settle(const DeviceInfoDictionary& result) {
    DeviceInfoArray news;
    for (const auto& [id, device] : result) {
      const auto shown = shown_.find(id);
      if (shown == shown_.end() || HasChanged(*shown->second.device, *device))
        news.push_back(device);
    }
    Show(news);
  }

  [[noreturn]] void GiveUp(ExitStatus status, std::string line) const {
    if (unsaved_)
      line += std::string("; not all that was found is remembered: ") + unsaved_->what();
    throw Failure(status, line);
  }

  [[noreturn]] void GiveUpForDescriptors() const {
    GiveUp(ExitStatus::kNoMemory,
           "too few file descriptors for the search, so devices may be missing; raise their limit "
           "(see ulimit -n) and try again");
  }

  void Summarise(bool answered, double seconds) const {
    if (json_) {
      PrintOut(JsonLine({{"found", shown_.size()},
                         {"new", Number(State::kNew)},
                         {"changed", Number(State::kChanged)},
                         {"unheard", unheard_.size()},
                         {"seconds", std::round(seconds * 1000) / 1000}}));
    } else {
      PrintOut(Words(seconds));
    }
    if (!answered && !HasFound())
      Note(
          "nobody answered; check that devices are on and in this network, or name one's address " +
          std::string("with vox add"));
    if (unsaved_) throw Failure(*unsaved_);
  }

 private:
  struct Shown {
    DeviceInfo device;  // as it was found
    State state;
  };

  static std::string IdOf(const Dictionary& device) {
    return device.String(kDeviceIdKey).value_or("");
  }

  // Of a device that was shown before it is news that it changed; it counts as what it was at
  // first, unless that was no news.
  State Count(const DeviceInfo& device) {
    const std::string id = IdOf(*device);
    const State first = StateOf(id, *device);
    const auto [shown, is_first] = shown_.try_emplace(id, Shown{device, first});
    unheard_.erase(id);
    if (is_first) return first;
    shown->second.device = device;
    if (shown->second.state == State::kKnown) shown->second.state = State::kChanged;
    return State::kChanged;
  }

  long Number(State state) const {
    return std::count_if(shown_.begin(), shown_.end(),
                         [state](const auto& entry) { return entry.second.state == state; });
  }

  State StateOf(const std::string& id, const Dictionary& device) const {
    const DeviceInfo known = registry_.infoForDevice(id);
    if (known == nullptr) return State::kNew;
    return HasChanged(*known, device) ? State::kChanged : State::kKnown;
  }

  void Save(const DeviceInfoDictionary& devices) {
    if (unsaved_) return;
    try {
      BeforeSharedChange();
      registry_.appendDevices(devices);
      AfterChange();
    } catch (const Failure& failure) {
      unsaved_ = failure;
    }
  }

  void Print(const Dictionary& device, State state) const {
    if (!json_) return PrintOut(DeviceLine(device, StateName(state)));
    Json record = DeviceRecord(device);
    record["state"] = StateName(state);
    PrintOut(JsonLine(record));
  }

  std::string Words(double seconds) const {
    char text[160];
    std::snprintf(text, sizeof text, "%zu device%s found in %.1f s, %ld new, %ld changed",
                  shown_.size(), shown_.size() == 1 ? "" : "s", seconds, Number(State::kNew),
                  Number(State::kChanged));
    std::string line = text;
    if (!unheard_.empty())
      line +=
          "; " + std::to_string(unheard_.size()) + " remembered did not answer (vox list --online)";
    return line + "\n";
  }

  const bool json_;
  DevicesManager& registry_;
  std::set<std::string> unheard_;       // ids of known network devices that have not been found
  std::map<std::string, Shown> shown_;  // by id
  std::optional<Failure> unsaved_;      // why nothing is saved
};

}  // namespace

void RunDiscover(const DiscoverOptions& options) {
  CancelWatch watch;
  const Premises premises(options.with, false, watch);
  const std::string address = premises.IsVirtual() ? premises.Address() : tagNETSEARCH().pszAddress;
  const Clock::time_point start = Clock::now();
  Discovery discovery(options.json);
  const std::uint32_t refused = DescriptorRefusalsHere();
  discovery.Settle(SearchUsb(premises));
  if (const auto failure = NoRoute(address)) {
    if (DescriptorRefusalsHere() != refused) discovery.GiveUpForDescriptors();
    if (!discovery.HasFound()) throw Failure(*failure);
    watch.Finish();
    Note(failure->what());
    return discovery.Summarise(false, SecondsSince(start));
  }
  NoteNoPings(network_ping_access());
  NetworkSearch search(address);
  CancelWatch::Attachment attachment(watch, [&search] { search.Stop(); });
  for (DeviceInfoArray found = search.Next(); !found.empty(); found = search.Next())
    discovery.Show(found);
  discovery.Settle(search.Result());
  discovery.Settle(SearchUsb(premises));  // what was plugged in meanwhile
  attachment.Detach();
  if (watch.Requested())
    discovery.GiveUp(ExitStatus::kCancelled, "cancelled; what was found till then is listed");
  if (search.OutOfMemory())
    discovery.GiveUp(ExitStatus::kNoMemory,
                     "not enough memory for the search, so devices may be missing; close other "
                     "programs and try again");
  if (search.OutOfDescriptors() || DescriptorRefusalsHere() != refused)
    discovery.GiveUpForDescriptors();
  watch.Finish();
  discovery.Summarise(search.Answered(), SecondsSince(start));
}

}  // namespace vox::cli
