// scanimage with the backend: what it lists and offers, and pages that equal those of vox byte for
// byte.
#include <chrono>
#include <regex>

#include "tests/e2e/sane/SaneFixture.h"

namespace vox::cli::test {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class ScanimagePage : public Sane {
 protected:
  void SetUp() override {
    Sane::SetUp();
    if (IsSkipped()) return;
    Put(2, "Office");
    place_->Configure({"device net:127.0.0.2"});
  }
  std::string Listed() {
    const Outcome outcome = Scanimage("--formatted-device-list=%d|%v|%m|%t%n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return outcome.out;
  }
  std::string NameListed() {
    const std::string listed = Listed();
    return listed.substr(0, listed.find('|'));
  }
};

TEST_F(ScanimagePage, ADeviceOfTheConfigurationIsListedWithItsMakerModelAndType) {
  const Outcome outcome = Scanimage("-L");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out,
            "device `vox:net:02:56:58:00:00:02' is a Veltronix QD7200 multi-function peripheral\n");
}

TEST_F(ScanimagePage, ADeviceOfTheConfigurationThatIsSilentIsListedByItsAddress) {
  sim::Faults silent;
  ASSERT_EQ(sim::ParseFault("silent=always", silent), "");
  devices_[0]->SetFaults(silent);
  EXPECT_EQ(Listed(),
            "vox:net:127.0.0.2|Veltronix|scanner at 127.0.0.2|"
            "multi-function peripheral\n");
  devices_[0]->SetFaults({});
  EXPECT_EQ(Listed(), "vox:net:02:56:58:00:00:02|Veltronix|QD7200|multi-function peripheral\n");
}

// What a list calls a device may be all that the next program has: a user who may not write the
// shared settings makes nobody remember it, and searches are off.
TEST_F(ScanimagePage, ADeviceOfTheConfigurationIsFoundUnderItsStableNameThoughNobodyRemembersIt) {
  Put(9, "Stranger");
  place_->Configure({"device net:127.0.0.88", "device net:127.0.0.9", "device net:127.0.0.2"});
  const Outcome outcome =
      Scanimage("-d vox:net:02:56:58:00:00:02 --resolution 75 --format=pnm -o a.pnm");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(PictureOf(Pnm("a.pnm")).width, 638U);
  EXPECT_EQ(devices_[1]->Events().Count(sim::EventKind::kJobStarted), 0U);
}

TEST_F(ScanimagePage, ADeviceOfTheConfigurationIsAskedWhoItIsOnce) {
  const std::string listed = Listed();
  const std::size_t asked = devices_[0]->Events().Count(sim::EventKind::kSnmpRequest);
  EXPECT_GT(asked, 0U);
  EXPECT_EQ(Listed(), listed);
  EXPECT_EQ(devices_[0]->Events().Count(sim::EventKind::kSnmpRequest), asked);
}

TEST_F(ScanimagePage, TheNameThatIsListedStaysAndOpens) {
  const std::string name = NameListed();
  EXPECT_THAT(name, StartsWith("vox:net:"));
  EXPECT_EQ(NameListed(), name);
  EXPECT_EQ(Scanimage("-d " + name + " -n").status, 0);
}

TEST_F(ScanimagePage, EverythingThatTheDeviceCanDoIsOffered) {
  const Outcome outcome = Scanimage(std::string("-A -d ") + kAt2);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("--mode Lineart|Gray|Color "));
  EXPECT_THAT(outcome.out, HasSubstr("--resolution "));
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("75"), HasSubstr("600"), HasSubstr("dpi")));
  EXPECT_THAT(outcome.out, HasSubstr("--source Flatbed"));
  EXPECT_THAT(outcome.out, HasSubstr("--preview[=(yes|no)] [no]"));
  EXPECT_THAT(outcome.out, HasSubstr("--brightness -100..100%"));
  EXPECT_THAT(outcome.out, HasSubstr("--contrast -100..100%"));
  EXPECT_THAT(outcome.out, HasSubstr("--threshold "));
  for (const char* edge : {"-l 0..215.9mm", "-t 0..297.", "-x 0..215.9mm", "-y 0..297."})
    EXPECT_THAT(outcome.out, HasSubstr(edge));
  EXPECT_THAT(outcome.out, AllOf(Not(HasSubstr("page-width")), Not(HasSubstr("page-height"))));
}

TEST_F(ScanimagePage, ScanimagesOwnThoroughTestPasses) {
  const Outcome outcome = Scanimage(std::string("-T --resolution 75 --mode Gray -d ") + kAt2);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("PASS"));
  EXPECT_THAT(outcome.err, Not(HasSubstr("FAIL")));
}

