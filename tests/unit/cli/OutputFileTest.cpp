// A file appears under its name when it is whole, and nothing else stays behind.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/cli/ReadBack.h"
#include "tools/vox/Failure.h"
#include "tools/vox/writers/OutputFile.h"

namespace vox::cli::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const Bytes kText{'t', 'e', 'x', 't'};
const Bytes kOld{'o', 'l', 'd'};

class OutputFileTest : public testing::Test {
 protected:
  void PutOld(mode_t mode) {
    std::ofstream(Name()) << "old";
    ::chmod(Name().c_str(), mode);
  }
  std::string Name() const { return folder_.File("page.png"); }
  static Failure FailureOf(const std::string& path) {
    try {
      OutputFile file(path, -1);
    } catch (const Failure& failure) {
      return failure;
    }
    return Failure(ExitStatus::kDone, "no failure");
  }
  mode_t ModeOf(const std::string& path) const {
    struct stat there {};
    ::stat(path.c_str(), &there);
    return there.st_mode & 0777;
  }

  TestFolder folder_;
};

TEST_F(OutputFileTest, AppearsAtCommit) {
  OutputFile file(Name(), -1);
  file.Write(kText);
  EXPECT_FALSE(std::filesystem::exists(Name()));
  file.Commit();
  EXPECT_EQ(ReadFile(Name()), kText);
  EXPECT_THAT(folder_.Leaves(), ElementsAre("page.png"));
}

TEST_F(OutputFileTest, GoesWithoutATraceWhenItWasNotCommitted) {
  { OutputFile(Name(), -1).Write(kText); }
  EXPECT_THAT(folder_.Leaves(), IsEmpty());
}

TEST_F(OutputFileTest, TheOldFileStaysUntilCommit) {
  PutOld(0644);
  { OutputFile(Name(), -1).Write(kText); }
  EXPECT_EQ(ReadFile(Name()), kOld);
}

TEST_F(OutputFileTest, TheOldFilesPermissionsStay) {
  PutOld(0640);
  OutputFile file(Name(), -1);
  file.Commit();
  EXPECT_EQ(ModeOf(Name()), 0640U);
}

TEST_F(OutputFileTest, ANewFileObeysTheUmask) {
  const mode_t old = ::umask(027);
  OutputFile file(Name(), -1);
  file.Commit();
  ::umask(old);
  EXPECT_EQ(ModeOf(Name()), 0640U);
}

TEST_F(OutputFileTest, ASymbolicLinkIsKeptAndItsTargetReplaced) {
  PutOld(0644);
  const std::string link = folder_.File("link.png");
  std::filesystem::create_symlink("page.png", link);
  OutputFile file(link, -1);
  file.Write(kText);
  file.Commit();
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(ReadFile(Name()), kText);
}

TEST_F(OutputFileTest, ALinkToAFileThatIsYetToComeStaysALink) {
  const std::string link = folder_.File("link.png");
  std::filesystem::create_directory(folder_.File("sub"));
  std::filesystem::create_symlink("sub/next.png", link);
  std::filesystem::create_symlink("../page.png", folder_.File("sub/next.png"));
  OutputFile file(link, -1);
  file.Write(kText);
  file.Commit();
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(ReadFile(Name()), kText);
}

TEST_F(OutputFileTest, LinksInACircleAreAnError) {
  std::filesystem::create_symlink("b.png", folder_.File("a.png"));
  std::filesystem::create_symlink("a.png", folder_.File("b.png"));
  EXPECT_EQ(FailureOf(folder_.File("a.png")).Status(), ExitStatus::kIoError);
  EXPECT_THAT(folder_.Leaves(), ElementsAre("a.png", "b.png"));
}

