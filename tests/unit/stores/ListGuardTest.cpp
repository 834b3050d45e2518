// The guard in front of libplist: hostile nesting, unfolding and references are refused, and
// quickly.
#include "vox/platform/PropertyListGuard.h"

#include <string>

#include <gtest/gtest.h>

#include "vox/platform/PropertyList.h"

namespace vox {
namespace {

using std::string_literals::operator""s;

std::span<const std::uint8_t> Bytes(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

bool XmlPasses(const std::string& text) {
  return XmlListIsWithinLimits(Bytes(text));
}
bool BinaryPasses(const std::string& text) {
  return BinaryListIsWithinLimits(Bytes(text));
}

std::string Repeated(const std::string& text, std::size_t times) {
  std::string all;
  for (std::size_t i = 0; i < times; ++i) all += text;
  return all;
}

TEST(XmlGuard, PassesTheDepthOfTheLimitAndNoMore) {
  const auto nested = [](std::size_t depth) {
    return "<plist>" + Repeated("<array>", depth) + Repeated("</array>", depth) + "</plist>";
  };
  EXPECT_TRUE(XmlPasses(nested(kPropertyListDepth)));
  EXPECT_FALSE(XmlPasses(nested(kPropertyListDepth + 1)));
  EXPECT_FALSE(ParsePropertyList(Repeated("<array>", 1'000'000)));
  EXPECT_FALSE(ParsePropertyList(Repeated("<dict><key>a</key>", 500'000)));
}

TEST(XmlGuard, SiblingsDoNotNest) {
  EXPECT_TRUE(
      XmlPasses("<array>" + Repeated("<dict/><array /><array></array>", 1000) + "</array>"));
}

// Ways to make the count fall while libplist goes deeper; each row is repeated behind an array.
TEST(XmlGuard, NothingButAnEndCountsAsAnEnd) {
  for (const char* disguise : {
           "<!--</array>-->",
           "<!-- \" --><!--</array>-->",
           "<string><![CDATA[</array>]]></string>",
           "<true a=\"</array>\"/>",
           "<?a </array>?>",
           "<?a \"?></array>\"?>",
           "<?a ></array>?>",
           "<!DOCTYPE a \"></array>\">",
           "<!DOCTYPE a [</array>]>",
           "</array a>",
           "</arrays>",
       }) {
    EXPECT_FALSE(XmlPasses(Repeated("<array>"s + disguise, 1000))) << disguise;
  }
}

TEST(XmlGuard, OpeningsInDisguiseAreCounted) {
  for (const char* opening :
       {"<array a=\"b\">", "<array\n>", "<dictionary>", "<!--<array>-->", "<![CDATA[<dict>]]>"}) {
    EXPECT_FALSE(XmlPasses(Repeated(opening, 100))) << opening;
  }
}

TEST(XmlGuard, CountsTagsAndBytes) {
  EXPECT_FALSE(XmlPasses("<array>" + Repeated("<true/>", 5 * kPropertyListNodes)));
  EXPECT_FALSE(XmlPasses(std::string(kPropertyListBytes + 1, ' ')));
  EXPECT_FALSE(
      ParsePropertyList("<array>" + Repeated("<true/>", kPropertyListNodes + 1) + "</array>"));
}

TEST(XmlGuard, PassesWhatProgramsAndPeopleWrite) {
  EXPECT_TRUE(XmlPasses(*PropertyListXml(Dictionary{{"a", "\"don't\""}})));
  EXPECT_TRUE(
      XmlPasses("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<!DOCTYPE plist PUBLIC \"-//Some//One//EN\" \"http://example.org/list.dtd\">\n"
                "<plist version=\"1.0\"><!-- it's \"mine\" --><dict><key>a</key>"
                "<string>\"don't\"</string></dict></plist>"));
}

// Objects of a binary list with references and offsets two bytes wide.
class BinaryList {
 public:
  std::size_t Add(const std::string& object) {
    table_ += Wide(list_.size());
    list_ += object;
    return count_++;
  }
  static std::string Wide(std::size_t value) {
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
  }
  // An array of up to 14 references.
  static std::string ArrayOf(const std::vector<std::size_t>& objects) {
    std::string array(1, static_cast<char>(0xA0 | objects.size()));
    for (const std::size_t object : objects) array += Wide(object);
    return array;
  }
  std::string Whole(std::size_t root = 0) const {
    const auto eight = [](std::size_t v) {
      return "\0\0\0\0\0"s + static_cast<char>(v >> 16) + Wide(v);
    };
    return list_ + table_ + "\0\0\0\0\0\0\2\2"s + eight(count_) + eight(root) + eight(list_.size());
  }

 private:
  std::string list_ = "bplist00";
  std::string table_;
  std::size_t count_ = 0;
};

TEST(BinaryGuard, PassesTheDepthOfTheLimitAndNoMore) {
  for (const int depth : {kPropertyListDepth, kPropertyListDepth + 1}) {
    BinaryList list;
    for (int i = 1; i < depth; ++i) list.Add(BinaryList::ArrayOf({static_cast<std::size_t>(i)}));
    list.Add("\xA0");
    EXPECT_EQ(BinaryPasses(list.Whole()), depth == kPropertyListDepth);
    EXPECT_EQ(ParsePropertyList(list.Whole()).has_value(), depth == kPropertyListDepth);
  }
}

// The depth counts on the longest road to an object, not on the one by which it was first seen.
TEST(BinaryGuard, ObjectSeenEarlyCountsWhereItIsDeepest) {
  BinaryList list;
  list.Add(BinaryList::ArrayOf({40, 1}));  // 40 .. 79 are a chain; 1 .. 39 lead to it
  for (std::size_t i = 1; i < 40; ++i) list.Add(BinaryList::ArrayOf({i + 1}));
  for (std::size_t i = 40; i < 79; ++i) list.Add(BinaryList::ArrayOf({i + 1}));
  list.Add("\xA0");
  EXPECT_FALSE(BinaryPasses(list.Whole()));
  EXPECT_TRUE(BinaryPasses(list.Whole(40)));
}

TEST(BinaryGuard, CyclesAreRefused) {
  BinaryList self;
  self.Add(BinaryList::ArrayOf({0}));
  EXPECT_FALSE(BinaryPasses(self.Whole()));
  BinaryList pair;
  pair.Add(BinaryList::ArrayOf({1}));
  pair.Add(BinaryList::ArrayOf({0}));
  EXPECT_FALSE(BinaryPasses(pair.Whole()));
}

TEST(BinaryGuard, SharedObjectsCountAsOftenAsTheyAreNamed) {
  BinaryList doubling;
  for (std::size_t i = 0; i < 40; ++i) doubling.Add(BinaryList::ArrayOf({i + 1, i + 1}));
  doubling.Add("\x09");
  EXPECT_FALSE(BinaryPasses(doubling.Whole()));
  EXPECT_TRUE(BinaryPasses(doubling.Whole(30)));

  BinaryList heavy;
  for (std::size_t i = 0; i < 12; ++i) heavy.Add(BinaryList::ArrayOf({i + 1, i + 1}));
  heavy.Add("\x4F\x11\x27\x10"s + std::string(10'000, 'x'));
  EXPECT_FALSE(BinaryPasses(heavy.Whole()));
  EXPECT_TRUE(BinaryPasses(heavy.Whole(3)));
}

// libplist 2.2 ends the process over the others.
TEST(BinaryGuard, KeysAreTexts) {
  for (const std::string& key : {"\x51k"s, "\x61\0k"s, "\x50"s}) {
    BinaryList list;
    list.Add("\xD1"s + BinaryList::Wide(1) + BinaryList::Wide(1));
    list.Add(key);
    EXPECT_TRUE(ParsePropertyList(list.Whole()));
  }
  for (const std::string& key : {"\x09"s, "\x10\x01"s, "\x41k"s, "\xA0"s, "\xD0"s, "\x80\x01"s,
                                 "\x00"s, "\x62\0k\0\0"s, "\x6F\x10\x40"s}) {
    BinaryList list;
    list.Add("\xD1"s + BinaryList::Wide(1) + BinaryList::Wide(1));
    list.Add(key);
    EXPECT_FALSE(BinaryPasses(list.Whole()));
    EXPECT_FALSE(ParsePropertyList(list.Whole()));
  }
}

TEST(BinaryGuard, ReferencesOffsetsAndSizesStayInside) {
  BinaryList stray;
  stray.Add(BinaryList::ArrayOf({1}));
  EXPECT_FALSE(BinaryPasses(stray.Whole()));
  EXPECT_FALSE(BinaryPasses(stray.Whole(1)));
  BinaryList good;
  good.Add("\x09");
  const std::string whole = good.Whole();
  ASSERT_TRUE(BinaryPasses(whole));
  for (const std::size_t width_at : {whole.size() - 26, whole.size() - 25}) {
    for (const char width : {'\0', '\x09', '\xFF'}) {
      std::string bad = whole;
      bad[width_at] = width;
      EXPECT_FALSE(BinaryPasses(bad)) << width_at;
    }
  }
  for (std::size_t at = whole.size() - 24; at < whole.size(); ++at) {
    std::string bad = whole;
    bad[at] = '\xFF';
    EXPECT_FALSE(BinaryPasses(bad)) << at;
  }
  for (const std::string& object :
       {"\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s, "\x4F\x14"s, "\xA5"s,
        "\xDF\x13\x80\0\0\0\0\0\0\x01"s, "\xC1\0\0"s, "\x70"s}) {
    BinaryList bad;
    bad.Add(object);
    EXPECT_FALSE(BinaryPasses(bad.Whole()));
  }
}

}  // namespace
}  // namespace vox
