// Settings that cannot be read or written, as a person is told of them. Each case ends a process of
// its own, which is somebody who is not root.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/cli/ReadBack.h"
#include "tools/vox/KnownDevices.h"

namespace vox::cli::test {
namespace {

class KnownDevicesDeathTest : public testing::Test {
 protected:
  KnownDevicesDeathTest() {
    std::filesystem::create_directories(Shared());
    std::filesystem::create_directories(folder_.File("user"));
    ::chmod(folder_.Path().c_str(), 0777);
    ::chmod(Shared().c_str(), 0777);
  }
  ~KnownDevicesDeathTest() override { ::chmod(Shared().c_str(), 0777); }

  std::string Shared() const { return folder_.File("var/lib/Veltronix Vox"); }
  std::string SharedFile() const { return Shared() + "/com.veltronix.vox.plist"; }

  // Adds a device as vox would, and ends with the failure's status and words.
  [[noreturn]] void AddAsNobody() const {
    constexpr uid_t kNobody = 65534;
    if (::geteuid() == 0 && ::setresuid(kNobody, kNobody, kNobody) != 0) std::_Exit(1);
    ::setenv("VOX_ROOT", folder_.Path().c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", folder_.File("user").c_str(), 1);
    try {
      DevicesManager& registry = OpenRegistry();
      BeforeSharedChange();
      registry.appendOneDeviceInfo(std::make_shared<Dictionary>(
          Dictionary{{kDeviceIdKey, "02"}, {kDeviceTypeKey, kDeviceTypeNetwork}}));
      AfterChange();
    } catch (const Failure& failure) {
      std::fputs(failure.what(), stderr);
      std::_Exit(static_cast<int>(failure.Status()));
    }
    std::fputs("added", stderr);
    std::_Exit(0);
  }
  void Expect(int status, const std::string& words) const {
    EXPECT_EXIT(AddAsNobody(), testing::ExitedWithCode(status), words);
  }
  void PutShared(const std::string& text) const {
    std::ofstream(SharedFile()) << text;
    ::chmod(SharedFile().c_str(), 0666);
  }
  std::string Text(const std::string& path) const {
    const Bytes bytes = ReadFile(path);
    return {bytes.begin(), bytes.end()};
  }

  const TestFolder folder_;
};

TEST_F(KnownDevicesDeathTest, AFolderThatMayBeWrittenTakesTheDevice) {
  Expect(0, "^added$");
  EXPECT_THAT(Text(SharedFile()), testing::HasSubstr("Device.02"));
}

TEST_F(KnownDevicesDeathTest, AFolderThatMayNotBeWrittenIsElevenWithTheGroupToJoin) {
  ::chmod(Shared().c_str(), 0555);
  Expect(11, "^cannot write .*vox.plist: Permission denied; join the group scanner .*adduser");
}

TEST_F(KnownDevicesDeathTest, AMissingFolderIsNineWithHowToMakeIt) {
  std::filesystem::remove(Shared());
  Expect(9,
         "^cannot write .*: No such file or directory; make its folder: sudo install -d -m 2775 "
         "-g scanner '.*/Veltronix Vox'$");
}

TEST_F(KnownDevicesDeathTest, AFileThatMayNotBeReadIsElevenAndIsNotReplaced) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs a file of somebody else's";
  PutShared("secret");
  ::chmod(SharedFile().c_str(), 0600);
  Expect(11, "^cannot read .*: Permission denied; join the group scanner");
  EXPECT_EQ(Text(SharedFile()), "secret");
}

TEST_F(KnownDevicesDeathTest, ADamagedFileIsReportedOnceAndKeptAside) {
  PutShared("no property list");
  Expect(0,
         "^vox: note: the settings in .*vox.plist were damaged and count as empty; they are kept "
         "as .*vox.plist.damaged\nadded$");
  EXPECT_EQ(Text(SharedFile() + ".damaged"), "no property list");
  EXPECT_THAT(Text(SharedFile()), testing::HasSubstr("Device.02"));
  PutShared("no property list");
  Expect(0, "^added$");
}

TEST_F(KnownDevicesDeathTest, ADamagedFileThatCannotBeKeptIsNotReplaced) {
  PutShared("no property list");
  ::chmod(Shared().c_str(), 0555);
  Expect(11,
         "are damaged and count as empty\ncannot keep the damaged settings in .*; join the "
         "group scanner");
  EXPECT_EQ(Text(SharedFile()), "no property list");
}

}  // namespace
}  // namespace vox::cli::test
