// The systemd unit of the job server: what systemd makes of it, and that its sandbox leaves the
// lock file where every user's programs look for it.
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/core/Scratch.h"
#include "tests/unit/packaging/Said.h"
#include "vox/drivers/net/bonjour.h"

namespace vox::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr double kMostExposed = 2.0;

class Service : public testing::Test {
 protected:
  // The unit as it is installed, but for the program, which is the one that was built here.
  void SetUp() override {
    text_ = std::regex_replace(TextOf(VOX_BINARY_DIR "/tools/voxjobd/voxjobd.service"),
                               std::regex("ExecStart=[^ \n]*"), "ExecStart=" VOXJOBD);
    std::ofstream(unit_) << text_;
  }
  std::string Analyzed(const std::string& arguments, int* status) const {
    return Said(
        "SYSTEMD_COLORS=0 systemd-analyze --no-pager " + arguments + " '" + unit_ + "' 2>&1",
        status);
  }
  Scratch scratch_;
  std::string unit_ = scratch_.Path("voxjobd.service"), text_;
};

TEST_F(Service, ItIsAsLittleExposedAsItShallBe) {
  if (!IsHere("systemd-analyze")) GTEST_SKIP() << "systemd-analyze is not here (Debian: systemd)";
  int status = -1;
  const std::string said = Analyzed("security --offline=true", &status);
  std::smatch level;
  ASSERT_TRUE(std::regex_search(said, level, std::regex(R"(voxjobd\.service: ([0-9.]+))"))) << said;
  EXPECT_LE(std::stod(level[1]), kMostExposed);
}

TEST_F(Service, SystemdFindsNothingWrong) {
  if (!IsHere("systemd-analyze")) GTEST_SKIP() << "systemd-analyze is not here (Debian: systemd)";
  int status = -1;
  EXPECT_EQ(Analyzed("verify --man=no --recursive-errors=no", &status), "");
  EXPECT_EQ(status, 0);
}

TEST_F(Service, ItsLockFileIsTheOneThatProgramsLookFor) {
  const Variable no_root("VOX_ROOT");
  const std::string lock = bonjour_lock_file();
  EXPECT_THAT(text_, HasSubstr("\nReadWritePaths=" + lock.substr(0, lock.rfind('/')) + "\n"));
  EXPECT_THAT(text_, Not(HasSubstr("PrivateTmp=")));
  EXPECT_THAT(text_, Not(HasSubstr("DynamicUser=")));  // implies a /var/tmp of its own
}

}  // namespace
}  // namespace vox::test