TEST_F(ScanimagePage, WithoutAnOptionTheWholeBedComes) {
  GoodScan("--resolution 75 --format=pnm -o page.pnm");
  const Picture picture = PictureOf(Pnm("page.pnm"));
  EXPECT_EQ(picture.width, 638U);
  EXPECT_EQ(picture.height, 878U);
}

struct Request {
  const char* sane;
  const char* vox;
};

TEST_F(ScanimagePage, PagesEqualThoseOfVoxByteForByte) {
  constexpr Request kModes[] = {{"Lineart", "lineart"}, {"Gray", "gray"}, {"Color", "color"}};
  constexpr Request kAreas[] = {
      {"--resolution 75", "--resolution 75"},
      {"--resolution 100", "--resolution 100"},
      {"--resolution 150 -l 0 -t 0 -x 105 -y 148", "--resolution 150 --frame 0,0,105,148"},
      {"--resolution 200 -l 10 -t 20 -x 50 -y 40", "--resolution 200 --frame 10,20,60,60"},
      {"--resolution 300 -l 3 -t 5 -x 61 -y 43", "--resolution 300 --frame 3,5,64,48"},
      {"--resolution 600 -l 100 -t 150 -x 40 -y 30", "--resolution 600 --frame 100,150,140,180"},
  };
  for (const Request& mode : kModes) {
    for (const Request& area : kAreas) {
      SCOPED_TRACE(std::string(mode.sane) + " " + area.sane);
      GoodScan(std::string("--format=pnm -o sane.pnm --mode ") + mode.sane + " " + area.sane);
      EXPECT_TRUE(
          SameFile(Pnm("sane.pnm"), VoxPnm(std::string("--mode ") + mode.vox + " " + area.vox)));
    }
  }
}

TEST_F(ScanimagePage, TonesReachTheDeviceAsThoseOfVoxDo) {
  constexpr Request kTones[] = {
      {"--mode Gray --brightness 40", "--mode gray --brightness 40"},
      {"--mode Gray --brightness -40", "--mode gray --brightness -40"},
      {"--mode Color --contrast 50", "--mode color --contrast 50"},
  };
  const std::string plain = VoxPnm("--resolution 75 --mode gray");
  for (const Request& tone : kTones) {
    SCOPED_TRACE(tone.sane);
    GoodScan(std::string("--resolution 75 --format=pnm -o sane.pnm ") + tone.sane);
    EXPECT_TRUE(SameFile(Pnm("sane.pnm"), VoxPnm(std::string("--resolution 75 ") + tone.vox)));
    EXPECT_NE(Pnm("sane.pnm"), plain);
  }
}

// The body of a file that scanimage writes uncompressed ends it.
TEST_F(ScanimagePage, EveryFormatHoldsTheSamePage) {
  for (const char* mode : {"Lineart", "Gray", "Color"}) {
    SCOPED_TRACE(mode);
    const std::string page = std::string("--resolution 75 --mode ") + mode;
    for (const char* format : {"pnm", "tiff", "png", "jpeg", "pdf"})
      GoodScan(page + " --format=" + format + " -o page." + format);
    const std::string pnm = Pnm("page.pnm");
    const Picture picture = PictureOf(pnm);
    const std::size_t body = picture.lines.size() * LineBytes(picture);
    ASSERT_GT(body, 0U);
    EXPECT_THAT(Text("page.tiff"), testing::EndsWith(pnm.substr(pnm.size() - body)));
    const Picture png = ReadPng(vox_.File("page.png"));
    EXPECT_EQ(png.width, picture.width);
    EXPECT_EQ(png.lines, picture.lines);
    EXPECT_NEAR(png.x_dpi, 75, 0.1);
    EXPECT_THAT(Text("page.jpeg"), AllOf(StartsWith("\xFF\xD8"), testing::EndsWith("\xFF\xD9")));
    EXPECT_THAT(Text("page.pdf"), AllOf(StartsWith("%PDF-"), HasSubstr("%%EOF")));
  }
}

// The picture in docs/sane.md. With VOX_PICTURES in the environment it is made anew in that folder.
TEST_F(ScanimagePage, ThePictureInTheDocumentsIsOfThisPage) {
  GoodScan("--resolution 75 --mode Color --format=png -o page.png");
  if (const char* folder = std::getenv("VOX_PICTURES"))
    std::filesystem::copy_file(vox_.File("page.png"), std::string(folder) + "/scanimage.png",
                               std::filesystem::copy_options::overwrite_existing);
  const Picture page = ReadPng(vox_.File("page.png"));
  const Picture shown = ReadPng(SANE_PICTURES "/scanimage.png");
  EXPECT_EQ(shown.width, page.width);
  EXPECT_EQ(shown.bits, page.bits);
  EXPECT_TRUE(shown.lines == page.lines) << "make it anew with VOX_PICTURES=docs/images";
}

