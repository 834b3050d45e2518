// Bytes as tests write and print them: "30 82 00 28".
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace vox::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes Hex(const std::string& text) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < text.size();) {
    if (text[i] == ' ') {
      ++i;
      continue;
    }
    bytes.push_back(
        static_cast<std::uint8_t>(std::strtoul(text.substr(i, 2).c_str(), nullptr, 16)));
    i += 2;
  }
  return bytes;
}

inline std::string ToHex(const std::uint8_t* bytes, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    char piece[4];
    std::snprintf(piece, sizeof piece, i == 0 ? "%02X" : " %02X", bytes[i]);
    text += piece;
  }
  return text;
}
inline std::string ToHex(const Bytes& bytes) {
  return ToHex(bytes.data(), bytes.size());
}

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline std::int32_t Size(const Bytes& bytes) {
  return static_cast<std::int32_t>(bytes.size());
}

}  // namespace vox::test
