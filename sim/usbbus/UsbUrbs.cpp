#include "sim/usbbus/UsbUrbs.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <linux/usbdevice_fs.h>

namespace vox::sim {
namespace {

constexpr std::uint8_t kToHost = 0x80;
constexpr std::size_t kGreatestUrbPacket = 1024;
constexpr std::size_t kGreatestUrb = 16u << 20;  // what the kernel allows all programs together

}  // namespace

UsbUrbs::UsbUrbs(const UsbDescription& description, UsbDeviceModel& model) : model_(model) {
  for (const UsbInterface& interface : description.interfaces) {
    for (const UsbEndpoint& endpoint : interface.endpoints) {
      pipes_[endpoint.address].endpoint = endpoint;
    }
  }
}

usbdevfs_urb& UsbUrbs::Of(const Urb& urb) {
  void* const bytes = urb.data->data;
  return *static_cast<usbdevfs_urb*>(bytes);
}

// The buffer was resolved when the transfer was submitted; this finds it again.
std::span<std::uint8_t> UsbUrbs::Buffer(const Urb& urb) {
  const auto length = static_cast<std::size_t>(Of(urb).buffer_length);
  if (length == 0) return {};
  const Data buffer(
      umockdev_ioctl_data_resolve(urb.data.get(), offsetof(usbdevfs_urb, buffer), length, nullptr));
  if (!buffer) return {};
  return {buffer->data, length};
}

int UsbUrbs::Submit(UMockdevIoctlData* arg, const void* client) {
  Urb urb{Data(umockdev_ioctl_data_resolve(arg, 0, sizeof(usbdevfs_urb), nullptr)), client};
  if (!urb.data) return -EFAULT;
  const usbdevfs_urb& record = Of(urb);
  if (record.buffer_length < 0) return -EINVAL;
  if (static_cast<std::size_t>(record.buffer_length) > kGreatestUrb) return -ENOMEM;
  if (record.buffer_length > 0 && Buffer(urb).empty()) return -EFAULT;
  if (record.type == USBDEVFS_URB_TYPE_CONTROL) {
    Finish(std::move(urb), -EPIPE);  // the descriptors' texts are had from the file system
    return 0;
  }
  const auto pipe = pipes_.find(record.endpoint);
  if (pipe == pipes_.end()) return -ENOENT;
  pipe->second.waiting.push_back(std::move(urb));
  return 0;
}

int UsbUrbs::Reap(UMockdevIoctlData* arg, const void* client) {
  const auto urb =
      std::ranges::find_if(done_, [&](const Urb& done) { return done.client == client; });
  if (urb == done_.end()) return -EAGAIN;
  const Data slot(umockdev_ioctl_data_resolve(arg, 0, sizeof(void*), nullptr));
  if (!slot) return -EFAULT;
  umockdev_ioctl_data_set_ptr(slot.get(), 0, urb->data.get());
  done_.erase(urb);
  return 0;
}

int UsbUrbs::Discard(unsigned long address, const void* client) {
  for (auto& [number, pipe] : pipes_) {
    const auto urb = std::ranges::find_if(pipe.waiting, [&](const Urb& waiting) {
      return waiting.client == client && waiting.data->client_addr == address;
    });
    if (urb == pipe.waiting.end()) continue;
    Urb discarded = std::move(*urb);
    pipe.waiting.erase(urb);
    Finish(std::move(discarded), -ENOENT);
    return 0;
  }
  return -EINVAL;
}

int UsbUrbs::ClearHalt(std::uint8_t endpoint) {
  const auto pipe = pipes_.find(endpoint);
  if (pipe == pipes_.end()) return -ENOENT;
  pipe->second.halted = false;
  model_.OnClearHalt(endpoint);
  return 0;
}

void UsbUrbs::Pump() {
  bool moved = true;
  while (moved) {
    moved = false;
    for (auto& [number, pipe] : pipes_) moved = MoveOne(pipe) || moved;
  }
}

void UsbUrbs::Fail(int status) {
  for (auto& [number, pipe] : pipes_) {
    while (!pipe.waiting.empty()) {
      Urb urb = std::move(pipe.waiting.front());
      pipe.waiting.pop_front();
      Finish(std::move(urb), status);
    }
  }
}

void UsbUrbs::Forget(const void* client) {
  const auto is_of_client = [&](const Urb& urb) { return urb.client == client; };
  for (auto& [number, pipe] : pipes_) std::erase_if(pipe.waiting, is_of_client);
  std::erase_if(done_, is_of_client);
}

void UsbUrbs::Finish(Urb urb, int status) {
  Of(urb).status = status;
  Of(urb).actual_length = static_cast<int>(urb.moved);
  done_.push_back(std::move(urb));
}

// One packet of the first transfer that waits at the endpoint; false: none can move.
bool UsbUrbs::MoveOne(Pipe& pipe) {
  if (pipe.waiting.empty()) return false;
  Urb& urb = pipe.waiting.front();
  int status = 1;  // 1: the transfer has not ended
  bool moved = true;
  if (pipe.halted) {
    status = -EPIPE;
  } else if ((pipe.endpoint.address & kToHost) != 0) {
    moved = MoveIn(pipe, urb, &status);
  } else {
    moved = MoveOut(pipe, urb, &status);
  }
  if (status <= 0) {
    Urb ended = std::move(urb);
    pipe.waiting.pop_front();
    Finish(std::move(ended), status);
  }
  return moved;
}

bool UsbUrbs::MoveIn(Pipe& pipe, Urb& urb, int* status) {
  std::array<std::uint8_t, kGreatestUrbPacket> packet;
  const std::size_t size = pipe.endpoint.packet;
  const auto left = Buffer(urb).subspan(urb.moved);
  const UsbSent sent = model_.OnPacketIn(pipe.endpoint.address, std::span(packet).first(size));
  if (sent.answer == UsbAnswer::kNak) return false;
  if (sent.answer == UsbAnswer::kStall) {
    pipe.halted = true;
    *status = -EPIPE;
    return true;
  }
  const std::size_t taken = std::min({sent.length, size, left.size()});
  std::copy_n(packet.begin(), taken, left.begin());
  urb.moved += taken;
  if (sent.length > left.size()) {
    *status = -EOVERFLOW;
  } else if (sent.length < size || taken == left.size()) {
    *status = 0;
  }
  return true;
}

bool UsbUrbs::MoveOut(Pipe& pipe, Urb& urb, int* status) {
  const std::size_t size = pipe.endpoint.packet;
  const auto buffer = Buffer(urb);
  const auto packet = buffer.subspan(urb.moved).first(std::min(size, buffer.size() - urb.moved));
  const UsbAnswer answer = model_.OnPacketOut(pipe.endpoint.address, packet);
  if (answer == UsbAnswer::kNak) return false;
  if (answer == UsbAnswer::kStall) {
    pipe.halted = true;
    *status = -EPIPE;
    return true;
  }
  urb.moved += packet.size();
  urb.zero_sent = urb.zero_sent || packet.empty();
  const bool wants_zero = (Of(urb).flags & USBDEVFS_URB_ZERO_PACKET) != 0 && packet.size() == size;
  if (urb.moved == buffer.size() && (urb.zero_sent || !wants_zero)) *status = 0;
  return true;
}

}  // namespace vox::sim
