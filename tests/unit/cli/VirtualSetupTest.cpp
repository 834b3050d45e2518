// What stands in the way of a virtual device of one's own, and what is said about it.
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/cli/ReadBack.h"
#include "tools/vox/Failure.h"
#include "tools/vox/VirtualSetup.h"

namespace vox::cli::test {
namespace {

class VirtualSetupDeathTest : public testing::Test {
 protected:
  VirtualSetupDeathTest() { ::chmod(folder_.Path().c_str(), 0777); }

  // Ends the process with the failure's status and words, as somebody who is not root.
  [[noreturn]] void SetUpAsNobody(const VirtualOptions& options) const {
    constexpr uid_t kNobody = 65534;
    if (::geteuid() == 0 && ::setresuid(kNobody, kNobody, kNobody) != 0) std::_Exit(1);
    ::setenv("TMPDIR", folder_.Path().c_str(), 1);
    int status = 0;
    try {
      const VirtualSetup setup(options, false);
    } catch (const Failure& failure) {
      std::fputs(failure.what(), stderr);
      status = static_cast<int>(failure.Status());
    }
    std::_Exit(status);
  }
  void Expect(const VirtualOptions& options, int status, const std::string& words) const {
    EXPECT_EXIT(SetUpAsNobody(options), testing::ExitedWithCode(status), words);
  }

  const TestFolder folder_;
};

TEST_F(VirtualSetupDeathTest, APageThatMayNotBeReadIsEleven) {
  const std::string page = folder_.File("secret.pgm");
  std::ofstream(page) << "P2 1 1 255 7";
  ::chmod(page.c_str(), 0);
  Expect({true, {page}, {}, {}}, 11, "secret.pgm: Permission denied; name PNM, PNG");
  EXPECT_THAT(folder_.Leaves(), testing::ElementsAre("secret.pgm")) << "the private folder is gone";
}

TEST_F(VirtualSetupDeathTest, APageThatIsNotThereIsNine) {
  Expect({true, {"/nowhere.png"}, {}, {}}, 9, "/nowhere.png: No such file");
  Expect({true, {"/"}, {}, {}}, 9, "/: Is a directory");
}

TEST_F(VirtualSetupDeathTest, AFaultThatIsNoneIsSixtyFour) {
  Expect({true, {}, {}, "rain"}, 64, "no such fault: rain");
}

TEST_F(VirtualSetupDeathTest, AFolderThatMayNotBeWrittenIsEleven) {
  ::chmod(folder_.Path().c_str(), 0555);
  Expect({true, {}, {}, {}}, 11, "cannot create a folder in .*; set TMPDIR");
  ::chmod(folder_.Path().c_str(), 0755);
}

}  // namespace
}  // namespace vox::cli::test
