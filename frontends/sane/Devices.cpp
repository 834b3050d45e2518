#include "frontends/sane/Devices.h"

#include <algorithm>
#include <cctype>

#include <strings.h>

#include "frontends/sane/Log.h"
#include "tools/vox/CleanText.h"
#include "tools/vox/Failure.h"
#include "tools/vox/NetworkName.h"
#include "tools/vox/UsbDevice.h"
#include "vox/DevicesManager.h"
#include "vox/UserPreferences.h"
#include "vox/drivers/usb/UsbSearch.h"

namespace vox::sane {

namespace {

constexpr char kVendor[] = "Veltronix";
constexpr char kType[] = "multi-function peripheral";
constexpr std::chrono::milliseconds kListPatience{1'900}, kAskPatience{1'000};
constexpr std::chrono::seconds kBetweenSearches{10};
constexpr std::size_t kMacLength = 17;
constexpr std::size_t kKindLength = 4;  // of "net:" and "usb:"
constexpr std::size_t kMostAsked = 16;  // devices of vox.conf, each on a thread of its own

bool IsMac(std::string_view text) {
  if (text.size() != kMacLength) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (i % 3 == 2 ? c != ':' : std::isxdigit(c) == 0) return false;
  }
  return true;
}

bool IsSame(const std::string& a, const std::string& b) {
  return ::strcasecmp(a.c_str(), b.c_str()) == 0;
}

// Without the maker's name, which SANE has a field of its own for.
std::string ModelOf(const Dictionary& device) {
  const std::string model = cli::CleanText(device.String(kDeviceModelNameKey).value_or(""));
  const std::string maker = std::string(kVendor) + ' ';
  const std::string own = model.starts_with(maker) ? model.substr(maker.size()) : model;
  return own.empty() ? "scanner" : own;
}

void Sort(DeviceInfoArray& devices) {
  std::sort(devices.begin(), devices.end(), [](const DeviceInfo& a, const DeviceInfo& b) {
    return std::pair(ModelOf(*a), NameOf(*a)) < std::pair(ModelOf(*b), NameOf(*b));
  });
}

void Replace(DeviceInfoArray& devices, const DeviceInfo& device) {
  const std::string name = NameOf(*device);
  const auto old = std::find_if(devices.begin(), devices.end(),
                                [&](const DeviceInfo& other) { return NameOf(*other) == name; });
  if (old == devices.end()) {
    devices.push_back(device);
  } else {
    *old = device;
  }
}

// Named gives the device with that stable name, or null.
DeviceInfo Named(const std::string& name, const DeviceInfoArray& devices) {
  const auto found = std::find_if(devices.begin(), devices.end(), [&](const DeviceInfo& device) {
    return !name.empty() && IsSame(NameOf(*device), name);
  });
  return found != devices.end() ? *found : nullptr;
}

// A change of shared settings that cannot be read would lose what they hold.
bool MayRemember() {
  const FileState found = UserPreferences::instance().globalSettingsOutcome().found;
  return found != FileState::Unreadable && found != FileState::Damaged;
}

}  // namespace

bool IsMacName(const std::string& name) {
  return name.starts_with("net:") && IsMac(std::string_view(name).substr(4));
}

std::string NameOf(const Dictionary& device) {
  std::string name;
  if (is_device_of_type(device, kDeviceTypeUsb)) {
    const std::string serial = device.String(kDeviceSerialNumberKey).value_or("");
    if (!serial.empty()) name = "usb:" + serial;
  } else if (is_device_of_type(device, kDeviceTypeNetwork)) {
    const std::string mac = device.String(kDeviceMacKey).value_or("");
    const std::string address = device.String(kDeviceIpKey).value_or("");
    if (cli::IsDottedAddress(address)) name = "net:" + (IsMac(mac) ? mac : address);
  }
  return cli::CleanText(name) == name ? name : "";
}

