// Replacing a file: what the new one looks like, and that every failure leaves the old one whole.
#include "vox/platform/FileReplacement.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/unit/core/Scratch.h"

namespace vox {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kSomebody = 12345;

class Replacement : public ::testing::Test {
 protected:
  Replacement() : folder_(scratch_.Path("folder")), file_(folder_ + "/settings.plist") {
    fs::create_directory(folder_);
  }
  ~Replacement() override { SetFileReplacementSystem({::write, ::fsync, ::rename}); }

  static std::string Content(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  static struct stat StatusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
  }
  static unsigned ModeOf(const std::string& path) { return StatusOf(path).st_mode & 07777u; }
  std::ptrdiff_t FilesInFolder() const {
    return std::distance(fs::directory_iterator(folder_), fs::directory_iterator());
  }
  void Old(const std::string& content, mode_t mode = 0644) const {
    std::ofstream(file_) << content;
    ASSERT_EQ(::chmod(file_.c_str(), mode), 0);
  }
  // The old file is whole and alone.
  void ExpectOld(const std::string& content) const {
    EXPECT_EQ(Content(file_), content);
    EXPECT_EQ(FilesInFolder(), 1);
  }

  // InChild runs body as another process and gives its exit code; -signal when one ended it.
  template <class Body>
  static int InChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  static int AsSomebody(const std::string& path, const std::string& content,
                        gid_t group = kSomebody) {
    return InChild([&] {
      if (::setgroups(1, &group) != 0 || ::setgid(kSomebody) != 0 || ::setuid(kSomebody) != 0)
        return 255;
      return ReplaceFile(path, content);
    });
  }
  static bool IsRoot() { return ::geteuid() == 0; }

