// What vox says: failures with their statuses, reports, the progress bar, file names of batches.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include <nlohmann/json.hpp>

#include "tests/unit/cli/ReadBack.h"
#include "tools/vox/Failure.h"
#include "tools/vox/NetworkName.h"
#include "tools/vox/PageFiles.h"
#include "tools/vox/Progress.h"
#include "tools/vox/Report.h"

namespace vox::cli::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct StatusRow {
  std::uint32_t status;
  int exit;
  const char* words;
};

TEST(FailureTest, EveryInterfaceStatusHasItsExitStatusAndAdvice) {
  const StatusRow rows[] = {
      {IF_ERR_STS_NONE, 9, "try again"},
      {IF_ERR_STS_INTERNAL, 9, "ipcs"},
      {IF_ERR_STS_MEMORY, 10, "smaller area"},
      {IF_ERR_STS_DEVICE_COMM_ERR, 9, "does not answer"},
      {IF_ERR_STS_DEVICE_BUSY, 3, "busy"},
      {IF_ERR_STS_DEVICE_ERROR, 9, "refused"},
      {IF_ERR_STS_DEVICE_CANCEL, 2, "cancelled at the device"},
      {IF_ERR_STS_CHECK_ERROR, 9, "fault"},
      {IF_ERR_STS_NO_DOCUMENT, 7, "no document"},
      {77, 9, "try again"},
  };
  for (const StatusRow& row : rows) {
    const Failure failure = DeviceFailure("scan", "net:10.0.0.1", row.status);
    EXPECT_EQ(static_cast<int>(failure.Status()), row.exit) << row.status;
    EXPECT_THAT(failure.what(), HasSubstr("cannot scan on net:10.0.0.1: "));
    EXPECT_THAT(failure.what(), HasSubstr(row.words));
  }
}

TEST(FailureTest, FileTroubleIsNineOrElevenOrTen) {
  EXPECT_EQ(FileFailure("write", "a", ENOSPC).Status(), ExitStatus::kIoError);
  EXPECT_EQ(FileFailure("write", "a", EIO).Status(), ExitStatus::kIoError);
  EXPECT_EQ(FileFailure("write", "a", EACCES).Status(), ExitStatus::kNoPermission);
  EXPECT_EQ(FileFailure("write", "a", EROFS).Status(), ExitStatus::kNoPermission);
  EXPECT_EQ(FileFailure("write", "a", ENOMEM).Status(), ExitStatus::kNoMemory);
}

TEST(NetworkNameTest, DottedAddressesPassAndEmptyOnesAreExplained) {
  EXPECT_EQ(NetworkAddress("net:10.1.2.3"), "10.1.2.3");
  EXPECT_EQ(NetworkAddress("10.1.2.3"), "10.1.2.3");
  EXPECT_TRUE(IsNetworkName("net:a"));
  EXPECT_FALSE(IsNetworkName("NET:a"));
  EXPECT_EQ(NetworkAddress("net:localhost"), "127.0.0.1");
  for (const char* device : {"net:", ""}) {
    try {
      NetworkAddress(device);
      FAIL() << device;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.Status(), ExitStatus::kUsage) << device;
      EXPECT_THAT(failure.what(), HasSubstr("net:192.168.0.5"));
    }
  }
}

TEST(NetworkNameTest, ANameThatNobodyBearsIsStatusFour) {
  try {
    NetworkAddress("net:no-such-host.invalid");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Status(), ExitStatus::kCannot);
    EXPECT_THAT(failure.what(), HasSubstr("nobody bears the name no-such-host.invalid"));
  }
}

struct PatternRow {
  const char* pattern;
  unsigned page;
  const char* name;
};

TEST(PatternTest, NumbersArePutIn) {
  const PatternRow rows[] = {
      {"p-%03d.png", 7, "p-007.png"}, {"p%d.png", 12, "p12.png"}, {"p%3d.png", 7, "p  7.png"},
      {"%02d", 123, "123"},           {"100%%-%d", 1, "100%-1"},  {"all.pdf", 3, "all.pdf"},
  };
  for (const PatternRow& row : rows) EXPECT_EQ(PatternName(row.pattern, row.page), row.name);
}

class PageFilesTest : public testing::Test {
 protected:
  PageFiles Files(const std::string& leaf, bool batch) {
    options_.output = folder_.File(leaf);
    options_.batch = batch;
    options_.format = *FormatOfFile(leaf);
    return PageFiles(options_, -1);
  }
  static void Page(PageFiles& files, unsigned page) {
    files.Open(page);
    files.Writer().BeginPage({8, 1, 8, 300, 300});
    files.Writer().WriteLine(TestLine(8, 8, page));
  }
  TestFolder folder_;
  ScanOptions options_;
};

TEST_F(PageFilesTest, APatternGivesAFileAPageAtOnce) {
  PageFiles files = Files("p%d.png", true);
  Page(files, 1);
  files.End();
  EXPECT_THAT(folder_.Leaves(), ElementsAre("p1.png"));
  Page(files, 2);
  files.Drop();
  files.Finish();
  EXPECT_THAT(folder_.Leaves(), ElementsAre("p1.png"));
}

