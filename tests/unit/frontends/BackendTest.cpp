// The backend from its beginning to its end, in a host that forks.
#include "frontends/sane/Backend.h"

#include <filesystem>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/unit/core/Scratch.h"
#include "tools/vox/Failure.h"

namespace vox::sane {
namespace {

class SaneBackend : public testing::Test {
 protected:
  SaneBackend()
      : root_("VOX_ROOT", scratch_.Path("root")),
        home_("XDG_CONFIG_HOME", scratch_.Path("")),
        config_("SANE_CONFIG_DIR", scratch_.Path("")) {
    Configure("discovery off\ndevice net:127.0.0.5\n");
  }
  ~SaneBackend() override { Backend::End(); }

  void Configure(const std::string& text) { std::ofstream(scratch_.Path("vox.conf")) << text; }

  static std::string First() {
    const SANE_Device* const device = Backend::Current()->List(false)[0];
    return device != nullptr ? device->name : "";
  }
  // What `body` gives in a process of its own.
  static int InChild(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  Scratch scratch_;
  Variable root_, home_, config_;
};

TEST_F(SaneBackend, BeforeItsBeginningAndBehindItsEndThereIsNone) {
  EXPECT_EQ(Backend::Current(), nullptr);
  Backend::Begin();
  EXPECT_NE(Backend::Current(), nullptr);
  Backend::End();
  EXPECT_EQ(Backend::Current(), nullptr);
  Backend::End();
}

TEST_F(SaneBackend, ASecondBeginningReadsTheSettingsAgain) {
  Backend::Begin();
  EXPECT_EQ(First(), "net:127.0.0.5");
  Backend::End();
  Configure("discovery off\n");
  Backend::Begin();
  EXPECT_EQ(First(), "");
}

TEST_F(SaneBackend, WhatIsNoHandleIsNotFound) {
  int other = 0;
  EXPECT_EQ(Backend::Find(nullptr), nullptr);
  EXPECT_EQ(Backend::Find(&other), nullptr);
  Backend::Close(nullptr);
  Backend::Close(&other);
}

TEST_F(SaneBackend, WithoutADeviceNothingOpens) {
  Configure("discovery off\n");
  Backend::Begin();
  EXPECT_THROW(Backend::Current()->Open(""), cli::Failure);
  EXPECT_THROW(Backend::Current()->Open("nonsense"), cli::Failure);
  EXPECT_THROW(Backend::Current()->Open("net:02:56:58:00:00:99"), cli::Failure);
}

TEST_F(SaneBackend, AHostThatForksGoesOnInTheChild) {
  Backend::Begin();
  const Backend* const parents = Backend::Current();
  const int code = InChild([parents] {
    if (Backend::Current() == nullptr || Backend::Current() == parents) return 1;
    if (First() != "net:127.0.0.5") return 2;
    Backend::End();
    return Backend::Current() == nullptr ? 0 : 3;
  });
  EXPECT_EQ(code, 0);
  EXPECT_EQ(Backend::Current(), parents);
}

TEST_F(SaneBackend, AChildThatEndsItLeavesTheParentsAlone) {
  Backend::Begin();
  EXPECT_EQ(InChild([] {
              Backend::End();
              Backend::Begin();
              return First() == "net:127.0.0.5" ? 0 : 1;
            }),
            0);
  EXPECT_EQ(First(), "net:127.0.0.5");
}

}  // namespace
}  // namespace vox::sane
