#include "vox/platform/PropertyList.h"

#include <cstring>

#include "vox/platform/PropertyListGuard.h"
#include "vox/platform/PropertyListNodes.h"

namespace vox {
namespace {

// NodeReader copies a tree of libplist's nodes, which the guard has found to be shallow; they stay
// their owner's.
class NodeReader {
 public:
  std::optional<PropertyValue> Read(plist_t node) {
    if (++nodes_ > kPropertyListNodes) return std::nullopt;
    switch (::plist_get_node_type(node)) {
      case PLIST_BOOLEAN:
        return Boolean(node);
      case PLIST_UINT:
        return Integer(node);
      case PLIST_REAL:
        return Real(node);
      case PLIST_STRING:
        return String(node);
      case PLIST_DATE:
        return ReadDate(node);
      case PLIST_DATA:
        return ReadData(node);
      case PLIST_ARRAY:
        return ReadArray(node);
      case PLIST_DICT:
        return ReadDictionary(node);
      case PLIST_UID:
        return Uid(node);
      default:  // "null" of binary lists, which XML lists do not have
        return std::nullopt;
    }
  }

 private:
  static PropertyValue Boolean(plist_t node) {
    std::uint8_t value = 0;
    ::plist_get_bool_val(node, &value);
    return value != 0;
  }

  static PropertyValue Integer(plist_t node) {
    std::uint64_t value = 0;
    ::plist_get_uint_val(node, &value);
    if (value >> 63 != 0 && IsNegative(node)) return static_cast<std::int64_t>(value);
    return value;
  }

  // The node knows whether its highest bit is a sign, but shows it only in what it prints.
  static bool IsNegative(plist_t node) {
    char* xml = nullptr;
    std::uint32_t size = 0;
    ::plist_to_xml(node, &xml, &size);
    const OwnedMemory<char> owned(xml);
    return xml != nullptr && std::string_view(xml, size).find(">-") != std::string_view::npos;
  }

  static PropertyValue Real(plist_t node) {
    double value = 0;
    ::plist_get_real_val(node, &value);
    return value;
  }

  static PropertyValue String(plist_t node) {
    std::uint64_t size = 0;
    const char* text = ::plist_get_string_ptr(node, &size);
    return FitForXml(text != nullptr ? std::string_view(text, size) : std::string_view());
  }

  static PropertyValue ReadDate(plist_t node) {
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    ::plist_get_date_val(node, &seconds, &microseconds);
    return Date(std::chrono::seconds(kPropertyListEpoch + seconds));
  }

  static PropertyValue ReadData(plist_t node) {
    std::uint64_t size = 0;
    const char* bytes = ::plist_get_data_ptr(node, &size);
    if (bytes == nullptr) return Data();
    return Data(bytes, bytes + size);
  }

  // A reference into an archive of objects; XML has this form for it.
  static PropertyValue Uid(plist_t node) {
    std::uint64_t value = 0;
    ::plist_get_uid_val(node, &value);
    return Dictionary{{"CF$UID", value}};
  }

  std::optional<PropertyValue> ReadArray(plist_t node) {
    plist_array_iter position = nullptr;
    ::plist_array_new_iter(node, &position);
    const OwnedMemory<void> owned(position);
    Array array;
    for (;;) {
      plist_t item = nullptr;
      ::plist_array_next_item(node, position, &item);
      if (item == nullptr) return array;
      auto value = Read(item);
      if (!value) return std::nullopt;
      array.push_back(*std::move(value));
    }
  }

  std::optional<PropertyValue> ReadDictionary(plist_t node) {
    plist_dict_iter position = nullptr;
    ::plist_dict_new_iter(node, &position);
    const OwnedMemory<void> owned(position);
    Dictionary dictionary;
    for (;;) {
      char* key = nullptr;
      plist_t item = nullptr;
      ::plist_dict_next_item(node, position, &key, &item);
      const OwnedMemory<char> owned_key(key);
      if (item == nullptr) return dictionary;
      auto value = Read(item);
      if (!value || key == nullptr) return std::nullopt;
      dictionary.Set(FitForXml(key), *std::move(value));
    }
  }

  std::size_t nodes_ = 0;
};

OwnedNode ParseNodes(std::span<const std::uint8_t> bytes) {
  const auto* text = reinterpret_cast<const char*>(bytes.data());
  const auto size = static_cast<std::uint32_t>(bytes.size());  // the guard has bounded it
  plist_t root = nullptr;
  if (IsBinaryPropertyList(bytes)) {
    if (BinaryListIsWithinLimits(bytes)) ::plist_from_bin(text, size, &root);
  } else if (XmlListIsWithinLimits(bytes)) {
    ::plist_from_xml(text, size, &root);
  }
  return OwnedNode(root);
}

}  // namespace

std::optional<PropertyValue> ParsePropertyList(std::span<const std::uint8_t> bytes) {
  const ClassicNumbers classic;
  const OwnedNode root = ParseNodes(bytes);
  if (!root) return std::nullopt;
  return NodeReader().Read(root.get());
}

std::optional<PropertyValue> ParsePropertyList(std::string_view bytes) {
  return ParsePropertyList(
      std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

}  // namespace vox