void Devices::Synchronize() {
  DevicesManager& registry = DevicesManager::instance();
  registry.synchronizeDevices();
  known_.clear();
  for (const DeviceInfo& device : registry.knownDevices()) {
    if (is_device_of_type(*device, kDeviceTypeNetwork) && !NameOf(*device).empty())
      known_.push_back(device);
  }
  Sort(known_);
  for (const DeviceInfo& device : found_) Replace(known_, device);
}

bool Devices::Search::Begin(const std::string& address) {
  const auto now = Clock::now();
  if (running != nullptr && (!running->Over() || now - begun < kBetweenSearches)) return false;
  running.reset();
  running = std::make_unique<cli::NetworkSearch>(address);
  begun = now;
  return true;
}

// Collect takes what the search has found, and waits for more until the deadline or until the
// device called `until` is there, which it gives.
DeviceInfo Devices::Collect(Clock::time_point deadline, const std::string& until) {
  while (search_.running != nullptr) {
    const DeviceInfoArray found = search_.running->NextUntil(deadline);
    if (found.empty()) break;
    Take(found);
    if (DeviceInfo device = Named(until, found)) return device;
  }
  return nullptr;
}

// CollectConfigured takes what vox.conf's devices have answered, and waits for each until the
// deadline or until the device called `until` is there, which it gives.
DeviceInfo Devices::CollectConfigured(Clock::time_point deadline, const std::string& until) {
  for (const auto& [address, asked] : asked_) {
    if (asked.running == nullptr) continue;
    const DeviceInfoArray found = asked.running->NextUntil(deadline);
    Take(found);
    if (DeviceInfo device = Named(until, found)) return device;
  }
  return nullptr;
}

void Devices::Take(const DeviceInfoArray& found) {
  Remember(found);
  for (const DeviceInfo& device : found) {
    const std::string name = NameOf(*device);
    Log(2, "found %s at %s", name.c_str(), device->String(kDeviceIpKey).value_or("").c_str());
    if (name.empty()) continue;
    Replace(found_, device);
    Replace(known_, device);
    answered_[device->String(kDeviceIpKey).value_or("")] = name;
  }
}

void Devices::Remember(const DeviceInfoArray& found) {
  if (found.empty() || !MayRemember()) return;
  DeviceInfoDictionary by_id;
  for (const DeviceInfo& device : found) by_id[device->String(kDeviceIdKey).value_or("")] = device;
  DevicesManager::instance().appendDevices(by_id);
}

bool Devices::HasName(const std::string& name) const {
  return std::any_of(entries_.begin(), entries_.end(),
                     [&](const Entry& entry) { return IsSame(entry.name, name); });
}

void Devices::Add(const std::string& name, const std::string& model) {
  if (name.empty() || HasName(name)) return;
  Entry& entry = entries_.emplace_back(Entry{name, kVendor, model, {}});
  entry.device = {entry.name.c_str(), entry.vendor.c_str(), entry.model.c_str(), kType};
}

// The record of a device of vox.conf; null when there is none, and when one cannot be told from
// several: leases pass on, and a record keeps its address until its device is found elsewhere.
DeviceInfo Devices::RecordOf(const std::string& name) const {
  if (cli::IsUsbName(name)) return Named(name, attached_);
  const std::string address = name.substr(kKindLength);
  if (!cli::IsDottedAddress(address)) return Named(name, known_);
  const auto answered = answered_.find(address);
  DeviceInfo record;
  for (const DeviceInfo& device : known_) {
    if (device->String(kDeviceIpKey) != address) continue;
    if (answered != answered_.end() && NameOf(*device) != answered->second) continue;
    if (record != nullptr) return nullptr;
    record = device;
  }
  return record;
}

// The addresses of vox.conf that can be asked who is there. A host name is none: to look it up may
// take longer than a list may.
std::vector<std::string> Devices::ConfiguredAddresses() const {
  std::vector<std::string> addresses;
  for (const std::string& name : config_.devices) {
    const std::string address = name.substr(kKindLength);
    if (!cli::IsUsbName(name) && cli::IsDottedAddress(address)) addresses.push_back(address);
  }
  return addresses;
}

