// What is plugged into the emulated bus: how a device describes itself, and what it does with each
// packet.
//
// A device speaks in packets, as on a real bus. A host's transfer ends when it is full or when the
// device sends a packet that is shorter than its endpoint's packet size; a host that leaves less
// room than the device's next packet needs loses its transfer to an overflow.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vox::sim {

struct UsbEndpoint {
  std::uint8_t address = 0;    // bit 7: to the host
  std::uint8_t type = 2;       // 2 bulk, 3 interrupt
  std::uint16_t packet = 512;  // bytes
  std::uint8_t interval = 0;   // as in the descriptor
};

struct UsbInterface {
  std::uint8_t interface_class = 6, subclass = 1, protocol = 1;  // still image
  std::vector<UsbEndpoint> endpoints = {{.address = 0x81}, {.address = 0x02}};
  std::string driver = {};  // the kernel driver that is bound to it; empty: none
};

struct UsbDescription {
  int bus = 1;                   // 1 to 255
  std::vector<int> ports = {1};  // on the way from the root hub; the hubs between are made
  std::uint16_t vendor = 0, product = 0;
  // The texts as the system keeps them, in UTF-8 unless a test says otherwise; none: not given.
  std::optional<std::string> manufacturer = {}, product_name = {}, serial = {};
  std::vector<UsbInterface> interfaces = {UsbInterface{}};
};

enum class UsbAnswer : std::uint8_t {
  kAck,
  kNak,    // not now: asked again after the next packet, or once the device calls wake
  kStall,  // the endpoint is halted until the host clears it
};

struct UsbSent {
  UsbAnswer answer = UsbAnswer::kNak;
  std::size_t length = 0;  // bytes of the packet, with kAck; 0 is a zero-length packet
};

// Thread rule: the bus calls a model from threads of its own, one call at a time. A call neither
// blocks nor calls the bus; wake may be called from any thread at any time, also after the device
// was unplugged.
class UsbDeviceModel {
 public:
  virtual ~UsbDeviceModel() = default;
  virtual void OnPlugged(const std::function<void()>& /*wake*/) {}
  // OnPacketOut: the host's packet to an endpoint; a zero-length packet is empty.
  virtual UsbAnswer OnPacketOut(std::uint8_t endpoint, std::span<const std::uint8_t> packet) = 0;
  // OnPacketIn: the host waits for a packet. room is the endpoint's packet size.
  virtual UsbSent OnPacketIn(std::uint8_t endpoint, std::span<std::uint8_t> room) = 0;
  virtual void OnClearHalt(std::uint8_t /*endpoint*/) {}
  // OnClaimed: a host program took (true) or gave back an interface, by its place in interfaces.
  virtual void OnClaimed(std::size_t /*interface*/, bool /*claimed*/) {}
};

}  // namespace vox::sim
