// What a device says of itself: its name, and what its scanning units can do.
#include <algorithm>
#include <cstring>

#include "sim/SnmpAgent.h"
#include "tests/unit/nw/ScanTest.h"
#include "vox/drivers/DeviceUnits.h"

namespace vox::test {
namespace {

const std::string kUnits = "1.3.6.1.4.1.32473.203.1.4.5.1.1.";
const std::string kPaper = "1.3.6.1.4.1.32473.405.4.5.1.1.";
const std::string kFormats = "1.3.6.1.4.1.32473.405.4.10.1.1.2";
const std::string kSizes = "1.3.6.1.4.1.32473.203.1.4.13.1.1.2";
const std::string kDuplex = kPaper + "16";
const std::string kCompression = "1.3.6.1.4.1.32473.203.1.7.2";

// A device that answers for the objects that a test puts there.
class Info : public ScanTest {
 protected:
  Info() {
    agent_device_ = std::make_unique<UdpPeer>([this](const Bytes& request) {
      MutexLock lock(agent_mutex_);
      const auto answer = agent_->Answer(request);
      return answer ? Answers{test::Answer(Bytes(answer->begin(), answer->end()))} : Answers{};
    });
    snmpPort = agent_device_->Port();
    netMsPerSecond = 30;
    footprint_ = std::make_unique<Footprint>();
  }

  // Column puts numbers below an OID; an empty list leaves it out.
  void Column(const std::string& oid, const std::vector<std::uint32_t>& values) {
    columns_[oid] = values;
  }
  void Text(const std::string& oid, const std::string& text) { texts_[oid] = text; }
  void Answer() {
    auto agent = std::make_unique<sim::SnmpAgent>("public");
    for (const auto& [oid, values] : columns_) {
      for (std::size_t i = 0; i < values.size(); ++i) {
        const auto value = sim::IntegerValue(static_cast<std::int32_t>(values[i]));
        agent->Add(oid + ".1." + std::to_string(i + 1), {[value] { return value; }, {}, {}});
      }
    }
    for (const auto& [oid, text] : texts_) {
      agent->Add(oid, {[value = sim::TextValue(text)] { return value; }, {}, {}});
    }
    MutexLock lock(agent_mutex_);
    agent_ = std::move(agent);
  }

