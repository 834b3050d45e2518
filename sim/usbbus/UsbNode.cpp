#include "sim/usbbus/UsbNode.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sim/usbbus/UsbText.h"

namespace vox::sim {
namespace {

struct Unref {
  void operator()(UMockdevIoctlData* data) const { g_object_unref(data); }
};

// Seen is the record that the program's argument points to; what is written to it reaches the
// program when the ioctl is completed.
template <class T>
class Seen {
 public:
  explicit Seen(UMockdevIoctlData* arg)
      : data_(umockdev_ioctl_data_resolve(arg, 0, sizeof(T), nullptr)) {}
  explicit operator bool() const { return data_ != nullptr; }
  T& operator*() const {
    void* const bytes = data_->data;
    return *static_cast<T*>(bytes);
  }
  T* operator->() const { return &**this; }

 private:
  std::unique_ptr<UMockdevIoctlData, Unref> data_;
};

constexpr std::uint32_t kCapabilities =
    USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_BULK_CONTINUATION |
    USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT | USBDEVFS_CAP_ZERO_PACKET;

std::optional<std::uint32_t> NumberAt(UMockdevIoctlData* arg) {
  const Seen<std::uint32_t> number(arg);
  if (!number) return std::nullopt;
  return *number;
}

}  // namespace

UsbNode::UsbNode(UsbDescription description, int address, UsbDeviceModel& model)
    : description_(std::move(description)),
      address_(address),
      model_(model),
      urbs_(description_, model) {
  for (const UsbInterface& interface : description_.interfaces) {
    interfaces_.push_back({nullptr, !interface.driver.empty()});
  }
}

// usbfs says POLLOUT when there is something to reap. umockdev's own node is a plain file, which
// always says so; a FIFO of one page says it when it is drained and not while it is full.
void UsbNode::MakeFile(const std::string& root) {
  const std::string path = root + UsbNodePath(description_.bus, address_);
  ::unlink(path.c_str());
  const MutexLock lock(mutex_);
  if (::mkfifo(path.c_str(), 0666) == 0) {
    file_.Reset(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  }
  if (!file_) throw std::runtime_error(path + ": " + std::strerror(errno));
  ::fcntl(file_.Get(), F_SETPIPE_SZ, 4096);
  ShowState();
}

void UsbNode::ShowState() {
  std::array<char, 4096> page{};
  if (urbs_.IsAnyDone()) {
    while (::read(file_.Get(), page.data(), page.size()) > 0) continue;
  } else {
    while (::write(file_.Get(), page.data(), page.size()) > 0) continue;
  }
}

bool UsbNode::OnIoctl(UMockdevIoctlClient* client) {
  const unsigned long request = umockdev_ioctl_client_get_request(client);
  if (_IOC_TYPE(request) != 'U') return false;
  int result = 0;
  {
    const MutexLock lock(mutex_);
    result = Answer(request, umockdev_ioctl_client_get_arg(client), client);
    ShowState();
  }
  umockdev_ioctl_client_complete(client, result < 0 ? -1 : result, result < 0 ? -result : 0);
  return true;
}

int UsbNode::Answer(unsigned long request, UMockdevIoctlData* arg, const void* client) {
  switch (request) {
    case USBDEVFS_SUBMITURB:
    case USBDEVFS_REAPURB:
    case USBDEVFS_REAPURBNDELAY:
    case USBDEVFS_DISCARDURB:
      return AnswerOfTransfer(request, arg, client);
    case USBDEVFS_GET_CAPABILITIES: {
      const Seen<std::uint32_t> capabilities(arg);
      if (!capabilities) return -EFAULT;
      *capabilities = kCapabilities;
      return 0;
    }
    default:
      return unplugged_ ? -ENODEV : AnswerOfInterface(request, arg, client);
  }
}

int UsbNode::AnswerOfTransfer(unsigned long request, UMockdevIoctlData* arg, const void* client) {
  if (request == USBDEVFS_SUBMITURB) {
    if (unplugged_) return -ENODEV;
    const int result = urbs_.Submit(arg, client);
    urbs_.Pump();
    return result;
  }
  if (request == USBDEVFS_DISCARDURB) {
    unsigned long address = 0;  // the argument is the transfer's address itself
    std::memcpy(&address, arg->data, sizeof address);
    return urbs_.Discard(address, client);
  }
  // Nothing may block here, so both kinds of reaping answer at once.
  const int result = urbs_.Reap(arg, client);
  return result == -EAGAIN && unplugged_ ? -ENODEV : result;
}

int UsbNode::AnswerOfInterface(unsigned long request, UMockdevIoctlData* arg, const void* client) {
  switch (request) {
    case USBDEVFS_DISCONNECT_CLAIM:
      return ClaimDetached(arg, client);
    case USBDEVFS_GETDRIVER:
      return DriverName(arg);
    case USBDEVFS_IOCTL:
      return BindDriver(arg);
    case USBDEVFS_SETCONFIGURATION:
    case USBDEVFS_SETINTERFACE:
    case USBDEVFS_RESET:
      return 0;
    default:
      break;
  }
  const auto number = NumberAt(arg);
  if (!number) return -EFAULT;
  switch (request) {
    case USBDEVFS_CLAIMINTERFACE:
      return Claim(*number, client);
    case USBDEVFS_RELEASEINTERFACE:
      return Release(*number, client);
    case USBDEVFS_CLEAR_HALT:
    case USBDEVFS_RESETEP: {
      const int result = urbs_.ClearHalt(static_cast<std::uint8_t>(*number));
      urbs_.Pump();
      return result;
    }
    default:
      return -ENOTTY;
  }
}

int UsbNode::Claim(std::size_t interface, const void* client) {
  if (interface >= interfaces_.size()) return -ENOENT;
  Interface& wanted = interfaces_[interface];
  if (wanted.owner == client) return 0;
  if (wanted.owner != nullptr || wanted.driver_bound) return -EBUSY;
  wanted.owner = client;
  model_.OnClaimed(interface, true);
  return 0;
}

int UsbNode::ClaimDetached(UMockdevIoctlData* arg, const void* client) {
  const Seen<usbdevfs_disconnect_claim> wanted(arg);
  if (!wanted) return -EFAULT;
  if (wanted->interface >= interfaces_.size()) return -ENOENT;
  interfaces_[wanted->interface].driver_bound = false;
  return Claim(wanted->interface, client);
}

int UsbNode::Release(std::size_t interface, const void* client) {
  if (interface >= interfaces_.size()) return -ENOENT;
  if (interfaces_[interface].owner != client) return -EINVAL;
  interfaces_[interface].owner = nullptr;
  model_.OnClaimed(interface, false);
  return 0;
}

int UsbNode::DriverName(UMockdevIoctlData* arg) {
  const Seen<usbdevfs_getdriver> asked(arg);
  if (!asked) return -EFAULT;
  if (asked->interface >= interfaces_.size()) return -ENOENT;
  const Interface& interface = interfaces_[asked->interface];
  std::string driver;
  if (interface.owner != nullptr) driver = "usbfs";
  if (interface.driver_bound) driver = description_.interfaces[asked->interface].driver;
  if (driver.empty()) return -ENODATA;
  const std::size_t length = std::min(driver.size(), sizeof asked->driver - 1);
  std::memcpy(asked->driver, driver.c_str(), length);
  asked->driver[length] = '\0';
  return 0;
}

int UsbNode::BindDriver(UMockdevIoctlData* arg) {
  const Seen<usbdevfs_ioctl> asked(arg);
  if (!asked) return -EFAULT;
  const auto number = static_cast<std::size_t>(asked->ifno);
  if (number >= interfaces_.size()) return -EINVAL;
  Interface& interface = interfaces_[number];
  if (asked->ioctl_code == static_cast<int>(USBDEVFS_DISCONNECT)) {
    if (!interface.driver_bound) return -ENODATA;
    interface.driver_bound = false;
    return 0;
  }
  if (asked->ioctl_code != static_cast<int>(USBDEVFS_CONNECT)) return -ENOTTY;
  if (interface.owner != nullptr || interface.driver_bound) return -EBUSY;
  interface.driver_bound = !description_.interfaces[number].driver.empty();
  return interface.driver_bound ? 1 : 0;
}

void UsbNode::OnGone(const void* client) {
  const MutexLock lock(mutex_);
  urbs_.Forget(client);
  for (std::size_t number = 0; number < interfaces_.size(); ++number) {
    if (interfaces_[number].owner == client) Release(number, client);
  }
  ShowState();
}

void UsbNode::Pump() {
  const MutexLock lock(mutex_);
  if (unplugged_) return;
  urbs_.Pump();
  ShowState();
}

void UsbNode::Unplug() {
  const MutexLock lock(mutex_);
  unplugged_ = true;
  urbs_.Fail(-ENODEV);
  ShowState();
}

bool UsbNode::HasDriver(std::size_t interface) {
  const MutexLock lock(mutex_);
  return interface < interfaces_.size() && interfaces_[interface].driver_bound;
}

}  // namespace vox::sim
