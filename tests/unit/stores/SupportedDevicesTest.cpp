// The table of supported models: loading, merging and looking up; and the table that ships.
#include "vox/SupportedDevices.h"

#include <filesystem>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/stores/ResourceFolder.h"

namespace vox {
namespace {

std::string Entry(const std::string& search, const std::string& vendor,
                  const std::string& product) {
  return "<dict><key>searchString</key><string>" + search + "</string><key>vendorId</key><string>" +
         vendor + "</string><key>productId</key><string>" + product + "</string></dict>";
}

class ModelTable : public ::testing::Test {
 protected:
  // Load makes a table of these entries (elements) that lasts as long as the test.
  SupportedDevices& Load(const std::string& entries) {
    folder_.Put("SupportedDevices",
                "<dict><key>Devices</key><array>" + entries + "</array></dict>");
    return SupportedDevices::instance();
  }
  static std::vector<std::string> Prefixes(const SupportedDevices::Record& record) {
    std::vector<std::string> prefixes;
    for (const PropertyValue& prefix : *record->AsArray("searchString"))
      prefixes.push_back(*prefix.String());
    return prefixes;
  }

  ResourceFolder folder_;
  SupportedDevices::Fresh fresh_;
};

TEST_F(ModelTable, EntriesOfOnePairAreOneRecordInFileOrder) {
  auto& table = Load(Entry("ABC-1", "0x5658", "0x1502") + Entry("XYZ", "5658", "1503") +
                     Entry("ABC-2", "5658", "1502"));
  ASSERT_EQ(table.count(), 2u);
  EXPECT_EQ(Prefixes(table.enumerator()[0]), (std::vector<std::string>{"ABC-1", "ABC-2"}));
  EXPECT_EQ(Prefixes(table.enumerator()[1]), std::vector<std::string>{"XYZ"});
  EXPECT_EQ(*table.enumerator()[0], (Dictionary{{"vendorId", 0x5658},
                                                {"productId", 0x1502},
                                                {"searchString", Array{"ABC-1", "ABC-2"}}}));
}

TEST_F(ModelTable, ModelNameMatchesByItsBeginning) {
  auto& table = Load(Entry("ABC-1", "1", "1") + Entry("ABC", "1", "2"));
  EXPECT_EQ(table.deviceByModelName("ABC-123 Series"), table.enumerator()[0]);
  EXPECT_EQ(table.deviceByModelName("ABC"), table.enumerator()[1]);
  EXPECT_EQ(table.deviceByModelName("AB"), nullptr);
  EXPECT_EQ(table.deviceByModelName("abc"), nullptr);
  EXPECT_EQ(table.deviceByModelName(""), nullptr);
  EXPECT_TRUE(table.isSupportedModelName("ABCD"));
  EXPECT_FALSE(table.isSupportedModelName("ACB"));
}

TEST_F(ModelTable, FirstRecordThatFitsWins) {
  auto& table = Load(Entry("ABC", "1", "1") + Entry("ABC-1", "1", "2") + Entry("X", "1", "1"));
  EXPECT_EQ(table.deviceByModelName("ABC-1"), table.enumerator()[0]);
  EXPECT_EQ(table.deviceByModelName("XABC-1"), table.enumerator()[0]);
}

TEST_F(ModelTable, EmptyBeginningFitsNoName) {
  auto& table = Load(Entry("", "1", "1"));
  EXPECT_EQ(table.count(), 1u);
  EXPECT_FALSE(table.isSupportedModelName("anything"));
  EXPECT_FALSE(table.isSupportedModelName(""));
}

TEST_F(ModelTable, NoNameIsNotSupported) {
  auto& table = Load(Entry("A", "1", "1"));
  EXPECT_FALSE(table.isSupportedModelName(std::nullopt));
  EXPECT_EQ(table.deviceByModelName(std::nullopt), nullptr);
}

TEST_F(ModelTable, PairIsLookedUpWhole) {
  auto& table = Load(Entry("A", "1", "2"));
  EXPECT_EQ(table.deviceByVendorIdAndProductId(1, 2), table.enumerator()[0]);
  EXPECT_EQ(table.deviceByVendorIdAndProductId(1, 3), nullptr);
  EXPECT_EQ(table.deviceByVendorIdAndProductId(1, std::nullopt), nullptr)
      << "though the vendor fits";
  EXPECT_EQ(table.deviceByVendorIdAndProductId(std::nullopt, 2), nullptr);
  EXPECT_TRUE(table.existDeviceWithVendorAndProductId(1, 2));
  EXPECT_FALSE(table.existDeviceWithVendorAndProductId(2, 1));
  EXPECT_FALSE(table.existDeviceWithVendorAndProductId(1, std::nullopt));
  EXPECT_FALSE(table.existDeviceWithVendorAndProductId(std::nullopt, 2));
}

TEST_F(ModelTable, EntriesThatSayNothingAreSkipped) {
  auto& table = Load(Entry("A", "zz", "1") + Entry("B", "1", "") + Entry("C", "1", "-2") +
                     "<dict><key>vendorId</key><string>1</string><key>productId</key>"
                     "<string>7</string></dict>" +
                     "<dict><key>searchString</key><string>D</string><key>vendorId</key>"
                     "<integer>1</integer><key>productId</key><integer>1</integer></dict>" +
                     "<string>no entry</string>" + Entry("E", "1", "5"));
  ASSERT_EQ(table.count(), 1u);
  EXPECT_EQ(table.deviceByModelName("E")->Integer("productId"), 5);
}

TEST_F(ModelTable, MissingOrUnreadableResourceIsAnEmptyTable) {
  for (const char* bytes : {"", "garbage", "<plist><array/></plist>", "<plist><dict/></plist>",
                            "<plist><dict><key>Devices</key><true/></dict></plist>"}) {
    if (*bytes != '\0') folder_.PutBytes("SupportedDevices", bytes);
    const SupportedDevices::Fresh fresh;
    auto& table = SupportedDevices::instance();
    EXPECT_EQ(table.count(), 0u) << bytes;
    EXPECT_EQ(table.deviceByModelName("A"), nullptr);
    EXPECT_EQ(table.deviceByVendorIdAndProductId(1, 1), nullptr);
    EXPECT_FALSE(table.existDeviceWithVendorAndProductId(1, 1));
  }
}

TEST(HexScan, ReadsWhatTheTableMayHold) {
  const struct {
    const char* text;
    std::optional<std::uint32_t> number;
    const char* why;
  } rows[] = {
      {"1502", 0x1502, "plain"},
      {"0x0f05", 0x0F05, "prefix"},
      {"0XabCD", 0xABCD, "either case"},
      {"  \t\n7", 7, "blanks before"},
      {"12zz", 0x12, "up to what is no digit"},
      {"0", 0, "a digit that could begin a prefix"},
      {"0x", std::nullopt, "a prefix alone"},
      {"0x 1", std::nullopt, "a blank after the prefix"},
      {"-1", std::nullopt, "a sign"},
      {"+1", std::nullopt, "a sign"},
      {"", std::nullopt, "nothing"},
      {"  ", std::nullopt, "blanks alone"},
      {"g", std::nullopt, "no digit"},
      {"ffffffff", 0xFFFFFFFF, "the greatest"},
      {"100000000", 0xFFFFFFFF, "beyond the greatest"},
      {"10000000000000000000000000", 0xFFFFFFFF, "beyond 64 bits"},
  };
  for (const auto& row : rows) EXPECT_EQ(scan_hex(row.text), row.number) << row.why;
}

// The table that ships.
class ShippedModels : public ::testing::Test {
 protected:
  Variable unset_{"VOX_RESOURCES"};
  SupportedDevices::Fresh fresh_;
  SupportedDevices& table_ = SupportedDevices::instance();
};

TEST_F(ShippedModels, EveryNameBeginsWithTheMakers) {
  EXPECT_GT(table_.count(), 20u);
  for (const auto& record : table_.enumerator()) {
    for (const PropertyValue& prefix : *record->AsArray("searchString")) {
      EXPECT_TRUE(prefix.String()->starts_with("Veltronix ")) << *prefix.String();
      EXPECT_GT(prefix.String()->size(), std::string("Veltronix ").size());
    }
  }
}

TEST_F(ShippedModels, EachNameFindsItsOwnRecord) {
  std::set<std::string> names;
  for (const auto& record : table_.enumerator()) {
    for (const PropertyValue& prefix : *record->AsArray("searchString")) {
      EXPECT_EQ(table_.deviceByModelName(prefix.String()), record) << *prefix.String();
      EXPECT_TRUE(names.insert(*prefix.String()).second)
          << *prefix.String() << " stands there twice";
    }
  }
}

TEST_F(ShippedModels, ModelsWithoutDuplexUnitAreThere) {
  for (std::int64_t product = 0x1502; product <= 0x1511; ++product) {
    EXPECT_TRUE(table_.existDeviceWithVendorAndProductId(0x5658, product)) << product;
  }
  EXPECT_TRUE(table_.existDeviceWithVendorAndProductId(0x5658, 0x0F05));
}

TEST_F(ShippedModels, SomeModelsShareAPair) {
  int shared = 0;
  for (const auto& record : table_.enumerator())
    shared += record->AsArray("searchString")->size() > 1;
  EXPECT_GE(shared, 3);
}

TEST_F(ShippedModels, TheVirtualDeviceIsSupportedAndStrangersAreNot) {
  const auto device = table_.deviceByModelName("Veltronix QD7200");
  ASSERT_NE(device, nullptr);
  const auto product = device->Integer("productId");
  EXPECT_FALSE(*product >= 0x1502 && *product <= 0x1511) << "it has a duplex unit";
  for (const char* stranger : {"Veltronix", "Veltronix QD7999", "QD7200", "Other QD7200"}) {
    EXPECT_FALSE(table_.isSupportedModelName(stranger)) << stranger;
  }
}

}  // namespace
}  // namespace vox
