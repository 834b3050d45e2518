// The whole road without any script: a virtual device, a job server in a thread, and a scan.
#include <cstring>
#include <random>
#include <thread>

#include "sim/VirtualDevice.h"
#include "tests/support/Footprint.h"
#include "tests/support/UdpPeer.h"
#include "tests/unit/core/Scratch.h"
#include "tests/unit/nw/ScanTest.h"
#include "tools/voxjobd/JobServer.h"

namespace vox::test {
namespace {

class Road : public testing::Test {
 protected:
  void SetUp() override {
    JobServerOptions server;
    server.device_port = 0;
    server.device_address = "127.0.0.1";
    ASSERT_TRUE(server_.Start(server)) << server_.Error();
    StartDevice();
  }
  void StartDevice() {
    settings_.reset();
    device_ = std::make_unique<sim::VirtualDevice>(options_);
    ASSERT_TRUE(device_->Start()) << device_->Error();
    device_->SetJobServerPort(server_.Ports().device);
    settings_ = std::make_unique<NetSettings>(device_->CommandPort());
    snmpPort = device_->SnmpPort();
  }
  // A bilevel request of the device's own resolution, so that lines come through unchanged.
  bool Prepare(Scanner& scanner, std::uint32_t dpi, float inches) {
    PageShape shape = Bilevel(static_cast<std::uint32_t>(inches * static_cast<float>(dpi)),
                              static_cast<std::uint32_t>(inches * static_cast<float>(dpi)));
    shape.resolution_x = shape.resolution_y = static_cast<float>(dpi);
    length_ = shape.length;
    line_size_ = RequestFor(shape).dwLineSize;
    tagSCANDEVINFO info{};
    return scanner.GetDevInfo(&info) && scanner.PrepareScan(RequestFor(shape), true, false);
  }
  Bytes ReadPage(Scanner& scanner) const {
    Bytes page, line(line_size_);
    for (std::uint32_t i = 0; i < length_ && scanner.ReadLine(line.data()) == 0; ++i) {
      page = page + line;
    }
    return page;
  }
  // What the device drew, as it was asked for.
  Bytes Drawn(const Scanner& scanner) const {
    _SCANINFO wire{};
    scaninfo2le(&wire, &scanner.scan_info);
    Bytes bytes(sizeof wire);
    std::memcpy(bytes.data(), &wire, sizeof wire);
    return device_->PageLines(*sim::ParseScanInfo(bytes), 0);
  }

  Scratch scratch_;
  Variable root_{"VOX_ROOT", scratch_.Path("")};
  sim::DeviceOptions options_;
  JobServer server_;
  std::unique_ptr<sim::VirtualDevice> device_;
  std::unique_ptr<NetSettings> settings_;
  std::uint32_t length_ = 0, line_size_ = 0;
};

TEST_F(Road, JbigPageArrivesAsItWasDrawn) {
  Scanner scanner;
  ASSERT_TRUE(Prepare(scanner, 300, 2.0f));
  ASSERT_TRUE(scanner.StartScan(false)) << scanner.GetIfErrorString();
  EXPECT_EQ(scanner.GetScanningEncodeHeaderSize(), 8);
  const Bytes page = ReadPage(scanner);
  EXPECT_TRUE(scanner.EndScan());
  EXPECT_EQ(scanner.GetIfErrorStatus(), 0u);
  const Bytes drawn = Drawn(scanner);
  ASSERT_EQ(page.size(), drawn.size());
  EXPECT_TRUE(page == drawn);
}

TEST_F(Road, EveryKindOfCodingArrivesAsItWasDrawn) {
  const std::pair<sim::ImageHeader, int> headers[] = {{sim::ImageHeader::kInData, 8},
                                                      {sim::ImageHeader::kInHeader, 28},
                                                      {sim::ImageHeader::kNone, 8}};
  for (int i = 0; i < 12; ++i) {
    const auto& [header, size] = headers[i % 3];
    options_.coding.line_template = i < 6 ? 2 : 3;
    options_.coding.typical_prediction = i / 3 % 2 == 0;
    options_.coding.image_header = header;
    SCOPED_TRACE(i);
    StartDevice();
    Scanner scanner;
    ASSERT_TRUE(Prepare(scanner, 150, 1.0f));
    ASSERT_TRUE(scanner.StartScan(false)) << scanner.GetIfErrorString();
    EXPECT_EQ(scanner.GetScanningEncodeHeaderSize(), size);
    const Bytes page = ReadPage(scanner);
    EXPECT_TRUE(scanner.EndScan());
    EXPECT_TRUE(page == Drawn(scanner));
  }
}

TEST_F(Road, RawPageArrivesAsItWasDrawn) {
  options_.coding.jbig = false;
  StartDevice();
  Scanner scanner;
  ASSERT_TRUE(Prepare(scanner, 300, 2.0f));
  ASSERT_TRUE(scanner.StartScan(false)) << scanner.GetIfErrorString();
  EXPECT_EQ(scanner.GetScanningEncodeHeaderSize(), 0);
  const Bytes page = ReadPage(scanner);
  EXPECT_TRUE(scanner.EndScan());
  EXPECT_TRUE(page == Drawn(scanner));
  EXPECT_EQ(scanner.GetIfErrorStatus(), 0u);
}

TEST_F(Road, DeviceIsOnLineUnderItsName) {
  CTwImgIFNW known(options_.name.c_str(), "127.0.0.1");
  EXPECT_TRUE(known.IsOnLine(0));
  CTwImgIFNW other("Somebody else", "127.0.0.1");
  EXPECT_FALSE(other.IsOnLine(0));
}

// A storm of aborts at random moments of start, page and end, from a second thread.
TEST_F(Road, AbortStormLeavesNothingBehind) {
  auto scanner = std::make_unique<Scanner>();
  ASSERT_TRUE(Prepare(*scanner, 150, 2.0f));
  const Footprint footprint;
  std::mt19937 random(20'260'101);
  for (int i = 0; i < 80; ++i) {
    const std::chrono::microseconds delay(std::uniform_int_distribution<>(0, 12'000)(random));
    std::thread stopper([&] {
      std::this_thread::sleep_for(delay);
      const Stopwatch watch;
      scanner->Abort();
      EXPECT_LT(watch.Elapsed(), 2s);
    });
    if (scanner->StartScan(false)) {
      ReadPage(*scanner);
      if (i % 2 == 0) scanner->EndScan();
    }
    stopper.join();
    scanner->ClearIfErrorStatus();
  }
  scanner.reset();
  // Relays and the device's own connections close in their own time.
  EXPECT_TRUE(Eventually([&] { return footprint.IsBack(); })) << footprint.Describe();
}

}  // namespace
}  // namespace vox::test
