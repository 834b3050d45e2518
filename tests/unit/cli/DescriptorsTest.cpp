// Where file descriptors have run out, the program says so, and not that a device does not answer.
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/NoDescriptors.h"
#include "tests/support/Sanitized.h"
#include "tools/vox/CancelWatch.h"
#include "tools/vox/Presence.h"
#include "tools/vox/Registration.h"
#include "tools/vox/UsbDevice.h"
#include "vox/drivers/net/searchping.h"

namespace vox::cli::test {
namespace {

using testing::HasSubstr;
using vox::test::kSanitized;
using vox::test::NoDescriptors;

TEST(Descriptors, ThatHaveRunOutAreNoSilenceOfADevice) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer opens descriptors of its own";
  if (!network_ping_permitted()) GTEST_SKIP() << "pings are not permitted here";
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
  if (kSanitized) GTEST_SKIP() << "a sanitizer opens descriptors of its own";
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

TEST(Descriptors, ThatHaveRunOutLetNoCommandBegin) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer opens descriptors of its own";
  sigset_t mask{};
  ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  const NoDescriptors none;
  try {
    CancelWatch watch;
    FAIL() << "it could not be ended";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Status(), ExitStatus::kNoMemory);
  }
  ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

// The registry of attached devices is the machine's own here.
TEST(Descriptors, ThatHaveRunOutAreNoAbsenceOfADeviceAtUsb) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer opens descriptors of its own";
  const auto device =
      std::make_shared<Dictionary>(Dictionary{{kDeviceTypeKey, kDeviceTypeUsb},
                                              {kDeviceModelNameKey, "Veltronix QD7200"},
                                              {kDeviceSerialNumberKey, "NOBODY"}});
  const auto look = [&device] {
    const auto trouble = FindUsbTrouble(*device);
    return trouble ? trouble->status : ExitStatus::kDone;
  };
  const auto find = [] {
    try {
      AttachedDevice("NOBODY");
    } catch (const Failure& failure) {
      return failure.Status();
    }
    return ExitStatus::kDone;
  };
  ASSERT_EQ(look(), ExitStatus::kIoError) << "it is not attached";
  ASSERT_EQ(find(), ExitStatus::kIoError);
  EXPECT_TRUE(IsUnplugged(*device));
  const NoDescriptors none;
  EXPECT_EQ(look(), ExitStatus::kNoMemory);
  EXPECT_EQ(find(), ExitStatus::kNoMemory);
  EXPECT_FALSE(IsUnplugged(*device)) << "nobody saw that";
  EXPECT_EQ(AskPresence({device}, -1)[0], Presence::kNoDescriptors);
}

}  // namespace
}  // namespace vox::cli::test
