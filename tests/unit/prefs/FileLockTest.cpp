// The lock on a file: one process holds it, until it closes the file or ends.
#include <iterator>
#include <string>

#include <fcntl.h>

#include "tests/unit/prefs/Desktop.h"
#include "tests/unit/prefs/Process.h"
#include "vox/Environment.h"

namespace vox {
namespace {

std::ptrdiff_t OpenDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

class FileLock : public Desktop {
 protected:
  FileLock() { Environment::instance(); }
  static int Seize(const std::string& path) { return Environment::instance().seizeFileLock(path); }
  // Whether another process gets the lock just now.
  bool IsFree(const std::string& path) {
    return Process([&](Process&) { return Seize(path) >= 0 ? 0 : 1; }).Wait() == 0;
  }
  std::string lock_ = Path("lock");
};

TEST_F(FileLock, FileIsMadeForAllToWrite) {
  const mode_t before = ::umask(0);
  const FileDescriptor held(Seize(lock_));
  ::umask(before);
  ASSERT_TRUE(held);
  EXPECT_EQ(ModeOf(lock_), 0666u);
}

TEST_F(FileLock, ContentOfTheFileStays) {
  Write(lock_, "content");
  const FileDescriptor held(Seize(lock_));
  ASSERT_TRUE(held);
  EXPECT_EQ(Text(lock_), "content");
  EXPECT_EQ(::fcntl(held.Get(), F_GETFL) & O_ACCMODE, O_WRONLY);
  EXPECT_EQ(::fcntl(held.Get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(FileLock, SecondProcessIsRefusedWhileTheFirstDescriptorIsOpen) {
  FileDescriptor held(Seize(lock_));
  ASSERT_TRUE(held);
  EXPECT_FALSE(IsFree(lock_));
  held.Reset();
  EXPECT_TRUE(IsFree(lock_));
}

TEST_F(FileLock, EndsWithItsProcess) {
  Process other([&](Process& self) {
    if (Seize(lock_) < 0) return 1;
    self.Tell();
    ::pause();
    return 0;
  });
  ASSERT_TRUE(other.AwaitTold());
  EXPECT_EQ(Seize(lock_), -1);
  other.Kill();
  const FileDescriptor held(Seize(lock_));
  EXPECT_TRUE(held);
}

TEST_F(FileLock, RefusedLockLeavesTheDescriptorOpen) {
  const FileDescriptor held(Seize(lock_));
  ASSERT_TRUE(held);
  const int left = Process([&](Process&) {
                     const auto before = OpenDescriptors();
                     if (Seize(lock_) != -1) return 99;
                     return static_cast<int>(OpenDescriptors() - before);
                   }).Wait();
  EXPECT_EQ(left, 1);
}

TEST_F(FileLock, IsOneByteAtTheStart) {
  const FileDescriptor held(Seize(lock_));
  ASSERT_TRUE(held);
  const int failed = Process([&](Process&) {
                       const FileDescriptor file(::open(lock_.c_str(), O_RDWR | O_CLOEXEC));
                       struct flock rest {};
                       rest.l_type = F_WRLCK;
                       rest.l_start = 1;  // to the end of the file, however far that goes
                       if (::fcntl(file.Get(), F_SETLK, &rest) != 0) return 1;
                       struct flock first {};
                       first.l_type = F_WRLCK;
                       first.l_len = 1;
                       if (::fcntl(file.Get(), F_GETLK, &first) != 0) return 2;
                       return first.l_type == F_WRLCK && first.l_pid == ::getppid() ? 0 : 3;
                     }).Wait();
  EXPECT_EQ(failed, 0);
}

TEST_F(FileLock, SharedLockOfAnotherProcessRefusesIt) {
  Process reader([&](Process& self) {
    const FileDescriptor file(::open(lock_.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0666));
    struct flock first {};
    first.l_type = F_RDLCK;
    first.l_len = 1;
    if (::fcntl(file.Get(), F_SETLK, &first) != 0) return 1;
    self.Tell();
    ::pause();
    return 0;
  });
  ASSERT_TRUE(reader.AwaitTold());
  EXPECT_EQ(Seize(lock_), -1) << "the lock asked for is an exclusive one";
}

TEST_F(FileLock, FileThatCannotBeOpenedIsRefusedWithoutADescriptor) {
  const auto before = OpenDescriptors();
  EXPECT_EQ(Seize(Path("no/such/folder/lock")), -1);
  EXPECT_EQ(Seize(Path("tmp")), -1) << "a folder";
  EXPECT_EQ(Seize(""), -1);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(FileLock, PipeIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(lock_.c_str(), 0600), 0);
  EXPECT_EQ(Seize(lock_), -1);
}

}  // namespace
}  // namespace vox
