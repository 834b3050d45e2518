// Bytes are put together and taken apart here, by shifts, so that the host's byte order never
// shows. ByteReader is a cursor by value: copying it is the way to look ahead, and Take is the one
// function that touches bounds.
//
// Thread rule: pure functions and values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vox {

inline std::uint16_t LoadBe16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}
inline std::uint32_t LoadBe32(const std::uint8_t* p) {
  return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
         p[3];
}
inline std::uint16_t LoadLe16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
inline std::uint32_t LoadLe32(const std::uint8_t* p) {
  return p[0] | (std::uint32_t{p[1]} << 8) | (std::uint32_t{p[2]} << 16) |
         (std::uint32_t{p[3]} << 24);
}
inline void StoreBe16(std::uint8_t* p, std::uint16_t v) {
  p[0] = static_cast<std::uint8_t>(v >> 8);
  p[1] = static_cast<std::uint8_t>(v);
}
inline void StoreBe32(std::uint8_t* p, std::uint32_t v) {
  StoreBe16(p, static_cast<std::uint16_t>(v >> 16));
  StoreBe16(p + 2, static_cast<std::uint16_t>(v));
}
inline void StoreLe16(std::uint8_t* p, std::uint16_t v) {
  p[0] = static_cast<std::uint8_t>(v);
  p[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void StoreLe32(std::uint8_t* p, std::uint32_t v) {
  StoreLe16(p, static_cast<std::uint16_t>(v));
  StoreLe16(p + 2, static_cast<std::uint16_t>(v >> 16));
}

class ByteReader {
 public:
  ByteReader(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

  std::size_t Left() const { return left_; }
  const std::uint8_t* Cursor() const { return data_; }

  // Take gives the next n bytes and moves past them; nothing when fewer are left.
  std::optional<std::span<const std::uint8_t>> Take(std::size_t n) {
    if (n > left_) return std::nullopt;
    std::span<const std::uint8_t> taken(data_, n);
    data_ += n;
    left_ -= n;
    return taken;
  }
  std::optional<std::uint8_t> TakeU8() {
    const auto bytes = Take(1);
    if (!bytes) return std::nullopt;
    return (*bytes)[0];
  }
  std::optional<std::uint16_t> TakeBe16() {
    const auto bytes = Take(2);
    if (!bytes) return std::nullopt;
    return LoadBe16(bytes->data());
  }
  std::optional<std::uint32_t> TakeBe32() {
    const auto bytes = Take(4);
    if (!bytes) return std::nullopt;
    return LoadBe32(bytes->data());
  }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

}  // namespace vox