TEST_F(ScanimagePage, InLineartOneIsBlack) {
  for (const std::uint8_t grey : {0, 255}) {
    sim::Image page;
    page.width = 85;
    page.height = 117;
    page.x_millidpi = page.y_millidpi = 10000;
    page.samples.assign(85 * 117, grey);
    sim::DeviceOptions options = At(static_cast<std::uint8_t>(grey == 0 ? 3 : 4), 3);
    options.glass = sim::MakeImagePage(std::move(page));
    ASSERT_EQ(Scanimage("-d vox:net:" + Put(options).Address() +
                        " --mode Lineart --resolution 75 -x 100 -y 100 --format=pnm -o page.pbm")
                  .status,
              0);
    const std::string pbm = Pnm("page.pbm");
    EXPECT_THAT(pbm, StartsWith("P4\n296 295\n"));
    EXPECT_EQ(pbm.substr(11), std::string(37 * 295, static_cast<char>(grey == 0 ? 0xFF : 0)))
        << "grey " << int{grey};
  }
}

TEST_F(ScanimagePage, AreaBeyondTheBedIsBroughtToItAndSaid) {
  const Outcome outcome = Scanimage(std::string("--resolution 75 -x 500 -y 500 --format=pnm "
                                                "-o a.pnm -d ") +
                                    kAt2);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("rounded value of br-x"));
  EXPECT_EQ(PictureOf(Pnm("a.pnm")).width, 638U);
}

TEST_F(ScanimagePage, AResolutionBetweenIsRoundedAndSaid) {
  const Outcome outcome = Scanimage(std::string("--resolution 9999 -n -d ") + kAt2);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("rounded value of resolution from 9999 to 600"));
}

TEST_F(ScanimagePage, APreviewIsAScan) {
  GoodScan("--preview=yes --resolution 75 --format=pnm -o a.pnm");
  EXPECT_EQ(PictureOf(Pnm("a.pnm")).width, 638U);
}

TEST_F(ScanimagePage, NamesOfNobodyAreInvalid) {
  for (const char* name : {"vox:net:127.0.0.77", "vox:net:", "vox:usb:nobody", "vox:nonsense",
                           "vox:net:no-such-host.invalid", "vox:net:127.0.0.2:77"}) {
    const Outcome outcome = Scanimage(std::string("-n -d ") + name);
    EXPECT_NE(outcome.status, 0) << name;
    EXPECT_THAT(outcome.err, HasSubstr("Invalid argument")) << name;
  }
}

TEST_F(ScanimagePage, TheFirstDeviceIsOpenedWhenNoneIsNamed) {
  const Outcome outcome = Scanimage("--resolution 75 --format=pnm -o a.pnm");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(PictureOf(Pnm("a.pnm")).width, 638U);
}

// The folder in which a program happens to stand is not asked for settings.
TEST_F(ScanimagePage, AConfigurationInTheCurrentFolderIsNotRead) {
  Put(9, "Stranger");
  std::ofstream(vox_.File("vox.conf")) << "device net:127.0.0.9\n";
  ::setenv("SANE_CONFIG_DIR", (".:" + vox_.File("conf")).c_str(), 1);
  EXPECT_EQ(Listed().find("127.0.0.9"), std::string::npos);
  EXPECT_THAT(Listed(), StartsWith("vox:net:"));
  EXPECT_THAT(devices_[1]->Events().All(), IsEmpty());
}

TEST_F(ScanimagePage, ABrokenConfigurationLosesNoDevice) {
  place_->Configure({"", "nonsense", "device", "device net:", "device usb:", "discovery maybe",
                     std::string(100000, 'x'), "device net:127.0.0.2", "device \xFF\xFE",
                     "network-when-local-only perhaps"});
  const Outcome outcome = Scanimage("-L");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, HasSubstr("`vox:net:"));
  EXPECT_EQ(outcome.err, "") << "nothing is printed unless it is asked for";
}

TEST_F(ScanimagePage, ATraceIsWrittenWhenItIsAskedFor) {
  EXPECT_EQ(Scanimage("-L").err, "");
  ::setenv("SANE_DEBUG_VOX", "255", 1);
  EXPECT_NE(Scanimage("-L").err, "");
  ::unsetenv("SANE_DEBUG_VOX");
}

TEST_F(ScanimagePage, ADeviceThatVoxRemembersIsListedWithoutASearch) {
  Put(5, "Attic");
  Good("add 127.0.0.5");
  place_->Configure({});
  EXPECT_THAT(Listed(), HasSubstr("|Veltronix|QD7200|multi-function peripheral\n"));
}

}  // namespace
}  // namespace vox::cli::test
