// vox discover: the search runs on a thread of its own, and each device is shown and saved by the
// main thread while others still answer, so that nothing is left to save when the search ends.
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <deque>
#include <optional>
#include <thread>
#include <utility>

#include <arpa/inet.h>
#include <sys/socket.h>

#include "tools/vox/CancelWatch.h"
#include "tools/vox/DeviceText.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/Output.h"
#include "tools/vox/Premises.h"
#include "tools/vox/Verbs.h"
#include "vox/drivers/net/search.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox::cli {

namespace {

using Clock = std::chrono::steady_clock;

// Search runs the search; devices are taken from it as they are found.
class Search {
 public:
  explicit Search(std::string address) : address_(std::move(address)) {
    thread_ = std::thread([this] { Run(); });
  }
  ~Search() {
    Stop();
    thread_.join();
  }
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

  void Stop() { stop_.Raise(); }  // from any thread

  // Next waits for a device; null when the search is over.
  DeviceInfo Next() VOX_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    while (found_.empty() && !over_) changed_.Wait(lock);
    if (found_.empty()) return nullptr;
    DeviceInfo device = std::move(found_.front());
    found_.pop_front();
    return device;
  }
  // Once Next gave null.
  bool Answered() const { return answered_; }
  const DeviceInfoDictionary& Result() const { return result_; }

 private:
  void Run() VOX_EXCLUDES(mutex_) {
    tagNETSEARCH how;
    how.pszAddress = address_.c_str();
    how.nStopFd = stop_.Get();
    how.found = [this](const DeviceInfo& device) {
      const MutexLock lock(mutex_);
      found_.push_back(device);
      changed_.NotifyOne();
    };
    result_ = searchNetworkDevices(nullptr, &answered_, how);
    const MutexLock lock(mutex_);
    over_ = true;
    changed_.NotifyOne();
  }

  const std::string address_;
  EventFd stop_;
  bool answered_ = false;        // the searching thread's until over_
  DeviceInfoDictionary result_;  // likewise
  Mutex mutex_;
  Condition changed_;
  std::deque<DeviceInfo> found_ VOX_GUARDED_BY(mutex_);
  bool over_ VOX_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

// The search itself does not say why nobody answered, so a machine without a road for the question
// is found out before it.
void CheckRoute(const std::string& address) {
  const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  ::setsockopt(socket.Get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(1);  // nothing is sent
  ::inet_pton(AF_INET, address.c_str(), &to.sin_addr);
  if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0) return;
  if (errno == ENETUNREACH)
    throw Failure(ExitStatus::kIoError,
                  "there is no network to search: this machine has no route to " + address +
                      "; connect it, or name a device's address with vox add");
}

struct Tally {
  unsigned found = 0, added = 0, changed = 0;
};

class Discovery {
 public:
  explicit Discovery(bool json) : json_(json), registry_(OpenRegistry()) {
    try {
      BeforeSharedChange();
    } catch (const Failure& failure) {
      unsaved_ = failure;
    }
    unheard_ = registry_.knownDevices().size();
  }

  void Show(const DeviceInfo& device) {
    const DeviceInfo known = registry_.infoForDevice(*device->String(kDeviceIdKey));
    const bool changed = known != nullptr && IsChanged(*known, *device);
    ++tally_.found;
    tally_.added += known == nullptr;
    tally_.changed += changed;
    unheard_ -= known != nullptr;
    Save(device);
    const DeviceInfo now = registry_.infoForDevice(*device->String(kDeviceIdKey));
    Print(now != nullptr ? *now : *device, known == nullptr ? "new"
                                           : changed        ? "changed"
                                                            : "known");
  }

  // What was found again under another address after it was shown.
  void Settle(const DeviceInfoDictionary& result) {
    for (const auto& [id, device] : result) Save(device);
  }

  void Summarise(bool answered, double seconds) const {
    if (json_) {
      PrintOut(JsonLine({{"found", tally_.found},
                         {"new", tally_.added},
                         {"changed", tally_.changed},
                         {"unheard", unheard_},
                         {"seconds", std::round(seconds * 1000) / 1000}}));
    } else {
      PrintOut(Words(seconds));
    }
    if (!answered)
      Note(
          "nobody answered; check that devices are on and in this network, or name one's address " +
          std::string("with vox add"));
    if (unsaved_) throw Failure(*unsaved_);
  }

 private:
  static bool IsChanged(const Dictionary& known, const Dictionary& found) {
    return known.String(kDeviceIpKey) != found.String(kDeviceIpKey) ||
           known.String(kDeviceNameKey) != found.String(kDeviceNameKey);
  }

  void Save(const DeviceInfo& device) {
    if (unsaved_) return;
    try {
      registry_.appendOneDeviceInfo(device);
      AfterChange();
    } catch (const Failure& failure) {
      unsaved_ = failure;
    }
  }

  void Print(const Dictionary& device, const char* state) const {
    if (!json_) return PrintOut(DeviceLine(device, state));
    Json record = DeviceRecord(device);
    record["state"] = state;
    PrintOut(JsonLine(record));
  }

  std::string Words(double seconds) const {
    char text[160];
    std::snprintf(text, sizeof text, "%u device%s found in %.1f s, %u new, %u changed",
                  tally_.found, tally_.found == 1 ? "" : "s", seconds, tally_.added,
                  tally_.changed);
    std::string line = text;
    if (unheard_ > 0)
      line += "; " + std::to_string(unheard_) + " remembered did not answer (vox list --online)";
    return line + "\n";
  }

  const bool json_;
  DevicesManager& registry_;
  Tally tally_;
  std::size_t unheard_ = 0;         // known devices that have not been found
  std::optional<Failure> unsaved_;  // why nothing is saved
};

}  // namespace

void RunDiscover(const DiscoverOptions& options) {
  CancelWatch watch;
  const Premises premises(options.with, false, watch);
  const std::string address = premises.IsVirtual() ? premises.Address() : tagNETSEARCH().pszAddress;
  CheckRoute(address);
  Discovery discovery(options.json);
  if (!network_ping_permitted()) NoteNoPings();
  const Clock::time_point start = Clock::now();
  Search search(address);
  CancelWatch::Attachment attachment(watch, [&search] { search.Stop(); });
  while (const DeviceInfo device = search.Next()) discovery.Show(device);
  discovery.Settle(search.Result());
  attachment.Detach();
  if (watch.Requested())
    throw Failure(ExitStatus::kCancelled, "cancelled; what was found till then is listed");
  watch.Finish();
  discovery.Summarise(search.Answered(),
                      std::chrono::duration<double>(Clock::now() - start).count());
}

}  // namespace vox::cli
