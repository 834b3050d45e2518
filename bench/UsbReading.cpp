// read/*: blocks of a page through CUsbScanCtrl beside a plain loop of libusb over the same
// emulated bus, each with a device of its own, in turns. What is reached is the plain loop's wall
// time through the controller's, at least 0.90; cpu_ratio is the same of the reading thread's
// processor time.
//
//   read/N         the device sends without end, blocks of N bytes
//   read/N/ended   each block is a transfer of the device's own, which a short packet ends
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <libusb.h>

#include "bench/Turns.h"
#include "tests/interop/usb/BusProcess.h"
#include "vox/drivers/usb/UsbScanCtrl.h"
#include "vox/platform/LibUsb.h"

namespace vox::bench {
namespace {

constexpr std::uint16_t kVendor = 0x5658, kProduct = 0x1520;
constexpr std::uint8_t kBulkIn = 0x81;
constexpr unsigned kTimeMs = 20'000;
constexpr std::size_t kRoundBlocks = 64, kMostRoundBytes = 32u << 20;
constexpr int kRoundsATurn = 3;  // a round takes a few milliseconds
constexpr double kLeast = 0.90;

// A round's bytes are whole blocks, and no block is shared by two rounds.
std::size_t RoundBytes(std::size_t block) {
  return std::min(kRoundBlocks, kMostRoundBytes / block) * block;
}

// Emulated is a bus with a device for each of the two.
class Emulated {
 public:
  Emulated() {
    for (std::size_t i = 0; i < kSerials.size(); ++i) {
      test::Plugged plugged;
      plugged.ports = std::to_string(i + 1);
      plugged.vendor = kVendor;
      plugged.product = kProduct;
      plugged.serial = kSerials[i];
      names_[i] = bus_.Plug(plugged);
    }
  }
  // Load gives a device what a round reads; the blocks are ended by short packets, or nothing is.
  void Load(std::size_t device, std::size_t block, bool ended) {
    const std::size_t bytes = RoundBytes(block);
    if (!ended) return bus_.SendPattern(names_[device], bytes);
    for (std::size_t i = 0; i < bytes / block; ++i) bus_.SendPattern(names_[device], block);
  }
  bool IsEmpty(std::size_t device) { return bus_.Unsent(names_[device]) == 0; }

  static constexpr std::array kSerials = {"LIBRARY", "PLAIN"};

 private:
  test::BusProcess bus_;
  std::array<std::string, kSerials.size()> names_;
};

// PlainReader is libusb as a program without the library uses it.
class PlainReader {
 public:
  bool Open(const std::string& serial) {
    if (ListLibUsbDevices(&context_, &devices_) != kIOReturnSuccess) return false;
    for (libusb_device** at = devices_.get(); *at != nullptr; ++at) {
      if (OpenOne(*at, serial)) return true;
    }
    return false;
  }
  bool Read(unsigned char* buffer, unsigned size, unsigned* got) {
    int moved = 0;
    const int result = libusb_bulk_transfer(handle_.get(), kBulkIn, buffer, static_cast<int>(size),
                                            &moved, kTimeMs);
    *got = static_cast<unsigned>(moved);
    return result == 0;
  }

 private:
  // The devices were plugged in the order of their serials, at ports of these numbers; their texts
  // are not had from the bus.
  bool OpenOne(libusb_device* device, const std::string& serial) {
    const auto index = static_cast<std::size_t>(std::ranges::find(Emulated::kSerials, serial) -
                                                Emulated::kSerials.begin());
    libusb_device_descriptor descriptor{};
    libusb_get_device_descriptor(device, &descriptor);
    if (descriptor.idVendor != kVendor || libusb_get_port_number(device) != index + 1) return false;
    libusb_device_handle* handle = nullptr;
    if (libusb_open(device, &handle) != 0) return false;
    handle_.reset(handle);
    return libusb_claim_interface(handle, 0) == 0;
  }

  LibUsbContext context_;
  LibUsbDevices devices_;
  LibUsbHandle handle_;
};

struct Cost {
  double seconds = 0, cpu_seconds = 0;
  bool whole = false;  // every byte came
};

template <class Read>
Cost ReadRound(std::vector<unsigned char>& buffer, std::size_t bytes, const Read& read) {
  const auto block = static_cast<unsigned>(buffer.size());
  std::size_t left = bytes;
  const Stopwatch watch;
  while (left > 0) {
    unsigned got = 0;
    if (!read(buffer.data(), block, &got) || got == 0) break;
    left -= got;
    benchmark::DoNotOptimize(buffer.data());
  }
  return {watch.Seconds(), watch.CpuSeconds(), left == 0};
}

void Read(benchmark::State& state, std::size_t block, bool ended) {
  Emulated bus;
  CUsbScanCtrl controller;
  PlainReader plain;
  if (!controller.UsbScanOpen(kVendor, kProduct, Emulated::kSerials[0]) ||
      !plain.Open(Emulated::kSerials[1])) {
    return state.SkipWithError("a device cannot be opened");
  }
  std::vector<unsigned char> buffer(block);
  // A plain loop reads whole packets, so that none of them is too long for it.
  std::vector<unsigned char> plain_buffer(ended ? block : (block + 511) / 512 * 512);
  std::vector<double> seconds, plain_seconds, ratios, cpu_ratios;
  for (auto _ : state) {
    for (int round = 0; round < kRoundsATurn * Turns(); ++round) {
      std::array<Cost, 2> costs;
      for (const std::size_t turn : {0u, 1u}) {
        const std::size_t device = (turn + static_cast<std::size_t>(round)) % 2;
        bus.Load(device, block, ended);
        if (device == 0) {
          costs[0] = ReadRound(buffer, RoundBytes(block),
                               [&](unsigned char* to, unsigned size, unsigned* got) {
                                 return controller.UsbScanRead(to, size, got, kTimeMs) != 0;
                               });
        } else {
          costs[1] = ReadRound(plain_buffer, RoundBytes(block),
                               [&](auto... all) { return plain.Read(all...); });
        }
        if (!costs[device].whole || !bus.IsEmpty(device))
          return state.SkipWithError("not all that was sent is read");
      }
      seconds.push_back(costs[0].seconds);
      plain_seconds.push_back(costs[1].seconds);
      ratios.push_back(costs[1].seconds / costs[0].seconds);
      cpu_ratios.push_back(costs[1].cpu_seconds / costs[0].cpu_seconds);
    }
    state.SetIterationTime(Median(seconds));
  }
  controller.UsbScanClose();
  constexpr double kMega = 1e6;
  const auto bytes = static_cast<double>(RoundBytes(block));
  state.counters["MB_per_s"] = bytes / Median(seconds) / kMega;
  state.counters["plain_MB_per_s"] = bytes / Median(plain_seconds) / kMega;
  state.counters["cpu_ratio"] = Median(cpu_ratios);
  ReportRow(state, Median(ratios), kLeast, Promise::kAtLeast);
}

[[maybe_unused]] const bool registered = [] {
  const auto add = [](std::size_t block, bool ended) {
    const std::string name = "read/" + std::to_string(block) + (ended ? "/ended" : "");
    RegisterRow(name, [=](benchmark::State& state) { Read(state, block, ended); });
  };
  for (const std::size_t block : {4096u, 16384u, 65536u, 1u << 20, 50'001u}) add(block, false);
  for (const std::size_t block : {4097u, 50'001u, 65'536u, 1'000'003u}) add(block, true);
  return true;
}();

}  // namespace
}  // namespace vox::bench
