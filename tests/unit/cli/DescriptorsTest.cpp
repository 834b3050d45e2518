// Where file descriptors have run out, the program says so, and not that a device does not answer.
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "tools/vox/Presence.h"
#include "tools/vox/Registration.h"

namespace vox::cli::test {
namespace {

using testing::HasSubstr;

// NoDescriptors lets the process have no further one while it lives.
class NoDescriptors {
 public:
  NoDescriptors() {
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &was_), 0);
    const rlimit none{0, was_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  }
  ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &was_); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit was_{};
};

TEST(Descriptors, ThatHaveRunOutAreNoSilenceOfADevice) {
  const auto device = std::make_shared<Dictionary>(
      Dictionary{{kDeviceTypeKey, kDeviceTypeNetwork}, {kDeviceIpKey, "127.0.0.1"}});
  testing::internal::CaptureStderr();
  std::vector<Presence> answers;
  {
    const NoDescriptors none;
    answers = AskPresence({device}, -1);
  }
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("no file descriptor is left for pings (see ulimit -n)"));
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answers[0], Presence::kNoDescriptors);
  EXPECT_STREQ(PresenceWords(answers[0]), "not asked");
  EXPECT_STREQ(PresenceName(answers[0]), "no-descriptors");
}

TEST(Descriptors, ThatHaveRunOutKeepARegistrationFromBeingAsked) {
  const DeviceTarget target{"Office", "127.0.0.1", nullptr};
  for (const bool wanted : {true, false}) {
    Registration outcome;
    {
      const NoDescriptors none;
      outcome = wanted ? Register(target) : Unregister(target);
    }
    EXPECT_EQ(outcome.state, RegistrationState::kNoDescriptors);
    EXPECT_STREQ(StateName(outcome.state), "no-descriptors");
    const Failure failure = RegistrationFailure(wanted, target, outcome);
    EXPECT_EQ(failure.Status(), ExitStatus::kNoMemory);
    EXPECT_THAT(failure.what(), HasSubstr(" Office: too few file descriptors; raise"));
  }
}

}  // namespace
}  // namespace vox::cli::test
