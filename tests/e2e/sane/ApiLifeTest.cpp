// What a process keeps of the backend: nothing. Hosts load and unload it, fork, and start anew.
#include <cstdio>
#include <fstream>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/e2e/sane/SaneApi.h"
#include "tests/support/Moment.h"

namespace vox::cli::test {
namespace {

using namespace std::chrono_literals;
using vox::test::Eventually;

class SaneLife : public SaneApi {
 protected:
  // Kilobytes of memory that the process has; 0 under a sanitizer, which holds back what is freed.
  static long Resident() {
    if (*SANE_JUDGE_PRELOAD != '\0') return 0;
    std::ifstream file("/proc/self/statm");
    long size = 0, resident = 0;
    file >> size >> resident;
    return resident * ::sysconf(_SC_PAGESIZE) / 1024;
  }
  // Fork runs `child` in a forked process; Status waits for what it returns, -1 when it ended
  // otherwise.
  template <typename Child>
  static pid_t Fork(const Child& child) {
    const pid_t process = ::fork();
    if (process != 0) return process;
    try {
      ::_exit(child());
    } catch (const std::exception& exception) {
      std::fprintf(stderr, "in the child: %s\n", exception.what());
      ::_exit(99);
    }
  }
  static int Status(pid_t process) {
    int status = 0;
    if (process < 0 || ::waitpid(process, &status, 0) != process || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
  }
  template <typename Child>
  static int InChild(const Child& child) {
    return Status(Fork(child));
  }
  // 0 when a page comes whole.
  static int ScanOnce(const SaneModule& sane) {
    SaneScanner scanner(sane, kSmall);
    if (scanner.Set("mode", "Gray") != SANE_STATUS_GOOD) return 2;
    if (scanner.Set("resolution", 100) != SANE_STATUS_GOOD) return 3;
    const SanePage page = scanner.Page();
    return page.ended == SANE_STATUS_EOF && page.bytes.size() == 300U * 250U ? 0 : 4;
  }
};

TEST_F(SaneLife, AThousandTimesLoadedAndUnloadedLeaveNothing) {
  PutSmall();
  place_->Configure({"device net:127.0.0.2"});
  const auto round = [] {
    SaneModule sane;
    SANE_Int version = 0;
    ASSERT_EQ(sane.init(&version, nullptr), SANE_STATUS_GOOD);
    sane.exit();
  };
  for (int i = 0; i < 100; ++i) round();
  const std::size_t descriptors = Descriptors(), threads = Threads();
  const long resident = Resident();
  for (int i = 0; i < 1000; ++i) round();
  EXPECT_EQ(Descriptors(), descriptors);
  EXPECT_EQ(Threads(), threads);
  EXPECT_LT(Resident() - resident, 1024) << "kilobytes";
}

TEST_F(SaneLife, HandlesThatAreOpenedAndClosedLeaveNothing) {
  PutSmall();
  place_->Configure({"device net:127.0.0.2"});
  const auto round = [&](bool page) {
    SaneSession session(*sane_);
    EXPECT_EQ(Devices().size(), 1U);
    const auto scanner = OpenSmall();
    if (page) ExpectGood(scanner->Page());
  };
  for (int i = 0; i < 20; ++i) round(true);
  const std::size_t descriptors = Descriptors();
  const long resident = Resident();
  for (int i = 0; i < 60; ++i) round(i % 3 == 0);
  EXPECT_TRUE(Eventually([&] { return Descriptors() <= descriptors; }))
      << "the device's own in them";
  EXPECT_LT(Resident() - resident, 4096) << "kilobytes, the device's own events in them";
}

#ifndef __SANITIZE_THREAD__  // which lets no forked process start threads
TEST_F(SaneLife, AHostThatForksScansOnBothSides) {
  PutSmall();
  place_->Configure({"device net:127.0.0.2"});
  SaneSession session(*sane_);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(InChild([&] { return ScanOnce(*sane_); }), 0);
    EXPECT_EQ(ScanOnce(*sane_), 0);
  }
}

// What runs in the background when a host forks runs in the parent only.
TEST_F(SaneLife, AForkAfterAListAndAnOpenDoesNotHang) {
  PutSmall();
  place_->Configure({"device net:127.0.0.2", "discovery on"});
  SaneSession session(*sane_);
  EXPECT_GE(Devices().size(), 1U);
  const auto scanner = OpenSmall();
  EXPECT_EQ(InChild([&] {
              ::alarm(60);
              const int result = ScanOnce(*sane_);
              sane_->exit();
              return result;
            }),
            0);
  ExpectGood(scanner->Page());
}

// A forked process has its parent's descriptors: what it does must not eat the parent's page. It
// does everything that a host does with a handle that it gives up.
int GiveUp(const SaneModule& sane, SaneScanner& scanner) {
  ::alarm(60);
  std::vector<SANE_Byte> bytes;
  SANE_Int fd = -1;
  const bool good = scanner.Read(bytes) == SANE_STATUS_IO_ERROR &&
                    scanner.Start() == SANE_STATUS_IO_ERROR &&
                    sane.get_select_fd(scanner.Handle(), &fd) == SANE_STATUS_INVAL;
  scanner.Cancel();
  scanner.Close();
  sane.exit();
  return good ? 0 : 1;
}

TEST_F(SaneLife, AForkWithinAPageLeavesThePageToTheParent) {
  sim::VirtualDevice& device = PutSmall();
  SaneSession session(*sane_);
  const auto scanner = OpenSmall();
  const SanePage whole = scanner->Page();
  ExpectGood(whole);
  ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
  ASSERT_TRUE(device.Events().WaitFor(sim::EventKind::kJobEnded, 2, 60s));
  SANE_Int fd = -1;
  ASSERT_EQ(sane_->get_select_fd(scanner->Handle(), &fd), SANE_STATUS_GOOD);
  std::vector<SANE_Byte> bytes;
  ASSERT_EQ(scanner->Read(bytes, 1000), SANE_STATUS_GOOD);
  EXPECT_EQ(InChild([&] { return GiveUp(*sane_, *scanner); }), 0);
  pollfd entry{fd, POLLIN, 0};
  EXPECT_EQ(::poll(&entry, 1, 0), 1) << "the rest of the page is there still";
  while (scanner->Read(bytes) == SANE_STATUS_GOOD) {
  }
  EXPECT_TRUE(bytes == whole.bytes);
  ExpectGood(scanner->Page());
}

// The child starts the handle that it has from its parent, whose page waits to be read meanwhile.
TEST_F(SaneLife, AForkBeforeTheFirstPageGivesEachItsOwn) {
  sim::VirtualDevice& device = PutSmall();
  SaneSession session(*sane_);
  const auto scanner = OpenSmall();
  int go[2];
  ASSERT_EQ(::pipe(go), 0);
  const pid_t child = Fork([&] {
    ::alarm(60);
    char byte = 0;
    if (::read(go[0], &byte, 1) != 1) return 2;
    const SanePage page = scanner->Page();
    return page.ended == SANE_STATUS_EOF && page.bytes.size() == 300U * 250U ? 0 : 3;
  });
  ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
  EXPECT_TRUE(device.Events().WaitFor(sim::EventKind::kJobEnded, 1, 60s));
  SANE_Int fd = -1;
  ASSERT_EQ(sane_->get_select_fd(scanner->Handle(), &fd), SANE_STATUS_GOOD);
  EXPECT_EQ(::write(go[1], "", 1), 1);
  EXPECT_EQ(Status(child), 0);
  pollfd entry{fd, POLLIN, 0};
  EXPECT_EQ(::poll(&entry, 1, 0), 1);
  std::vector<SANE_Byte> bytes;
  while (scanner->Read(bytes) == SANE_STATUS_GOOD) {
  }
  EXPECT_EQ(bytes.size(), 300U * 250U);
  ::close(go[0]);
  ::close(go[1]);
}

TEST_F(SaneLife, AForkWhileThePageStallsWakesNobodyUp) {
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.faults = FaultsOf("page=1,stall=data:20000");
  PutSmall(std::move(options));
  SaneSession session(*sane_);
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
  ASSERT_EQ(sane_->set_io_mode(scanner->Handle(), SANE_TRUE), SANE_STATUS_GOOD);
  SANE_Int fd = -1;
  ASSERT_EQ(sane_->get_select_fd(scanner->Handle(), &fd), SANE_STATUS_GOOD);
  pollfd entry{fd, POLLIN, 0};
  std::vector<SANE_Byte> bytes;
  while (::poll(&entry, 1, 1000) == 1) ASSERT_EQ(scanner->Read(bytes), SANE_STATUS_GOOD);
  EXPECT_GT(bytes.size(), 0U);
  EXPECT_EQ(InChild([&] { return GiveUp(*sane_, *scanner); }), 0);
  EXPECT_EQ(::poll(&entry, 1, 0), 0);
  scanner->Cancel();
  EXPECT_EQ(scanner->Read(bytes), SANE_STATUS_CANCELLED);
  ExpectGood(scanner->Page());
}
#endif

TEST_F(SaneLife, ExitGoesWithoutTheThreadsOfASearch) {
  place_->Configure({"discovery on", "device net:127.0.0.88"});
  const auto search = [&] {
    const SaneSession session(*sane_);
    Devices();
  };
  search();  // the first one also starts a sanitizer's own thread
  const std::size_t threads = Threads();
  for (int i = 0; i < 3; ++i) search();
  EXPECT_EQ(Threads(), threads);
}

}  // namespace
}  // namespace vox::cli::test
