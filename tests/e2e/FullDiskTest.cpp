// A disk that is full under the settings, the shared ones and the user's own: one line, and nothing
// of what was kept is lost. Each store lies on a file system of four pages of its own.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <string>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include "tests/e2e/VoxDevices.h"
#include "tests/support/FreshLoopback.h"

namespace vox::cli::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class FullDisk : public VoxDevices {
 protected:
  void SetUp() override {
    VoxDevices::SetUp();
    if (IsSkipped()) return;
    if (!vox::test::Unshare(CLONE_NEWNS) ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      GTEST_SKIP() << "no mount namespace can be made here";
    std::filesystem::create_directories(User());
    for (const std::string& folder : {Shared(), User()}) {
      if (::mount("none", folder.c_str(), "tmpfs", 0, "nr_blocks=4") != 0)
        GTEST_SKIP() << "no file system can be mounted here";
      mounted_.push_back(folder);
    }
  }
  void TearDown() override {
    for (const std::string& folder : mounted_) ::umount2(folder.c_str(), MNT_DETACH);
  }

  std::string User() const { return vox_.File("config"); }
  std::string UserFile() const { return User() + "/com.veltronix.vox.plist"; }

  // Takes all the room that is left there.
  static void Fill(const std::string& folder) {
    const int fd = ::open((folder + "/other").c_str(), O_WRONLY | O_CREAT, 0600);
    const char block[512] = {};
    while (::write(fd, block, sizeof block) > 0) {
    }
    EXPECT_EQ(errno, ENOSPC);
    ::close(fd);
  }
  static std::string Text(const std::string& path) {
    const Bytes bytes = ReadFile(path);
    return {bytes.begin(), bytes.end()};
  }
  // What lies there besides what takes the room.
  static std::vector<std::string> Leaves(const std::string& folder) {
    std::vector<std::string> leaves;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().filename() != "other") leaves.push_back(entry.path().filename());
    }
    std::sort(leaves.begin(), leaves.end());
    return leaves;
  }

  std::vector<std::string> mounted_;
};

TEST_F(FullDisk, SharedSettingsStayWholeAndOneLineSaysWhy) {
  Put(2, "Office");
  Put(3, "Cellar");
  Good("add 127.0.0.2");
  const std::string before = Text(SharedFile());
  Fill(Shared());
  for (const char* line :
       {"add 127.0.0.3", "settings set computerName desk", "remove office", "register office"}) {
    ExpectFailure(line, 9, "vox.plist: No space left on device; free some space there, see df '");
    EXPECT_EQ(Text(SharedFile()), before) << line;
    EXPECT_THAT(Leaves(Shared()), testing::ElementsAre("com.veltronix.vox.plist")) << line;
  }
  std::filesystem::remove(Shared() + "/other");
  EXPECT_THAT(Good("add 127.0.0.3"), StartsWith("added: Cellar"));
}

TEST_F(FullDisk, TheUsersOwnSettingsStayWholeAndOneLineSaysWhy) {
  Put(2, "Office");
  Good("add 127.0.0.2");
  Good("settings set pushScanTargetPath /");
  const std::string before = Text(UserFile());
  Fill(User());
  ExpectFailure("settings set pushScanTargetPath /usr", 9,
                "vox.plist: No space left on device; free some space there, see df '" + User());
  EXPECT_EQ(Text(UserFile()), before);
  const Outcome scan = Vox("scan office --mode gray --resolution 75 --frame 0,0,30,30 -o a.png");
  EXPECT_EQ(scan.status, 0) << scan.err;
  EXPECT_THAT(scan.err, AllOf(StartsWith("vox: note: cannot keep which device was used last in "),
                              HasSubstr("; free some space there")));
  EXPECT_EQ(Text(UserFile()), before);
  EXPECT_THAT(Leaves(User()),
              testing::ElementsAre("com.veltronix.vox.plist", "com.veltronix.vox.plist.lock"));
}

// Office is new, and cannot be saved; Cellar moved, and answers after it.
TEST_F(FullDisk, ADeviceThatMovedIsShownWhereItIsNow) {
  if (!vox::test::RouteBroadcasts()) GTEST_SKIP() << "no route for broadcasts can be made here";
  Put(3, "Cellar");
  Good("add 127.0.0.3");
  devices_.clear();
  Fill(Shared());
  sim::Faults late;
  late.delays.snmp = std::chrono::milliseconds(300);
  PutHearing(2, 2, "Office");
  PutHearing(9, 3, "Cellar", late);
  const Outcome outcome = Vox("discover --json");
  EXPECT_EQ(outcome.status, 9);
  EXPECT_THAT(outcome.err, HasSubstr("No space left on device"));
  std::map<std::string, std::string> places;
  for (const nlohmann::json& line : Objects(outcome.out)) {
    if (line.contains("name")) places[line["name"]] = line["ip"];
  }
  EXPECT_EQ(places,
            (std::map<std::string, std::string>{{"Office", "127.0.0.2"}, {"Cellar", "127.0.0.9"}}));
}

}  // namespace
}  // namespace vox::cli::test
