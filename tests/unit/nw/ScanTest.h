// A network scan against scripted others: a device that answers commands as a table says, a job
// server whose channels the test plays, and at the end the check that threads, descriptors and
// semaphore sets are all given back.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "sim/JbigBlock.h"
#include "tests/support/FakeJobServer.h"
#include "tests/support/FakeTransport.h"
#include "tests/support/Footprint.h"
#include "tests/support/Moment.h"
#include "tests/support/UdpPeer.h"
#include "tests/unit/core/Scratch.h"
#include "vox/drivers/net/TwImgIFNW.h"

namespace vox::test {

using namespace std::chrono_literals;

// Scanner shows what the library keeps for itself.
class Scanner : public CTwImgIFNW {
 public:
  Scanner() : CTwImgIFNW("Scanner", "127.0.0.1") {}
  using CTwainImageIF::GetJobId;
  using CTwainImageIF::m_DevInfo;
  using CTwainImageIF::m_DevInfoAll;
  using CTwainImageIF::m_DevInfoAllCount;
  using CTwainImageIF::multipage;
  using CTwainImageIF::scan_info;
  using CTwainImageIF::SetJobId;
  using CTwImgIFNW::cmd_req_page;
  using CTwImgIFNW::GetMibInt;

  // What is run before each line is read, on the reader.
  std::function<void()> before_line;
  int ReadScanData(unsigned char* buf, unsigned int len, unsigned int* rlen) override {
    if (before_line) before_line();
    std::fill_n(buf, len, std::uint8_t{0xA5});  // FillsLines(): none of it comes out
    return CTwImgIFNW::ReadScanData(buf, len, rlen);
  }
  ~Scanner() override { StopSession(); }
};

inline const Bytes kJob = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
enum Command : std::uint8_t { kStandby = 0x10, kScan = 0x41, kCancel = 0x51, kRequestPage = 0x62 };

// A page that the device scans as the client asks for it: bilevel, 300 dpi.
inline PageShape Bilevel(std::uint32_t width, std::uint32_t lines) {
  PageShape shape;
  shape.bits = 1;
  shape.width = width;
  shape.length = lines;
  return shape;
}

inline _SCANINFO InfoFor(const PageShape& shape, std::uint8_t header_size = 0) {
  _SCANINFO info{};
  info.DataType = shape.bits == 1 ? 0 : shape.bits == 8 ? 2 : 3;
  info.Xresolution = static_cast<std::uint32_t>(shape.resolution_x);
  info.Yresolution = static_cast<std::uint32_t>(shape.resolution_y);
  info.Window.xExtent = shape.width;
  info.Window.yExtent = shape.length;
  info.byEncodeHeaderSize = header_size;
  info.byJbigLineTemplate = 2;
  return info;
}

// Lines gives the bytes of a page: line after line, width / 8 bytes each.
inline Bytes PageBytes(const PageShape& shape) {
  Bytes bytes;
  for (std::uint32_t i = 0; i < shape.length; ++i) {
    for (std::uint32_t k = 0; k < shape.width * shape.bits / 8; ++k) {
      bytes.push_back(PatternByte(i, k));
    }
  }
  return bytes;
}

class ScanTest : public testing::Test {
 protected:
  // How the device answers a command: the reply's code and parameters; none: silence.
  struct Reply {
    std::uint8_t code;
    Bytes param;
  };

