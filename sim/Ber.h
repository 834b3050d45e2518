// The basic encoding rules (X.690), as far as SNMP version 1 needs them: definite lengths, low tag
// numbers. Written for the virtual device alone.
//
// Thread rule: pure functions and values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "vox/platform/Bytes.h"

namespace vox::sim {

using Bytes = std::vector<std::uint8_t>;
using Oid = std::vector<std::uint32_t>;  // arcs; compares in lexicographic order

inline constexpr std::uint8_t kBerInteger = 0x02;
inline constexpr std::uint8_t kBerOctetString = 0x04;
inline constexpr std::uint8_t kBerNull = 0x05;
inline constexpr std::uint8_t kBerOid = 0x06;
inline constexpr std::uint8_t kBerSequence = 0x30;
inline constexpr std::uint8_t kBerTimeTicks = 0x43;

inline constexpr std::size_t kMaxArcs = 128;  // RFC 2578 3.5

struct BerItem {
  std::uint8_t tag = 0;
  std::span<const std::uint8_t> contents;
};

// TakeBerItem takes one item from the cursor. Nothing: a high tag number, an indefinite length, a
// length of more than four octets, or contents that pass the end (X.690 8.1.2, 8.1.3).
std::optional<BerItem> TakeBerItem(ByteReader& reader);
// TakeBerItem of one certain tag.
std::optional<std::span<const std::uint8_t>> TakeBerContents(ByteReader& reader, std::uint8_t tag);

// ParseBerInteger reads 1 to 4 octets, two's complement (X.690 8.3).
std::optional<std::int32_t> ParseBerInteger(std::span<const std::uint8_t> contents);
// ParseBerOid reads at least one sub-identifier of at most 32 bits each (X.690 8.19).
std::optional<Oid> ParseBerOid(std::span<const std::uint8_t> contents);

Bytes BerIntegerContents(std::int32_t value);
// An unsigned number of 32 bits, with a leading zero octet where the top bit is set.
Bytes BerUnsignedContents(std::uint32_t value);
// BerOidContents: at least two arcs, the first 0 to 2.
Bytes BerOidContents(const Oid& oid);

// AppendBerItem writes tag, the shortest length form and the contents.
void AppendBerItem(Bytes& out, std::uint8_t tag, std::span<const std::uint8_t> contents);

// ParseDottedOid reads "1.3.6.1"; nothing for anything else.
std::optional<Oid> ParseDottedOid(std::string_view text);

}  // namespace vox::sim
