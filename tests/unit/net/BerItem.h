// BER items in tests: what a builder writes into how much room, and what a parser gave. Every
// buffer is a heap block of the exact size, so that the sanitizers see a byte too many.
#pragma once

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/Hex.h"

namespace vox::test {

using Builder = std::function<std::uint8_t*(std::uint8_t* data, std::int32_t* left)>;

// Built gives what a builder writes when the room is `room` bytes; "none" when it refuses. It also
// checks the cursor and the bytes left.
inline std::string Built(const Builder& build, std::int32_t room = 2000) {
  Bytes buffer(static_cast<std::size_t>(room));
  buffer.shrink_to_fit();
  std::int32_t left = room;
  const std::uint8_t* const end = build(buffer.data(), &left);
  if (!end) {
    EXPECT_EQ(left, room) << "bytes left changed by a refusal";
    return "none";
  }
  EXPECT_EQ(end - buffer.data(), room - left);
  return ToHex(buffer.data(), static_cast<std::size_t>(room - left));
}

// NeedsItsExactRoom holds for every builder: what it writes fits in as many bytes, not in fewer.
inline void NeedsItsExactRoom(const Builder& build) {
  const std::string wanted = Built(build);
  const std::int32_t size = Size(Hex(wanted));
  EXPECT_EQ(Built(build, size), wanted);
  for (std::int32_t room = 0; room < size; ++room) EXPECT_EQ(Built(build, room), "none") << room;
}

// Parsed holds what a parser gave: nothing, or the item and what lies behind it.
template <typename value>
struct Parsed {
  bool ok = false;
  value got{};
  std::uint8_t tag = 0;
  std::int32_t left = 0;
};

}  // namespace vox::test
