// Lines that serve again: what a pool keeps, and how few lines a page takes from the heap.
#include "vox/drivers/LinePool.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>
#include <vector>

#include <malloc.h>

#include "tests/unit/session/SessionTest.h"

namespace vox::test {
namespace {

std::atomic<int> lines_made{0};
std::atomic<bool> out_of_memory{false};

void* CountedLine(std::size_t size) {
  if (out_of_memory) return nullptr;
  ++lines_made;
  return std::malloc(size);
}

class LinePoolTest : public SessionTest {
 protected:
  LinePoolTest() {
    lines_made = 0;
    out_of_memory = false;
    WithSystem([](SessionSystem& system) { system.line_memory = &CountedLine; });
  }
};

TEST_F(LinePoolTest, LineThatComesBackIsTheNextOneTaken) {
  LinePool pool(100, 10);
  LineBuffer first = pool.take();
  LineBuffer second = pool.take();
  const unsigned char* const address = first.get();
  pool.give(std::move(first));
  LineBuffer third = pool.take();
  EXPECT_EQ(third.get(), address);
  EXPECT_NE(second.get(), address);
  EXPECT_EQ(lines_made, 2);
}

TEST_F(LinePoolTest, LinesMadeElsewhereServeAsWell) {
  LinePool pool(100, 10);
  pool.give(new_line(pool.room()));
  pool.give(nullptr);
  pool.take();
  EXPECT_EQ(lines_made, 1);
}

TEST_F(LinePoolTest, LineOfAnySizeHasRoomForWhatLinksIt) {
  LinePool pool(0, 10);
  EXPECT_GE(pool.room(), sizeof(void*));
  pool.give(pool.take());
  pool.give(pool.take());
  EXPECT_EQ(lines_made, 1);
}

TEST_F(LinePoolTest, NothingIsKeptOnceTheLastLineIsTaken) {
  LinePool pool(100, 3);
  LineBuffer first = pool.take();
  LineBuffer second = pool.take();
  pool.give(std::move(second));
  LineBuffer last = pool.take();  // the second again
  pool.give(std::move(first));
  pool.give(std::move(last));
  EXPECT_EQ(lines_made, 2);
  pool.take();
  EXPECT_EQ(lines_made, 3);
}

// HeapBytes counts what is allocated; 0 with a sanitizer.
std::size_t HeapBytes() {
  return ::mallinfo2().uordblks;
}
constexpr std::size_t kUncounted = 0;  // what a sanitizer, whose own heap it is, tells

TEST_F(LinePoolTest, LastTakeFreesWhatIsKept) {
  constexpr std::size_t kRoom = 20000;
  LinePool pool(kRoom, 11);
  std::vector<LineBuffer> lines(10);
  for (LineBuffer& line : lines) line = pool.take();
  for (LineBuffer& line : lines) pool.give(std::move(line));
  const std::size_t before = HeapBytes();
  const LineBuffer last = pool.take();
  if (before == kUncounted) return;
  EXPECT_LE(HeapBytes() + 9 * kRoom, before);
}

TEST_F(LinePoolTest, ClearKeepsNothing) {
  LinePool pool(100, 10);
  LineBuffer first = pool.take();
  pool.give(pool.take());
  pool.give(std::move(first));
  pool.clear();
  pool.take();
  EXPECT_EQ(lines_made, 3);
}

TEST_F(LinePoolTest, WithoutMemoryOnlyWhatIsKeptIsThere) {
  LinePool pool(100, 10);
  pool.give(pool.take());
  out_of_memory = true;
  LineBuffer kept = pool.take();
  EXPECT_THROW(pool.take(), std::bad_alloc);
}

// Two threads give back what a third one takes: each line is out once at a time, and none is lost.
TEST_F(LinePoolTest, ManyGiveAndOneTakes) {
  constexpr int kLines = 20000;
  constexpr int kOut = 64;
  LinePool pool(sizeof(std::uint64_t) * 2, kLines + 1);
  std::atomic<unsigned char*> slots[kOut] = {};
  std::atomic<bool> over{false};
  const auto give_back = [&](int first) {
    while (!over) {
      for (int i = first; i < kOut; i += 2) pool.give(LineBuffer(slots[i].exchange(nullptr)));
      std::this_thread::yield();
    }
  };
  std::thread even(give_back, 0), odd(give_back, 1);
  int out_twice = 0;
  for (int n = 0; n < kLines; ++n) {
    LineBuffer line = pool.take();
    for (const auto& slot : slots) out_twice += slot == line.get();
    while (slots[n % kOut] != nullptr) std::this_thread::yield();
    slots[n % kOut] = line.release();
  }
  over = true;
  even.join();
  odd.join();
  for (auto& slot : slots) pool.give(LineBuffer(slot.exchange(nullptr)));
  EXPECT_EQ(out_twice, 0);
  EXPECT_LE(lines_made, kOut + 3);  // one with each thread as well
}

TEST_F(LinePoolTest, EndScanGivesBackWhatThePageKept) {
  constexpr std::size_t kWidth = 20000;
  HoldAtLine(300);
  ASSERT_TRUE(Start({8, kWidth, 400, 300, 300}));
  ASSERT_TRUE(moment_.AwaitReached());  // before the client takes any
  ASSERT_EQ(device_->ReadPage(300).size(), 300u);
  ASSERT_EQ(lines_made, 301);
  const std::size_t before = HeapBytes();
  EXPECT_TRUE(device_->EndScan());
  if (before == kUncounted) return;
  EXPECT_LT(HeapBytes() + 250 * kWidth, before);
}

// A device that writes no more than the first byte of a line that it says it has sent.
class LazyDevice : public FakeTransport {
 public:
  ~LazyDevice() override { StopSession(); }
  int ReadScanData(unsigned char* buf, unsigned int len, unsigned int* rlen) override {
    Line line(len);
    const int result = FakeTransport::ReadScanData(line.data(), len, rlen);
    buf[0] = 0xFF;
    return result;
  }
};

struct RecycleCase {
  const char* name;
  PageShape shape;
  int at_most;  // lines from the heap
};

// A device that is never more than four lines ahead of the client, so that lines serve again.
void KeepNear(FakeTransport& scanner, std::uint32_t length) {
  const std::uint32_t lines = scanner.scan_info.Window.yExtent;
  for (std::uint32_t i = 4; i < lines; ++i) {
    scanner.AtLine(i, [i, lines, length](FakeTransport& device) {
      const auto taken = [&] { return static_cast<std::uint64_t>(device.nLineOut) + 2; };
      const auto in_time = [&] { return taken() * lines >= std::uint64_t{i - 3} * length; };
      return Eventually(in_time) ? 0 : -1;
    });
  }
}

class RecycledPageTest : public LinePoolTest, public testing::WithParamInterface<RecycleCase> {
 protected:
  void PageComesOutRight() {
    const PageShape& shape = GetParam().shape;
    device_->Ranges(200, 600);
    ASSERT_TRUE(device_->Prepare(shape));
    KeepNear(*device_, shape.length);
    ASSERT_TRUE(device_->StartScan(false));
    EXPECT_TRUE(SamePage(device_->ReadPage(shape.length), device_->PageByTheRules()));
    EXPECT_TRUE(device_->EndScan());
  }
};

TEST_P(RecycledPageTest, TakesNoMoreLinesFromTheHeapThanAreOutAtATime) {
  PageComesOutRight();
  EXPECT_LE(lines_made, GetParam().at_most);
}

// A device that writes its lines whole gets them as they were last used.
class FillingDevice : public FakeTransport {
 public:
  ~FillingDevice() override { StopSession(); }
  bool FillsLines() const override { return true; }
};

TEST_P(RecycledPageTest, LinesThatTheDeviceFillsComeOutTheSame) {
  device_ = std::make_unique<FillingDevice>();
  PageComesOutRight();
}

// What lay in a line before is not seen again, whatever the device leaves out.
TEST_F(LinePoolTest, LineThatServesAgainBeginsEmpty) {
  device_ = std::make_unique<LazyDevice>();
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  KeepNear(*device_, 40);
  ASSERT_TRUE(device_->StartScan(false));
  Line expected(30);
  expected[0] = 0xFF;
  EXPECT_TRUE(SamePage(device_->ReadPage(40), std::vector<Line>(40, expected)));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_LT(lines_made, 40);
}

INSTANTIATE_TEST_SUITE_P(Shapes, RecycledPageTest,
                         testing::Values(RecycleCase{"AsItIs", {8, 33, 400, 300, 300}, 8},
                                         RecycleCase{"Bilevel", {1, 70, 400, 300, 300}, 8},
                                         RecycleCase{"ShrunkDown", {8, 33, 200, 300, 100}, 24},
                                         RecycleCase{"ShrunkAcross", {8, 33, 400, 100, 300}, 9},
                                         RecycleCase{"EnlargedDown", {8, 33, 400, 300, 900}, 24},
                                         RecycleCase{
                                             "ReducedToBilevel", {1, 45, 200, 100, 100}, 24}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace vox::test
