// One user's settings, as several processes see them.
#include "vox/platform/PreferencesStore.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/NoMemory.h"
#include "tests/unit/core/Scratch.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/FileReplacement.h"
#include "vox/platform/PropertyListFile.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

class Preferences : public ::testing::Test {
 protected:
  Preferences()
      : config_("XDG_CONFIG_HOME", scratch_.Path("config")),
        path_(UserPreferencesPath("com.veltronix.vox")) {
    before_ = SetSystemLogSink([this](const std::string& line) { log_.push_back(line); });
  }
  ~Preferences() override {
    SetSystemLogSink(before_);
    SetFileReplacementSystem({::write, ::fsync, ::rename});
  }
  Dictionary File() const { return ReadDictionaryFile(path_).content; }
  void Put(const std::string& content) const {
    fs::create_directories(fs::path(path_).parent_path());
    std::ofstream(path_) << content;
  }

  // Process runs body in another process; Ended gives its exit code or -signal.
  template <class Body>
  static pid_t Process(Body body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    return child;
  }
  static int Ended(pid_t child) {
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  Scratch scratch_;
  Variable config_;
  std::string path_;
  std::vector<std::string> log_;
  SystemLogSink before_;
};

TEST_F(Preferences, LieInTheConfigurationFolder) {
  EXPECT_EQ(path_, scratch_.Path("config/com.veltronix.vox.plist"));
  const Variable home("HOME", "/home/somebody");
  for (const char* useless : {"", "relative"}) {
    const Variable config("XDG_CONFIG_HOME", useless);
    EXPECT_EQ(UserPreferencesPath("a.b"), "/home/somebody/.config/a.b.plist");
  }
}

TEST_F(Preferences, WithoutHomeInTheEnvironmentTheUserDatabaseKnows) {
  const Variable home("HOME");
  const Variable config("XDG_CONFIG_HOME");
  EXPECT_TRUE(UserPreferencesPath("a.b").ends_with("/.config/a.b.plist"));
}

TEST_F(Preferences, AskingMakesNoFiles) {
  const PreferencesStore store(path_);
  EXPECT_EQ(store.Value("a"), std::nullopt);
  EXPECT_TRUE(store.Values().IsEmpty());
  EXPECT_FALSE(fs::exists(scratch_.Path("config")));
}

TEST_F(Preferences, SettingIsSeenAtOnceHereAndElsewhereAfterSynchronising) {
  PreferencesStore here(path_), there(path_);
  here.Set("a", 1);
  EXPECT_EQ(here.Value("a"), PropertyValue(1));
  EXPECT_EQ(there.Value("a"), std::nullopt);
  EXPECT_EQ(here.Synchronise(), 0);
  EXPECT_EQ(there.Value("a"), std::nullopt) << "what was read once stays until synchronised";
  EXPECT_EQ(there.Synchronise(), 0);
  EXPECT_EQ(there.Value("a"), PropertyValue(1));
  EXPECT_EQ(PreferencesStore(path_).Value("a"), PropertyValue(1));
}

TEST_F(Preferences, NewFileIsTheUsersOwn) {
  PreferencesStore store(path_);
  store.Set("a", 1);
  ASSERT_EQ(store.Synchronise(), 0);
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0600u);
  ASSERT_EQ(::stat(scratch_.Path("config").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0700u);
}

TEST_F(Preferences, OthersKeysSurvive) {
  PreferencesStore first(path_), second(path_);
  first.Values();
  second.Values();
  first.Set("a", 1);
  second.Set("b", 2);
  EXPECT_EQ(first.Synchronise(), 0);
  EXPECT_EQ(second.Synchronise(), 0);
  EXPECT_EQ(File(), (Dictionary{{"a", 1}, {"b", 2}}));
  EXPECT_EQ(second.Values(), File());
}

TEST_F(Preferences, RemovingIsAChangeLikeAnyOther) {
  PreferencesStore store(path_);
  store.Set("a", 1);
  store.Set("b", 2);
  ASSERT_EQ(store.Synchronise(), 0);
  store.Remove("a");
  store.Remove("never there");
  EXPECT_EQ(store.Value("a"), std::nullopt);
  EXPECT_EQ(store.Synchronise(), 0);
  EXPECT_EQ(File(), (Dictionary{{"b", 2}}));
}

TEST_F(Preferences, NothingNewIsNotWritten) {
  PreferencesStore store(path_);
  store.Set("a", 1);
  ASSERT_EQ(store.Synchronise(), 0);
  struct stat before {
  }, after{};
  ASSERT_EQ(::stat(path_.c_str(), &before), 0);
  store.Set("a", 1);
  EXPECT_EQ(store.Synchronise(), 0);
  EXPECT_EQ(store.Synchronise(), 0);
  ASSERT_EQ(::stat(path_.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(Preferences, LinkedFileStaysALink) {
  const std::string real = scratch_.Path("real.plist");
  fs::create_directory(scratch_.Path("config"));
  fs::create_symlink(real, path_);
  PreferencesStore through_link(path_), direct(real);
  through_link.Set("a", 1);
  direct.Set("b", 2);
  EXPECT_EQ(through_link.Synchronise(), 0);
  EXPECT_EQ(direct.Synchronise(), 0);
  EXPECT_TRUE(fs::is_symlink(path_));
  EXPECT_EQ(File(), (Dictionary{{"a", 1}, {"b", 2}}));
  EXPECT_FALSE(fs::exists(path_ + ".lock")) << "both names share one lock";
}

TEST_F(Preferences, ManyProcessesLoseNothing) {
  constexpr int kProcesses = 4, kKeys = 10;
  std::vector<pid_t> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(Process([&] {
      SetFileReplacementSystem(
          {::write, [](int) { return 0; }, ::rename});  // the disk is not the point
      PreferencesStore store(path_, milliseconds(20'000));
      for (int key = 0; key < kKeys; ++key) {
        store.Set(std::to_string(process) + "." + std::to_string(key), key);
        if (const int error = store.Synchronise()) return error;
      }
      return 0;
    }));
  }
  for (const pid_t child : children) EXPECT_EQ(Ended(child), 0);
  const Dictionary all = File();
  EXPECT_EQ(all.Size(), static_cast<std::size_t>(kProcesses * kKeys));
  for (int process = 0; process < kProcesses; ++process) {
    EXPECT_EQ(all.Integer(std::to_string(process) + ".9"), 9);
  }
}

TEST_F(Preferences, ManyThreadsShareAStore) {
  SetFileReplacementSystem({::write, [](int) { return 0; }, ::rename});
  PreferencesStore store(path_);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&store, i] {
      for (int n = 0; n < 10; ++n) {
        store.Set(std::to_string(i), n);
        EXPECT_EQ(store.Value(std::to_string(i)), PropertyValue(n));
        EXPECT_EQ(store.Synchronise(), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(File(), (Dictionary{{"0", 9}, {"1", 9}, {"2", 9}, {"3", 9}}));
}

TEST_F(Preferences, KilledWriterLeavesAWholeFileAndNoLock) {
  PreferencesStore store(path_);
  store.Set("a", 1);
  ASSERT_EQ(store.Synchronise(), 0);
  EXPECT_EQ(Ended(Process([&] {
              SetFileReplacementSystem({::write, ::fsync, [](const char*, const char*) {
                                          return ::kill(::getpid(), SIGKILL);
                                        }});
              PreferencesStore other(path_);
              other.Set("a", 2);
              return other.Synchronise();
            })),
            -SIGKILL);
  EXPECT_EQ(File(), (Dictionary{{"a", 1}}));
  store.Set("b", 2);
  EXPECT_EQ(store.Synchronise(), 0);
}

// Holds the lock until it is destroyed, as a process that is stuck does.
FileDescriptor HoldLock(const std::string& name) {
  FileDescriptor lock(::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  struct flock whole {};
  whole.l_type = F_WRLCK;
  EXPECT_EQ(::fcntl(lock.Get(), F_OFD_SETLK, &whole), 0);
  return lock;
}

TEST_F(Preferences, LockThatIsNeverFreeIsGivenUpAndNothingIsLost) {
  fs::create_directory(scratch_.Path("config"));
  PreferencesStore store(path_, milliseconds(0));
  store.Set("a", 1);
  {
    const FileDescriptor stuck = HoldLock(path_ + ".lock");
    EXPECT_EQ(store.Synchronise(), ETIMEDOUT);
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_EQ(store.Value("a"), PropertyValue(1));
  }
  EXPECT_EQ(store.Synchronise(), 0);
  EXPECT_EQ(File(), (Dictionary{{"a", 1}}));
}

TEST_F(Preferences, ReadingNeedsNoLock) {
  PreferencesStore store(path_, milliseconds(0));
  store.Set("a", 1);
  ASSERT_EQ(store.Synchronise(), 0);
  const FileDescriptor stuck = HoldLock(path_ + ".lock");
  EXPECT_EQ(store.Synchronise(), 0);
  EXPECT_EQ(store.Value("a"), PropertyValue(1));
}

TEST_F(Preferences, DamagedFileIsKeptAndReportedOnce) {
  Put("precious");
  PreferencesStore store(path_);
  EXPECT_EQ(store.Value("a"), std::nullopt);
  store.Set("a", 1);
  EXPECT_EQ(store.Synchronise(), 0);
  EXPECT_EQ(File(), (Dictionary{{"a", 1}}));
  EXPECT_EQ(fs::file_size(path_ + ".damaged"), 8u);
  EXPECT_EQ(log_,
            std::vector<std::string>{path_ + " is damaged and was kept as " + path_ + ".damaged"});
}

TEST_F(Preferences, FileThatCannotBeReadIsNotWrittenOver) {
  fs::create_directories(path_);  // what is no file cannot be read, by root either
  PreferencesStore store(path_);
  store.Set("a", 1);
  EXPECT_EQ(store.Synchronise(), EINVAL);
  EXPECT_TRUE(fs::is_directory(path_));
  fs::remove(path_);
  EXPECT_EQ(store.Synchronise(), 0) << "what was pending still was";
  EXPECT_EQ(File(), (Dictionary{{"a", 1}}));
}

TEST_F(Preferences, AFileThatCannotBeReadYetIsReadOnALaterQuestion) {
  fs::create_directories(path_);
  const PreferencesStore store(path_);
  EXPECT_EQ(store.Value("a"), std::nullopt);
  fs::remove(path_);
  ASSERT_EQ(WriteDictionaryFile(path_, {{"a", 1}}), 0);
  EXPECT_EQ(store.Value("a"), PropertyValue(1));
}

TEST_F(Preferences, AFileThatThereWasNoMemoryToReadIsNotTakenForAnEmptyOne) {
  const std::string text = "a text beyond what fits in a string";
  {
    PreferencesStore store(path_);
    store.Set("a", text);
    ASSERT_EQ(store.Synchronise(), 0);
  }
  std::optional<PreferencesStore> store(path_);
  std::optional<PropertyValue> value;
  int shortages = 0;
  test::EachShortage(
      [&] {
        try {
          value = store->Value("a");
        } catch (const std::bad_alloc&) {
          value.reset();
        }
      },
      [&](bool failed) {
        shortages += failed ? 1 : 0;
        EXPECT_EQ(value, failed ? std::nullopt : std::optional<PropertyValue>(text));
        EXPECT_EQ(store->Value("a"), PropertyValue(text));
        store->Set("b", 1);
        EXPECT_EQ(store->Synchronise(), 0);
        EXPECT_EQ(File(), (Dictionary{{"a", text}, {"b", 1}}));
        store.emplace(path_);
      });
  EXPECT_GT(shortages, 0);
}

TEST_F(Preferences, FolderWithoutPermissionIsToldWithItsReason) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  PreferencesStore store(path_);
  store.Set("a", 1);
  ASSERT_EQ(store.Synchronise(), 0);
  for (const std::string& folder : {scratch_.Path(""), scratch_.Path("config")}) {
    ASSERT_EQ(::chmod(folder.c_str(), 0755), 0);
  }
  EXPECT_EQ(Ended(Process([&] {
              if (::setuid(12345) != 0) return 255;
              PreferencesStore other(path_);
              other.Set("a", 2);
              return other.Synchronise();
            })),
            EACCES);
  EXPECT_EQ(File(), (Dictionary{{"a", 1}}));
}

TEST_F(Preferences, FullDiskLosesNothing) {
  PreferencesStore store(path_);
  store.Set("a", 1);
  ASSERT_EQ(store.Synchronise(), 0);
  SetFileReplacementSystem({[](int, const void*, std::size_t) -> ssize_t {
                              errno = ENOSPC;
                              return -1;
                            },
                            ::fsync, ::rename});
  store.Set("a", 2);
  EXPECT_EQ(store.Synchronise(), ENOSPC);
  EXPECT_EQ(File(), (Dictionary{{"a", 1}}));
  EXPECT_EQ(store.Value("a"), PropertyValue(2));
  SetFileReplacementSystem({::write, ::fsync, ::rename});
  EXPECT_EQ(store.Synchronise(), 0);
  EXPECT_EQ(File(), (Dictionary{{"a", 2}}));
}

// The same on a file system that is really full.
TEST_F(Preferences, FullFileSystemLosesNothing) {
  const std::string config = scratch_.Path("config");
  fs::create_directory(config);
  if (::mount("none", config.c_str(), "tmpfs", 0, "size=64k") != 0) {
    GTEST_SKIP() << "only root can mount a file system";
  }
  PreferencesStore store(path_);
  store.Set("a", 1);
  const int first = store.Synchronise();
  store.Set("big", std::string(200'000, 'x'));
  const int second = store.Synchronise();
  const Dictionary left = File();
  ::umount2(config.c_str(), MNT_DETACH);
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, ENOSPC);
  EXPECT_EQ(left, (Dictionary{{"a", 1}}));
}

TEST_F(Preferences, StoreWithoutAFileKeepsWhatIsSet) {
  PreferencesStore store("");
  store.Set("a", 1);
  EXPECT_EQ(store.Synchronise(), ENOENT);
  EXPECT_EQ(store.Value("a"), PropertyValue(1));
}

}  // namespace
}  // namespace vox
