#include "vox/platform/PropertyList.h"

#include <algorithm>
#include <limits>

#include "vox/platform/PropertyListNodes.h"

namespace vox {
namespace {

OwnedNode BooleanNode(bool value) {
  return OwnedNode(::plist_new_bool(value ? 1 : 0));
}

// Versions of libplist differ in whether a new integer of 64 bits has a sign; all read a written
// one.
template <class T>
OwnedNode WideIntegerNode(T value) {
  const std::string xml = "<plist><integer>" + std::to_string(value) + "</integer></plist>";
  plist_t node = nullptr;
  ::plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &node);
  return OwnedNode(node);
}

OwnedNode IntegerNode(const PropertyValue& value) {
  if (const auto number = value.Integer()) {
    if (*number < 0) return WideIntegerNode(*number);
    return OwnedNode(::plist_new_uint(static_cast<std::uint64_t>(*number)));
  }
  return WideIntegerNode(*value.Unsigned());
}

OwnedNode StringNode(const std::string& text) {
  return OwnedNode(::plist_new_string(FitForXml(text).c_str()));
}

OwnedNode DataNode(const Data& data) {
  const char* bytes = data.empty() ? "" : reinterpret_cast<const char*>(data.data());
  return OwnedNode(::plist_new_data(bytes, data.size()));
}

OwnedNode DateNode(Date date) {
  using Limits = std::numeric_limits<std::int32_t>;
  const std::int64_t unix_time = date.time_since_epoch().count();
  const std::int64_t held =
      std::clamp(unix_time, kPropertyListEpoch + Limits::min(), kPropertyListEpoch + Limits::max());
  return OwnedNode(::plist_new_date(static_cast<std::int32_t>(held - kPropertyListEpoch), 0));
}

// NodeBuilder builds a value's tree of nodes; null when the value passes a limit.
class NodeBuilder {
 public:
  OwnedNode Build(const PropertyValue& value, int depth) {
    if (!Count(value)) return nullptr;
    switch (value.GetType()) {
      case PropertyValue::Type::kString:
        return StringNode(*value.AsString());
      case PropertyValue::Type::kInteger:
        return IntegerNode(value);
      case PropertyValue::Type::kReal:
        return OwnedNode(::plist_new_real(*value.Real()));
      case PropertyValue::Type::kBoolean:
        return BooleanNode(*value.Boolean());
      case PropertyValue::Type::kData:
        return DataNode(*value.AsData());
      case PropertyValue::Type::kDate:
        return DateNode(*value.GetDate());
      case PropertyValue::Type::kArray:
        return ArrayNode(*value.AsArray(), depth + 1);
      case PropertyValue::Type::kDictionary:
        return DictionaryNode(*value.AsDictionary(), depth + 1);
    }
    return nullptr;
  }

 private:
  // Many places may share one big value; each place counts.
  bool Count(const PropertyValue& value) {
    if (const std::string* text = value.AsString()) bytes_ += text->size();
    if (const Data* data = value.AsData()) bytes_ += data->size();
    return ++nodes_ <= kPropertyListNodes && bytes_ <= kPropertyListBytes;
  }

  OwnedNode ArrayNode(const Array& array, int depth) {
    if (depth > kPropertyListDepth) return nullptr;
    OwnedNode node(::plist_new_array());
    for (const PropertyValue& value : array) {
      OwnedNode item = Build(value, depth);
      if (!item) return nullptr;
      ::plist_array_append_item(node.get(), item.release());
    }
    return node;
  }

  OwnedNode DictionaryNode(const Dictionary& dictionary, int depth) {
    if (depth > kPropertyListDepth) return nullptr;
    OwnedNode node(::plist_new_dict());
    for (const auto& [key, value] : dictionary) {
      OwnedNode item = Build(value, depth);
      if (!item) return nullptr;
      ::plist_dict_set_item(node.get(), FitForXml(key).c_str(), item.release());
    }
    return node;
  }

  std::size_t nodes_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace

std::optional<std::string> PropertyListXml(const PropertyValue& value) {
  const ClassicNumbers classic;
  const OwnedNode root = NodeBuilder().Build(value, 0);
  if (!root) return std::nullopt;
  char* xml = nullptr;
  std::uint32_t size = 0;
  ::plist_to_xml(root.get(), &xml, &size);
  const OwnedMemory<char> owned(xml);
  if (xml == nullptr || size > kPropertyListBytes) return std::nullopt;
  return std::string(xml, size);
}

}  // namespace vox
