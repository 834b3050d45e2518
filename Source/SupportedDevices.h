// SupportedDevices is the table of the models that the library accepts: which USB ids and which
// model names. It is read once, from the resource SupportedDevices.plist, and never changes.
//
//   Devices: an array of { searchString: how a model name begins, vendorId, productId: hexadecimal
//   }
//
// Entries that share both ids are one device record, a dictionary with the keys "vendorId" and
// "productId" (integers) and "searchString" (an array of those beginnings, in file order).
//
// Tests get a fresh table with SupportedDevices::Fresh (see Singleton.h) after pointing
// VOX_RESOURCES at a folder of theirs.
// Thread rule: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vox/Singleton.h"
#include "vox/platform/Export.h"
#include "vox/platform/PropertyValue.h"

namespace vox {

class VOX_EXPORT SupportedDevices : public Singleton<SupportedDevices> {
 public:
  using Record = std::shared_ptr<const Dictionary>;  // null: none
  using Number = std::optional<std::int64_t>;

  // enumerator gives the records, in table order; they live as long as the table.
  const std::vector<Record>& enumerator() const { return devices; }
  std::size_t count() const { return devices.size(); }

  // deviceByVendorIdAndProductId gives the first record with both ids; null when either is nothing.
  Record deviceByVendorIdAndProductId(Number vendorId, Number productId) const;
  bool existDeviceWithVendorAndProductId(Number vendorId, Number productId) const;

  // deviceByModelName gives the first record, in table order, that has a beginning of the name. An
  // empty beginning is none.
  Record deviceByModelName(const std::optional<std::string>& modelName) const;
  bool isSupportedModelName(const std::optional<std::string>& modelName) const;

 private:
  friend class Singleton<SupportedDevices>;
  SupportedDevices();
  ~SupportedDevices() = default;
  void add_entry(const Dictionary& entry);

  std::vector<Record> devices;
};

template <>
VOX_EXPORT Singleton<SupportedDevices>::Slot& Singleton<SupportedDevices>::slot();

// scan_hex reads hexadecimal text as the table's ids are written: blanks, then "0x" or not, then
// digits up to the first character that is none. Numbers beyond 32 bits are 0xFFFFFFFF.
// Returns: the number; nothing when there is no digit, or a sign.
std::optional<std::uint32_t> scan_hex(const std::string& text);

}  // namespace vox