// Returns: whether anybody is asked now.
bool Devices::AskConfigured() {
  bool asked = false;
  for (const std::string& address : ConfiguredAddresses()) {
    if (RecordOf("net:" + address) != nullptr) continue;
    if (asked_.size() >= kMostAsked && !asked_.contains(address)) break;
    asked = asked_[address].Begin(address) || asked;
  }
  return asked;
}

// A device of vox.conf has its record's stable name when there is one, so that it is listed once.
void Devices::AddConfigured(bool network) {
  for (const std::string& name : config_.devices) {
    if (!cli::IsUsbName(name) && !network) continue;
    if (const DeviceInfo record = RecordOf(name)) {
      Add(NameOf(*record), ModelOf(*record));
    } else if (!cli::IsUsbName(name)) {
      Add(name, "scanner at " + name.substr(kKindLength));
    }
  }
}

void Devices::AddKnown(bool network) {
  for (const DeviceInfo& device : attached_) Add(NameOf(*device), ModelOf(*device));
  if (!network) return;
  for (const DeviceInfo& device : known_) Add(NameOf(*device), ModelOf(*device));
}

// Whether a person gets anything to choose from without a search.
bool Devices::KnowsAny() const {
  return !attached_.empty() || !known_.empty() || !entries_.empty();
}

const SANE_Device** Devices::List(bool local_only) {
  const auto begun = Clock::now();
  const auto deadline = begun + kListPatience;
  const bool network = !local_only || config_.network_when_local_only;
  const bool search = network && config_.discovery;
  list_.clear();
  entries_.clear();
  Synchronize();
  attached_.clear();
  for (const auto& [serial, device] : searchUsbDevices(nullptr, 0)) attached_.push_back(device);
  Sort(attached_);
  AddConfigured(network);
  const bool known = KnowsAny();
  const auto answered = network && AskConfigured() ? begun + kAskPatience : begun;
  if (search) search_.Begin(tagNETSEARCH().pszAddress);
  if (search && !known) Log(2, "nobody is known: the list waits for the search");
  if (search) Collect(known ? begun : deadline, "");
  CollectConfigured(answered, "");
  Remember(attached_);
  entries_.clear();
  AddConfigured(network);
  AddKnown(network);
  for (const Entry& entry : entries_) list_.push_back(&entry.device);
  list_.push_back(nullptr);
  return list_.data();
}

std::string Devices::First(const std::vector<std::string>& others) {
  List(false);
  const auto first = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return std::find(others.begin(), others.end(), entry.name) == others.end();
  });
  return first != entries_.end() ? first->name : "";
}

DeviceInfo Devices::Remembered(const std::string& name) {
  Synchronize();
  return Named(name, known_);
}

DeviceInfo Devices::AtUsb(const std::string& serial) {
  const DeviceInfoDictionary attached = searchUsbDevices(nullptr, 0);
  const auto found = attached.find(serial);
  return found != attached.end() ? found->second : nullptr;
}

// vox.conf's devices are asked even where it forbids to search, as they are for a list: their
// stable names come from there. They are asked whatever is remembered of their addresses, of which
// the search shows that something is out of date.
DeviceInfo Devices::SearchFor(const std::string& name) {
  const std::vector<std::string> addresses = ConfiguredAddresses();
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    if (i % kMostAsked == 0) asked_.clear();
    asked_[addresses[i]].Begin(addresses[i]);
    if ((i + 1) % kMostAsked != 0 && i + 1 != addresses.size()) continue;
    if (DeviceInfo device = CollectConfigured(Clock::now() + kAskPatience, name)) return device;
  }
  if (!config_.discovery) return nullptr;
  search_ = {};
  search_.Begin(tagNETSEARCH().pszAddress);
  return Collect(Clock::now() + kListPatience, name);
}

}  // namespace vox::sane
