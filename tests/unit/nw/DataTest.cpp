// The data of a page: raw lines and JBIG blocks, whole, short, broken, hostile.
#include <fstream>

#include "tests/unit/nw/ScanTest.h"

namespace vox::test {
namespace {

// A page whose bytes are white from `from` on.
Bytes WhiteFromByte(Bytes page, std::size_t from) {
  for (std::size_t i = from; i < page.size(); ++i) page[i] = 0xFF;
  return page;
}

class Raw : public ScanTest {
 protected:
  // Finish ends a page whose data channel the device has left.
  unsigned Finish() {
    EXPECT_EQ(EndPage(0), Bytes{0});
    return scanner_->GetIfErrorStatus();
  }
  const PageShape page_ = Bilevel(800, 20);  // 20 lines of 100 bytes
};

TEST_F(Raw, LinesArriveAsTheyWereSent) {
  ASSERT_TRUE(StartRaw(page_));
  const Bytes page = PageBytes(page_);
  for (std::size_t at = 0; at < page.size(); at += 33) {
    data_.peer.Send(std::span(page).subspan(at, std::min<std::size_t>(33, page.size() - at)));
  }
  EXPECT_TRUE(ReadPage() == page);
  data_.peer.Close();
  EXPECT_EQ(Finish(), 0u);
}

TEST_F(Raw, ColourLinesArriveAsTheyWereSent) {
  PageShape colour = Bilevel(40, 12);
  colour.bits = 24;
  ASSERT_TRUE(StartRaw(colour));
  data_.peer.Send(PageBytes(colour));
  EXPECT_TRUE(ReadPage() == PageBytes(colour));
  EXPECT_EQ(Finish(), 0u);
}

// What is missing is white. Data that end in a line have broken off: the page is not a good one.
TEST_F(Raw, PageThatEndsInALineIsWhiteFromThereAndEndsInStatus3) {
  ASSERT_TRUE(StartRaw(page_));
  const Bytes page = PageBytes(page_);
  const std::size_t sent = page.size() - 100 * 4 - 30;
  data_.peer.Send(std::span(page).first(sent));
  data_.peer.Close();
  EXPECT_TRUE(ReadPage() == WhiteFromByte(page, sent));
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
  EXPECT_EQ(Finish(), 3u);
}

TEST_F(Raw, LineThatIsAHundredBytesShortIsFilledUpWithWhite) {
  const PageShape page = Bilevel(2'400, 4);  // lines of 300 bytes
  ASSERT_TRUE(StartRaw(page));
  const Bytes bytes = PageBytes(page);
  data_.peer.Send(std::span(bytes).first(bytes.size() - 100));
  data_.peer.Close();
  EXPECT_TRUE(ReadPage() == WhiteFromByte(bytes, bytes.size() - 100));
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u) << "the reading succeeds";
}

TEST_F(Raw, PageThatEndsBetweenLinesIsAShortPage) {
  ASSERT_TRUE(StartRaw(page_));
  const Bytes page = PageBytes(page_);
  data_.peer.Send(std::span(page).first(100 * 7));
  data_.peer.Close();
  EXPECT_TRUE(ReadPage() == WhiteFromByte(page, 100 * 7));
  EXPECT_EQ(Finish(), 0u);
}

TEST_F(Raw, SilenceInALineFailsAfterTheShortWait) {
  scanner_->SetWaits({.nFirstData = 60'000, .nData = 50, .nRegistration = 5'000});
  ASSERT_TRUE(StartRaw(page_));
  const Bytes line = PageBytes(page_);
  data_.peer.Send(std::span(line).first(150));
  const Stopwatch watch;
  // Below the height that the device can scan a line that cannot be read is white; the status says
  // that it is none.
  ReadPage();
  EXPECT_LT(watch.Elapsed(), 5s);
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EndPage(0);
}

TEST_F(Raw, SilenceBeforeALineFailsAfterTheLongWait) {
  scanner_->SetWaits({.nFirstData = 50, .nData = 60'000, .nRegistration = 5'000});
  ASSERT_TRUE(Prepare(page_));
  Begin();
  data_ = server_->TakeChannel();
  data_.OpenPage(InfoFor(page_));
  end_ = server_->TakeChannel();
  ASSERT_TRUE(Began());
  const Stopwatch watch;
  ReadPage();
  EXPECT_LT(watch.Elapsed(), 5s) << "one wait for the page, not one for each line";
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
}

TEST_F(Raw, ResetFails) {
  ASSERT_TRUE(StartRaw(page_));
  data_.peer.Reset();
  ReadPage();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EndPage(0);
}

// Lines of no pixels ask for no bytes, and get them without a wait.
TEST_F(Raw, RequestForNothingSucceeds) {
  _SCANINFO info = InfoFor(page_);
  info.Window.xExtent = 0;
  ASSERT_TRUE(StartPage(page_, info));
  const Stopwatch watch;
  EXPECT_EQ(ReadPage().size(), PageBytes(page_).size());
  EXPECT_LT(watch.Elapsed(), 2s);
  EXPECT_EQ(Finish(), 0u);
}

class Jbig : public ScanTest {
 protected:
  unsigned Finish() {
    EXPECT_EQ(EndPage(0), Bytes{0});
    return scanner_->GetIfErrorStatus();
  }
  Bytes WhiteFrom(std::uint32_t line) const {
    return WhiteFromByte(PageBytes(page_), line * LineSize());
  }
  void SendBlocks(std::uint32_t from, std::uint32_t to, std::uint32_t lines) {
    for (std::uint32_t i = from; i < to; i += lines) {
      ASSERT_TRUE(data_.peer.Send(Block(i, std::min(lines, to - i))));
    }
  }
  const PageShape page_ = Bilevel(128, 40);
};

TEST_F(Jbig, BlocksBecomeLines) {
  ASSERT_TRUE(StartJbig(page_));
  SendBlocks(0, 40, 7);
  data_.peer.Close();
  EXPECT_TRUE(ReadPage() == PageBytes(page_));
  EXPECT_EQ(Finish(), 0u);
}

TEST_F(Jbig, BlocksInTinyPiecesBecomeLines) {
  ASSERT_TRUE(StartJbig(page_));
  Bytes stream;
  for (std::uint32_t i = 0; i < 40; i += 20) stream = stream + Block(i, 20);
  for (const std::uint8_t byte : stream) ASSERT_TRUE(data_.peer.SendByte(byte));
  EXPECT_TRUE(ReadPage() == PageBytes(page_));
  EXPECT_EQ(Finish(), 0u);
}

TEST_F(Jbig, FewerLinesThanThePageAreFollowedByWhiteOnes) {
  ASSERT_TRUE(StartJbig(page_));
  SendBlocks(0, 15, 5);
  data_.peer.Close();
  EXPECT_TRUE(ReadPage() == WhiteFrom(15));
  EXPECT_EQ(Finish(), 0u);
}

TEST_F(Jbig, PageWithoutAnyBlockIsWhite) {
  ASSERT_TRUE(StartJbig(page_));
  data_.peer.Close();
  EXPECT_TRUE(ReadPage() == WhiteFrom(0));
  EXPECT_EQ(Finish(), 0u);
}

TEST_F(Jbig, StreamThatEndsInAHeaderIsWhiteFromThereAndEndsInStatus3) {
  ASSERT_TRUE(StartJbig(page_));
  SendBlocks(0, 10, 10);
  data_.peer.Send(Hex("80 00 0A 00"));
  data_.peer.Close();
  EXPECT_TRUE(ReadPage() == WhiteFrom(10));
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
  EXPECT_EQ(Finish(), 3u);
}

TEST_F(Jbig, SilenceBeforeABlockIsWhiteAfterTheLongWaitAndEndsInStatus3) {
  scanner_->SetWaits({.nFirstData = 300, .nData = 60'000, .nRegistration = 60'000});
  ASSERT_TRUE(StartJbig(page_));
  SendBlocks(0, 10, 10);
  const Stopwatch watch;
  EXPECT_TRUE(ReadPage() == WhiteFrom(10));
  EXPECT_LT(watch.Elapsed(), 5s) << "one wait for the page";
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
  EXPECT_EQ(Finish(), 3u);
}

TEST_F(Jbig, BreakThatNoLineNeededIsNone) {
  ASSERT_TRUE(StartJbig(page_));
  SendBlocks(0, 40, 10);
  data_.peer.Send(Hex("80 00 0A 00"));
  EXPECT_TRUE(ReadPage() == PageBytes(page_));
  EXPECT_EQ(Finish(), 0u);
}

// What the device sends after a good first block of ten lines.
struct BadBlock {
  const char* what;
  const char* bytes;
};
void PrintTo(const BadBlock& bad, std::ostream* stream) {
  *stream << bad.what;
}

class BadJbig : public Jbig, public testing::WithParamInterface<BadBlock> {};

TEST_P(BadJbig, EndsThePageInStatus3) {
  scanner_->SetWaits({.nFirstData = 60'000, .nData = 50, .nRegistration = 5'000});
  ASSERT_TRUE(StartJbig(page_));
  data_.peer.Send(Block(0, 10) + Hex(GetParam().bytes));
  if (GetParam().what != std::string("silent in the data")) data_.peer.Close();
  const Stopwatch watch;
  ReadPage();
  EXPECT_LT(watch.Elapsed(), 5s) << "not the wait for a block";
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EndPage(0);
}

TEST_P(BadJbig, AsTheFirstBlockEndsThePageInStatus3) {
  scanner_->SetWaits({.nFirstData = 5'000, .nData = 50, .nRegistration = 5'000});
  if (GetParam().what == std::string("another width")) return;  // the first one sets it
  ASSERT_TRUE(StartJbig(page_));
  data_.peer.Send(Hex(GetParam().bytes));
  if (GetParam().what != std::string("silent in the data")) data_.peer.Close();
  ReadPage();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EndPage(0);
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadJbig,
    testing::Values(BadBlock{"another width", "88 00 0A 00 02 00 00 00 FF 02"},
                    BadBlock{"a byte more than a block holds", "80 00 0A 00 F9 FF 0F 00"},
                    BadBlock{"a length that wraps", "80 00 0A 00 F8 FF FF FF"},
                    BadBlock{"closed in the data", "80 00 0A 00 05 00 00 00 01 02"},
                    BadBlock{"silent in the data", "80 00 0A 00 05 00 00 00 01 02"},
                    BadBlock{"more pixels than there is memory for",
                             "FF FF FF FF 02 00 00 00 FF 02"}));

TEST_F(Jbig, BlockWithoutLinesIsAWhiteLine) {
  ASSERT_TRUE(StartJbig(page_));
  SendBlocks(0, 10, 10);
  data_.peer.Send(Hex("80 00 00 00 00 00 00 00"));
  SendBlocks(10, 39, 29);
  data_.peer.Close();
  const Bytes all = PageBytes(page_);
  const Bytes page = Bytes(all.begin(), all.begin() + 160) + Bytes(16, 0xFF) +
                     Bytes(all.begin() + 160, all.end() - 16);
  EXPECT_TRUE(ReadPage() == page);
  EXPECT_EQ(Finish(), 0u);
}

// What the system keeps of a connection's bytes on both sides, at most.
std::size_t SocketBuffers() {
  std::size_t total = 0;
  for (const char* file : {"/proc/sys/net/ipv4/tcp_rmem", "/proc/sys/net/ipv4/tcp_wmem"}) {
    std::size_t least = 0, usual = 0, most = 0;
    std::ifstream(file) >> least >> usual >> most;
    total += most;
  }
  return total;
}

// The reader thread takes in 32 blocks at most while nobody decodes them, and begins no other.
TEST_F(Jbig, SlowClientHoldsTheDeviceBack) {
  Moment moment;
  scanner_->before_line = [&] { moment.Reach(); };
  ASSERT_TRUE(StartJbig(page_));
  ASSERT_TRUE(moment.AwaitReached());
  const Bytes block = Hex("80 00 01 00 F8 FF 0F 00") + Bytes(0xFFFF8, 0x5A);
  std::size_t sent = 0;
  for (int quiet = 0; quiet < 20 && sent < 200 * block.size();) {
    const std::size_t more = data_.peer.SendWhatFits(std::span(block).subspan(sent % block.size()));
    sent += more;
    quiet = more == 0 ? quiet + 1 : 0;
    if (more == 0) std::this_thread::sleep_for(10ms);
  }
  EXPECT_GE(sent, 32 * block.size());
  EXPECT_LE(sent, 32 * block.size() + SocketBuffers());
  moment.Let();
  ReadPage();
  EndPage(0);
}

// The next block is taken as soon as it is there, and until then nobody works.
TEST_F(Jbig, WaitingForBlocksCostsNothing) {
  ASSERT_TRUE(StartJbig(page_));
  SendBlocks(0, 10, 10);
  Bytes line(LineSize());
  for (int i = 0; i < 10; ++i) ASSERT_EQ(scanner_->ReadLine(line.data()), 0);
  const auto before = CpuTime();
  std::this_thread::sleep_for(500ms);
  EXPECT_LE(CpuTime() - before, 50ms);
  const Stopwatch watch;
  SendBlocks(10, 40, 30);
  ASSERT_EQ(scanner_->ReadLine(line.data()), 0);
  EXPECT_LT(watch.Elapsed(), 1s);
  scanner_->Abort();
}

}  // namespace
}  // namespace vox::test