  // A device with a glass of 600 dpi, A4.
  void Flatbed() {
    Column(kUnits + "2", {5});
    Column(kUnits + "7", {750'000});
    Column(kUnits + "6", {760'000});
    Column(kUnits + "5", {6'000'000});
    Column(kUnits + "4", {6'100'000});
    Column(kUnits + "9", {1'510'000});
    Column(kUnits + "8", {1'520'000});
    Column(kUnits + "15", {770'000});
    Column(kUnits + "14", {780'000});
    Column(kFormats, {1, 22, 61});
    for (const char* column : {"10", "11", "12", "13"}) Column(kUnits + column, {0});
    Column(kPaper + "10", {3});
    Column(kSizes, {0x3F});
    Column(kPaper + "4", {85'000});
    Column(kPaper + "5", {117'000});
    Column(kDuplex, {0});
    Column(kCompression, {9});
  }
  // The same and a feeder that comes first.
  void FeederAndFlatbed() {
    Flatbed();
    Column(kUnits + "2", {3, 5});
    Column(kUnits + "7", {1'000'000, 750'000});
    Column(kUnits + "6", {1'000'000, 750'000});
    Column(kUnits + "5", {3'000'000, 6'000'000});
    Column(kUnits + "4", {3'000'000, 6'000'000});
    Column(kUnits + "9", {1'500'000, 1'400'000});
    Column(kUnits + "8", {1'500'000, 1'600'000});
    Column(kUnits + "15", {700'000, 750'000});
    Column(kUnits + "14", {800'000, 750'000});
    for (const char* column : {"10", "11", "12", "13"}) Column(kUnits + column, {0, 0});
    Column(kPaper + "10", {3, 0});
    Column(kPaper + "4", {86'000, 85'000});
    Column(kPaper + "5", {140'000, 117'000});
  }
  bool Get() {
    Answer();
    return scanner_->GetDevInfo(&info_);
  }

  Mutex agent_mutex_;
  std::unique_ptr<sim::SnmpAgent> agent_ VOX_GUARDED_BY(agent_mutex_) =
      std::make_unique<sim::SnmpAgent>("public");
  std::unique_ptr<UdpPeer> agent_device_;
  std::map<std::string, std::vector<std::uint32_t>> columns_;
  std::map<std::string, std::string> texts_;
  tagSCANDEVINFO info_{};
};

// The records are packed: their fields are compared by value.
std::uint32_t Of(std::uint32_t value) {
  return value;
}

TEST_F(Info, OfOneUnit) {
  Flatbed();
  ASSERT_TRUE(Get());
  EXPECT_EQ(scanner_->m_DevInfoAllCount, 1u);
  EXPECT_EQ(info_.byPaperSources, 1);
  EXPECT_EQ(Of(info_.dwXResMin), 75u);
  EXPECT_EQ(Of(info_.dwYResMin), 76u);
  EXPECT_EQ(Of(info_.dwXResMax), 600u);
  EXPECT_EQ(Of(info_.dwYResMax), 610u);
  EXPECT_EQ(Of(info_.dwXResMinCmn), 75u);
  EXPECT_EQ(Of(info_.dwYResMaxCmn), 610u);
  EXPECT_EQ(Of(info_.dwXResPre[0]), 77u);
  EXPECT_EQ(Of(info_.dwYResPre[0]), 78u);
  EXPECT_EQ(Of(info_.dwXResPre[1]), 151u);
  EXPECT_EQ(Of(info_.dwYResPre[1]), 152u);
  EXPECT_EQ(info_.byImageTypes, 7);
  EXPECT_EQ(info_.byAdfPaper, 0);
  EXPECT_EQ(Of(info_.dwSupportPaper), 0x3Fu);
  EXPECT_EQ(Of(info_.dwPhysicalWidth), 85'000u);
  EXPECT_EQ(Of(info_.dwPhysicalHeight), 117'000u);
  EXPECT_EQ(Of(info_.dwDuplex), 0u);
  EXPECT_EQ(Of(info_.dwCompInfo), 9u);
  EXPECT_EQ(info_.bySmallPaperSizeType, 0);
  EXPECT_EQ(std::memcmp(&info_, &scanner_->m_DevInfo, sizeof info_), 0);
}

TEST_F(Info, OfTwoUnitsIsWhatTheyCanDoTogether) {
  FeederAndFlatbed();
  ASSERT_TRUE(Get());
  EXPECT_EQ(scanner_->m_DevInfoAllCount, 2u);
  EXPECT_EQ(scanner_->m_DevInfoAll[0].byPaperSources, 2);
  EXPECT_EQ(scanner_->m_DevInfoAll[1].byPaperSources, 1);
  EXPECT_EQ(scanner_->m_DevInfoAll[1].byImageTypes, 7);
  EXPECT_EQ(info_.byPaperSources, 3);
  EXPECT_EQ(info_.byAdfPaper, 1);
  EXPECT_EQ(Of(info_.dwXResMin), 75u);
  EXPECT_EQ(Of(info_.dwXResMinCmn), 100u);
  EXPECT_EQ(Of(info_.dwYResMax), 600u);
  EXPECT_EQ(Of(info_.dwYResMaxCmn), 300u);
  EXPECT_EQ(Of(info_.dwXResPre[0]), 70u);
  EXPECT_EQ(Of(info_.dwYResPre[0]), 75u);
  EXPECT_EQ(Of(info_.dwXResPre[1]), 140u);
  EXPECT_EQ(Of(info_.dwYResPre[1]), 150u);
  EXPECT_EQ(Of(info_.dwPhysicalWidth), 85'000u);
  EXPECT_EQ(Of(info_.dwPhysicalHeight), 85'000u)
      << "the smaller of the second unit's height and the merged width";
}

TEST(MergedUnits, HeightIsTheSecondUnitsWhenThatIsSmaller) {
  tagSCANDEVINFO units[2] = {};
  units[0].dwPhysicalWidth = 90'000;
  units[0].dwPhysicalHeight = 1;
  units[1].dwPhysicalWidth = 80'000;
  units[1].dwPhysicalHeight = 70'000;
  EXPECT_EQ(Of(merge_units(units, 2).dwPhysicalHeight), 70'000u);
  EXPECT_EQ(Of(merge_units(units, 1).dwPhysicalHeight), 1u);
}

TEST_F(Info, ResolutionsAreCutToWholeDots) {
  Flatbed();
  Column(kUnits + "7", {759'999});
  ASSERT_TRUE(Get());
  EXPECT_EQ(Of(info_.dwXResMin), 75u);
}

TEST_F(Info, MissingPreviewResolutionsHaveDefaults) {
  Flatbed();
  for (const char* column : {"8", "9", "14", "15"}) Column(kUnits + column, {});
  ASSERT_TRUE(Get());
  EXPECT_EQ(Of(info_.dwXResPre[0]), 75u);
  EXPECT_EQ(Of(info_.dwYResPre[0]), 75u);
  EXPECT_EQ(Of(info_.dwXResPre[1]), 150u);
  EXPECT_EQ(Of(info_.dwYResPre[1]), 150u);
}

TEST_F(Info, UnitWithoutAPreviewResolutionHasTheDefault) {
  FeederAndFlatbed();
  Column(kUnits + "15", {720'000});
  ASSERT_TRUE(Get());
  EXPECT_EQ(Of(scanner_->m_DevInfoAll[0].dwXResPre[0]), 72u);
  EXPECT_EQ(Of(scanner_->m_DevInfoAll[1].dwXResPre[0]), 75u);
}

class MissingColumn : public Info, public testing::WithParamInterface<std::string> {};

TEST_P(MissingColumn, FailsWithStatus3AndChangesNothing) {
  Flatbed();
  Column(GetParam(), {});
  info_.dwCompInfo = 77;
  EXPECT_FALSE(Get());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EXPECT_EQ(Of(info_.dwCompInfo), 77u);
  EXPECT_EQ(scanner_->m_DevInfoAllCount, 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, MissingColumn,
                         testing::Values(kUnits + "2", kUnits + "7", kUnits + "6", kUnits + "5",
                                         kUnits + "4", kFormats, kUnits + "10", kUnits + "11",
                                         kUnits + "12", kUnits + "13", kPaper + "10", kSizes,
                                         kPaper + "4", kPaper + "5", kDuplex, kCompression));

TEST_F(Info, ColumnThatNamesOneOfTwoUnitsFails) {
  FeederAndFlatbed();
  Column(kUnits + "7", {750'000});
  EXPECT_FALSE(Get());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
}

TEST_F(Info, OfASilentDeviceFails) {
  MutexLock lock(agent_mutex_);  // the device is stuck
  EXPECT_FALSE(scanner_->GetDevInfo(&info_));
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
}

TEST_F(Info, MarginsAreKeptByTheirSide) {
  Flatbed();
  Column(kUnits + "10", {101});
  Column(kUnits + "11", {102});
  Column(kUnits + "12", {103});
  Column(kUnits + "13", {104});
  ASSERT_TRUE(Get());
  EXPECT_EQ(Of(info_.dwRegularTopMargin), 101u);
  EXPECT_EQ(Of(info_.dwRegularBottomMargin), 102u);
  EXPECT_EQ(Of(info_.dwRegularLeftMargin), 103u);
  EXPECT_EQ(Of(info_.dwRegularRightMargin), 104u);
  EXPECT_EQ(info_.bySmallPaperSizeType, 0x0F);
}

TEST_F(Info, EachMarginHasItsBit) {
  const std::pair<const char*, int> sides[] = {
      {"10", 0x02}, {"11", 0x08}, {"12", 0x01}, {"13", 0x04}};
  for (const auto& [column, bit] : sides) {
    Flatbed();
    Column(kUnits + column, {1});
    ASSERT_TRUE(Get());
    EXPECT_EQ(info_.bySmallPaperSizeType, bit) << column;
  }
}

TEST_F(Info, MarginAbove4000IsNone) {
  Flatbed();
  Column(kUnits + "10", {4'000});
  Column(kUnits + "12", {4'001});
  ASSERT_TRUE(Get());
  EXPECT_EQ(Of(info_.dwRegularTopMargin), 4'000u);
  EXPECT_EQ(Of(info_.dwRegularLeftMargin), 0u);
  EXPECT_EQ(info_.bySmallPaperSizeType, 0x02);
}

TEST_F(Info, ImageFormatsAreBits) {
  const std::pair<std::vector<std::uint32_t>, int> formats[] = {
      {{1}, 1}, {{22}, 2}, {{61}, 4}, {{61, 1}, 5}, {{2}, 0}, {{7, 22, 9}, 2}};
  for (const auto& [values, bits] : formats) {
    Flatbed();
    Column(kFormats, values);
    ASSERT_TRUE(Get());
    EXPECT_EQ(info_.byImageTypes, bits);
  }
}

TEST_F(Info, DuplexIsTakenFromTheFirstValue) {
  const std::pair<std::vector<std::uint32_t>, std::uint32_t> duplexes[] = {
      {{4}, 1}, {{5}, 2}, {{3}, 0}, {{5, 4}, 2}, {{3, 4}, 0}};
  for (const auto& [values, duplex] : duplexes) {
    Flatbed();
    Column(kDuplex, values);
    ASSERT_TRUE(Get());
    EXPECT_EQ(Of(info_.dwDuplex), duplex);
  }
}

TEST_F(Info, UnknownUnitHasNoPaperSource) {
  Flatbed();
  Column(kUnits + "2", {4});
  ASSERT_TRUE(Get());
  EXPECT_EQ(info_.byPaperSources, 0);
}

TEST_F(Info, NumbersOfAColumnEndWithIt) {
  Column("1.3.6.1.4.1.32473.1", {1, 2, 3});
  Column("1.3.6.1.4.1.32473.2", {9});
  Answer();
  std::uint32_t values[5] = {};
  EXPECT_EQ(scanner_->GetMibInt("1.3.6.1.4.1.32473.1", values, 5), 3);
  EXPECT_EQ(values[2], 3u);
  EXPECT_EQ(values[3], 0u);
  EXPECT_EQ(scanner_->GetMibInt("1.3.6.1.4.1.32473.1", values, 2), 2);
  EXPECT_EQ(scanner_->GetMibInt("1.3.6.1.4.1.32473.3", values, 2), 0);
  EXPECT_EQ(scanner_->GetMibInt(std::string(300, '1').c_str(), values, 2), 0);
}

// Whether an answer lies in the column is judged by the text of its name, kept so deliberately.
TEST_F(Info, ColumnWhoseNumberBeginsLikeThisOneIsTakenForIt) {
  Column("1.3.6.1.4.1.32473.1", {1, 2});
  Column("1.3.6.1.4.1.32473.12", {5});
  Answer();
  std::uint32_t values[5] = {};
  EXPECT_EQ(scanner_->GetMibInt("1.3.6.1.4.1.32473.1", values, 5), 3);
  EXPECT_EQ(values[2], 5u);
}

TEST_F(Info, IsAskedForInOrder) {
  Flatbed();
  ASSERT_TRUE(Get());
  // The end of each column's name as it goes over the wire: 32473 is 81 FD 59, 203 is 81 4B, 405 is
  // 83 15.
  const std::string scanner = "81 FD 59 81 4B ", unit = scanner + "01 04 05 01 01 ";
  const std::string own = "81 FD 59 83 15 ", feeder = own + "04 05 01 01 ";
  const std::vector<std::string> order = {unit + "02",   unit + "07",
                                          unit + "06",   unit + "05",
                                          unit + "04",   unit + "09",
                                          unit + "08",   unit + "0F",
                                          unit + "0E",   own + "04 0A 01 01 02",
                                          unit + "0A",   unit + "0B",
                                          unit + "0C",   unit + "0D",
                                          feeder + "0A", scanner + "01 04 0D 01 01 02",
                                          feeder + "04", feeder + "05",
                                          feeder + "10", scanner + "01 07 02"};
  std::vector<std::string> asked;
  for (const Bytes& request : agent_device_->Requests()) asked.push_back(ToHex(request));
  auto at = asked.begin();
  for (const std::string& column : order) {
    // A column's first request names the column itself, so that NULL follows its name.
    at = std::find_if(at, asked.end(), [&](const std::string& request) {
      return request.find(column + " 05 00") != std::string::npos;
    });
    ASSERT_NE(at, asked.end()) << column;
    ++at;
  }
}

TEST_F(Info, ValueOfFewerThanFourBytesIsFilledUp) {
  Text("1.3.6.1.4.1.32473.1.1", "\x07");
  Text("1.3.6.1.4.1.32473.1.2", "");
  Answer();
  std::uint32_t values[2] = {0xFFFFFFFF, 0xFFFFFFFF};
  ASSERT_EQ(scanner_->GetMibInt("1.3.6.1.4.1.32473.1", values, 2), 2);
  EXPECT_EQ(LoadLe32(reinterpret_cast<const std::uint8_t*>(&values[0])), 7u);
  EXPECT_EQ(values[1], 0u);
}

class OnLine : public Info {
 protected:
  bool With(const std::string& name) {
    Text("1.3.6.1.2.1.1.5.0", name);
    Answer();
    return scanner_->IsOnLine(0);
  }
};

TEST_F(OnLine, DeviceOfThatNameIs) {
  EXPECT_TRUE(With("Scanner"));
  EXPECT_TRUE(With("Scanner  "));
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(OnLine, DeviceOfAnotherNameIsNotAndThatIsNoError) {
  for (const char* name : {"scanner", "Scanner 2", "Scan", "", " Scanner"}) {
    EXPECT_FALSE(With(name)) << name;
  }
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(OnLine, SilentDeviceIsNotAndThatIsStatus3) {
  MutexLock lock(agent_mutex_);
  EXPECT_FALSE(scanner_->IsOnLine(0));
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
}

TEST_F(OnLine, KindIsNetwork) {
  EXPECT_EQ(scanner_->GetDeviceType(), CTwainImageIF::dtNETWORK);
  EXPECT_STREQ(scanner_->GetDispName(), "Scanner");
}

}  // namespace
}  // namespace vox::test
