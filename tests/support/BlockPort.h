// BlockPort is the USB of a machine with one scanner whose page is as long as a test wants and
// costs nothing to make: its blocks are told by headers, as the wire has them, and their bytes are
// those of Expected. It does what a good device does and nothing else; FakeUsbPort is the one that
// keeps books and makes trouble.
//
//   BlockPort port;                                  // in the machine's place while it lives
//   CTwImgIFUsb scanner(BlockPort::kModel, BlockPort::kSerial);
//   scanner.Open();
//   port.Load(page, block);                          // bytes
//   ... scanner.ReadScanData(...) ...
//
// Thread rule: one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "vox/platform/UsbPort.h"

namespace vox::test {

class BlockPort final : public UsbPort {
 public:
  static constexpr char kModel[] = "Veltronix QD7200", kSerial[] = "SN1";

  void Load(std::uint64_t page, std::uint32_t block);
  // Expected is whether the bytes are those of the page from `at` on.
  static bool Expected(std::uint64_t at, std::span<const std::uint8_t> bytes);

  // Held counts what is open: the device and its interface.
  int Held() const { return held_; }

  // What is run before and after the port moves bytes.
  std::function<void()> before_move, after_move;

  std::optional<Dictionary> IOServiceMatching(const std::string& class_name) override;
  IOReturn IOServiceGetMatchingServices(const Dictionary& matching,
                                        io_iterator_t* iterator) override;
  io_object_t IOIteratorNext(io_iterator_t iterator) override;
  void IOObjectRelease(io_object_t) override {}
  std::optional<PropertyValue> IORegistryEntryCreateCFProperty(io_service_t entry,
                                                               const std::string& key) override;
  IOReturn IOCreatePlugInInterfaceForService(io_service_t service, IOUSBUserClientType type,
                                             IOCFPlugInInterface** plugin) override;

 private:
  class Objects;
  // Read moves what a header or a block has for the host.
  IOReturn Read(std::span<std::uint8_t> to, std::uint32_t* size);

  std::uint64_t page_ = 0, sent_ = 0;  // bytes
  std::uint32_t block_ = 0;
  std::uint64_t block_left_ = 0;  // of the block whose header was sent
  bool given_ = false;            // by the iterator
  int held_ = 0;
  const Replaced in_place_{*this};
};

}  // namespace vox::test
