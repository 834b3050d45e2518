// The registry of the Linux port; UsbObjects.h has the plug-ins.
#include "vox/platform/UsbPort.h"

#include <map>
#include <memory>
#include <new>
#include <utility>
#include <variant>

#include "vox/platform/Mutex.h"
#include "vox/platform/UsbObjects.h"
#include "vox/platform/UsbRecords.h"

namespace vox {
namespace {

constexpr char kProviderClass[] = "IOProviderClass";

struct InterfaceEntry {
  std::shared_ptr<UsbSession> session;
  UsbInterfaceShape shape;
};
using Object = std::variant<UsbRecord, InterfaceEntry>;
struct Iterator {
  std::vector<Object> objects;
  std::size_t next = 0;
};
using Entry = std::variant<Object, Iterator>;

class LinuxUsbPort final : public UsbPort, public UsbHandOut {
 public:
  std::optional<Dictionary> IOServiceMatching(const std::string& class_name) override try {
    return Dictionary{{kProviderClass, class_name}};
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }

  IOReturn IOServiceGetMatchingServices(const Dictionary& matching,
                                        io_iterator_t* iterator) override try {
    Iterator matches;
    if (matching.String(kProviderClass) == kIOUSBDeviceClassName) {
      std::vector<UsbRecord> records;
      const IOReturn read = ReadUsbRecords(&records);
      if (read != kIOReturnSuccess) return read;
      for (UsbRecord& record : records) {
        if (MatchesUsbDevice(record, matching)) matches.objects.emplace_back(std::move(record));
      }
    }
    *iterator = Add(std::move(matches));
    return kIOReturnSuccess;
  } catch (const std::bad_alloc&) {
    return kIOReturnNoMemory;
  }

  // libusb starts a thread that listens to the kernel with its first context and ends it with the
  // last: whoever looks at the bus again and again waits for that thread each time.
  std::shared_ptr<void> Attend() override try {
    libusb_context* context = nullptr;
    if (libusb_init(&context) < 0) return nullptr;
    return std::shared_ptr<void>(LibUsbContext(context));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }

  io_object_t IOIteratorNext(io_iterator_t iterator) override try {
    const MutexLock lock(mutex_);
    const auto found = entries_.find(iterator);
    if (found == entries_.end()) return 0;
    auto* const walk = std::get_if<Iterator>(&found->second);
    if (walk == nullptr || walk->next == walk->objects.size()) return 0;
    return AddLocked(std::move(walk->objects[walk->next++]));
  } catch (const std::bad_alloc&) {
    return 0;
  }

  // What the object held is given back outside of the lock: it may close a device.
  void IOObjectRelease(io_object_t object) override {
    std::map<io_object_t, Entry>::node_type released;
    const MutexLock lock(mutex_);
    released = entries_.extract(object);
  }

  std::optional<PropertyValue> IORegistryEntryCreateCFProperty(io_service_t entry,
                                                               const std::string& key) override
      try {
    const auto object = Find(entry);
    if (!object) return std::nullopt;
    const auto* const record = std::get_if<UsbRecord>(&*object);
    if (record == nullptr) return std::nullopt;
    return UsbProperty(*record, key);
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }

  IOReturn IOCreatePlugInInterfaceForService(io_service_t service, IOUSBUserClientType type,
                                             IOCFPlugInInterface** plugin) override try {
    *plugin = nullptr;
    const auto object = Find(service);
    if (!object) return kIOReturnBadArgument;
    if (const auto* const record = std::get_if<UsbRecord>(&*object)) {
      if (type != kIOUSBDeviceUserClientTypeID) return kIOReturnBadArgument;
      *plugin = NewUsbDevicePlugIn(*record, *this);
      return kIOReturnSuccess;
    }
    if (type != kIOUSBInterfaceUserClientTypeID) return kIOReturnBadArgument;
    const auto& interface = std::get<InterfaceEntry>(*object);
    *plugin = NewUsbInterfacePlugIn(interface.session, interface.shape);
    return kIOReturnSuccess;
  } catch (const std::bad_alloc&) {
    return kIOReturnNoMemory;
  }

  io_iterator_t HandOut(const std::shared_ptr<UsbSession>& session,
                        std::vector<UsbInterfaceShape> interfaces) override {
    Iterator walk;
    for (UsbInterfaceShape& shape : interfaces) {
      walk.objects.emplace_back(InterfaceEntry{session, std::move(shape)});
    }
    return Add(std::move(walk));
  }

 private:
  io_object_t Add(Entry entry) VOX_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return AddLocked(std::move(entry));
  }

  // Numbers come round after four thousand million; one in use is not given again.
  io_object_t AddLocked(Entry entry) VOX_REQUIRES(mutex_) {
    do {
      ++last_;
    } while (last_ == 0 || entries_.contains(last_));
    entries_.emplace(last_, std::move(entry));
    return last_;
  }

  std::optional<Object> Find(io_object_t object) const VOX_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    const auto found = entries_.find(object);
    if (found == entries_.end()) return std::nullopt;
    const auto* const entry = std::get_if<Object>(&found->second);
    return entry != nullptr ? std::optional<Object>(*entry) : std::nullopt;
  }

  mutable Mutex mutex_;
  std::map<io_object_t, Entry> entries_ VOX_GUARDED_BY(mutex_);
  io_object_t last_ VOX_GUARDED_BY(mutex_) = 0;
};

}  // namespace

template <>
Service<UsbPort>::Where& Service<UsbPort>::Place() {
  static LinuxUsbPort& own = *new LinuxUsbPort;  // never destroyed: threads may outlive main
  static Where where{own};
  return where;
}

}  // namespace vox
