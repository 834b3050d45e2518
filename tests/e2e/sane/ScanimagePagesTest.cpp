// scanimage and what lies in the device: one page and no more from the glass, page after page from
// the feeder, both sides, nothing at all.
#include "tests/e2e/sane/SaneFixture.h"
#include "tests/support/SmallDevice.h"

namespace vox::cli::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using vox::test::SmallDevice;
using vox::test::SmallFeeder;

constexpr char kPage[] = "--mode Gray --resolution 100 --format=pnm ";
constexpr char kVoxPage[] = "--mode gray --resolution 100 ";

class ScanimagePages : public Sane {
 protected:
  sim::VirtualDevice& PutSmall(sim::DeviceOptions options) {
    options.address = "127.0.0.2";
    options.snmp_port = 161;
    options.command_port = 3892;
    return Put(std::move(options));
  }
  sim::VirtualDevice& PutFeeder(std::uint32_t sheets, bool both_sides = false) {
    sim::DeviceOptions options = SmallFeeder(sheets, both_sides);
    options.reload_feeder = true;
    return PutSmall(std::move(options));
  }
  Outcome Batch(const std::string& arguments) {
    return Scanimage(std::string("-d ") + kAt2 + " " + kPage + "--batch=p%03d.pnm " + arguments);
  }
  // The pages of a batch are those that vox takes from the same sheets, in the same order.
  void ExpectPagesOfVox(std::size_t pages, const std::string& vox_options = "") {
    Good(std::string("scan net:127.0.0.2 --format pnm --batch v%03d.pnm ") + kVoxPage +
         vox_options);
    ASSERT_THAT(Files("v0"), SizeIs(pages));
    ASSERT_THAT(Files("p0"), SizeIs(pages));
    for (const std::string& leaf : Files("p0")) {
      EXPECT_TRUE(SameFile(Pnm(leaf), Text("v" + leaf.substr(1)))) << leaf;
      std::filesystem::remove(vox_.File(leaf));
      std::filesystem::remove(vox_.File("v" + leaf.substr(1)));
    }
  }
};

TEST_F(ScanimagePages, AFeederGivesEachOfItsPagesOnceAndThenSaysItIsEmpty) {
  for (const std::uint32_t sheets : {1U, 3U, 50U}) {
    SCOPED_TRACE(sheets);
    devices_.clear();
    PutFeeder(sheets);
    const Outcome outcome = Batch("--source ADF");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr("Batch terminated, " + std::to_string(sheets) + " page"));
    ExpectPagesOfVox(sheets);
  }
}

TEST_F(ScanimagePages, BothSidesComeInOrder) {
  PutFeeder(3, true);
  const Outcome outcome = Batch("--source 'ADF Duplex'");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  ExpectPagesOfVox(6, "--duplex");
}

TEST_F(ScanimagePages, OneSideOfSheetsThatHaveTwo) {
  PutFeeder(3, true);
  const Outcome outcome = Batch("--source ADF");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  ExpectPagesOfVox(3);
}

TEST_F(ScanimagePages, ABatchOfTwoTakesTwoAndTheNextOneIsGood) {
  sim::VirtualDevice& device = PutFeeder(5);
  const Outcome outcome = Batch("--source ADF --batch-count=2");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(Files("p0"), ElementsAre("p001.pnm", "p002.pnm"));
  EXPECT_TRUE(device.Events().WaitFor(sim::EventKind::kJobStarted, 1, std::chrono::seconds(1)));
  GoodScan(std::string(kPage) + "--source ADF -o one.pnm");
}

TEST_F(ScanimagePages, OnePageOfAFeederIsOnePage) {
  PutFeeder(3);
  GoodScan(std::string(kPage) + "--source ADF -o one.pnm");
  EXPECT_TRUE(
      SameFile(Pnm("one.pnm"),
               (Vox(std::string("scan net:127.0.0.2 -o vox.pnm ") + kVoxPage), Text("vox.pnm"))));
}

TEST_F(ScanimagePages, TheGlassGivesAPageAsOftenAsItIsAsked) {
  PutSmall(SmallDevice());
  const Outcome outcome = Batch("--source Flatbed --batch-count=2");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(Files("p0"), ElementsAre("p001.pnm", "p002.pnm"));
  EXPECT_TRUE(SameFile(Text("p001.pnm"), Text("p002.pnm")));
}

TEST_F(ScanimagePages, AnEmptyFeederIsSevenAndNoFile) {
  sim::DeviceOptions options = SmallFeeder(1);
  options.empty_glass = true;
  PutSmall(std::move(options)).LoadFeeder({});
  const Outcome batch = Batch("--source ADF");
  EXPECT_EQ(batch.status, kNoDocument) << batch.err;
  EXPECT_THAT(batch.err, HasSubstr("Document feeder out of documents"));
  EXPECT_THAT(Files("p0"), IsEmpty());
  const Outcome page =
      Scanimage(std::string("-d ") + kAt2 + " " + kPage + "--source ADF -o page.pnm");
  EXPECT_EQ(page.status, kNoDocument) << page.err;
}

// The device would take the glass in place of a feeder that is empty; who asked for the feeder gets
// what the feeder has.
TEST_F(ScanimagePages, AFeederThatIsRefilledGoesOn) {
  sim::DeviceOptions options = SmallFeeder(2);
  options.empty_glass = true;
  sim::VirtualDevice& device = PutSmall(options);
  EXPECT_EQ(Batch("--source ADF").status, 0);
  EXPECT_THAT(Files("p0"), SizeIs(2));
  EXPECT_EQ(Batch("--source ADF").status, kNoDocument);
  device.LoadFeeder(options.sheets);
  EXPECT_EQ(Batch("--source ADF --batch-start=5").status, 0);
  EXPECT_THAT(Files("p0"), SizeIs(4));
}

TEST_F(ScanimagePages, APageThatBreaksEndsTheBatchAndThoseBeforeStay) {
  sim::Faults faults;
  faults.close_after = 1000;
  faults.page = 3;
  PutFeeder(4).SetFaults(faults);
  const Outcome outcome = Batch("--source ADF");
  EXPECT_EQ(outcome.status, kIoError) << outcome.err;
  EXPECT_THAT(Files("p0"), ElementsAre("p001.pnm", "p002.pnm"));
  GoodScan(std::string(kPage) + "--source ADF -o one.pnm");
}

}  // namespace
}  // namespace vox::cli::test