TEST_F(OutputFileTest, ADeviceIsWrittenToAndNotReplaced) {
  OutputFile file("/dev/null", -1);
  EXPECT_FALSE(file.IsSeekable());
  file.Write(kText);
  file.Commit();
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(OutputFileTest, ANameOfGreatestLengthWorks) {
  const std::string name = folder_.File(std::string(251, 'x') + ".png");
  OutputFile file(name, -1);
  file.Write(kText);
  file.Commit();
  EXPECT_EQ(ReadFile(name), kText);
  EXPECT_THAT(FailureOf(folder_.File(std::string(252, 'x') + ".png")).what(),
              HasSubstr("shorter name"));
}

TEST_F(OutputFileTest, BytesPastTheBufferArriveInOrder) {
  Bytes many(1000003);
  for (std::size_t i = 0; i < many.size(); ++i)
    many[i] = static_cast<std::uint8_t>(i * 31 + i / 251);
  OutputFile file(Name(), -1);
  file.Write(std::span(many).first(70000));
  file.Write(std::span(many).subspan(70000));
  file.Commit();
  EXPECT_EQ(ReadFile(Name()), many);
}

TEST_F(OutputFileTest, AMissingFolderIsSaidBeforeAnythingIsScanned) {
  const Failure failure = FailureOf(folder_.File("no/page.png"));
  EXPECT_EQ(failure.Status(), ExitStatus::kIoError);
  EXPECT_THAT(failure.what(), HasSubstr("No such file or directory; create the folder first"));
}

TEST_F(OutputFileTest, AFolderIsNoFile) {
  const Failure failure = FailureOf(folder_.Path());
  EXPECT_EQ(failure.Status(), ExitStatus::kIoError);
  EXPECT_THAT(failure.what(), HasSubstr("Is a directory"));
}

// In a child, as somebody who is not root.
[[noreturn]] void ExitAsNobody(const std::string& path) {
  constexpr uid_t kNobody = 65534;
  if (::geteuid() == 0 && ::setresuid(kNobody, kNobody, kNobody) != 0) std::_Exit(1);
  try {
    OutputFile file(path, -1);
  } catch (const Failure& failure) {
    std::_Exit(static_cast<int>(failure.Status()));
  }
  std::_Exit(0);
}

TEST_F(OutputFileTest, MissingPermissionIsStatusEleven) {
  PutOld(0444);
  ::chmod(folder_.Path().c_str(), 0555);
  EXPECT_EXIT(ExitAsNobody(Name()), testing::ExitedWithCode(11), "");
  EXPECT_EXIT(ExitAsNobody(folder_.File("new.png")), testing::ExitedWithCode(11), "");
  ::chmod(folder_.Path().c_str(), 0755);
}

TEST_F(OutputFileTest, ACancelEndsTheWaitForAPipesReader) {
  const std::string pipe = folder_.File("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const FileDescriptor reader(::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EventFd cancel;
  OutputFile file(pipe, cancel.Get());
  std::thread canceller([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the pipe fills meanwhile, or not
    cancel.Raise();
  });
  try {
    const Bytes many(1 << 20);
    for (;;) file.Write(many);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Status(), ExitStatus::kCancelled);
  }
  canceller.join();
}

TEST_F(OutputFileTest, AReaderThatGoesAwayIsAnError) {
  const std::string pipe = folder_.File("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  FileDescriptor reader(::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  OutputFile file(pipe, -1);
  reader.Reset();
  const auto old = std::signal(SIGPIPE, SIG_IGN);
  EXPECT_THROW(file.Write(Bytes(1 << 20)), Failure);
  std::signal(SIGPIPE, old);
}

[[noreturn]] void ExitFromASpool(const char* folder) {
  ::setenv("TMPDIR", folder, 1);
  try {
    MakeSpool();
  } catch (const Failure& failure) {
    std::fputs(failure.what(), stderr);
    std::_Exit(static_cast<int>(failure.Status()));
  }
  std::_Exit(0);
}

TEST(SpoolDeathTest, SaysWhereItWantedToBeAndHowToMoveIt) {
  EXPECT_EXIT(ExitFromASpool("/nowhere"), testing::ExitedWithCode(9),
              "cannot write a temporary file in /nowhere: No such file or directory; set TMPDIR");
}

TEST(SpoolTest, HasNoNameAndGivesBackWhatWasWritten) {
  const FileDescriptor spool = MakeSpool();
  ASSERT_TRUE(WriteAt(spool.Get(), kText, 1 << 20));
  Bytes back(kText.size());
  ASSERT_TRUE(ReadAt(spool.Get(), back, 1 << 20));
  EXPECT_EQ(back, kText);
  EXPECT_FALSE(ReadAt(spool.Get(), back, 2 << 20)) << "nothing lies there";
  struct stat there {};
  ASSERT_EQ(::fstat(spool.Get(), &there), 0);
  EXPECT_EQ(there.st_nlink, 0U);
}

}  // namespace
}  // namespace vox::cli::test
