// The duplex file: what is written line by line comes back from the last line to the first, and no
// name in the temporary folder can turn it against the user.
#include "vox/DupImgFile.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "tests/unit/core/Scratch.h"
#include "vox/Environment.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::size_t OpenDescriptors() {
  const fs::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

class DupImgFile : public ::testing::Test {
 protected:
  DupImgFile()
      : tmpdir_("TMPDIR", scratch_.Path("")),
        before_(SetSystemLogSink([this](const std::string& line) { log_.push_back(line); })) {}
  ~DupImgFile() override { SetSystemLogSink(before_); }

  static std::string Path() {
    return Environment::instance().userTemporaryFolder() + "/DUPIMG.tmp";
  }
  static void Write(CDupImgFile& file, const std::vector<std::string>& lines) {
    ASSERT_TRUE(file.Create(static_cast<unsigned>(lines.at(0).size())));
    for (const auto& line : lines) ASSERT_TRUE(file.WriteLine(line.data()));
    ASSERT_TRUE(file.Close());
  }
  static std::vector<std::string> Replay(CDupImgFile& file) {
    std::vector<std::string> lines;
    EXPECT_TRUE(file.Open());
    while (file.LinesLeft()) {
      std::string line(file.LineBytes(), '?');
      EXPECT_TRUE(file.ReadLine(line.data()));
      lines.push_back(line);
    }
    EXPECT_TRUE(file.Close());
    return lines;
  }
  static std::string Contents(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  Scratch scratch_;
  Variable tmpdir_;
  std::vector<std::string> log_;
  SystemLogSink before_;
};

TEST_F(DupImgFile, LinesComeBackFromTheLastToTheFirst) {
  CDupImgFile file;
  Write(file, {"one", "two", "six"});
  EXPECT_THAT(Replay(file), ElementsAre("six", "two", "one"));
  EXPECT_THAT(Replay(file), ElementsAre("six", "two", "one")) << "a second time";
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(DupImgFile, OneAndTwoLines) {
  CDupImgFile file;
  Write(file, {"only"});
  EXPECT_THAT(Replay(file), ElementsAre("only"));
  Write(file, {"a", "b"});
  EXPECT_THAT(Replay(file), ElementsAre("b", "a"));
}

TEST_F(DupImgFile, IsRawRecordsInTheOrderOfWriting) {
  CDupImgFile file;
  Write(file, {"one", "two"});
  EXPECT_EQ(Contents(Path()), "onetwo");
}

TEST_F(DupImgFile, EndIsThePositionOfTheFirstLine) {
  CDupImgFile file;
  std::string line(3, ' ');
  Write(file, {"one", "two", "six"});
  ASSERT_TRUE(file.Open());
  EXPECT_FALSE(file.IsEnd());
  ASSERT_TRUE(file.ReadLine(line.data()));
  EXPECT_FALSE(file.IsEnd());
  ASSERT_TRUE(file.ReadLine(line.data()));
  EXPECT_FALSE(file.IsEnd());
  ASSERT_TRUE(file.ReadLine(line.data()));
  EXPECT_TRUE(file.IsEnd());
  EXPECT_FALSE(file.LinesLeft());

  Write(file, {"one"});
  ASSERT_TRUE(file.Open());
  EXPECT_TRUE(file.IsEnd()) << "its only line is the first";
  EXPECT_TRUE(file.LinesLeft()) << "and yet unread";
}

TEST_F(DupImgFile, ReadingBeyondTheFirstLineFailsWithALogLine) {
  CDupImgFile file;
  Write(file, {"one"});
  ASSERT_TRUE(file.Open());
  std::string line(3, ' ');
  ASSERT_TRUE(file.ReadLine(line.data()));
  EXPECT_FALSE(file.ReadLine(line.data()));
  EXPECT_THAT(log_, ElementsAre("CDupImgFile::ReadLine:****Error****\n"));
}

TEST_F(DupImgFile, ShorterBufferGetsTheBeginningOfEachLine) {
  CDupImgFile file;
  Write(file, {"one", "two", "six"});
  ASSERT_TRUE(file.Open());
  std::string line(2, ' ');
  line.shrink_to_fit();
  for (const char* expected : {"si", "tw", "on"}) {
    ASSERT_TRUE(file.ReadLine(line.data(), 2));
    EXPECT_EQ(line, expected);
  }
}

TEST_F(DupImgFile, LongerBufferGetsNoMoreThanALine) {
  CDupImgFile file;
  Write(file, {"one", "two"});
  ASSERT_TRUE(file.Open());
  std::string line(5, '?');
  ASSERT_TRUE(file.ReadLine(line.data(), 5));
  EXPECT_EQ(line, "two??");
}

TEST_F(DupImgFile, FileWithoutLinesOpensAtItsStart) {
  CDupImgFile file;
  ASSERT_TRUE(file.Create(1000));
  ASSERT_TRUE(file.Open());
  EXPECT_TRUE(file.IsEnd());
  EXPECT_FALSE(file.LinesLeft());
}

TEST_F(DupImgFile, OpenStoresWhatIsStillInTheStream) {
  CDupImgFile file;
  ASSERT_TRUE(file.Create(3));
  ASSERT_TRUE(file.WriteLine("abc"));
  EXPECT_THAT(Replay(file), ElementsAre("abc")) << "Open closes first";
}

TEST_F(DupImgFile, CreateStartsAnew) {
  CDupImgFile file;
  Write(file, {"one", "two"});
  Write(file, {"long line"});
  EXPECT_EQ(file.NoOfLines(), 1u);
  EXPECT_EQ(file.LineBytes(), 9u);
  EXPECT_THAT(Replay(file), ElementsAre("long line"));
  EXPECT_EQ(Contents(Path()), "long line");
}

TEST_F(DupImgFile, IsForTheUserAlone) {
  const mode_t before = ::umask(0);
  CDupImgFile file;
  Write(file, {"one"});
  ::umask(before);
  struct stat status {};
  ASSERT_EQ(::lstat(Path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0600u);
}

TEST_F(DupImgFile, LinkThatBearsTheNameIsReplacedNotFollowed) {
  std::ofstream(scratch_.Path("target")) << "precious";
  fs::create_symlink(scratch_.Path("target"), Path());
  CDupImgFile file;
  Write(file, {"one"});
  EXPECT_EQ(Contents(scratch_.Path("target")), "precious");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(Path())));
  EXPECT_THAT(Replay(file), ElementsAre("one"));
}

TEST_F(DupImgFile, NameThatCannotBeTakenIsLogged) {
  fs::create_directory(Path());
  CDupImgFile file;
  EXPECT_FALSE(file.Create(3));
  EXPECT_FALSE(file.WriteLine("one"));
  EXPECT_THAT(log_, ElementsAre("CDupImgFile::Create:NG\n", "CDupImgFile::WriteLine:NG\n"));
}

TEST_F(DupImgFile, FailedCreateLeavesNoLinesOfTheFileBefore) {
  CDupImgFile file;
  Write(file, {"one", "two"});
  fs::remove(Path());
  fs::create_directory(Path());
  EXPECT_FALSE(file.Create(3));
  EXPECT_EQ(file.NoOfLines(), 0u);
  EXPECT_FALSE(file.LinesLeft());
}

TEST_F(DupImgFile, AnotherObjectThatComesAndGoesTakesNothing) {
  CDupImgFile file;
  Write(file, {"one", "two"});
  { const CDupImgFile other; }
  EXPECT_TRUE(fs::exists(Path())) << "it created nothing, so it removed nothing";
  {
    CDupImgFile other;
    EXPECT_TRUE(other.Delete());
  }
  EXPECT_FALSE(fs::exists(Path()));
  EXPECT_THAT(Replay(file), ElementsAre("two", "one")) << "from the file that is kept open";
}

TEST_F(DupImgFile, TwoPagesAtOnceDoNotMix) {
  CDupImgFile second;
  {
    CDupImgFile first;
    Write(first, {"one", "two"});
    Write(second, {"cat", "dog"});
    EXPECT_THAT(Replay(first), ElementsAre("two", "one"));
  }
  EXPECT_TRUE(fs::exists(Path())) << "the name belongs to the second by now";
  EXPECT_THAT(Replay(second), ElementsAre("dog", "cat"));
}

TEST_F(DupImgFile, DestructorRemovesWhatItCreated) {
  const std::size_t before = OpenDescriptors();
  {
    CDupImgFile file;
    Write(file, {"one"});
    ASSERT_TRUE(file.Open());
  }
  EXPECT_FALSE(fs::exists(Path()));
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(DupImgFile, DeleteForgetsTheLines) {
  CDupImgFile file;
  Write(file, {"one"});
  EXPECT_TRUE(file.Delete());
  EXPECT_EQ(file.NoOfLines(), 0u);
  EXPECT_FALSE(fs::exists(Path()));
  EXPECT_FALSE(file.Open()) << "there is no file any more";
  EXPECT_TRUE(file.Delete()) << "nothing left is what was wanted";
}

TEST_F(DupImgFile, PipeThatBearsTheNameIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(Path().c_str(), 0600), 0);
  CDupImgFile file;
  EXPECT_FALSE(file.Open()) << "and at once";
}

TEST_F(DupImgFile, RawReadAndWriteMoveThePosition) {
  CDupImgFile file;
  char bytes[4] = {};
  EXPECT_EQ(file.Read(bytes, 4), 0) << "no stream";
  EXPECT_EQ(file.Write("abcd", 4), 0);
  EXPECT_EQ(file.SetPointer32(0, 0), -1);
  ASSERT_TRUE(file.Create(4));
  EXPECT_EQ(file.Write("abcdefgh", 8), 0);
  EXPECT_EQ(file.NoOfLines(), 0u);
  ASSERT_TRUE(file.Open());
  EXPECT_EQ(file.SetPointer32(2, 0), 2);
  EXPECT_EQ(file.Read(bytes, 4), 0);
  EXPECT_EQ(std::string(bytes, 4), "cdef");
  EXPECT_EQ(file.SetPointer32(-5, 1), 1);
  EXPECT_EQ(file.SetPointer32(-1, 2), 7);
  EXPECT_EQ(file.SetPointer32(-1, 0), -1) << "before the start";
  EXPECT_EQ(file.SetPointer32(0, 3), -1) << "no such origin";
}

TEST_F(DupImgFile, FullDiskIsNoticedAtTheLatestWhenClosing) {
  CDupImgFile file;
  const std::string line(100, 'x');
  ASSERT_TRUE(file.Create(100));
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit small = before;
  small.rlim_cur = 50;
  const auto handler = ::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_TRUE(file.WriteLine(line.data())) << "the stream still holds it";
  const bool stored = file.Close();
  ::setrlimit(RLIMIT_FSIZE, &before);
  ::signal(SIGXFSZ, handler);
  EXPECT_FALSE(stored);
  EXPECT_THAT(log_, ElementsAre("CDupImgFile::WriteLine:NG\n"));
}

TEST_F(DupImgFile, PositionsBeyondFourGigabytesHold) {
  constexpr long kFar = 0x180000000;
  CDupImgFile file;
  ASSERT_TRUE(file.Create(1));
  EXPECT_EQ(file.SetPointer32(kFar, 0), kFar);
  EXPECT_EQ(file.Write("z", 1), 0) << "a sparse file";
  EXPECT_EQ(file.SetPointer32(-2, 1), kFar - 1);
  ASSERT_TRUE(file.Open());
  EXPECT_EQ(file.SetPointer32(0, 2), kFar + 1);
  char last = 0;
  EXPECT_EQ(file.SetPointer32(-1, 1), kFar);
  EXPECT_EQ(file.Read(&last, 1), 0);
  EXPECT_EQ(last, 'z');
}

}  // namespace
}  // namespace vox
