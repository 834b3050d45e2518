#include "vox/SupportedDevices.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "vox/platform/PropertyListFile.h"
#include "vox/platform/Resources.h"

namespace vox {
namespace {

// -1: no digit. The locale has no say in it.
int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<std::uint32_t> id_of(const Dictionary& entry, const char* key) {
  const auto text = entry.String(key);
  return text ? scan_hex(*text) : std::nullopt;
}

bool has_beginning_of(const Dictionary& record, const std::string& modelName) {
  const Array* prefixes = record.AsArray("searchString");
  return prefixes != nullptr &&
         std::any_of(prefixes->begin(), prefixes->end(), [&](const PropertyValue& prefix) {
           const std::string* text = prefix.AsString();
           return text != nullptr && !text->empty() && modelName.starts_with(*text);
         });
}

}  // namespace

std::optional<std::uint32_t> scan_hex(const std::string& text) {
  std::string_view left(text);
  left.remove_prefix(std::min(left.find_first_not_of(" \t\n\r\f\v"), left.size()));
  if (left.starts_with("0x") || left.starts_with("0X")) left.remove_prefix(2);
  if (left.empty() || hex_digit(left.front()) < 0) return std::nullopt;
  std::uint64_t number = 0;
  constexpr std::uint64_t greatest = std::numeric_limits<std::uint32_t>::max();
  for (; !left.empty() && hex_digit(left.front()) >= 0; left.remove_prefix(1)) {
    number = std::min(number * 16 + static_cast<std::uint64_t>(hex_digit(left.front())), greatest);
  }
  return static_cast<std::uint32_t>(number);
}

template <>
Singleton<SupportedDevices>::Slot& Singleton<SupportedDevices>::slot() {
  static Slot& slot = *new Slot;  // never destroyed: threads may outlive main
  return slot;
}

SupportedDevices::SupportedDevices() {
  const DictionaryFile file = ReadDictionaryFile(ResourcePath("SupportedDevices", "plist"));
  const Array* entries = file.content.AsArray("Devices");
  if (entries == nullptr) return;
  devices.reserve(entries->size());
  for (const PropertyValue& entry : *entries) {
    if (const Dictionary* dictionary = entry.AsDictionary()) add_entry(*dictionary);
  }
}

void SupportedDevices::add_entry(const Dictionary& entry) {
  const auto searchString = entry.String("searchString");
  const auto vendorId = id_of(entry, "vendorId");
  const auto productId = id_of(entry, "productId");
  if (!searchString || !vendorId || !productId) return;

  const Record known = deviceByVendorIdAndProductId(*vendorId, *productId);
  Dictionary record =
      known ? *known : Dictionary{{"vendorId", *vendorId}, {"productId", *productId}};
  const Array* before = record.AsArray("searchString");
  Array prefixes = before != nullptr ? *before : Array();
  prefixes.emplace_back(*searchString);
  record.Set("searchString", std::move(prefixes));

  auto changed = std::make_shared<const Dictionary>(std::move(record));
  if (known) {
    *std::find(devices.begin(), devices.end(), known) = std::move(changed);
  } else {
    devices.push_back(std::move(changed));
  }
}

SupportedDevices::Record SupportedDevices::deviceByVendorIdAndProductId(Number vendorId,
                                                                        Number productId) const {
  if (!vendorId || !productId) return nullptr;
  for (const Record& record : devices) {
    if (record->Integer("vendorId") == vendorId && record->Integer("productId") == productId)
      return record;
  }
  return nullptr;
}

bool SupportedDevices::existDeviceWithVendorAndProductId(Number vendorId, Number productId) const {
  return deviceByVendorIdAndProductId(vendorId, productId) != nullptr;
}

SupportedDevices::Record SupportedDevices::deviceByModelName(
    const std::optional<std::string>& modelName) const {
  if (!modelName) return nullptr;
  for (const Record& record : devices) {
    if (has_beginning_of(*record, *modelName)) return record;
  }
  return nullptr;
}

bool SupportedDevices::isSupportedModelName(const std::optional<std::string>& modelName) const {
  return modelName && deviceByModelName(modelName) != nullptr;
}

}  // namespace vox
