// A tiny host for a virtual device: it sends command datagrams that are put together here by hand,
// and plays the job server that the device connects to.
//
//     ScriptedHost host(device);
//     const JobId job = host.StartJob(request);
//     host.RequestPage(job, 7);
//     Connection data = host.Accept();
//     EXPECT_EQ(data.Read(28), Notice(7, 0x80, job));
//     data.Write(0x01);
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sim/VirtualDevice.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::sim {

using Bytes = std::vector<std::uint8_t>;
using namespace std::chrono_literals;

inline constexpr std::chrono::milliseconds kPatience = 20s;  // for what must come
inline constexpr std::chrono::milliseconds kMoment = 60ms;   // for what must not come

// "MFPP0200ML01", sequence id, application, command, size, cipher, reserve, parameters.
Bytes Packet(std::uint16_t sequence_id, std::uint8_t application, std::uint8_t command,
             const Bytes& parameters);
Bytes Notice(std::uint16_t sequence_id, std::uint8_t code, const Bytes& job);
std::string Hex(const Bytes& bytes);

class Connection {
 public:
  explicit Connection(FileDescriptor socket) : socket_(std::move(socket)) {}
  explicit operator bool() const { return static_cast<bool>(socket_); }
  // Read gives exactly n bytes, or fewer when the device closes or keeps silent.
  Bytes Read(std::size_t n, std::chrono::milliseconds patience = kPatience);
  // ReadToEnd reads until the device closes; `ended` tells whether it did, and did so in order.
  Bytes ReadToEnd(bool* ended = nullptr);
  // IsSilent: nothing comes within a moment, and the connection stands.
  bool IsSilent();
  void Write(std::uint8_t byte);
  void Close() { socket_.Reset(); }
  std::string PeerAddress() const;

 private:
  bool WaitReadable(std::chrono::milliseconds patience);
  FileDescriptor socket_;
};

class ScriptedHost {
 public:
  explicit ScriptedHost(VirtualDevice& device);

  void Send(const Bytes& datagram);
  // Receive gives the next reply, or an empty one.
  Bytes Receive(std::chrono::milliseconds patience = kPatience);
  Bytes Exchange(const Bytes& datagram);
  std::string LastSender() const { return last_sender_; }

  Bytes ScanCommand(const ScanInfo& request, std::uint16_t sequence_id = 1) const;
  // StartJob expects 0x43 and gives the job id.
  Bytes StartJob(const ScanInfo& request, std::uint16_t sequence_id = 1);
  void RequestPage(const Bytes& job, std::uint16_t sequence_id);
  Bytes Cancel(const Bytes& job);
  Connection Accept(std::chrono::milliseconds patience = kPatience);

  struct Page {
    ScanInfo info;
    Bytes data;
    std::uint8_t end_code = 0;
  };
  // TakePage plays the whole of one page, to the answer on the end channel.
  Page TakePage(const Bytes& job, std::uint16_t sequence_id);
  // OpenPage plays until the scan information has come.
  Connection OpenPage(const Bytes& job, std::uint16_t sequence_id, ScanInfo* info = nullptr);
  // TakeEnd plays the end channel and gives the notice's code.
  std::uint8_t TakeEnd(const Bytes& job, std::uint16_t sequence_id);

 private:
  VirtualDevice& device_;
  FileDescriptor datagrams_, listener_;
  std::string last_sender_;
};

// A device that was started, and its host.
class DeviceTest : public ::testing::Test {
 protected:
  // Start replaces what ran before.
  void Start(DeviceOptions options = {}) {
    host_.reset();
    device_ = std::make_unique<VirtualDevice>(std::move(options));
    ASSERT_TRUE(device_->Start()) << device_->Error();
    host_ = std::make_unique<ScriptedHost>(*device_);
  }
  std::unique_ptr<VirtualDevice> device_;
  std::unique_ptr<ScriptedHost> host_;
};

// The bitmap of a JBIG page's data: its blocks decoded by libjbig, line after line.
struct Blocks {
  struct Header {
    std::uint16_t width, lines;
    std::uint32_t length;
  };
  std::vector<Header> headers;
  Bytes lines;
};
Blocks DecodeBlocks(const Bytes& data, const ScanInfo& info, ImageHeader image_header);

// A small request: 0.64 by 0.4 inches at the upper left corner, at 100 dpi.
ScanInfo SmallRequest(std::uint32_t data_type = kBilevel);

}  // namespace vox::sim
