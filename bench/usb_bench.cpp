// Scanning at USB: UsbReading.cpp has reads beside plain libusb on an emulated bus,
// UsbBlocks.cpp what blocks and lines of any size cost, UsbSlowClient.cpp the memory of a client
// that does not keep up.
//
// A program on the emulated bus has umockdev's library preloaded: this one runs itself once more
// with it, and so whatever it starts has it too.
#include <cstdio>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/UsbSlowClient.h"
#include "tools/voxsim-usb/Preload.h"

int main(int argc, char** argv) {
  const std::string error = vox::Preload(argv);
  if (!error.empty()) {
    std::fprintf(stderr, "usb_bench: %s\n", error.c_str());
    return 1;
  }
  const int status = vox::bench::RunUsbScanProcess(argc, argv);
  if (status >= 0) return status;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
