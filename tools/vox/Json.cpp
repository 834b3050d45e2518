#include "tools/vox/Json.h"

#include "tools/vox/CleanText.h"

namespace vox::cli {

namespace {

Json HexJson(const Data& data) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : data) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

Json ArrayJson(const Array& array) {
  Json json = Json::array();
  for (const PropertyValue& item : array) json.push_back(ValueJson(item));
  return json;
}

Json DictionaryJson(const Dictionary& dictionary) {
  Json json = Json::object();
  for (const auto& [key, value] : dictionary) json[key] = ValueJson(value);
  return json;
}

}  // namespace

std::string JsonLine(const Json& json) {
  return EscapeForTerminal(json.dump(-1, ' ', false, Json::error_handler_t::replace)) + "\n";
}

Json ValueJson(const PropertyValue& value) {
  switch (value.GetType()) {
    case PropertyValue::Type::kString:
      return *value.String();
    case PropertyValue::Type::kInteger:
      return value.Integer() ? Json(*value.Integer()) : Json(*value.Unsigned());
    case PropertyValue::Type::kReal:
      return *value.Real();
    case PropertyValue::Type::kBoolean:
      return *value.Boolean();
    case PropertyValue::Type::kData:
      return HexJson(*value.AsData());
    case PropertyValue::Type::kDate:
      return value.GetDate()->time_since_epoch().count();
    case PropertyValue::Type::kArray:
      return ArrayJson(*value.AsArray());
    case PropertyValue::Type::kDictionary:
      break;
  }
  return DictionaryJson(*value.AsDictionary());
}

}  // namespace vox::cli
