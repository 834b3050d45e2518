// Lists of change points: what they are, and what becomes of good and of bad ones on a packed line.
#include <algorithm>
#include <memory>
#include <random>

#include <gtest/gtest.h>

#include "tests/support/PlainHenkaten.h"
#include "vox/drivers/libjbig3/henkaten.h"

namespace vox::test {
namespace {

using List = std::vector<std::uint16_t>;
using Line = std::vector<std::uint8_t>;

// The entries in a heap block of their exact number, so that a sanitizer sees a step outside.
std::unique_ptr<std::uint16_t[]> Exactly(const List& list) {
  std::unique_ptr<std::uint16_t[]> block(new std::uint16_t[list.size()]);
  std::copy(list.begin(), list.end(), block.get());
  return block;
}

struct Raw {
  int result;
  Line line;
  bool operator==(const Raw&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Raw& raw) {
  out << raw.result << ':';
  for (const unsigned byte : raw.line) out << ' ' << byte;
  return out;
}

constexpr std::size_t kGuard = 16;

// What henkaten_to_raw leaves in a heap block of the line's exact size, and between guards, which
// have to stay.
Raw ToRaw(const List& list, unsigned s_width, unsigned d_width, bool checked = false) {
  const std::size_t size = (std::size_t{d_width} + 7) / 8;
  const auto entries = Exactly(list);
  Line block(size + 2 * kGuard, 0xA5);
  std::uint8_t* const line = block.data() + kGuard;
  const int result = henkaten_to_raw(line, entries.get(), s_width, d_width, checked ? 7 : 0);
  const auto spoilt = [](std::uint8_t byte) { return byte != 0xA5; };
  EXPECT_TRUE(std::none_of(block.begin(), block.begin() + kGuard, spoilt));
  EXPECT_TRUE(std::none_of(block.end() - kGuard, block.end(), spoilt));
  const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[size]);
  EXPECT_EQ(henkaten_to_raw(exact.get(), entries.get(), s_width, d_width, checked ? -1 : 0),
            result);
  EXPECT_TRUE(std::equal(line, line + size, exact.get()));
  return {result, Line(line, line + size)};
}

Raw PlainToRaw(const List& list, unsigned s_width, unsigned d_width, bool checked) {
  const PlainRaw raw = PlainHenkatenToRaw(list, s_width, d_width, checked);
  return {raw.result, Packed(raw.pixels)};
}

List Initial(unsigned width) {
  List list(6, 0xA5A5);
  henkaten_init(list.data(), width);
  EXPECT_EQ(list.back(), 0xA5A5) << "five entries";
  list.pop_back();
  return list;
}

// A copy made with all the room that it may need, cut to what was written.
List Copied(const List& source, unsigned width) {
  List copy((width & 0xFFFF) + 6, 0xA5A5);
  henkaten_copy(copy.data(), Exactly(source).get(), width);
  EXPECT_EQ(copy.back(), 0xA5A5) << "width + 5 entries at most";
  const auto written = std::find_if(copy.rbegin(), copy.rend(), [](auto e) { return e != 0xA5A5; });
  copy.erase(written.base(), copy.end());
  return copy;
}

TEST(HenkatenInit, WritesTheListOfAWhiteLine) {
  EXPECT_EQ(Initial(8), (List{1, 9, 9, 10, 10}));
  EXPECT_EQ(Initial(0), (List{1, 1, 1, 2, 2}));
}

TEST(HenkatenInit, TakesTheEntriesModulo65536) {
  EXPECT_EQ(Initial(65533), (List{1, 65534, 65534, 65535, 65535}));
  EXPECT_EQ(Initial(65534), (List{1, 65535, 65535, 0, 0}));
  EXPECT_EQ(Initial(65535), (List{1, 0, 0, 1, 1}));
  EXPECT_EQ(Initial(65536 + 8), Initial(8));
  EXPECT_EQ(Initial(0xFFFFFFFF), Initial(65535));
}

TEST(HenkatenInit, MakesAWhiteLine) {
  for (const unsigned width : {0u, 1u, 7u, 8u, 9u, 100u, 65534u, 65535u})
    EXPECT_EQ(ToRaw(Initial(width), width, width, true), (Raw{0, Line((width + 7) / 8)}));
}

TEST(HenkatenCopy, CopiesTheChangesAndClosesTheList) {
  EXPECT_EQ(Copied({1, 3, 5, 9, 9, 10, 10}, 8), (List{1, 3, 5, 9, 9, 10, 10}));
  EXPECT_EQ(Copied({1, 3, 5, 11}, 8), (List{1, 3, 5, 9, 9, 10, 10})) << "whatever closed it";
  EXPECT_EQ(Copied({9}, 8), (List{9, 9, 10, 10}));
  EXPECT_EQ(Copied({1, 1, 1}, 0), (List{1, 1, 2, 2}));
}

TEST(HenkatenCopy, KeepsTheChangesBelowAShorterWidthOnly) {
  EXPECT_EQ(Copied({1, 3, 5, 8, 21, 21, 22, 22}, 5), (List{1, 3, 5, 6, 6, 7, 7}));
}

TEST(HenkatenCopy, CopiesEntriesInAnyOrder) {
  EXPECT_EQ(Copied({1, 5, 3, 5, 5, 9}, 8), (List{1, 5, 3, 5, 5, 9, 9, 10, 10}));
}

TEST(HenkatenCopy, EndsWithoutAnEndMark) {
  EXPECT_EQ(Copied({1, 2, 1, 2}, 3), (List{1, 2, 1, 2, 4, 4, 5, 5}));
  EXPECT_EQ(Copied(List(65536, 7), 65535).size(), 65540u);
}

TEST(HenkatenCopy, KnowsTheEndMarkOfTheWidestLines) {
  EXPECT_EQ(Copied({1, 4, 65535, 65535}, 65534), (List{1, 4, 65535, 65535, 0, 0}));
  EXPECT_EQ(Copied({1, 4, 65535, 0}, 65535), (List{1, 4, 65535, 0, 0, 1, 1}));
  EXPECT_EQ(Copied({1, 4, 9}, 65536 + 8), (List{1, 4, 9, 9, 10, 10}));
}

TEST(HenkatenCopy, WorksInPlace) {
  List list = {1, 3, 5, 11, 0xA5, 0xA5, 0xA5};
  henkaten_copy(list.data(), list.data(), 8);
  EXPECT_EQ(list, (List{1, 3, 5, 9, 9, 10, 10}));
}

TEST(RawToHenkaten, DoesNothing) {
  List list(20, 0xA5A5);
  const Line line(2, 0x0F);
  raw_to_henkaten(line.data(), list.data(), 16);
  EXPECT_EQ(list, List(20, 0xA5A5));
  raw_to_henkaten(nullptr, nullptr, 16);
}

TEST(HenkatenToRaw, SetsTheRunsOfOnes) {
  EXPECT_EQ(ToRaw({1, 3, 5, 9, 9, 10, 10}, 8, 8, true), (Raw{0, {0x30}}));
  EXPECT_EQ(ToRaw({1, 1, 9, 9, 10, 10}, 8, 8, true), (Raw{0, {0xFF}})) << "the first run is empty";
  EXPECT_EQ(ToRaw({1, 3, 3, 5, 9, 9}, 8, 8, true), (Raw{0, {0x0F}})) << "a 1 run of no pixels";
  EXPECT_EQ(ToRaw({1, 7, 20, 26, 27, 27, 28, 28}, 26, 26, true), (Raw{0, {0x03, 0xFF, 0xE0, 0x40}}))
      << "a partial byte, whole ones, a partial byte";
}

TEST(HenkatenToRaw, EndsBehindTheFirstEntryAtTheEndMark) {
  EXPECT_EQ(ToRaw({1, 5, 9}, 8, 8, true), (Raw{0, {0x0F}})) << "a 1 run up to the end";
  EXPECT_EQ(ToRaw({1, 5, 7, 9}, 8, 8, true), (Raw{0, {0x0C}}));
  EXPECT_EQ(ToRaw({1, 5, 7, 300}, 8, 8, true), (Raw{0, {0x0C}}));
}

TEST(HenkatenToRaw, IsWhiteWhenTheFirstEntryIsAtTheEndMark) {
  EXPECT_EQ(ToRaw({9}, 8, 8, true), (Raw{0, {0}}));
  EXPECT_EQ(ToRaw({300}, 8, 24, true), (Raw{0, {0, 0, 0}}));
  EXPECT_EQ(ToRaw({0}, 65535, 8, true), (Raw{0, {0}})) << "an end mark of 0";
  EXPECT_EQ(ToRaw({1}, 65535, 65535, true), (Raw{0, Line(8192)}));
}

TEST(HenkatenToRaw, CountsFromTheFirstEntry) {
  EXPECT_EQ(ToRaw({3, 5, 7, 11, 11}, 10, 10, true), (Raw{0, {0x30, 0}}));
}

TEST(HenkatenToRaw, MapsEveryChangeWhenTheWidthsDiffer) {
  EXPECT_EQ(ToRaw({1, 3, 5, 9, 9, 10, 10}, 8, 4, true), (Raw{0, {0x40}})) << "0, 1, 2, 4";
  EXPECT_EQ(ToRaw({1, 4, 6, 9, 9, 10, 10}, 8, 4, true), (Raw{0, {0x20}})) << "0, 2, 3, 4";
  EXPECT_EQ(ToRaw({1, 3, 5, 9, 9, 10, 10}, 8, 16, true), (Raw{0, {0x0F, 0x00}}));
  EXPECT_EQ(ToRaw({1, 2, 3, 4, 4}, 3, 8, true), (Raw{0, {0x18}})) << "2, 5, 7 (7.99), 10";
  EXPECT_EQ(ToRaw({1, 3, 5, 9, 9, 10, 10}, 8, 0, true), (Raw{0, {}}));
}

TEST(HenkatenToRaw, HalvesEveryPosition) {
  std::vector<bool> pixels(200);
  for (const unsigned x : {3, 4, 5, 6, 20, 21, 22, 90, 91, 150, 199}) pixels[x] = true;
  const List list = ListOf(pixels);
  std::vector<bool> half(100);
  for (std::size_t i = 1; i + 1 < list.size(); i += 2)
    for (unsigned x = list[i] / 2; x < list[i + 1] / 2 && x < 100; ++x) half[x] = true;
  EXPECT_EQ(ToRaw(list, 200, 100, true), (Raw{0, Packed(half)}));
}

TEST(HenkatenToRaw, TakesALineOfNoPixels) {
  EXPECT_EQ(ToRaw({1, 1, 1, 2, 2}, 0, 0, true), (Raw{0, {}}));
  EXPECT_EQ(ToRaw({1}, 0, 9, true), (Raw{0, {0, 0}}));
  EXPECT_EQ(ToRaw({0}, 0, 9, true), (Raw{0, {0, 0}})) << "no width to divide by";
}

TEST(HenkatenToRaw, WithoutChecksARunIsCutToTheLine) {
  EXPECT_EQ(ToRaw({1, 3, 12}, 8, 8), (Raw{0, {0x3F}}));
  EXPECT_EQ(ToRaw({1, 3, 65535}, 8, 8), (Raw{0, {0x3F}}));
  EXPECT_EQ(ToRaw({1, 3, 65535}, 10, 10), (Raw{0, {0x3F, 0xC0}})) << "nothing beyond the width";
  EXPECT_EQ(ToRaw({0, 8, 20}, 10, 5), (Raw{0, {0x08}}));
}

TEST(HenkatenToRaw, WithChecksARunBeyondTheLineIsAnOverrun) {
  EXPECT_EQ(ToRaw({1, 3, 12}, 8, 8, true), (Raw{1, {0}})) << "longer than the line";
  EXPECT_EQ(ToRaw({1, 3, 5, 7, 10}, 8, 8, true), (Raw{1, {0x30}})) << "the bits set before stay";
  EXPECT_EQ(ToRaw({0, 1, 9, 9}, 8, 8, true), (Raw{1, {0}})) << "one pixel too far";
  EXPECT_EQ(ToRaw({0, 1, 8, 9}, 8, 8, true), (Raw{0, {0x7F}}));
  EXPECT_EQ(ToRaw({1, 12, 12}, 8, 8, true), (Raw{0, {0}})) << "a run of 0 bits is no overrun";
  EXPECT_EQ(ToRaw({1, 3, 12}, 8, 4, true), (Raw{1, {0}})) << "1, 6";
}

TEST(HenkatenToRaw, AnEntryBelowTheOneBeforeItEndsARunWithoutPixels) {
  const List ones_back = {1, 6, 3, 5, 9};  // no pixel, 0 run up to 4, pixels 5 to 8
  EXPECT_EQ(ToRaw(ones_back, 8, 8), (Raw{0, {0x0F}}));
  EXPECT_EQ(ToRaw(ones_back, 8, 8, true), (Raw{1, {0}}));
  const List zeros_back = {1, 6, 8, 3, 5, 9};  // pixels 6 and 7, then 3 and 4
  EXPECT_EQ(ToRaw(zeros_back, 8, 8), (Raw{0, {0x36}}));
  EXPECT_EQ(ToRaw(zeros_back, 8, 8, true), (Raw{1, {0x06}}));
  EXPECT_EQ(ToRaw({5, 2, 7, 9}, 8, 8), (Raw{0, {0xC0}})) << "the part before the line is cut off";
  EXPECT_EQ(ToRaw({5, 2, 7, 9}, 8, 8, true), (Raw{1, {0}}));
}

TEST(HenkatenToRaw, ReadsNoMoreOfAListThanItMayHave) {
  const List list = {1, 2, 3, 3, 3, 3, 3, 3};  // 3 pixels, 8 entries, none at the end mark
  EXPECT_EQ(ToRaw(list, 3, 3), (Raw{0, {0x40}}));
  EXPECT_EQ(ToRaw(list, 3, 3, true), (Raw{1, {0x40}}));
  EXPECT_EQ(ToRaw({1, 2, 3, 3, 3, 3, 3, 4}, 3, 3, true), (Raw{0, {0x40}})) << "the last may be it";
}

TEST(HenkatenToRaw, TakesWidthsBeyond65535ByTheirEndMark) {
  EXPECT_EQ(ToRaw({1, 3, 5, 9}, 65536 + 8, 65536 + 8, true).line[0], 0x30);
  EXPECT_EQ(ToRaw({1}, 65536, 8, true), (Raw{0, {0}}));
  EXPECT_EQ(ToRaw({1, 2, 3}, 2, 200000, true).line[12500], 0xFF) << "pixels 100000 to 199999";
  EXPECT_EQ(ToRaw({1, 2, 3}, 2, 200000, true).line[12499], 0);
}

TEST(Henkaten, LeavesNullAlone) {
  List list(20, 0xA5A5);
  std::uint8_t byte = 0xA5;
  henkaten_init(nullptr, 8);
  henkaten_copy(nullptr, list.data(), 8);
  henkaten_copy(list.data(), nullptr, 8);
  EXPECT_EQ(list, List(20, 0xA5A5));
  EXPECT_EQ(henkaten_to_raw(nullptr, list.data(), 8, 8, 0), 1);
  EXPECT_EQ(henkaten_to_raw(&byte, nullptr, 8, 8, 0), 1);
  EXPECT_EQ(byte, 0xA5);
}

// Of two lines of random runs one is the way back of the other, and scaled lines are as the plain
// version has them.
TEST(Henkaten, BringsBackEveryLine) {
  std::minstd_rand random(4);
  for (unsigned width = 0; width < 300; ++width)
    for (const unsigned longest : {1u, 3u, 20u, 90u}) {
      std::vector<bool> pixels;
      bool colour = random() % 2;
      while (pixels.size() < width) {
        pixels.insert(pixels.end(), 1 + (random() >> 8) % longest, colour);
        colour = !colour;
      }
      pixels.resize(width);
      const List list = ListOf(pixels);
      ASSERT_EQ(ToRaw(list, width, width, true), (Raw{0, Packed(pixels)}));
      ASSERT_EQ(ToRaw(Copied(list, width), width, width, true), (Raw{0, Packed(pixels)}));
      const unsigned other = (random() >> 8) % 400;
      ASSERT_EQ(ToRaw(list, width, other, true), PlainToRaw(list, width, other, true));
      ASSERT_EQ(ToRaw(list, width, other, true).result, 0) << "a good list always fits";
    }
}

TEST(Henkaten, TakesAnyListAsThePlainVersionDoes) {
  std::minstd_rand random(5);
  const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() >> 4) % limit; };
  for (int i = 0; i < 20000; ++i) {
    const unsigned s_width = below(40);
    const unsigned d_width = below(2) ? s_width : below(90);
    const unsigned most = below(2) ? s_width + 1 : s_width + 3;  // half have no end mark
    List list(s_width + 5);
    for (auto& entry : list) entry = static_cast<std::uint16_t>(below(most + 1));
    if (below(2)) std::sort(list.begin(), list.end());
    list.resize(ReadableEntries(list, s_width));
    for (const bool checked : {false, true})
      ASSERT_EQ(ToRaw(list, s_width, d_width, checked),
                PlainToRaw(list, s_width, d_width, checked));
  }
}

}  // namespace
}  // namespace vox::test
