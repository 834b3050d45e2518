#include "sim/Ber.h"

#include <algorithm>
#include <charconv>

namespace vox::sim {
namespace {

std::optional<std::size_t> TakeLength(ByteReader& reader) {
  const auto first = reader.TakeU8();
  if (!first) return std::nullopt;
  if (*first < 0x80) return *first;
  const std::size_t octets = *first & 0x7F;
  if (octets < 1 || octets > 4) return std::nullopt;
  const auto bytes = reader.Take(octets);
  if (!bytes) return std::nullopt;
  std::size_t length = 0;
  for (const std::uint8_t byte : *bytes) length = (length << 8) | byte;
  return length;
}

// The low `count` octets of value, high first.
Bytes LowOctets(std::uint64_t value, std::size_t count) {
  Bytes bytes;
  for (std::size_t i = count; i-- > 0;) {
    bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
  return bytes;
}

// The shortest two's complement form: X.690 8.3.2 forbids nine equal leading bits.
Bytes SignedContents(std::int64_t value) {
  std::size_t count = 1;
  while (value < -(std::int64_t{1} << (8 * count - 1)) ||
         value >= (std::int64_t{1} << (8 * count - 1))) {
    ++count;
  }
  return LowOctets(static_cast<std::uint64_t>(value), count);
}

void AppendSubidentifier(Bytes& out, std::uint32_t value) {
  int shift = 28;
  while (shift > 0 && (value >> shift) == 0) shift -= 7;
  for (; shift > 0; shift -= 7) {
    out.push_back(static_cast<std::uint8_t>(0x80 | ((value >> shift) & 0x7F)));
  }
  out.push_back(static_cast<std::uint8_t>(value & 0x7F));
}

std::optional<std::uint32_t> TakeSubidentifier(ByteReader& reader) {
  std::uint64_t value = 0;
  while (const auto octet = reader.TakeU8()) {
    value = (value << 7) | (*octet & 0x7F);
    if (value > 0xFFFFFFFF) return std::nullopt;
    if (*octet < 0x80) return static_cast<std::uint32_t>(value);
  }
  return std::nullopt;
}

}  // namespace

std::optional<BerItem> TakeBerItem(ByteReader& reader) {
  const auto tag = reader.TakeU8();
  if (!tag || (*tag & 0x1F) == 0x1F) return std::nullopt;
  const auto length = TakeLength(reader);
  if (!length) return std::nullopt;
  const auto contents = reader.Take(*length);
  if (!contents) return std::nullopt;
  return BerItem{*tag, *contents};
}

std::optional<std::span<const std::uint8_t>> TakeBerContents(ByteReader& reader, std::uint8_t tag) {
  const auto item = TakeBerItem(reader);
  if (!item || item->tag != tag) return std::nullopt;
  return item->contents;
}

std::optional<std::int32_t> ParseBerInteger(std::span<const std::uint8_t> contents) {
  if (contents.empty() || contents.size() > 4) return std::nullopt;
  std::uint32_t value = contents[0] & 0x80 ? 0xFFFFFFFF : 0;
  for (const std::uint8_t octet : contents) value = (value << 8) | octet;
  return static_cast<std::int32_t>(value);
}

std::optional<Oid> ParseBerOid(std::span<const std::uint8_t> contents) {
  ByteReader reader(contents.data(), contents.size());
  const auto first = TakeSubidentifier(reader);
  if (!first) return std::nullopt;
  const std::uint32_t root = std::min<std::uint32_t>(*first / 40, 2);
  Oid oid = {root, *first - 40 * root};
  while (reader.Left() > 0) {
    const auto arc = TakeSubidentifier(reader);
    if (!arc || oid.size() >= kMaxArcs) return std::nullopt;
    oid.push_back(*arc);
  }
  return oid;
}

Bytes BerIntegerContents(std::int32_t value) {
  return SignedContents(value);
}
Bytes BerUnsignedContents(std::uint32_t value) {
  return SignedContents(value);
}

Bytes BerOidContents(const Oid& oid) {
  Bytes contents;
  AppendSubidentifier(contents, oid.at(0) * 40 + oid.at(1));
  for (std::size_t i = 2; i < oid.size(); ++i) AppendSubidentifier(contents, oid[i]);
  return contents;
}

void AppendBerItem(Bytes& out, std::uint8_t tag, std::span<const std::uint8_t> contents) {
  out.push_back(tag);
  const std::size_t length = contents.size();
  if (length < 0x80) {
    out.push_back(static_cast<std::uint8_t>(length));
  } else {
    const std::size_t octets = length <= 0xFF ? 1 : length <= 0xFFFF ? 2 : 4;
    out.push_back(static_cast<std::uint8_t>(0x80 | octets));
    const Bytes digits = LowOctets(length, octets);
    out.insert(out.end(), digits.begin(), digits.end());
  }
  out.insert(out.end(), contents.begin(), contents.end());
}

std::optional<Oid> ParseDottedOid(std::string_view text) {
  Oid oid;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (true) {
    std::uint32_t arc = 0;
    const auto [next, error] = std::from_chars(at, end, arc);
    if (error != std::errc{}) return std::nullopt;
    oid.push_back(arc);
    if (next == end) break;
    if (*next != '.') return std::nullopt;
    at = next + 1;
  }
  if (oid.size() < 2 || oid[0] > 2 || (oid[0] < 2 && oid[1] > 39)) return std::nullopt;
  return oid;
}

}  // namespace vox::sim
