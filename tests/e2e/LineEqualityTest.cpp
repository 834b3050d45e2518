// Every page that a device sends is, line for line, what plain code makes of it: for each depth,
// at, above and below what the device can do, raw and coded, with margins, plane orders and both
// sides.
#include <algorithm>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/e2e/RoadFixture.h"
#include "tests/support/SmallDevice.h"

namespace vox::test {
namespace {

using sim::DeviceOptions;
using sim::EventKind;

struct Case {
  std::string name;
  Ask ask;
  std::function<void(DeviceOptions&)> change = [](DeviceOptions&) {};
  bool preview = false;
};

// Cases that belong together are one test, each on a road of its own.
struct Family {
  std::string name;
  std::vector<Case> cases;
};

std::ostream& operator<<(std::ostream& out, const Family& family) {
  return out << family.name;
}

std::string NameOf(const testing::TestParamInfo<Family>& info) {
  return info.param.name;
}

std::string DepthName(unsigned bits) {
  return bits == 1 ? "Lineart" : bits == 8 ? "Grey" : "Colour";
}

bool ShowsSomething(const std::vector<Line>& lines) {
  return std::any_of(lines.begin(), lines.end(), [&](const Line& line) {
    return line != lines.front() || line != Line(line.size(), line.front());
  });
}

// What went over the wire is what was foreseen: the command, and the page's block.
void ExpectWire(Road& road, const Case& subject) {
  const sim::ScanInfo asked = road.Request(subject.ask, subject.preview);
  const auto command = road.Events().Last(EventKind::kScanCommand).bytes;
  const auto block = sim::BuildScanInfo(asked);
  ASSERT_EQ(command.size(), 20 + block.size());
  EXPECT_TRUE(std::equal(block.begin(), block.end(), command.begin() + 20));
  const auto sent = sim::ParseScanInfo(road.Events().Last(EventKind::kScanInfoSent).bytes);
  ASSERT_TRUE(sent);
  EXPECT_EQ(*sent, road.FirstDevice().PageInfo(asked, 0));
}

void ExpectPage(const Case& subject) {
  Road road;
  DeviceOptions options = SmallDevice();
  subject.change(options);
  road.Device(options);
  const Page page = road.Scanner().Scan(subject.ask, subject.preview);
  ASSERT_TRUE(page.started) << page.status;
  EXPECT_EQ(page.status, 0u);
  EXPECT_FALSE(page.more);
  const auto expected = road.Expected(subject.ask, 0, subject.preview);
  EXPECT_TRUE(SameLines(page.lines, expected));
  EXPECT_TRUE(ShowsSomething(expected));
  ExpectWire(road, subject);
}

class LineEquality : public RoadsTest, public testing::WithParamInterface<Family> {};

TEST_P(LineEquality, OfEachPage) {
  for (const Case& subject : GetParam().cases) {
    SCOPED_TRACE(subject.name);
    ExpectPage(subject);
  }
}

std::vector<Case> Resolutions(unsigned bits) {
  struct Dpi {
    const char* name;
    float value;
  };
  // 100 and 200 are the ends of the range; 137 divides nothing.
  constexpr Dpi kDpi[] = {{"Lowest", 100},   {"Within", 137}, {"Highest", 200}, {"Above", 300},
                          {"FarAbove", 611}, {"Below", 75},   {"FarBelow", 31}};
  std::vector<Case> cases;
  for (const Dpi& x : kDpi) {
    for (const Dpi& y : kDpi) {
      cases.push_back({std::string(x.name) + "Across" + y.name + "Down",
                       Ask::Depth(bits).Dpi(x.value, y.value).Frame(0, 0, 1.6F, 0.75F)});
    }
  }
  return cases;
}
INSTANTIATE_TEST_SUITE_P(Resolution, LineEquality,
                         testing::Values(Family{"Lineart", Resolutions(1)},
                                         Family{"Grey", Resolutions(8)},
                                         Family{"Colour", Resolutions(24)}),
                         NameOf);

// The command is rounded, the lines are rescaled by the resolution cut to an integer: a request of
// 149.6 dpi is scanned at 150 and rescaled all the same. Bilevel lines cannot be; they come as
// zeros.
std::vector<Case> Fractions() {
  std::vector<Case> cases;
  for (const unsigned bits : {8u, 24u}) {
    for (const float dpi : {149.5F, 149.6F, 150.4F, 99.7F, 200.3F}) {
      cases.push_back({DepthName(bits) + std::to_string(static_cast<int>(dpi * 10)),
                       Ask::Depth(bits).Dpi(dpi)});
    }
  }
  cases.push_back({"GreyDownOnly", Ask::Grey().Dpi(150, 149.6F)});
  cases.push_back({"GreyAcrossOnly", Ask::Grey().Dpi(149.6F, 150)});
  cases.push_back({"LineartJustWithin", Ask::Lineart().Dpi(150.4F)});
  return cases;
}
INSTANTIATE_TEST_SUITE_P(Fraction, LineEquality, testing::Values(Family{"Fractions", Fractions()}),
                         NameOf);

std::vector<Case> Codings(std::uint8_t lines) {
  struct Header {
    const char* name;
    sim::ImageHeader place;
  };
  constexpr Header kHeaders[] = {{"HeaderInData", sim::ImageHeader::kInData},
                                 {"HeaderInHeader", sim::ImageHeader::kInHeader},
                                 {"NoHeader", sim::ImageHeader::kNone}};
  std::vector<Case> cases;
  for (const bool typical : {false, true}) {
    for (const std::uint32_t height : {1u, 2u, 7u, 64u, 100u, 65535u}) {
      for (const Header& header : kHeaders) {
        cases.push_back({std::string(typical ? "Typical" : "Plain") + "Blocks" +
                             std::to_string(height) + header.name,
                         Ask::Lineart(), [=](DeviceOptions& options) {
                           options.coding = {.lines_per_block = height,
                                             .line_template = lines,
                                             .typical_prediction = typical,
                                             .image_header = header.place};
                         }});
      }
    }
  }
  return cases;
}
INSTANTIATE_TEST_SUITE_P(Jbig, LineEquality,
                         testing::Values(Family{"TwoLines", Codings(2)},
                                         Family{"ThreeLines", Codings(3)}),
                         NameOf);

void SendRaw(DeviceOptions& options) {
  options.coding.jbig = false;
}

std::vector<Case> Widths() {
  std::vector<Case> cases;
  for (const bool jbig : {false, true}) {
    for (unsigned pixels = 145; pixels <= 160; ++pixels) {
      cases.push_back({(jbig ? "Jbig" : "Raw") + std::to_string(pixels),
                       Ask::Lineart().Dpi(100).Frame(0, 0, static_cast<float>(pixels) / 100, 0.5F),
                       [=](DeviceOptions& options) { options.coding.jbig = jbig; }});
    }
  }
  for (const unsigned pixels : {1u, 2u, 3u, 9u}) {
    for (const unsigned bits : {1u, 8u, 24u}) {
      cases.push_back(
          {DepthName(bits) + "Narrow" + std::to_string(pixels),
           Ask::Depth(bits).Dpi(100).Frame(0.2F, 0, 0.2F + static_cast<float>(pixels) / 100, 1)});
    }
  }
  return cases;
}
INSTANTIATE_TEST_SUITE_P(Width, LineEquality, testing::Values(Family{"Pixels", Widths()}), NameOf);

std::vector<Case> Margins(unsigned bits, bool jbig) {
  std::vector<Case> cases;
  const Ask ask = Ask::Depth(bits).Frame(0.1F, 0.1F, 1.7F, 0.6F);
  const auto device = [=](std::uint32_t left, std::uint32_t right) {
    return [=](DeviceOptions& options) {
      options.left_cut_margin = left;
      options.right_cut_margin = right;
      options.coding.jbig = jbig;
    };
  };
  for (const std::uint32_t left : {0u, 1u, 7u, 8u, 13u, 16u, 33u}) {
    for (const std::uint32_t right : {0u, 5u, 24u}) {
      cases.push_back({"Left" + std::to_string(left) + "Right" + std::to_string(right), ask,
                       device(left, right)});
    }
  }
  cases.push_back({"Rescaled", Ask(ask).Dpi(75, 300), device(11, 6)});
  return cases;
}
INSTANTIATE_TEST_SUITE_P(CutMargin, LineEquality,
                         testing::Values(Family{"LineartRaw", Margins(1, false)},
                                         Family{"LineartJbig", Margins(1, true)},
                                         Family{"Grey", Margins(8, true)},
                                         Family{"Colour", Margins(24, true)}),
                         NameOf);

std::vector<Case> Planes() {
  std::vector<Case> cases;
  for (unsigned device = 0; device <= 5; ++device) {
    for (unsigned client = 0; client <= 6; ++client) {
      cases.push_back({"Device" + std::to_string(device) + "Client" + std::to_string(client),
                       Ask::Colour().PlaneOrder(client).Frame(0, 0, 2.5F, 0.4F),
                       [=](DeviceOptions& options) { options.plane_order = device; }});
    }
  }
  // The bytes are put in order from the first one of the line: the left margin is not skipped.
  cases.push_back({"WithMargin", Ask::Colour().PlaneOrder(3),
                   [](DeviceOptions& options) { options.left_cut_margin = 9; }});
  cases.push_back({"Rescaled", Ask::Colour().PlaneOrder(5).Dpi(300, 50)});
  cases.push_back({"OfGreyMeansNothing", Ask::Grey().PlaneOrder(4)});
  return cases;
}
INSTANTIATE_TEST_SUITE_P(PlaneOrder, LineEquality, testing::Values(Family{"All", Planes()}),
                         NameOf);

std::vector<Case> Frames(unsigned bits) {
  std::vector<Case> cases;
  const auto ask = [=] { return Ask::Depth(bits); };
  cases.push_back({"Offset", ask().Frame(0.7F, 0.9F, 2.3F, 2.0F)});
  cases.push_back({"OffsetRescaled", ask().Dpi(400, 60).Frame(0.7F, 0.9F, 1.3F, 2.0F)});
  cases.push_back({"WholeBed", ask().Frame(0, 0, 3, 2.5F)});
  cases.push_back({"UserSize", ask().UserSize().Frame(0.25F, 0.25F, 1.25F, 1.25F)});
  cases.push_back({"BesideTheBed", ask().Frame(2.5F, 1, 3.5F, 2)});
  // Longer than the device can scan, and longer than the frame in lines: white at the end.
  cases.push_back({"BelowTheBed", ask().Frame(0, 2, 2, 4)});
  cases.push_back({"BelowTheBedRescaled", ask().Dpi(50, 350).Frame(0, 2, 1, 3.5F)});
  cases.push_back({"BelowTheBedRaw", ask().Frame(0, 2, 2, 4), SendRaw});
  cases.push_back({"MoreLinesThanFrame", ask().Frame(0, 0, 1, 1).Lines(400)});
  cases.push_back({"FewerLinesThanFrame", ask().Frame(0, 0, 1, 1).Lines(20)});
  cases.push_back({"OneLine", ask().Frame(0, 0.4F, 2, 1).Lines(1)});
  cases.push_back({"OneLineRescaled", ask().Dpi(300).Frame(0.1F, 0.4F, 2, 1).Lines(1)});
  cases.push_back({"Preview", ask().Dpi(100), [](DeviceOptions&) {}, true});
  cases.push_back({"Bright", ask().Brightness(-30)});
  return cases;
}
INSTANTIATE_TEST_SUITE_P(Frame, LineEquality,
                         testing::Values(Family{"Lineart", Frames(1)}, Family{"Grey", Frames(8)},
                                         Family{"Colour", Frames(24)}),
                         NameOf);

std::vector<Case> Thresholds() {
  std::vector<Case> cases;
  for (const std::uint32_t pattern : {0u, 1u, 100u, 170u, 255u}) {
    cases.push_back({"Pattern" + std::to_string(pattern), Ask::Lineart().Dpi(60, 250),
                     [=](DeviceOptions& options) { options.dither_pattern = pattern; }});
  }
  return cases;
}
INSTANTIATE_TEST_SUITE_P(Threshold, LineEquality, testing::Values(Family{"Patterns", Thresholds()}),
                         NameOf);

}  // namespace
}  // namespace vox::test
