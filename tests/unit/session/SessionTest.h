// SessionTest: one fake scanner, moments to hold its threads at, and at the end of every test the
// check that threads, descriptors and semaphore sets are all given back.
#pragma once

#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/types.h>

#include "tests/support/FakeTransport.h"
#include "tests/support/Footprint.h"
#include "tests/support/Moment.h"
#include "vox/drivers/SessionSystem.h"
#include "vox/platform/SystemLog.h"

namespace vox::test {

// A grey page of 40 lines of 30 pixels, which the device scans as it is asked for.
inline PageShape SmallPage() {
  PageShape shape;
  shape.width = 30;
  shape.length = 40;
  return shape;
}

// Names the first line that differs, in place of two whole pages.
inline testing::AssertionResult SamePage(const std::vector<Line>& page,
                                         const std::vector<Line>& rules) {
  if (page.size() != rules.size()) {
    return testing::AssertionFailure() << page.size() << " lines, not " << rules.size();
  }
  for (std::size_t j = 0; j < page.size(); ++j) {
    if (page[j] != rules[j]) {
      return testing::AssertionFailure()
             << "line " << j << " is " << testing::PrintToString(page[j]) << ", not "
             << testing::PrintToString(rules[j]);
    }
  }
  return testing::AssertionSuccess();
}

inline void IgnoreSignal(int) {}
// For SessionSystem::make_key: there is no key.
inline key_t NoKey(const char*, int) {
  return -1;
}

class SessionTest : public testing::Test {
 protected:
  SessionTest() {
    before_ = SetSystemLogSink([this](const std::string& line) {
      MutexLock lock(log_mutex_);
      log_.push_back(line);
    });
    device_ = std::make_unique<FakeTransport>();
  }
  ~SessionTest() override { SetSystemLogSink(before_); }

  void TearDown() override {
    device_.reset();
    EXPECT_TRUE(footprint_.IsBack()) << footprint_.Describe();
    SetSessionSystem(system_);
  }

  // Runs a client call on a thread of its own.
  template <typename Call>
  static auto Aside(Call call) {
    return std::async(std::launch::async, std::move(call));
  }
  template <typename Result>
  static bool Ends(std::future<Result>& call) {
    return call.wait_for(kPatience) == std::future_status::ready;
  }

  // Changes one of the system calls of a session until the end of the test.
  template <typename Change>
  static void WithSystem(Change change) {
    SessionSystem system = CurrentSessionSystem();
    change(system);
    SetSessionSystem(system);
  }

  bool Start(const PageShape& shape) {
    return device_->Prepare(shape) && device_->StartScan(false);
  }
  int LinesLogged(const std::string& text) {
    MutexLock lock(log_mutex_);
    int count = 0;
    for (const std::string& line : log_) count += line == text ? 1 : 0;
    return count;
  }
  // The reader waits in front of line `line` and the client has not been served anything from it
  // on.
  void HoldAtLine(std::uint32_t line) { device_->AtLine(line, Holds(moment_)); }

  const SessionSystem system_ = CurrentSessionSystem();
  Moment moment_;
  Moment second_;
  Mutex log_mutex_;
  std::vector<std::string> log_ VOX_GUARDED_BY(log_mutex_);
  SystemLogSink before_;
  Footprint footprint_;
  std::unique_ptr<FakeTransport> device_;
};

}  // namespace vox::test
