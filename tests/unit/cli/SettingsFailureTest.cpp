// What is said of settings that cannot be read or written, by store and reason.
#include "tools/vox/SettingsFailure.h"

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vox::cli::test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

struct StoreRow {
  int error;
  int exit;
  const char *shared, *user;  // words of the advice
};

TEST(SettingsFailureTest, EveryReasonHasAdviceForItsStore) {
  const StoreRow rows[] = {
      {EACCES, 11, "join the group scanner", "must be your own: see ls -ld '/s t' '/s t/a.plist'"},
      {EPERM, 11, "sudo adduser $USER scanner", "must be your own"},
      {EROFS, 11, "mount it writable", "mount it writable"},
      {ENOSPC, 9, "free some space there, see df '/s t'", "free some space there"},
      {EDQUOT, 9, "quota", "quota"},
      {EFBIG, 9, "remove devices", "remove devices"},
      {ENOENT, 9, "sudo install -d -m 2775 -g scanner '/s t'", "mkdir -p '/s t'"},
      {ENOTDIR, 9, "no folder", "no folder"},
      {EINVAL, 9, "move it away", "move it away"},
      {ELOOP, 9, "move it away", "move it away"},
      {ETIMEDOUT, 9, "lock", "lock"},
      {ENOMEM, 10, "close other programs", "close other programs"},
      {EIO, 9, "log", "log"},
  };
  for (const StoreRow& row : rows) {
    for (const Store store : {Store::kShared, Store::kUser}) {
      const Failure failure = SettingsFailure(store, "write", "/s t/a.plist", row.error);
      EXPECT_EQ(static_cast<int>(failure.Status()), row.exit) << row.error;
      EXPECT_THAT(failure.what(), MatchesRegex("cannot write /s t/a.plist: [^;]*; .*"));
      EXPECT_THAT(failure.what(), HasSubstr(store == Store::kShared ? row.shared : row.user));
      EXPECT_THAT(failure.what(), Not(HasSubstr("choose"))) << "nobody has chosen the file";
    }
  }
}

TEST(SettingsFailureTest, WithoutAHomeItSaysWhatToSet) {
  EXPECT_STREQ(SettingsFailure(Store::kUser, "write", "", ENOENT).what(),
               "cannot write your settings: No such file or directory; you have no home folder: "
               "set HOME, or XDG_CONFIG_HOME to a folder");
}

TEST(SettingsFailureTest, APathWithAQuoteIsWhatAShellReads) {
  EXPECT_THAT(SettingsFailure(Store::kShared, "write", "/it's/a.plist", ENOSPC).what(),
              HasSubstr(R"(see df '/it'\''s')"));
}

}  // namespace
}  // namespace vox::cli::test
