// Folders alone cannot order the code, since Source/ is both the ground and the roof; tiers of
// files do. This test reads every #include of the tree and fails on an edge that leads upward.
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

const fs::path kRoot = VOX_SOURCE_DIR;
constexpr int kTools = 6;

struct Rule {
  const char* pattern;  // of the path below the root, without extension
  int tier;
};

// The first rule that matches the whole path holds.
const Rule kRules[] = {
    {R"(platform/.*)", 0},
    {R"(Source/drivers/ScanRecords)", 1},
    {R"(Source/drivers/libjbig3/.*)", 1},
    {R"(Source/drivers/net/NetworkComm/(tvr302udp|NetworkCommEntry|udp)[^/]*)", 2},
    {R"(Source/drivers/net/NetworkComm/.*)", 1},
    {R"(Source/(SupportedDevices|PaperSizes|UserPreferences|Environment|Singleton)[^/]*)", 1},
    {R"(Source/(FullPathToLeafTransformer|ValueTransformer|DSDebugging)[^/]*)", 1},
    {R"(Source/(CancelDelegate|DeviceDictionary))", 1},
    {R"(Source/drivers/JbigBuf[^/]*)", 2},
    {R"(Source/drivers/net/(search|bonjour)[^/]*)", 2},
    {R"(Source/drivers/usb/(UsbRegistry|UsbScanCtrl|UsbSearch)[^/]*)", 2},
    {R"(Source/drivers/[^/]*)", 3},
    {R"(Source/DupImgFile)", 3},
    {R"(Source/drivers/net/reg_all_dev)", 5},
    {R"(Source/drivers/(net|usb)/[^/]*)", 4},
    {R"(Source/(DevicesManager|SearchOnline)[^/]*)", 5},
    {R"(Source/vox)", 5},
    {R"((sim|tools|tests|fuzz|bench|frontends|docs)/.*)", kTools},
};

std::optional<int> TierOf(const std::string& path) {
  const std::string stem = fs::path(path).replace_extension().generic_string();
  static const std::vector<std::regex> patterns = [] {
    std::vector<std::regex> compiled;
    for (const Rule& rule : kRules) compiled.emplace_back(rule.pattern);
    return compiled;
  }();
  for (std::size_t i = 0; i < patterns.size(); ++i) {
    if (std::regex_match(stem, patterns[i])) return kRules[i].tier;
  }
  return std::nullopt;
}

// Includes of the project are written from the root, or as users of the library write them:
// vox/drivers/...
std::string PathOfInclude(const std::string& include) {
  if (include.starts_with("vox/platform/")) return include.substr(4);
  if (include.starts_with("vox/")) return "Source/" + include.substr(4);
  return include;
}

struct Edge {
  std::string from, to;
};

std::vector<std::string> SourceFiles() {
  std::vector<std::string> files;
  for (const char* folder :
       {"platform", "Source", "sim", "tools", "frontends", "tests", "fuzz", "bench"}) {
    for (const auto& entry : fs::recursive_directory_iterator(kRoot / folder)) {
      const std::string extension = entry.path().extension();
      if (extension != ".h" && extension != ".cpp") continue;
      files.push_back(fs::relative(entry.path(), kRoot).generic_string());
    }
  }
  return files;
}

std::vector<Edge> Edges() {
  // In angle brackets only what bears a folder of the project is the project's.
  static const std::regex include(
      R"re(^\s*#\s*include\s*(?:"([^"]+)"|<((?:vox|platform|Source|sim|tools|frontends|tests)/[^>]+)>))re");
  std::vector<Edge> edges;
  for (const std::string& file : SourceFiles()) {
    std::ifstream stream(kRoot / file);
    for (std::string line; std::getline(stream, line);) {
      std::smatch match;
      if (line.find('#') == std::string::npos) continue;  // a regex is slow to say no
      if (std::regex_search(line, match, include))
        edges.push_back({file, PathOfInclude(match[1].matched ? match[1] : match[2])});
    }
  }
  return edges;
}

TEST(Tiers, EveryFileHasOne) {
  const auto files = SourceFiles();
  EXPECT_GT(files.size(), 10u);
  for (const std::string& file : files) {
    EXPECT_TRUE(TierOf(file)) << file
                              << " matches no rule of kRules in tests/structure/TierTest.cpp";
  }
}

TEST(Tiers, EveryIncludeNamesAFileFromTheRoot) {
  for (const Edge& edge : Edges()) {
    EXPECT_TRUE(fs::exists(kRoot / edge.to)) << edge.from << " includes " << edge.to;
  }
}

TEST(Tiers, NoFileIncludesAHigherTier) {
  int inside_library = 0;
  for (const Edge& edge : Edges()) {
    const auto from = TierOf(edge.from), to = TierOf(edge.to);
    if (!from || !to) continue;
    EXPECT_LE(*to, *from) << edge.from << " includes " << edge.to;
    inside_library += *from < kTools;
  }
  EXPECT_GT(inside_library, 5);
}

TEST(Tiers, TheVirtualDeviceSharesOnlyTheGroundAndTheCodec) {
  for (const Edge& edge : Edges()) {
    if (!edge.from.starts_with("sim/") || edge.to.starts_with("sim/")) continue;
    EXPECT_TRUE(edge.to.starts_with("platform/") || edge.to.starts_with("Source/drivers/libjbig3/"))
        << edge.from << " includes " << edge.to;
  }
}

TEST(Tiers, TheTransportsDoNotKnowEachOther) {
  for (const Edge& edge : Edges()) {
    if (edge.from.starts_with("Source/drivers/net/")) {
      EXPECT_FALSE(edge.to.starts_with("Source/drivers/usb/")) << edge.from;
    }
    if (edge.from.starts_with("Source/drivers/usb/")) {
      EXPECT_FALSE(edge.to.starts_with("Source/drivers/net/")) << edge.from;
    }
  }
}

TEST(Tiers, CodecsStandAlone) {
  const std::string codecs[] = {"Source/drivers/libjbig3/", "Source/drivers/net/NetworkComm/"};
  for (const Edge& edge : Edges()) {
    for (const std::string& codec : codecs) {
      if (!edge.from.starts_with(codec)) continue;
      EXPECT_TRUE(edge.to.starts_with(codec) || edge.to.starts_with("platform/"))
          << edge.from << " includes " << edge.to;
    }
  }
}

TEST(Tiers, TheDuplexFileKnowsNothingOfTheSession) {
  for (const Edge& edge : Edges()) {
    if (edge.from.starts_with("Source/DupImgFile")) {
      EXPECT_NE(edge.to, "Source/drivers/TwainImageIF.h");
    }
  }
}

}  // namespace