TEST_F(PageFilesTest, OneFileForAllAppearsAtTheEnd) {
  PageFiles files = Files("all.tif", true);
  for (const unsigned page : {1U, 2U}) {
    Page(files, page);
    files.End();
    EXPECT_EQ(files.PagesKept(), page);
  }
  files.Finish();
  EXPECT_EQ(ReadTiff(folder_.File("all.tif")).size(), 2U);
  EXPECT_THAT(folder_.Leaves(), ElementsAre("all.tif"));
}

TEST_F(PageFilesTest, APercentSignIsPlainWithoutBatch) {
  PageFiles files = Files("100%d.png", false);
  Page(files, 1);
  files.End();
  EXPECT_THAT(folder_.Leaves(), ElementsAre("100%d.png"));
}

TEST(ProgressTest, TheBarFills) {
  EXPECT_EQ(ProgressBar(2, 50, 100), "Page 2 [####################--------------------]  50 %");
  EXPECT_THAT(ProgressBar(1, 0, 100), HasSubstr("[-"));
  EXPECT_THAT(ProgressBar(1, 0xFFFFFFFF, 0xFFFFFFFF), HasSubstr("#] 100 %"));
  EXPECT_THAT(ProgressBar(1, 0, 0), HasSubstr("0 %"));
}

DeviceReport SomeDevice() {
  DeviceReport report{"Front \033desk", "10.0.0.1", false, {}};
  tagSCANDEVINFO& device = report.abilities.common;
  device.dwXResMin = device.dwYResMin = 75;
  device.dwXResMax = 600;
  device.dwYResMax = 1200;
  device.dwXResPre[0] = device.dwYResPre[0] = 75;
  device.byImageTypes = 7;
  device.byPaperSources = 3;
  device.byAdfPaper = 1;
  device.dwPhysicalWidth = 85000;
  device.dwPhysicalHeight = 117000;
  device.dwDuplex = 1;
  report.abilities.units = {device, device};
  report.abilities.units[0].byPaperSources = 1;
  report.abilities.units[1].byPaperSources = 2;
  return report;
}

TEST(ReportTest, ADeviceInWords) {
  const std::string words = DeviceWords(SomeDevice());
  for (const char* line : {"Name          Front ?desk\n", "Address       10.0.0.1\n",
                           "Modes         lineart, gray, color\n",
                           "Resolution    75 to 600x1200 dpi", "Flatbed       215.9 x 297.2 mm\n",
                           "Feeder        215.9 x 297.2 mm, loaded\n", "Both sides    yes\n"})
    EXPECT_THAT(words, HasSubstr(line));
  EXPECT_THAT(words, Not(HasSubstr("Not scanned")));
  DeviceReport plain = SomeDevice();
  plain.abilities.units.pop_back();
  plain.abilities.common.bySmallPaperSizeType = 2;
  plain.abilities.common.dwRegularTopMargin = 3000;
  EXPECT_THAT(DeviceWords(plain), Not(HasSubstr("Feeder")));
  EXPECT_THAT(DeviceWords(plain), HasSubstr("Not scanned   left 0.0, top 7.6"));
}

TEST(ReportTest, ADevicesJsonKeysAreFixed) {
  const auto json = nlohmann::ordered_json::parse(DeviceJson(SomeDevice()));
  std::vector<std::string> keys;
  for (const auto& item : json.items()) keys.push_back(item.key());
  EXPECT_THAT(keys, ElementsAre("name", "type", "ip", "virtual", "modes", "resolution",
                                "previewResolutions", "sources", "feederLoaded", "duplex",
                                "margins", "supportedPapers", "compression"));
  EXPECT_EQ(json["name"], "Front \033desk");
  EXPECT_EQ(json["resolution"]["max"]["y"], 1200);
  const auto feeder = json["sources"][1];
  EXPECT_EQ(feeder["source"], "feeder");
  EXPECT_EQ(feeder["height"], 297.2);
  EXPECT_EQ(feeder["resolution"]["min"]["x"], 75);
  EXPECT_EQ(json["duplex"], 1);
}

TEST(ReportTest, APageInWordsAndJson) {
  ScanPlan plan;
  plan.page = {591, 886, 1, 300, 150};
  plan.mode = Mode::kLineart;
  plan.frame = {0, 0, 50 / 25.4, 75 / 25.4};
  const PageReport page{2, "a\xFF.png", ImageFormat::kPng, true, 1.23456};
  EXPECT_EQ(PageWords(page, plan), "a?.png: page 2, 591 x 886 pixels, lineart, 300x150 dpi\n");
  const std::string text = PageJson(page, plan);
  EXPECT_EQ(text.find('\n'), text.size() - 1) << "one line a page";
  const auto json = nlohmann::ordered_json::parse(text);
  std::vector<std::string> keys;
  for (const auto& item : json.items()) keys.push_back(item.key());
  EXPECT_THAT(keys, ElementsAre("page", "file", "format", "mode", "width", "height", "bitsPerPixel",
                                "resolution", "frame", "rotated", "seconds"));
  EXPECT_EQ(json["rotated"], 180);
  EXPECT_EQ(json["frame"]["right"], 50.0);
  EXPECT_EQ(json["seconds"], 1.235);
}

}  // namespace
}  // namespace vox::cli::test