  ScanTest() {
    replies_[kScan] = Reply{0x43, kJob};
    replies_[kCancel] = Reply{0x53, {}};
    device_ = std::make_unique<UdpPeer>([this](const Bytes& request) { return Answer(request); });
    settings_ = std::make_unique<NetSettings>(*device_);
    server_.emplace();
    footprint_ = std::make_unique<Footprint>();
    scanner_ = std::make_unique<Scanner>();
    scanner_->SetWaits({.nFirstData = 5'000, .nData = 5'000, .nRegistration = 5'000});
  }

  void TearDown() override {
    data_ = {};
    end_ = {};
    scanner_.reset();
    EXPECT_TRUE(footprint_->IsBack()) << footprint_->Describe();
  }

  static Bytes ReplyTo(const Bytes& request, const Reply& reply) {
    Bytes answer(request.begin(), request.begin() + 14);
    answer.insert(answer.end(),
                  {0x32, reply.code, static_cast<std::uint8_t>(reply.param.size()), 0, 0, 0});
    return answer + reply.param;
  }
  Answers Answer(const Bytes& request) {
    if (request.size() < 20) return {};
    MutexLock lock(mutex_);
    const auto reply = replies_.find(request[15]);
    if (reply == replies_.end() || !reply->second) return {};
    return {test::Answer(ReplyTo(request, *reply->second))};
  }
  // Silence in an exchange of commands then costs 90 ms instead of 9 s.
  static void ShortenExchanges() { netMsPerSecond = 10; }
  void Replies(Command command, std::optional<Reply> reply) {
    MutexLock lock(mutex_);
    replies_[command] = std::move(reply);
  }
  // The commands that the device has heard so far, as their codes.
  std::vector<int> Commands() {
    std::vector<int> codes;
    for (const Bytes& request : device_->Requests()) codes.push_back(request.at(15));
    return codes;
  }
  std::vector<int> AwaitCommands(std::size_t count) {
    device_->AwaitRequests(count);
    return Commands();
  }

  bool Prepare(const PageShape& shape) {
    shape_ = shape;
    return scanner_->PrepareScan(RequestFor(shape), true, false);
  }
  // Begin lets the client start a page on a thread of its own while the test plays the others.
  void Begin() {
    start_ = std::async(std::launch::async, [this] { return scanner_->StartScan(false); });
  }
  bool Began() { return start_.get(); }

  // StartPage runs a whole start: afterwards data_ and end_ are the page's channels.
  bool StartPage(const PageShape& shape, const _SCANINFO& info) {
    if (!Prepare(shape)) return false;
    Begin();
    data_ = server_->TakeChannel();
    const bool opened = data_.OpenPage(info);
    end_ = server_->TakeChannel();
    return Began() && opened;
  }
  bool StartRaw(const PageShape& shape) { return StartPage(shape, InfoFor(shape)); }
  bool StartJbig(const PageShape& shape) { return StartPage(shape, InfoFor(shape, 8)); }

  // ReadPage gives the client's lines, one after the other, until ReadLine fails.
  Bytes ReadPage() {
    Bytes page;
    Bytes line(LineSize());
    for (std::uint32_t i = 0; i < shape_.length && scanner_->ReadLine(line.data()) == 0; ++i) {
      page = page + line;
    }
    return page;
  }
  std::size_t LineSize() const { return shape_.width * shape_.bits / 8; }

  // EndPage ends the page from the client's side while the device sends its end notice.
  Bytes EndPage(std::uint8_t command) {
    const Bytes answer = end_.EndPage(command);
    scanner_->EndScan();
    return answer;
  }

  // Block gives lines [first, first + lines) of the page as one block.
  Bytes Block(std::uint32_t first, std::uint32_t lines) const {
    const Bytes page = PageBytes(shape_);
    const std::size_t line = shape_.width / 8;
    sim::CodingOptions coding;
    coding.typical_prediction = false;
    coding.image_header = sim::ImageHeader::kNone;
    const auto block = sim::BuildBlock(std::span(page).subspan(first * line, lines * line),
                                       shape_.width, lines, line, coding);
    return Bytes(block->begin(), block->end());
  }

  // The commands that the device has heard when nothing more is on its way to it.
  std::vector<int> CommandsInTheEnd() {
    constexpr std::uint8_t kLast = 0xEE;
    const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(device_->Port());
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const Bytes last(20, kLast);
    ::sendto(socket.Get(), last.data(), last.size(), 0, reinterpret_cast<const sockaddr*>(&place),
             sizeof place);
    std::vector<int> codes;
    Eventually([&] { return !(codes = Commands()).empty() && codes.back() == kLast; });
    codes.pop_back();
    return codes;
  }

  // Runs a client call aside; the result says how long it took.
  static std::chrono::milliseconds Took(const std::function<void()>& call) {
    const Stopwatch watch;
    call();
    return watch.Elapsed();
  }
  // CPU time of this process, all threads.
  static std::chrono::milliseconds CpuTime() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto of = [](const timeval& time) {
      return std::chrono::milliseconds(time.tv_sec * 1'000 + time.tv_usec / 1'000);
    };
    return of(usage.ru_utime) + of(usage.ru_stime);
  }

  Scratch scratch_;
  Variable root_{"VOX_ROOT", scratch_.Path("")};
  Mutex mutex_;
  std::map<std::uint8_t, std::optional<Reply>> replies_ VOX_GUARDED_BY(mutex_);
  std::unique_ptr<UdpPeer> device_;
  std::unique_ptr<NetSettings> settings_;
  std::optional<FakeJobServer> server_;
  std::unique_ptr<Footprint> footprint_;
  std::unique_ptr<Scanner> scanner_;
  PageShape shape_;
  std::future<bool> start_;
  FakeChannel data_, end_;
};

}  // namespace vox::test
