// A page's data: blocks into lines of any size, the headers between them, and what ends them.
#include <cstdlib>

#include "tests/unit/usbscan/UsbScanTest.h"

namespace vox::test {
namespace {

constexpr std::uint32_t kHeldMax = 256u << 20;

std::atomic<int> pauses{0}, allocations{0};
std::atomic<std::size_t> allocated{0};

class Data : public UsbScanTest {
 protected:
  Data() {
    pauses = 0;
    allocations = 0;
    allocated = 0;
    Opened();
  }
  static Bytes Counting(std::uint8_t from, std::size_t count) {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>(from + i);
    return bytes;
  }
  static void CountPauses() {
    SessionSystem system = CurrentSessionSystem();
    system.pause = [](std::chrono::milliseconds time) {
      EXPECT_EQ(time, 1ms);
      ++pauses;
    };
    SetSessionSystem(system);
  }
  static void CountAllocations(bool give = true) {
    SessionSystem system = CurrentSessionSystem();
    if (give) {
      system.line_memory = [](std::size_t size) {
        ++allocations;
        allocated += size;
        return std::malloc(size);
      };
    } else {
      system.line_memory = [](std::size_t size) -> void* {
        ++allocations;
        allocated += size;
        return nullptr;
      };
    }
    SetSessionSystem(system);
  }
};

TEST_F(Data, BlocksOfFiveThreeAndEightBytesAreFourLinesOfFour) {
  PageHeader(Header(5));
  Block(Counting(0, 5));
  PageHeader(Header(3));
  EXPECT_EQ(ReadLine(4), Counting(0, 4));
  EXPECT_EQ(scanner_->Held(), 1u);
  Block(Counting(5, 3));
  PageHeader(Header(8));
  EXPECT_EQ(ReadLine(4), Counting(4, 4));
  EXPECT_EQ(scanner_->Held(), 0u);
  Block(Counting(8, 8));
  PageHeader(kLastPage);
  EXPECT_EQ(ReadLine(4), Counting(8, 4));
  EXPECT_EQ(scanner_->Held(), 4u);
  EXPECT_EQ(ReadLine(4), Counting(12, 4)) << "nothing more is read";
  EXPECT_FALSE(scanner_->HoldsBuffer()) << "what was delivered whole is freed";
  EXPECT_FALSE(scanner_->XferDone());
  EXPECT_EQ(ReadLine(4), Bytes(4, 0xFF));
  EXPECT_TRUE(scanner_->XferDone());
  EXPECT_EQ(Status(), 0u);
}

TEST_F(Data, BlocksBeginAndEndAnywhere) {
  for (const std::size_t line : {1u, 2u, 7u, 24u, 25u}) {
    scanner_.reset();
    Plug();
    Opened();
    const Bytes all = Counting(0, 24);
    for (const auto& [from, count] : {std::pair(0, 1), {1, 9}, {10, 2}, {12, 12}}) {
      PageHeader(Header(static_cast<std::uint32_t>(count)));
      Block(Bytes(all.begin() + from, all.begin() + from + count));
    }
    PageHeader(kLastPage);
    Bytes got;
    for (std::size_t i = 0; i + line <= all.size(); i += line)
      got = got + ReadLine(static_cast<unsigned>(line));
    EXPECT_EQ(got, Bytes(all.begin(), all.begin() + std::ssize(got))) << line;
    EXPECT_EQ(ReadLine(static_cast<unsigned>(line)), Bytes(line, 0xFF)) << line;
    script_->Done();
  }
}

TEST_F(Data, TheEndInALineMakesTheWholeLineWhite) {
  PageHeader(Header(3));
  Block(Counting(0, 3));
  PageHeader(kLastPage);
  EXPECT_EQ(ReadLine(4), Bytes(4, 0xFF));
  EXPECT_EQ(ReadLine(4), Bytes(4, 0xFF));
  EXPECT_EQ(Status(), 0u);
}

TEST_F(Data, WhiteLinesPauseAtEvery32nd) {
  CountPauses();
  PageHeader(kLastPage);
  EXPECT_EQ(ReadLine(4), Bytes(4, 0xFF));
  EXPECT_EQ(pauses, 1);
  for (int i = 1; i < 32; ++i) ReadLine(4);
  EXPECT_EQ(pauses, 1);
  ReadLine(4);
  EXPECT_EQ(pauses, 2);
  for (int i = 33; i < 64; ++i) ReadLine(4);
  EXPECT_EQ(pauses, 2);
}

TEST_F(Data, WhiteLinesStopWithAStatus) {
  PageHeader(kLastPage);
  ReadLine(4);
  scanner_->SetIfErrorStatus(7);
  EXPECT_EQ(ReadLine(4, -1), Bytes(4, 0xEE));
}

TEST_F(Data, HeadersThatSayPendingAreSkippedWhereverTheyCome) {
  PageHeader(kPending);
  PageHeader(kPending);
  PageHeader(Header(4));
  Block(Counting(0, 4));
  PageHeader(kPending);
  PageHeader(Header(4));
  EXPECT_EQ(ReadLine(4), Counting(0, 4));
  Block(Counting(4, 4));
  PageHeader(kPending);
  PageHeader(kLastPage);
  EXPECT_EQ(ReadLine(4), Counting(4, 4));
  EXPECT_EQ(ReadLine(4), Bytes(4, 0xFF));
}

TEST_F(Data, ANoteOfAnotherApplicationMeansNothing) {
  PageHeader(Hex("04 00 00 00 33 03 00 00"));
  Block(Counting(0, 4));
  PageHeader(Hex("04 00 00 00 33 04 00 00"));
  EXPECT_EQ(ReadLine(4), Counting(0, 4));
  Block(Counting(4, 4));
  PageHeader(Hex("00 00 00 00 33 02 01 00"));
  EXPECT_EQ(ReadLine(4), Counting(4, 4)) << "not skipped";
  EXPECT_EQ(Status(), 0u);
  EXPECT_EQ(scanner_->multipage, 0u);
}

TEST_F(Data, ThePagesEndSaysWhetherAnotherFollows) {
  PageHeader(kNextPage);
  ReadLine(4);
  EXPECT_EQ(scanner_->multipage, 1u);
}

TEST_F(Data, OnlyOneMeansAnotherPage) {
  scanner_->multipage = 1;
  PageHeader(Header(0, 2, 2));
  ReadLine(4);
  EXPECT_EQ(scanner_->multipage, 0u);
}

TEST_F(Data, ACheckErrorIsStatus7AndNoLine) {
  PageHeader(Header(4));
  Block(Counting(0, 4));
  PageHeader(Header(4, 3));
  EXPECT_EQ(ReadLine(4, -1), Counting(0, 4)) << "the line was there already";
  EXPECT_EQ(Status(), 7u);
}

TEST_F(Data, AnEarlierStatusMakesEveryLineFail) {
  scanner_->SetIfErrorStatus(4);
  PageHeader(Header(4));
  Block(Counting(0, 4));
  PageHeader(kLastPage);
  ReadLine(4, -1);
  EXPECT_EQ(Status(), 4u);
}

TEST_F(Data, NoHeaderIsStatus3AndEndsThePage) {
  script_->FailRead(kIOUSBTransactionTimeout, kHeader);
  ReadLine(4, -1);
  EXPECT_EQ(Status(), 3u);
  ReadLine(4, -1);  // reads nothing
}

TEST_F(Data, AShortHeaderIsStatus3) {
  PageHeader(Hex("04 00 00 00 32 00 00"));
  ReadLine(4, -1);
  EXPECT_EQ(Status(), 3u);
}

TEST_F(Data, NoHeaderAheadFailsTheLineToo) {
  PageHeader(Header(4));
  Block(Counting(0, 4));
  script_->FailRead(kIOReturnNotResponding, kHeader);
  ReadLine(4, -1);
  EXPECT_EQ(Status(), 3u);
}

TEST_F(Data, NoBlockIsStatus3) {
  PageHeader(Header(4));
  script_->FailRead(kIOUSBTransactionTimeout, kBlock);
  ReadLine(4, -1);
  EXPECT_EQ(Status(), 3u);
}

TEST_F(Data, AShortBlockIsStatus3) {
  PageHeader(Header(9));
  script_->Read(Counting(0, 8), kBlock, 9);
  ReadLine(4, -1);
  EXPECT_EQ(Status(), 3u);
  EXPECT_FALSE(scanner_->HoldsBuffer());
}

TEST_F(Data, LengthsThatWrapAroundAreStatus2) {
  PageHeader(Header(5));
  Block(Counting(0, 5));
  PageHeader(Header(0xFFFFFFFF));
  ReadLine(4);
  ReadLine(4, -1);
  EXPECT_EQ(Status(), 2u);
}

TEST_F(Data, ABlockBeyondTheGreatestIsRefusedBeforeItGetsMemory) {
  CountAllocations();
  PageHeader(Header(kHeldMax + 1));
  ReadLine(4, -1);
  EXPECT_EQ(Status(), 2u);
  EXPECT_EQ(allocations, 0);
}

TEST_F(Data, WhatTheLineHoldsCountsToo) {
  CountAllocations(false);
  PageHeader(Header(5));
  Block(Counting(0, 5));
  PageHeader(Header(kHeldMax - 4));
  ReadLine(8, -1);
  EXPECT_EQ(Status(), 2u);
  EXPECT_EQ(allocations, 0);
}

TEST_F(Data, NoMemoryForABlockIsStatus2) {
  CountAllocations(false);
  PageHeader(Header(kHeldMax));
  ReadLine(4, -1);
  EXPECT_EQ(Status(), 2u);
  EXPECT_EQ(allocated, kHeldMax) << "the greatest block is asked for";
  ReadLine(4, -1);
}

TEST_F(Data, ManyTinyBlocksOfALargeLineNeedNoBuffer) {
  constexpr unsigned kLine = 5'000;
  CountAllocations();
  Bytes all;
  for (unsigned i = 0; i < kLine; ++i) {
    all.push_back(static_cast<std::uint8_t>(i * 7));
    PageHeader(Header(1));
    Block({all.back()});
  }
  PageHeader(kLastPage);
  EXPECT_TRUE(ReadLine(kLine) == all);
  EXPECT_EQ(allocations, 0) << "each byte lies where it is wanted";
}

TEST_F(Data, AnOddBlockIsHeldOnceWhateverTheLines) {
  CountAllocations();
  PageHeader(Header(10'001));
  Block(Bytes(10'001, 0x42));
  PageHeader(kLastPage);
  for (int i = 0; i < 10'001 / 3; ++i) ReadLine(3);
  EXPECT_EQ(allocations, 1);
  EXPECT_EQ(allocated, 10'001u);
}

TEST_F(Data, ALineOfNoBytesOnlyReadsAhead) {
  PageHeader(Header(4));
  EXPECT_EQ(ReadLine(0), Bytes{});
}

TEST_F(Data, AfterAStopNotEvenWhatIsHeldIsServed) {
  PageHeader(Header(8));
  Block(Counting(0, 8));
  PageHeader(Header(4));
  EXPECT_EQ(ReadLine(4), Counting(0, 4));
  scanner_->Abort();
  EXPECT_EQ(ReadLine(4, -1), Bytes(4, 0xEE));
  EXPECT_EQ(Status(), 0u);
}

TEST_F(Data, ARawReadClearsItsBuffer) {
  script_->Read(Hex("01 02"), 300, 4);
  Bytes bytes(4, 0xEE);
  unsigned got = 77;
  EXPECT_EQ(scanner_->Read(bytes.data(), 4, &got), 0);
  EXPECT_EQ(got, 2u);
  EXPECT_EQ(bytes, Hex("01 02 00 00"));
  script_->FailRead(kIOUSBTransactionTimeout, 300);
  EXPECT_EQ(scanner_->Read(bytes.data(), 4, &got), -1);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(bytes, Bytes(4, 0));
}

TEST_F(Data, WithoutADeviceNothingIsRead) {
  scanner_->Close();
  ReadLine(4, -1);
  EXPECT_EQ(Status(), 3u);
}

}  // namespace
}  // namespace vox::test
