#include "tests/support/FakeUsbPort.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <gtest/gtest.h>

#include "tests/support/FakeUsbObjects.h"

namespace vox::test {
namespace {

constexpr char kClassKey[] = "IOProviderClass";

bool Matches(const Dictionary& matching, const FakeUsbDevice& device) {
  if (matching.String(kClassKey) != kIOUSBDeviceClassName) return false;
  const auto same = [&](const char* key) {
    return !matching.Contains(key) || matching.Value(key) == device.properties.Value(key);
  };
  return same(kUSBVendorID) && same(kUSBProductID);
}

}  // namespace

FakeUsbPort::FakeUsbPort() : in_place_(*this) {}

FakeUsbPort::~FakeUsbPort() = default;

int FakeUsbPort::Attach(FakeUsbDevice device) {
  const MutexLock lock(mutex_);
  devices_[++last_device_] = std::make_shared<Attached>(std::move(device));
  return last_device_;
}

void FakeUsbPort::Detach(int id) {
  const MutexLock lock(mutex_);
  const auto found = devices_.find(id);
  if (found == devices_.end()) return;
  found->second->gone.Raise();
  devices_.erase(found);
}

int FakeUsbPort::HeldRegistry() const {
  const MutexLock lock(mutex_);
  return static_cast<int>(entries_.size());
}

int FakeUsbPort::HeldInterfaces() const {
  const MutexLock lock(mutex_);
  return static_cast<int>(
      std::ranges::count_if(handed_, [](const auto& object) { return !object->released; }));
}

int FakeUsbPort::OpenDevices() const {
  const MutexLock lock(mutex_);
  return static_cast<int>(
      std::ranges::count_if(devices_, [](const auto& device) { return device.second->is_open; }));
}

int FakeUsbPort::OpenInterfaces() const {
  const MutexLock lock(mutex_);
  std::ptrdiff_t open = 0;
  for (const auto& [id, device] : devices_)
    open += std::ranges::count(device->interfaces_open, true);
  return static_cast<int>(open);
}

std::vector<FakeUsbCall> FakeUsbPort::Calls() const {
  const MutexLock lock(mutex_);
  return calls_;
}

std::vector<FakeUsbCall> FakeUsbPort::CallsOf(const std::string& name) const {
  std::vector<FakeUsbCall> calls = Calls();
  std::erase_if(calls, [&](const FakeUsbCall& call) { return call.name != name; });
  return calls;
}

int FakeUsbPort::Count(const std::string& name) const {
  return static_cast<int>(CallsOf(name).size());
}

void FakeUsbPort::Log(FakeUsbCall call) {
  call.when = std::chrono::steady_clock::now();
  calls_.push_back(std::move(call));
}

io_object_t FakeUsbPort::HandOut(Entry entry) {
  entries_.emplace(++last_object_, std::make_shared<Entry>(std::move(entry)));
  return last_object_;
}

FakeUsbPort::Entry* FakeUsbPort::Find(io_object_t object, const char* user) {
  const auto found = entries_.find(object);
  if (found != entries_.end()) return found->second.get();
  ADD_FAILURE() << user << " of the object " << object << ", which is not handed out";
  return nullptr;
}

template <class T>
T* FakeUsbPort::Keep(std::unique_ptr<T> object) {
  T* const kept = object.get();
  handed_.push_back(std::move(object));
  return kept;
}

std::optional<Dictionary> FakeUsbPort::IOServiceMatching(const std::string& class_name) {
  const MutexLock lock(mutex_);
  Log({"IOServiceMatching"});
  if (no_matching) return std::nullopt;
  return Dictionary{{kClassKey, class_name}};
}

IOReturn FakeUsbPort::IOServiceGetMatchingServices(const Dictionary& matching,
                                                   io_iterator_t* iterator) {
  const MutexLock lock(mutex_);
  Log({"IOServiceGetMatchingServices"});
  if (services != kIOReturnSuccess) return services;
  Entry found;
  found.is_iterator = true;
  for (const auto& [id, attached] : devices_) {
    if (Matches(matching, attached->device)) found.others.push_back({attached, -1});
  }
  std::ranges::reverse(found.others);
  *iterator = HandOut(std::move(found));
  return kIOReturnSuccess;
}

io_object_t FakeUsbPort::IOIteratorNext(io_iterator_t iterator) {
  const MutexLock lock(mutex_);
  Log({"IOIteratorNext"});
  Entry* const entry = Find(iterator, "IOIteratorNext");
  if (entry == nullptr || entry->others.empty()) return 0;
  Entry next = std::move(entry->others.back());
  entry->others.pop_back();
  return HandOut(std::move(next));
}

void FakeUsbPort::IOObjectRelease(io_object_t object) {
  const MutexLock lock(mutex_);
  Log({"IOObjectRelease"});
  if (Find(object, "IOObjectRelease") != nullptr) entries_.erase(object);
}

std::optional<PropertyValue> FakeUsbPort::IORegistryEntryCreateCFProperty(io_service_t entry,
                                                                          const std::string& key) {
  const MutexLock lock(mutex_);
  Log({"IORegistryEntryCreateCFProperty"});
  const Entry* const found = Find(entry, "IORegistryEntryCreateCFProperty");
  if (found == nullptr || found->attached == nullptr || found->attached->gone.IsRaised())
    return std::nullopt;
  return found->attached->device.properties.Value(key);
}

IOReturn FakeUsbPort::IOCreatePlugInInterfaceForService(io_service_t service,
                                                        IOUSBUserClientType type,
                                                        IOCFPlugInInterface** plugin) {
  const MutexLock lock(mutex_);
  Log({"IOCreatePlugInInterfaceForService"});
  const Entry* const found = Find(service, "IOCreatePlugInInterfaceForService");
  const bool of_interface = type == kIOUSBInterfaceUserClientTypeID;
  if (found == nullptr || found->is_iterator || of_interface != (found->interface >= 0))
    return kIOReturnBadArgument;
  if (found->attached->gone.IsRaised()) return kIOReturnNoDevice;
  const FakeUsbDevice& device = found->attached->device;
  const FakeUsbInterface* const shape =
      of_interface ? &device.interfaces[static_cast<std::size_t>(found->interface)] : nullptr;
  const IOReturn result = of_interface ? shape->plugin : device.plugin;
  const bool none = of_interface ? shape->no_plugin : device.no_plugin;
  if (result != kIOReturnSuccess || none) return result;
  *plugin = Keep(std::make_unique<PlugIn>(*this, found->attached, found->interface));
  return kIOReturnSuccess;
}

FakeUsbDevice StillImageDevice(const std::string& serial, std::uint32_t location) {
  FakeUsbDevice device;
  device.properties = {
      {kUSBVendorID, kFakeUsbVendor},          {kUSBProductID, kFakeUsbProduct},
      {kUSBSerialNumberString, serial},        {kUSBVendorString, "Veltronix"},
      {kUSBProductString, "QD7200"},           {kUSBDevicePropertyLocationID, location},
      {kUSBDeviceNode, "/dev/bus/usb/001/002"}};
  device.location = location;
  FakeUsbInterface interface;
  interface.endpoints = {{kUSBIn, kUSBBulk}, {kUSBOut, kUSBBulk}, {kUSBIn, kUSBInterrupt, 8}};
  device.interfaces.push_back(interface);
  return device;
}

}  // namespace vox::test
