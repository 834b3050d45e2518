// Dictionaries in files: the states a file can be in, and damaged files kept aside.
#include "vox/platform/PropertyListFile.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/unit/core/Scratch.h"
#include "vox/platform/FileReplacement.h"
#include "vox/platform/PropertyList.h"

namespace vox {
namespace {

namespace fs = std::filesystem;

class ListFile : public ::testing::Test {
 protected:
  ListFile() : folder_(scratch_.Path("folder")), file_(folder_ + "/settings.plist") {
    fs::create_directory(folder_);
  }
  void Put(const std::string& content) const { std::ofstream(file_) << content; }
  // Replaces the file as another program does, so that the former content is not written over.
  void PutNew(const std::string& content) const {
    fs::remove(file_);
    Put(content);
  }
  static std::string Content(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  Scratch scratch_;
  std::string folder_, file_;
  const Dictionary settings_{{"computerName", "desk"}, {"jpegCompressionFactor", 0.8}};
};

TEST_F(ListFile, WhatIsWrittenIsRead) {
  EXPECT_EQ(WriteDictionaryFile(file_, settings_), 0);
  const DictionaryFile read = ReadDictionaryFile(file_);
  EXPECT_EQ(read.state, FileState::Whole);
  EXPECT_EQ(read.error, 0);
  EXPECT_EQ(read.content, settings_);
  EXPECT_TRUE(Content(file_).starts_with("<?xml"));
}

// Without a lock the last writer wins; whoever reads meanwhile finds the whole file of one of them.
TEST_F(ListFile, ManyProcessesLeaveItWhole) {
  constexpr int kProcesses = 4, kTimes = 15;
  ASSERT_EQ(WriteDictionaryFile(file_, settings_), 0);
  std::vector<pid_t> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(::fork());
    if (children.back() != 0) continue;
    SetFileReplacementSystem(
        {::write, [](int) { return 0; }, ::rename});  // the disk is not the point
    for (int i = 0; i < kTimes; ++i) {
      DictionaryFile file = ReadDictionaryFile(file_);
      if (file.state != FileState::Whole || !file.content.Contains("computerName")) ::_exit(1);
      file.content.Set(std::to_string(process), std::string(1000, 'x'));
      if (WriteDictionaryFile(file_, file.content) != 0) ::_exit(2);
    }
    ::_exit(0);
  }
  for (const pid_t child : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(ReadDictionaryFile(file_).content.String("computerName"), "desk");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 1);
}

TEST_F(ListFile, MissingFileAndMissingFolder) {
  for (const std::string& path : {file_, folder_ + "/no/settings.plist"}) {
    const DictionaryFile read = ReadDictionaryFile(path);
    EXPECT_EQ(read.state, FileState::Missing);
    EXPECT_EQ(read.error, ENOENT);
  }
  Put("");
  EXPECT_EQ(ReadDictionaryFile(file_ + "/x").state, FileState::Missing);
}

TEST_F(ListFile, FolderAndPipeAreUnreadable) {
  EXPECT_EQ(ReadDictionaryFile(folder_).state, FileState::Unreadable);
  EXPECT_EQ(ReadDictionaryFile(folder_).error, EINVAL);
  ASSERT_EQ(::mkfifo(file_.c_str(), 0666), 0);
  EXPECT_EQ(ReadDictionaryFile(file_).state, FileState::Unreadable);
}

TEST_F(ListFile, WithoutPermissionItIsUnreadable) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  ASSERT_EQ(WriteDictionaryFile(file_, settings_, 0600), 0);
  ASSERT_EQ(::chmod(fs::path(folder_).parent_path().c_str(), 0755), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setuid(12345) != 0) ::_exit(255);
    const DictionaryFile read = ReadDictionaryFile(file_);
    ::_exit(read.state == FileState::Unreadable && read.content.IsEmpty() ? read.error : 254);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), EACCES);
}

TEST_F(ListFile, DamagedFilesReadAsEmpty) {
  const std::string whole = *PropertyListXml(settings_);
  for (const std::string& content :
       {std::string(), std::string("garbage"), whole.substr(0, whole.size() / 2),
        *PropertyListXml(Array{1}), *PropertyListXml("text"), "bplist00" + whole}) {
    PutNew(content);
    const DictionaryFile read = ReadDictionaryFile(file_);
    EXPECT_EQ(read.state, FileState::Damaged) << content;
    EXPECT_TRUE(read.content.IsEmpty());
  }
}

