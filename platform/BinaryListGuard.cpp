// The layout of a binary property list: "bplist00", the objects, a table of their offsets, and a
// trailer of 32 bytes:
//   6 unused | width of an offset | width of a reference | number of objects | root | table's
//   offset
// An object begins with a byte of kind (high half) and size (low half; 15: an integer object with
// the size follows). Arrays and dictionaries hold references, that is, indices into the table.
#include "vox/platform/PropertyListGuard.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "vox/platform/Bytes.h"
#include "vox/platform/PropertyList.h"

namespace vox {
namespace {

constexpr std::size_t kTrailer = 32;
constexpr std::uint64_t kMaxObjects = 4 * kPropertyListNodes;  // keys and values may be apart

// What an object unfolds to; nodes is 0 while that is unknown.
struct Extent {
  int depth = 0;
  std::uint64_t nodes = 0;
  std::uint64_t bytes = 0;
};

std::optional<std::uint64_t> TakeUnsigned(ByteReader& reader, unsigned width) {
  const auto bytes = reader.Take(width);
  if (!bytes || width > 8) return std::nullopt;
  std::uint64_t value = 0;
  for (const std::uint8_t byte : *bytes) value = (value << 8) | byte;
  return value;
}

class BinaryExtents {
 public:
  explicit BinaryExtents(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  bool AreWithinLimits() {
    if (bytes_.size() < kTrailer || bytes_.size() > kPropertyListBytes || !ReadTrailer())
      return false;
    extents_.resize(objects_);
    return Measure(root_, 0).has_value();
  }

 private:
  bool ReadTrailer() {
    ByteReader trailer(bytes_.data() + bytes_.size() - kTrailer, kTrailer);
    trailer.Take(6);
    offset_width_ = *trailer.TakeU8();
    reference_width_ = *trailer.TakeU8();
    objects_ = *TakeUnsigned(trailer, 8);
    root_ = *TakeUnsigned(trailer, 8);
    table_ = *TakeUnsigned(trailer, 8);
    const auto valid = [](unsigned width) { return width >= 1 && width <= 8; };
    if (!valid(offset_width_) || !valid(reference_width_) || objects_ > kMaxObjects) return false;
    return table_ <= bytes_.size() && objects_ * offset_width_ <= bytes_.size() - table_;
  }

  ByteReader At(std::uint64_t offset) const {
    return ByteReader(bytes_.data() + offset, bytes_.size() - offset);
  }

  // Measure gives what the object unfolds to, or nothing when that passes a limit or the bytes that
  // say so are cut. Every object is looked into once, so the time is that of reading the list.
  std::optional<Extent> Measure(std::uint64_t object, int depth) {
    if (object >= objects_ || depth > kPropertyListDepth) return std::nullopt;
    if (extents_[object].nodes == 0) {
      const auto extent = LookInto(object, depth);
      if (!extent) return std::nullopt;
      extents_[object] = *extent;
    }
    if (depth + extents_[object].depth > kPropertyListDepth) return std::nullopt;
    return extents_[object];
  }

  // AtObject gives a reader at the object's first byte; there is one to take.
  std::optional<ByteReader> AtObject(std::uint64_t object) const {
    if (object >= objects_) return std::nullopt;
    ByteReader entry = At(table_ + object * offset_width_);
    const auto offset = TakeUnsigned(entry, offset_width_);
    if (!offset || *offset >= bytes_.size()) return std::nullopt;
    return At(*offset);
  }

  // libplist ends the process, by an assertion, over keys that are no texts and over those of
  // 16-bit units among which is a zero.
  bool AreKeys(ByteReader reader, std::uint64_t references) const {
    for (std::uint64_t i = 0; i < references; ++i) {
      const auto object = TakeUnsigned(reader, reference_width_);
      const auto key = object ? AtObject(*object) : std::nullopt;
      if (!key || !IsKey(*key)) return false;
    }
    return true;
  }

  static bool IsKey(ByteReader key) {
    const std::uint8_t head = *key.TakeU8();
    if (head >> 4 == 0x5) return true;
    if (head >> 4 != 0x6) return false;
    const auto units = TakeCount(key, head & 0x0F);
    if (!units || *units > key.Left() / 2) return false;
    for (std::uint64_t i = 0; i < *units; ++i) {
      if (*key.TakeBe16() == 0) return false;
    }
    return true;
  }

  std::optional<Extent> LookInto(std::uint64_t object, int depth) {
    auto at = AtObject(object);
    if (!at) return std::nullopt;
    ByteReader& reader = *at;
    const std::uint8_t head = *reader.TakeU8();
    const int kind = head >> 4;
    if (kind <= 0x3 || kind == 0x8) return Extent{0, 1, 8};
    const auto count = TakeCount(reader, head & 0x0F);
    if (!count || *count > reader.Left()) return std::nullopt;
    switch (kind) {
      case 0x4:
      case 0x5:
        return Extent{0, 1, *count};
      case 0x6:  // UTF-16; a unit can take three bytes of UTF-8
        return Extent{0, 1, *count * 3};
      case 0xA:
        return Contents(reader, *count, depth);
      case 0xD:
        if (!AreKeys(reader, *count)) return std::nullopt;
        return Contents(reader, *count * 2, depth);
      default:
        return std::nullopt;
    }
  }

  static std::optional<std::uint64_t> TakeCount(ByteReader& reader, unsigned low_half) {
    if (low_half != 0x0F) return low_half;
    const auto head = reader.TakeU8();
    if (!head || (*head >> 4) != 0x1 || (*head & 0x0F) > 3) return std::nullopt;
    return TakeUnsigned(reader, 1u << (*head & 0x0F));
  }

  std::optional<Extent> Contents(ByteReader reader, std::uint64_t references, int depth) {
    Extent all{1, 1, 8};
    for (std::uint64_t i = 0; i < references; ++i) {
      const auto object = TakeUnsigned(reader, reference_width_);
      const auto extent = object ? Measure(*object, depth + 1) : std::nullopt;
      if (!extent) return std::nullopt;
      all.depth = std::max(all.depth, extent->depth + 1);
      all.nodes += extent->nodes;
      all.bytes += extent->bytes;
      if (all.nodes > 2 * kPropertyListNodes || all.bytes > kPropertyListBytes) return std::nullopt;
    }
    return all;
  }

  std::span<const std::uint8_t> bytes_;
  unsigned offset_width_ = 0;
  unsigned reference_width_ = 0;
  std::uint64_t objects_ = 0;
  std::uint64_t root_ = 0;
  std::uint64_t table_ = 0;
  std::vector<Extent> extents_;
};

}  // namespace

bool BinaryListIsWithinLimits(std::span<const std::uint8_t> bytes) {
  return BinaryExtents(bytes).AreWithinLimits();
}

}  // namespace vox
