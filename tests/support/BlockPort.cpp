#include "tests/support/BlockPort.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "vox/platform/Bytes.h"

namespace vox::test {
namespace {

enum Object : io_object_t { kIterator = 1, kDevice = 2, kInterfaces = 3, kInterface = 4 };
constexpr std::uint8_t kPipeIn = 1;
constexpr std::size_t kHeader = 8;
constexpr std::size_t kPeriod = 65'521;  // a prime, so that no line or block divides it

const std::vector<std::uint8_t>& Period() {
  static const std::vector<std::uint8_t> bytes = [] {
    std::vector<std::uint8_t> made(kPeriod);
    for (std::size_t i = 0; i < kPeriod; ++i)
      made[i] = static_cast<std::uint8_t>(i * 7 + (i >> 8) * 3);
    return made;
  }();
  return bytes;
}

// Walk calls piece(offset, bytes of the page) for the pieces that make up `size` bytes from `at`
// on.
template <class Piece>
void Walk(std::uint64_t at, std::size_t size, const Piece& piece) {
  for (std::size_t done = 0; done < size;) {
    const std::size_t from = (at + done) % kPeriod;
    const std::size_t count = std::min(size - done, kPeriod - from);
    piece(done, std::span(Period()).subspan(from, count));
    done += count;
  }
}

}  // namespace

// All that is handed out lies in the port, so nothing of it is counted as an allocation.
class BlockPort::Objects {
 public:
  static IOReturn Count(BlockPort* port, int held) {
    port->held_ += held;
    return kIOReturnSuccess;
  }
  class InterfaceObject final : public IOUSBInterfaceInterface190 {
   public:
    IOReturn USBInterfaceOpen() override { return Count(port, 1); }
    IOReturn USBInterfaceClose() override { return Count(port, -1); }
    IOReturn GetNumEndpoints(std::uint8_t* count) override {
      *count = 2;
      return kIOReturnSuccess;
    }
    IOReturn GetPipeProperties(std::uint8_t pipe, std::uint8_t* direction, std::uint8_t* number,
                               std::uint8_t* transfer_type, std::uint16_t* max_packet_size,
                               std::uint8_t* interval) override {
      *direction = pipe == kPipeIn ? kUSBIn : kUSBOut;
      *number = pipe;
      *transfer_type = kUSBBulk;
      *max_packet_size = 512;
      *interval = 0;
      return kIOReturnSuccess;
    }
    IOReturn ClearPipeStallBothEnds(std::uint8_t) override { return kIOReturnSuccess; }
    IOReturn ReadPipeTO(std::uint8_t, void* buffer, std::uint32_t* size, std::uint32_t,
                        std::uint32_t) override {
      return port->Read({static_cast<std::uint8_t*>(buffer), *size}, size);
    }
    IOReturn WritePipeTO(std::uint8_t, const void*, std::uint32_t, std::uint32_t,
                         std::uint32_t) override {
      return kIOReturnSuccess;
    }
    void Release() override {}
    BlockPort* port = nullptr;
  };
  class DeviceObject final : public IOUSBDeviceInterface182 {
   public:
    IOReturn USBDeviceOpenSeize() override { return Count(port, 1); }
    IOReturn USBDeviceClose() override { return Count(port, -1); }
    IOReturn GetLocationID(std::uint32_t* location) override {
      *location = 1;
      return kIOReturnSuccess;
    }
    IOReturn CreateInterfaceIterator(const IOUSBFindInterfaceRequest&,
                                     io_iterator_t* iterator) override {
      port->given_ = false;
      *iterator = kInterfaces;
      return kIOReturnSuccess;
    }
    void Release() override {}
    BlockPort* port = nullptr;
  };
  class PlugInObject final : public IOCFPlugInInterface {
   public:
    IOReturn QueryInterface(IOUSBDeviceInterface182** device) override {
      *device = &Device();
      return kIOReturnSuccess;
    }
    IOReturn QueryInterface(IOUSBInterfaceInterface190** interface) override {
      *interface = &Interface();
      return kIOReturnSuccess;
    }
    void Release() override {}
  };

  static InterfaceObject& Interface() {
    static InterfaceObject interface;
    return interface;
  }
  static DeviceObject& Device() {
    static DeviceObject device;
    return device;
  }
  static PlugInObject& PlugIn() {
    static PlugInObject plugin;
    return plugin;
  }
};

void BlockPort::Load(std::uint64_t page, std::uint32_t block) {
  page_ = page;
  block_ = block;
  sent_ = block_left_ = 0;
  Period();  // is made once; who moves bytes later needs no memory
}

bool BlockPort::Expected(std::uint64_t at, std::span<const std::uint8_t> bytes) {
  bool same = true;
  Walk(at, bytes.size(), [&](std::size_t offset, std::span<const std::uint8_t> piece) {
    same = same && std::memcmp(bytes.data() + offset, piece.data(), piece.size()) == 0;
  });
  return same;
}

IOReturn BlockPort::Read(std::span<std::uint8_t> to, std::uint32_t* size) {
  if (before_move) before_move();
  if (block_left_ == 0 && to.size() >= kHeader) {
    block_left_ = std::min<std::uint64_t>(block_, page_ - sent_);
    std::array<std::uint8_t, kHeader> header{0, 0, 0, 0, 0x32, 0, 0, 0};
    StoreLe32(header.data(), static_cast<std::uint32_t>(block_left_));
    if (block_left_ == 0) header[5] = 2;  // the page's end
    std::copy(header.begin(), header.end(), to.begin());
    *size = kHeader;
  } else {
    *size = static_cast<std::uint32_t>(std::min<std::uint64_t>(to.size(), block_left_));
    Walk(sent_, *size, [&](std::size_t offset, std::span<const std::uint8_t> piece) {
      std::memcpy(to.data() + offset, piece.data(), piece.size());
    });
    sent_ += *size;
    block_left_ -= *size;
  }
  if (after_move) after_move();
  return kIOReturnSuccess;
}

std::optional<Dictionary> BlockPort::IOServiceMatching(const std::string&) {
  return Dictionary{};
}

IOReturn BlockPort::IOServiceGetMatchingServices(const Dictionary&, io_iterator_t* iterator) {
  given_ = false;
  *iterator = kIterator;
  return kIOReturnSuccess;
}

io_object_t BlockPort::IOIteratorNext(io_iterator_t iterator) {
  if (std::exchange(given_, true)) return 0;
  return iterator == kIterator ? kDevice : kInterface;
}

std::optional<PropertyValue> BlockPort::IORegistryEntryCreateCFProperty(
    io_service_t, const std::string& key) try {
  if (key != kUSBSerialNumberString) return std::nullopt;
  return PropertyValue(kSerial);
} catch (const std::bad_alloc&) {
  return std::nullopt;  // as the machine's own
}

IOReturn BlockPort::IOCreatePlugInInterfaceForService(io_service_t, IOUSBUserClientType,
                                                      IOCFPlugInInterface** plugin) {
  Objects::Device().port = Objects::Interface().port = this;
  *plugin = &Objects::PlugIn();
  return kIOReturnSuccess;
}

}  // namespace vox::test
