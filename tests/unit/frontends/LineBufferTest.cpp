// The ring between the reading thread and the client, against a plain queue of bytes.
#include "frontends/sane/LineBuffer.h"

#include <deque>
#include <random>

#include <gtest/gtest.h>

namespace vox::sane {
namespace {

TEST(LineBuffer, WithoutRoomItTakesNothing) {
  LineBuffer buffer;
  const std::uint8_t byte = 1;
  EXPECT_EQ(buffer.Put({&byte, 1}), 0U);
  std::uint8_t into = 0;
  EXPECT_EQ(buffer.Take({&into, 1}), 0U);
}

TEST(LineBuffer, GivesWhatItTookInAnyPieces) {
  std::mt19937 random(7);
  LineBuffer buffer;
  buffer.Reset(61);
  std::deque<std::uint8_t> plain;
  std::uint8_t next = 0;
  for (int round = 0; round < 20'000; ++round) {
    std::vector<std::uint8_t> in(random() % 80), out(random() % 80);
    for (std::uint8_t& byte : in) byte = next++;
    const std::size_t put = buffer.Put(in);
    ASSERT_EQ(put, std::min(in.size(), 61 - plain.size()));
    plain.insert(plain.end(), in.begin(), in.begin() + static_cast<std::ptrdiff_t>(put));
    next = static_cast<std::uint8_t>(next - (in.size() - put));
    const std::size_t got = buffer.Take(out);
    ASSERT_EQ(got, std::min(out.size(), plain.size()));
    for (std::size_t i = 0; i < got; ++i) {
      ASSERT_EQ(out[i], plain.front());
      plain.pop_front();
    }
    ASSERT_EQ(buffer.Held(), plain.size());
    ASSERT_EQ(buffer.Room(), 61 - plain.size());
  }
}

TEST(LineBuffer, ResetForgets) {
  LineBuffer buffer;
  buffer.Reset(8);
  const std::uint8_t bytes[5] = {1, 2, 3, 4, 5};
  EXPECT_EQ(buffer.Put(bytes), 5U);
  buffer.Reset(8);
  EXPECT_EQ(buffer.Held(), 0U);
  EXPECT_EQ(buffer.Room(), 8U);
}

}  // namespace
}  // namespace vox::sane