TEST_F(ListFile, FileBeyondTheLimitIsDamaged) {
  Put("");
  fs::resize_file(file_, kPropertyListBytes + 1);
  EXPECT_EQ(ReadDictionaryFile(file_).state, FileState::Damaged);
  EXPECT_EQ(KeepDamagedFile(file_).error, 0);
}

TEST_F(ListFile, ContentBeyondTheLimitIsNotWritten) {
  PropertyValue deep = 1;
  for (int i = 0; i < 100; ++i) deep = Array{deep};
  EXPECT_EQ(WriteDictionaryFile(file_, {{"deep", deep}}), EFBIG);
  EXPECT_FALSE(fs::exists(file_));
}

TEST_F(ListFile, DamagedFileOutlivesItsReplacement) {
  Put("precious");
  const KeptFile kept = KeepDamagedFile(file_);
  EXPECT_EQ(kept.error, 0);
  EXPECT_TRUE(kept.first);
  EXPECT_EQ(kept.path, file_ + ".damaged");
  EXPECT_EQ(Content(file_), "precious") << "until somebody writes over it";
  EXPECT_EQ(WriteDictionaryFile(file_, settings_), 0);
  EXPECT_EQ(Content(kept.path), "precious");
}

TEST_F(ListFile, DamageIsNewsOnce) {
  Put("precious");
  EXPECT_TRUE(KeepDamagedFile(file_).first);
  EXPECT_FALSE(KeepDamagedFile(file_).first);
  PutNew("precious");
  EXPECT_FALSE(KeepDamagedFile(file_).first) << "the same content";
  PutNew("other");
  const KeptFile other = KeepDamagedFile(file_);
  EXPECT_TRUE(other.first);
  EXPECT_EQ(other.path, file_ + ".damaged.2");
  EXPECT_FALSE(KeepDamagedFile(file_).first);
  EXPECT_EQ(Content(file_ + ".damaged"), "precious");
}

TEST_F(ListFile, NumberOfKeptFilesIsBounded) {
  for (int i = 1; i <= 10; ++i) {
    PutNew("damage " + std::to_string(i));
    const KeptFile kept = KeepDamagedFile(file_);
    EXPECT_EQ(kept.error, i <= 9 ? 0 : EEXIST);
    EXPECT_EQ(kept.first, i <= 9);
  }
}

TEST_F(ListFile, WholeAndMissingFilesAreNotKept) {
  EXPECT_EQ(KeepDamagedFile(file_).error, ENOENT);
  ASSERT_EQ(WriteDictionaryFile(file_, settings_), 0);
  EXPECT_EQ(KeepDamagedFile(file_).error, ENOENT);
  EXPECT_FALSE(fs::exists(file_ + ".damaged"));
}

TEST_F(ListFile, DamageBehindALinkIsKeptBesideTheRealFile) {
  const std::string real = scratch_.Path("real.plist");
  std::ofstream(real) << "precious";
  fs::create_symlink(real, file_);
  EXPECT_EQ(KeepDamagedFile(file_).path, real + ".damaged");
  EXPECT_EQ(Content(real + ".damaged"), "precious");
}

TEST_F(ListFile, NameThatLeadsElsewhereIsNotTaken) {
  Put("precious");
  const std::string elsewhere = scratch_.Path("elsewhere");
  fs::create_symlink(elsewhere, file_ + ".damaged");
  EXPECT_EQ(KeepDamagedFile(file_).path, file_ + ".damaged.2");
  EXPECT_FALSE(fs::exists(elsewhere));
}

// A second name of a file that one may not write is forbidden on most machines; then it is copied.
TEST_F(ListFile, DamagedFileOfAnotherUserIsKeptToo) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  Put("precious");
  ASSERT_EQ(::chmod(file_.c_str(), 0644), 0);
  ASSERT_EQ(::chmod(folder_.c_str(), 0777), 0);
  ASSERT_EQ(::chmod(fs::path(folder_).parent_path().c_str(), 0755), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setuid(12345) != 0) ::_exit(255);
    const KeptFile kept = KeepDamagedFile(file_);
    const bool again = KeepDamagedFile(file_).first;
    ::_exit(kept.error != 0 ? kept.error : kept.first && !again ? 0 : 254);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(Content(file_ + ".damaged"), "precious");
}

}  // namespace
}  // namespace vox
