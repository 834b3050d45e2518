#include "vox/platform/PropertyValue.h"

#include <cmath>
#include <limits>
#include <type_traits>

namespace vox {
namespace {

template <class T, class Held>
std::optional<T> Copy(const Held& held) {
  const T* value = std::get_if<T>(&held);
  if (value == nullptr) return std::nullopt;
  return *value;
}

bool SameNumber(double a, double b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

}  // namespace

PropertyValue::PropertyValue(vox::Array value)
    : value_(std::make_shared<const vox::Array>(std::move(value))) {}

PropertyValue::PropertyValue(vox::Dictionary value)
    : value_(std::make_shared<const vox::Dictionary>(std::move(value))) {}

PropertyValue::Type PropertyValue::GetType() const {
  // In the order of Held.
  constexpr Type kTypes[] = {Type::kString, Type::kInteger, Type::kInteger,
                             Type::kReal,   Type::kBoolean, Type::kData,
                             Type::kDate,   Type::kArray,   Type::kDictionary};
  static_assert(std::size(kTypes) == std::variant_size_v<Held>);
  return kTypes[value_.index()];
}

std::optional<std::string> PropertyValue::String() const {
  return Copy<std::string>(value_);
}

std::optional<std::int64_t> PropertyValue::Integer() const {
  return Copy<std::int64_t>(value_);
}

std::optional<std::uint64_t> PropertyValue::Unsigned() const {
  const auto number = Integer();
  if (!number) return Copy<std::uint64_t>(value_);
  if (*number < 0) return std::nullopt;
  return static_cast<std::uint64_t>(*number);
}

std::optional<double> PropertyValue::Real() const {
  return Copy<double>(value_);
}

std::optional<bool> PropertyValue::Boolean() const {
  return Copy<bool>(value_);
}

std::optional<vox::Data> PropertyValue::GetData() const {
  return Copy<vox::Data>(value_);
}

std::optional<vox::Date> PropertyValue::GetDate() const {
  return Copy<vox::Date>(value_);
}

std::optional<double> PropertyValue::Number() const {
  return std::visit(
      [](const auto& held) -> std::optional<double> {
        if constexpr (std::is_arithmetic_v<std::decay_t<decltype(held)>>) {
          return static_cast<double>(held);
        } else {
          return std::nullopt;
        }
      },
      value_);
}

std::optional<bool> PropertyValue::Truth() const {
  const auto number = Number();
  if (!number) return std::nullopt;
  return *number != 0;
}

const vox::Array* PropertyValue::AsArray() const {
  const auto* held = std::get_if<std::shared_ptr<const vox::Array>>(&value_);
  return held != nullptr ? held->get() : nullptr;
}

const vox::Dictionary* PropertyValue::AsDictionary() const {
  const auto* held = std::get_if<std::shared_ptr<const vox::Dictionary>>(&value_);
  return held != nullptr ? held->get() : nullptr;
}

bool operator==(const PropertyValue& a, const PropertyValue& b) {
  if (a.value_.index() != b.value_.index()) return false;
  if (const auto* array = a.AsArray()) return array == b.AsArray() || *array == *b.AsArray();
  if (const auto* dictionary = a.AsDictionary()) {
    return dictionary == b.AsDictionary() || *dictionary == *b.AsDictionary();
  }
  if (const auto real = a.Real()) return SameNumber(*real, *b.Real());
  return a.value_ == b.value_;
}

const PropertyValue* Dictionary::Find(std::string_view key) const {
  const auto found = entries_.find(key);
  return found != entries_.end() ? &found->second : nullptr;
}

std::optional<PropertyValue> Dictionary::Value(std::string_view key) const {
  const PropertyValue* value = Find(key);
  if (value == nullptr) return std::nullopt;
  return *value;
}

std::optional<std::string> Dictionary::String(std::string_view key) const {
  const PropertyValue* value = Find(key);
  return value != nullptr ? value->String() : std::nullopt;
}

std::optional<std::int64_t> Dictionary::Integer(std::string_view key) const {
  const PropertyValue* value = Find(key);
  return value != nullptr ? value->Integer() : std::nullopt;
}

std::optional<double> Dictionary::Number(std::string_view key) const {
  const PropertyValue* value = Find(key);
  return value != nullptr ? value->Number() : std::nullopt;
}

std::optional<bool> Dictionary::Boolean(std::string_view key) const {
  const PropertyValue* value = Find(key);
  return value != nullptr ? value->Boolean() : std::nullopt;
}

std::optional<bool> Dictionary::Truth(std::string_view key) const {
  const PropertyValue* value = Find(key);
  return value != nullptr ? value->Truth() : std::nullopt;
}

const vox::Array* Dictionary::AsArray(std::string_view key) const {
  const PropertyValue* value = Find(key);
  return value != nullptr ? value->AsArray() : nullptr;
}

const Dictionary* Dictionary::AsDictionary(std::string_view key) const {
  const PropertyValue* value = Find(key);
  return value != nullptr ? value->AsDictionary() : nullptr;
}

void Dictionary::Set(std::string_view key, PropertyValue value) {
  const auto found = entries_.find(key);
  if (found != entries_.end()) {
    found->second = std::move(value);
  } else {
    entries_.emplace(key, std::move(value));
  }
}

bool Dictionary::Remove(std::string_view key) {
  const auto found = entries_.find(key);
  if (found == entries_.end()) return false;
  entries_.erase(found);
  return true;
}

std::vector<std::string> Dictionary::Keys() const {
  std::vector<std::string> keys;
  keys.reserve(entries_.size());
  for (const auto& entry : entries_) keys.push_back(entry.first);
  return keys;
}

bool operator==(const Dictionary& a, const Dictionary& b) {
  return a.entries_ == b.entries_;
}

}  // namespace vox