  Scratch scratch_;
  std::string folder_, file_;
};

TEST_F(Replacement, NewFileHasTheModeAskedForWhateverTheUmask) {
  const mode_t before = ::umask(0077);
  EXPECT_EQ(ReplaceFile(file_, "new"), 0);
  ::umask(before);
  ExpectOld("new");
  EXPECT_EQ(ModeOf(file_), 0644u);
  EXPECT_EQ(ReplaceFile(folder_ + "/own", "new", 0600), 0);
  EXPECT_EQ(ModeOf(folder_ + "/own"), 0600u);
}

TEST_F(Replacement, OldModeIsKept) {
  for (const mode_t mode : {0600u, 0664u, 0640u, 0444u}) {
    Old("old", mode);
    EXPECT_EQ(ReplaceFile(file_, "new"), 0);
    ExpectOld("new");
    EXPECT_EQ(ModeOf(file_), mode);
    fs::remove(file_);
  }
}

TEST_F(Replacement, OwnerAndGroupAreKeptByRoot) {
  if (!IsRoot()) GTEST_SKIP() << "only root can give a file away";
  Old("old", 0664);
  ASSERT_EQ(::chown(file_.c_str(), kSomebody, kSomebody + 1), 0);
  EXPECT_EQ(ReplaceFile(file_, "new"), 0);
  EXPECT_EQ(StatusOf(file_).st_uid, kSomebody);
  EXPECT_EQ(StatusOf(file_).st_gid, kSomebody + 1);
  EXPECT_EQ(ModeOf(file_), 0664u);
}

TEST_F(Replacement, MemberOfTheGroupKeepsItAndTheModeOfTheFile) {
  if (!IsRoot()) GTEST_SKIP() << "only root can become somebody else";
  Old("old", 0664);
  constexpr gid_t kScanner = 23456;
  ASSERT_EQ(::chown(file_.c_str(), 0, kScanner), 0);
  ASSERT_EQ(::chown(folder_.c_str(), 0, kScanner), 0);
  ASSERT_EQ(::chmod(folder_.c_str(), 0775), 0);
  ASSERT_EQ(::chmod(fs::path(folder_).parent_path().c_str(), 0755), 0);
  EXPECT_EQ(AsSomebody(file_, "new", kScanner), 0);
  EXPECT_EQ(Content(file_), "new");
  EXPECT_EQ(StatusOf(file_).st_uid, kSomebody);
  EXPECT_EQ(StatusOf(file_).st_gid, kScanner);
  EXPECT_EQ(ModeOf(file_), 0664u);
}

TEST_F(Replacement, GroupThatCannotBeKeptLosesWhatItHadBeyondOthers) {
  if (!IsRoot()) GTEST_SKIP() << "only root can become somebody else";
  Old("old", 0664);
  ASSERT_EQ(::chmod(folder_.c_str(), 0777), 0);
  ASSERT_EQ(::chmod(fs::path(folder_).parent_path().c_str(), 0755), 0);
  EXPECT_EQ(AsSomebody(file_, "new"), 0);
  EXPECT_EQ(StatusOf(file_).st_gid, kSomebody);
  EXPECT_EQ(ModeOf(file_), 0644u);
}

TEST_F(Replacement, LinkStaysAndItsTargetIsReplaced) {
  fs::create_directory(scratch_.Path("real"));
  const std::string real = scratch_.Path("real/file");
  std::ofstream(real) << "old";
  fs::create_symlink("../real/file", file_);
  EXPECT_EQ(ReplaceFile(file_, "new"), 0);
  EXPECT_TRUE(fs::is_symlink(file_));
  EXPECT_EQ(Content(real), "new");
  EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(Replacement, LinkToNothingMakesTheFileThatItNames) {
  const std::string real = scratch_.Path("real");
  fs::create_symlink(real, file_);
  EXPECT_EQ(ReplaceFile(file_, "new"), 0);
  EXPECT_TRUE(fs::is_symlink(file_));
  EXPECT_EQ(Content(real), "new");
}

TEST_F(Replacement, LinksWithoutEndAreAnError) {
  fs::create_symlink("settings.plist", file_);
  EXPECT_EQ(ReplaceFile(file_, "new"), ELOOP);
}

TEST_F(Replacement, LinkOfAnotherUserInAnOpenFolderLeadsNowhere) {
  if (!IsRoot()) GTEST_SKIP() << "only root can give a link away";
  const std::string real = scratch_.Path("precious");
  std::ofstream(real) << "old";
  fs::create_symlink(real, file_);
  ASSERT_EQ(::lchown(file_.c_str(), kSomebody, kSomebody), 0);
  ASSERT_EQ(::chmod(folder_.c_str(), 02775), 0);
  EXPECT_EQ(ReplaceFile(file_, "new"), EACCES);
  EXPECT_EQ(Content(real), "old");
  ASSERT_EQ(::chmod(folder_.c_str(), 0755), 0);
  EXPECT_EQ(ReplaceFile(file_, "new"), 0)
      << "only who may write to the folder can have put it there";
  EXPECT_EQ(Content(real), "new");
}

TEST_F(Replacement, FolderThatCannotBeWrittenLeavesTheOldFile) {
  if (!IsRoot()) GTEST_SKIP() << "only root can become somebody else";
  Old("old", 0666);
  ASSERT_EQ(::chmod(fs::path(folder_).parent_path().c_str(), 0755), 0);
  EXPECT_EQ(AsSomebody(file_, "new"), EACCES);
  ExpectOld("old");
}

TEST_F(Replacement, MissingFolderIsToldAndNotMade) {
  EXPECT_EQ(ReplaceFile(folder_ + "/missing/file", "new"), ENOENT);
  EXPECT_EQ(FilesInFolder(), 0);
}

TEST_F(Replacement, OnlyRegularFilesAreReplaced) {
  fs::create_directory(file_);
  EXPECT_EQ(ReplaceFile(file_, "new"), EINVAL);
  fs::remove(file_);
  ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
  EXPECT_EQ(ReplaceFile(file_, "new"), EINVAL);
  EXPECT_TRUE(S_ISFIFO(StatusOf(file_).st_mode));
}

ssize_t FullDisk(int fd, const void* bytes, std::size_t size) {
  if (size > 3) return ::write(fd, bytes, 3);
  errno = ENOSPC;
  return -1;
}
ssize_t Slow(int fd, const void* bytes, std::size_t size) {
  static int calls = 0;
  errno = EINTR;
  return ++calls % 2 != 0 ? -1 : ::write(fd, bytes, size > 0 ? 1 : 0);
}
int Broken(int) {
  errno = EIO;
  return -1;
}
int NoRename(const char*, const char*) {
  errno = EROFS;
  return -1;
}

TEST_F(Replacement, EveryFailingCallLeavesTheOldFileAndNothingElse) {
  const struct {
    FileReplacementSystem system;
    int error;
  } rows[] = {
      {{FullDisk, ::fsync, ::rename}, ENOSPC},
      {{::write, Broken, ::rename}, EIO},
      {{::write, ::fsync, NoRename}, EROFS},
  };
  Old("old content");
  for (const auto& row : rows) {
    SetFileReplacementSystem(row.system);
    EXPECT_EQ(ReplaceFile(file_, "new content"), row.error);
    ExpectOld("old content");
  }
}

TEST_F(Replacement, InterruptedAndShortWritesGoOn) {
  SetFileReplacementSystem({Slow, ::fsync, ::rename});
  EXPECT_EQ(ReplaceFile(file_, "some content"), 0);
  ExpectOld("some content");
}

TEST_F(Replacement, FileThatMayNotGrowLeavesTheOldOne) {
  Old("old");
  const int error = InChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4096, 4096};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    return ReplaceFile(file_, std::string(10'000, 'x'));
  });
  EXPECT_EQ(error, EFBIG);
  ExpectOld("old");
}

// Killed before, in and after every call on the way, the old or the new file is there, whole.
int calls_left = 0;
void Count() {
  if (calls_left-- == 0) ::kill(::getpid(), SIGKILL);
}
ssize_t CountedWrite(int fd, const void* bytes, std::size_t size) {
  Count();
  return ::write(fd, bytes, size > 4 ? 4 : size);
}
int CountedSync(int fd) {
  Count();
  return ::fsync(fd);
}
int CountedRename(const char* from, const char* to) {
  Count();
  return ::rename(from, to);
}

TEST_F(Replacement, KillAtAnyCallLeavesTheOldOrTheNewFile) {
  int killed = 0;
  bool old_seen = false, new_seen = false;
  for (int calls = 0; calls < 20; ++calls) {
    Old("old content");
    const int end = InChild([&] {
      calls_left = calls;
      SetFileReplacementSystem({CountedWrite, CountedSync, CountedRename});
      return ReplaceFile(file_, "new content");
    });
    const std::string content = Content(file_);
    EXPECT_TRUE(content == "old content" || content == "new content") << content;
    (content == "old content" ? old_seen : new_seen) = true;
    killed += end == -SIGKILL;
  }
  EXPECT_EQ(killed, 6) << "three writes, two syncs and a rename";
  EXPECT_TRUE(old_seen && new_seen);
}

TEST_F(Replacement, ReadersSeeWholeFilesWhileManyWrite) {
  const std::string contents[] = {std::string(20'000, 'a'), std::string(30'000, 'b')};
  ASSERT_EQ(ReplaceFile(file_, contents[0]), 0);
  SetFileReplacementSystem(
      {::write, [](int) { return 0; }, ::rename});  // the disk is not the point
  std::vector<std::thread> writers;
  for (const std::string& content : contents) {
    writers.emplace_back([&] {
      for (int i = 0; i < 50; ++i) EXPECT_EQ(ReplaceFile(file_, content), 0);
    });
  }
  for (int i = 0; i < 200; ++i) {
    std::vector<std::uint8_t> bytes;
    ASSERT_EQ(ReadWholeFile(file_, 1 << 20, &bytes, nullptr), 0);
    const std::string seen(bytes.begin(), bytes.end());
    ASSERT_TRUE(seen == contents[0] || seen == contents[1]) << seen.size();
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(Replacement, ReadingTellsWhyNot) {
  std::vector<std::uint8_t> bytes;
  EXPECT_EQ(ReadWholeFile(file_, 10, &bytes, nullptr), ENOENT);
  EXPECT_EQ(ReadWholeFile(folder_, 10, &bytes, nullptr), EINVAL);
  Old("0123456789");
  struct stat status {};
  EXPECT_EQ(ReadWholeFile(file_, 10, &bytes, &status), 0);
  EXPECT_EQ(bytes.size(), 10u);
  EXPECT_EQ(status.st_size, 10);
  EXPECT_EQ(ReadWholeFile(file_, 9, &bytes, nullptr), EFBIG);
  const std::string pipe = folder_ + "/pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(ReadWholeFile(pipe, 10, &bytes, nullptr), EINVAL) << "and is not waited for";
}

}  // namespace
}  // namespace vox
