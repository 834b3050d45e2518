// PropertyValue is one value of a property list; Array and Dictionary are made of them.
//
// Values: an Array or Dictionary inside a PropertyValue is shared and never changes, so a copy is
// cheap and behaves as a deep one. To change something inside, copy the inner container out, change
// the copy and store it back. A device dictionary that several owners share is a
// std::shared_ptr<Dictionary>.
// Errors: a question of the wrong type is answered with nothing. Nothing is thrown but
// std::bad_alloc, by what makes or copies a value; what was there before is then as it was.
// Compilers differ in whether Array{Array{1}} is a copy of the inner array or an array that holds
// it, so an array of one array is written Array{PropertyValue(inner)}.
// Thread rule: values like std::string: any number of readers, or one writer.
#pragma once

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "vox/platform/Export.h"

namespace vox {

class PropertyValue;
class Dictionary;
using Array = std::vector<PropertyValue>;
using Data = std::vector<std::uint8_t>;
using Date = std::chrono::sys_seconds;  // files can hold 1932-12-14 to 2069-01-19

// A number that is neither a truth value nor a fraction.
template <class T>
concept PropertyInteger = std::integral<T> && !std::same_as<T, bool>;

class VOX_EXPORT PropertyValue {
 public:
  enum class Type { kString, kInteger, kReal, kBoolean, kData, kDate, kArray, kDictionary };

  PropertyValue(std::string value) : value_(std::move(value)) {}
  PropertyValue(std::string_view value) : value_(std::string(value)) {}
  // A null pointer is the empty string.
  PropertyValue(const char* value) : value_(std::string(value != nullptr ? value : "")) {}
  template <PropertyInteger T>
  PropertyValue(T value) : value_(FromInteger(value)) {}
  PropertyValue(double value) : value_(value) {}
  // Exactly bool: pointers, which would convert, are refused.
  template <std::same_as<bool> T>
  PropertyValue(T value) : value_(value) {}
  PropertyValue(vox::Data value) : value_(std::move(value)) {}
  PropertyValue(vox::Date value) : value_(value) {}
  PropertyValue(vox::Array value);
  PropertyValue(vox::Dictionary value);

  // A copy for which there is no memory throws std::bad_alloc and leaves nothing behind.
  PropertyValue(const PropertyValue& other) : value_(CopyOf(other.value_)) {}
  PropertyValue(PropertyValue&&) = default;
  ~PropertyValue() = default;
  // A value may be set to a part of itself; the copy is made before the former content goes.
  PropertyValue& operator=(const PropertyValue& other) { return *this = PropertyValue(other); }
  PropertyValue& operator=(PropertyValue&&) = default;

  Type GetType() const;

  // Each gives the value when it is of that type (an integer: when it fits), else nothing.
  std::optional<std::string> String() const;
  std::optional<std::int64_t> Integer() const;
  std::optional<std::uint64_t> Unsigned() const;
  std::optional<double> Real() const;
  std::optional<bool> Boolean() const;
  std::optional<vox::Data> GetData() const;
  std::optional<vox::Date> GetDate() const;

  // Number reads integers, reals and truth values (1 or 0) alike, as other programs' files mix
  // them.
  std::optional<double> Number() const;
  // Truth reads a truth value, or a number as different from zero.
  std::optional<bool> Truth() const;

  // The text, data, array or dictionary in place; null for another type. It lives until this value
  // is set or destroyed.
  const std::string* AsString() const { return std::get_if<std::string>(&value_); }
  const vox::Data* AsData() const { return std::get_if<vox::Data>(&value_); }
  const vox::Array* AsArray() const;
  const vox::Dictionary* AsDictionary() const;

  // Equal: of the same type and content, deeply. An integer equals an integer whatever its width,
  // never a real; a not-a-number equals a not-a-number.
  VOX_EXPORT friend bool operator==(const PropertyValue& a, const PropertyValue& b);

 private:
  using Held =
      std::variant<std::string, std::int64_t, std::uint64_t, double, bool, vox::Data, vox::Date,
                   std::shared_ptr<const vox::Array>, std::shared_ptr<const vox::Dictionary>>;

  // One number has one form: unsigned only above the greatest signed one.
  template <PropertyInteger T>
  static Held FromInteger(T value) {
    if (std::in_range<std::int64_t>(value)) return static_cast<std::int64_t>(value);
    return static_cast<std::uint64_t>(value);
  }

  // Each alternative is built in its place. The variant's own copying is no choice: where all
  // alternatives move without throwing, libstdc++ before 13 destroys one that was never built when
  // the copy runs out of memory.
  static Held CopyOf(const Held& held) {
    return std::visit(
        []<class T>(const T& alternative) { return Held(std::in_place_type<T>, alternative); },
        held);
  }

  Held value_;
};

// Dictionary maps text to values; walking it goes by key, in byte order.
class VOX_EXPORT Dictionary {
 public:
  using Map = std::map<std::string, PropertyValue, std::less<>>;

  Dictionary() = default;
  Dictionary(std::initializer_list<Map::value_type> entries) : entries_(entries) {}

  // Find gives the entry's value, or null; it lives until the entry is set or removed.
  const PropertyValue* Find(std::string_view key) const;
  bool Contains(std::string_view key) const { return Find(key) != nullptr; }
  // Value gives a copy; the others are Find and the accessor of the same name in one.
  std::optional<PropertyValue> Value(std::string_view key) const;
  std::optional<std::string> String(std::string_view key) const;
  std::optional<std::int64_t> Integer(std::string_view key) const;
  std::optional<double> Number(std::string_view key) const;
  std::optional<bool> Boolean(std::string_view key) const;
  std::optional<bool> Truth(std::string_view key) const;
  const vox::Array* AsArray(std::string_view key) const;
  const Dictionary* AsDictionary(std::string_view key) const;

  // Set adds or replaces. Remove says whether there was something to remove.
  void Set(std::string_view key, PropertyValue value);
  bool Remove(std::string_view key);

  std::vector<std::string> Keys() const;
  std::size_t Size() const { return entries_.size(); }
  bool IsEmpty() const { return entries_.empty(); }
  Map::const_iterator begin() const { return entries_.begin(); }
  Map::const_iterator end() const { return entries_.end(); }

  VOX_EXPORT friend bool operator==(const Dictionary& a, const Dictionary& b);

 private:
  Map entries_;
};

}  // namespace vox
