// Dotted OID text, read and written.
#include "vox/drivers/net/NetworkComm/wnxoid.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vox {
namespace {

using Arcs = std::vector<std::uint32_t>;

// Read gives the arcs of a text; nothing when it is refused. The text is a heap block without a
// NUL when `terminated` is false.
struct ReadResult {
  std::int32_t result;
  Arcs arcs;
  std::int32_t left;
};
ReadResult Read(const std::string& text, std::int32_t capacity = 128, bool terminated = true) {
  std::vector<char> block(text.begin(), text.end());
  if (terminated) block.push_back('\0');
  block.shrink_to_fit();
  ReadResult read{0, Arcs(static_cast<std::size_t>(capacity)),
                  static_cast<std::int32_t>(block.size())};
  std::int32_t count = capacity;
  read.result = oid_string2array(block.data(), &read.left, read.arcs.data(), &count);
  if (read.result != 0) {
    EXPECT_EQ(count, capacity);
    EXPECT_EQ(read.left, static_cast<std::int32_t>(block.size()));
  }
  read.arcs.resize(static_cast<std::size_t>(count));
  return read;
}

std::string Write(const Arcs& arcs, std::size_t capacity = 256, const char* before = "") {
  std::vector<char> text(capacity);
  std::strcpy(text.data(), before);
  const auto count = static_cast<std::int32_t>(arcs.size());
  const auto room = static_cast<std::int32_t>(capacity);
  const bool written = oid_array2string(text.data(), room, arcs.data(), count) == 0;
  return written ? text.data() : std::string("refused after ") + text.data();
}

TEST(OidText, GivesItsArcs) {
  const std::pair<const char*, Arcs> vectors[] = {
      {"1.3.6.1.2.1.1.1.0", {1, 3, 6, 1, 2, 1, 1, 1, 0}},
      {"1..3", {1, 3}},
      {"1.3.", {1, 3}},
      {"7", {7}},
      {"1 3x6", {1, 3, 6}},
      {"4294967295", {0xFFFFFFFF}},
      {"4294967296.1", {0, 1}},
  };
  for (const auto& [text, arcs] : vectors) {
    const ReadResult read = Read(text);
    EXPECT_EQ(read.result, 0) << text;
    EXPECT_EQ(read.arcs, arcs) << text;
  }
}

TEST(OidText, MustBeginWithADigit) {
  for (const char* text : {"", ".1.3", " 1", "x"}) EXPECT_EQ(Read(text).result, -1) << text;
  EXPECT_EQ(Read("", 128, false).result, -1) << "no character at all";
}

TEST(OidText, StopsAtTheGivenLength) {
  const ReadResult read = Read("1.3.61", 128, false);
  EXPECT_EQ(read.arcs, (Arcs{1, 3, 61}));
  EXPECT_EQ(read.left, 0);
  const char text[] = "1.3.61";
  std::uint32_t arcs[8];
  std::int32_t count = 8, length = 5;
  EXPECT_EQ(oid_string2array(text, &length, arcs, &count), 0);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(arcs[2], 6u);
}

TEST(OidText, StopsAtTheNul) {
  const ReadResult read = Read(std::string("1.3\0.6", 6));
  EXPECT_EQ(read.arcs, (Arcs{1, 3}));
  EXPECT_EQ(read.left, 4) << "NUL, .6 and the last NUL are unread";
}

TEST(OidText, MoreArcsThanTheCapacityAreRefused) {
  EXPECT_EQ(Read("1.3.6", 3).arcs, (Arcs{1, 3, 6}));
  EXPECT_EQ(Read("1.3.6.1", 3).result, -1);
  EXPECT_EQ(Read("1", 0).result, -1);
}

TEST(OidText, IsWrittenWithFullStopsBetween) {
  EXPECT_EQ(Write({1, 3, 6, 1, 2, 1, 1, 1, 0}), "1.3.6.1.2.1.1.1.0");
  EXPECT_EQ(Write({4294967295u}), "4294967295");
  EXPECT_EQ(Write({}), "");
}

TEST(OidText, IsAppendedToWhatIsThere) {
  EXPECT_EQ(Write({1, 3}, 256, "oid "), "oid 1.3");
}

TEST(OidText, TakesOneCharacterLessThanTheCapacity) {
  EXPECT_EQ(Write({1, 3, 61}, 7), "1.3.61");
  EXPECT_EQ(Write({1, 3, 61}, 6), "refused after 1.3");
  EXPECT_EQ(Write({1}, 1), "refused after ");
}

TEST(OidText, TextWithoutItsNulIsRefused) {
  std::vector<char> text(4, 'x');
  const std::uint32_t arc = 1;
  EXPECT_EQ(oid_array2string(text.data(), 4, &arc, 1), -1);
  EXPECT_EQ(text, std::vector<char>(4, 'x'));
}

TEST(OidText, ThereAndBack) {
  const Arcs arcs{1, 3, 6, 1, 4, 1, 32473, 405, 4, 5, 1, 1, 4, 1, 1};
  EXPECT_EQ(Read(Write(arcs)).arcs, arcs);
}

}  // namespace
}  // namespace vox
