// One object of the agent as it is asked for in words: ParseObject of DeviceOptions.h.
#include <charconv>
#include <optional>
#include <string_view>
#include <utility>

#include "sim/Ber.h"
#include "sim/DeviceOptions.h"

namespace vox::sim {
namespace {

// Objects that have a name for people.
constexpr std::pair<std::string_view, std::string_view> kNames[] = {
    {"model", "1.3.6.1.4.1.32473.405.1.1.1.3.0"},
    {"name", "1.3.6.1.2.1.1.5.0"},
    {"mac", "1.3.6.1.2.1.2.2.1.6.1"},
    {"width", "1.3.6.1.4.1.32473.405.4.5.1.1.4.1.1"},
    {"height", "1.3.6.1.4.1.32473.405.4.5.1.1.5.1.1"}};

template <typename T>
bool ReadAll(std::string_view text, T& number, int base) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc{} && end == text.data() + text.size();
}

std::optional<Bytes> ReadHex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  Bytes bytes(text.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (!ReadAll(text.substr(2 * i, 2), bytes[i], 16)) return std::nullopt;
  }
  return bytes;
}

bool ReadValue(std::string_view type, std::string_view value, ObjectText& object) {
  if (type == "i") {
    std::int32_t number = 0;
    object.tag = kBerInteger;
    if (!ReadAll(value, number, 10)) return false;
    object.contents = BerIntegerContents(number);
    return true;
  }
  object.tag = kBerOctetString;
  if (type == "s") {
    object.contents.assign(value.begin(), value.end());
    return true;
  }
  if (type != "x" && (type.size() != 2 || !ReadAll(type, object.tag, 16))) return false;
  const auto bytes = ReadHex(value);
  if (bytes) object.contents = *bytes;
  return bytes.has_value();
}

}  // namespace

std::string ParseObject(const std::string& text, ObjectText& object) {
  const std::size_t sign = text.find('='), colon = text.find(':');
  std::string_view oid = std::string_view(text).substr(0, sign);
  for (const auto& [name, dotted] : kNames) {
    if (oid == name) oid = dotted;
  }
  if (sign == std::string::npos || !ParseDottedOid(oid)) return text + ": which object?";
  ObjectText result;
  result.oid = oid;
  const std::string_view value = std::string_view(text).substr(sign + 1);
  result.missing = value == "none";
  if (!result.missing) {
    if (colon == std::string::npos || colon < sign) return text + ": no value";
    const std::string_view type = value.substr(0, colon - sign - 1);
    if (!ReadValue(type, value.substr(type.size() + 1), result)) return text + ": no such value";
  }
  object = std::move(result);
  return {};
}

}  // namespace vox::sim
