// simple-scan in a real window on a display of its own finds the device, scans and saves: the file
// holds the page that vox gets. With VOX_PICTURES in the environment the window's picture is kept
// in that folder, as docs/images has it.
#include <cmath>

#include "tests/e2e/sane/SaneFixture.h"

namespace vox::cli::test {
namespace {

class SaneWindow : public Sane {
 protected:
  void SetUp() override {
    Sane::SetUp();
    if (IsSkipped()) return;
    for (const char* program : {"simple-scan", "Xvfb", "xdotool", "import", "dbus-run-session"}) {
      if (std::system((std::string("command -v ") + program + " >/dev/null").c_str()) != 0)
        GTEST_SKIP() << program
                     << " is not installed (Debian: simple-scan, xvfb, xdotool, "
                        "imagemagick, dbus): no window is tried";
    }
    Put(2, "Office");
    place_->Configure({"device net:127.0.0.2"});
  }
};

TEST_F(SaneWindow, SimpleScanFindsScansAndSaves) {
  std::vector<std::string> words = SanePlace::Judge(SANE_WINDOW_SCRIPT, "");
  // The script's own programs need no preload: what env is told goes to simple-scan alone.
  const std::vector<std::string> settings(words.begin() + 1, words.end() - 1);
  std::vector<std::string> command = {SANE_WINDOW_SCRIPT};
  command.insert(command.end(), settings.begin(), settings.end());
  vox_.StartCommand(command);
  const Outcome outcome = vox_.Wait();
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const Picture saved = ReadPng(vox_.File("saved.png"));
  const long dpi = std::lround(saved.height / 11.7);
  const Picture page = PictureOf(VoxPnm("--mode color --resolution " + std::to_string(dpi)));
  EXPECT_EQ(saved.width, page.width);
  EXPECT_EQ(saved.height, page.height);
  EXPECT_EQ(saved.bits, 24U);
  EXPECT_TRUE(saved.lines == page.lines) << "at " << dpi << " dpi";
  if (const char* folder = std::getenv("VOX_PICTURES"))
    std::filesystem::copy_file(vox_.File("window.png"), std::string(folder) + "/simple-scan.png",
                               std::filesystem::copy_options::overwrite_existing);
}

}  // namespace
}  // namespace vox::cli::test
