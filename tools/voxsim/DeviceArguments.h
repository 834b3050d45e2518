// DeviceArguments are the options that a virtual device has at whatever it hangs: its paper, how it
// codes pages, and its faults.
//
//   DeviceArguments arguments(sim);
//   arguments.AddTo(app);
//   app.parse(argc, argv);
//   const std::string error = arguments.Settle();
//
// Thread rule: before any thread starts.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "sim/DeviceOptions.h"
#include "sim/Events.h"

namespace vox {

struct SimArguments {
  sim::DeviceOptions device;
  std::vector<std::string> page_files;
  sim::PageFileLimits page_limits;
  std::uint32_t sheets = 0;   // in the feeder; 0: as many as the pages make, when there are several
  bool duplex = false;        // two pages make one sheet
  std::uint32_t prepare = 0;  // dpi of a bilevel page of the whole bed; 0: none
  bool trace = false;
};

class DeviceArguments {
 public:
  explicit DeviceArguments(SimArguments& arguments) : arguments_(arguments) {}
  void AddTo(CLI::App& app);
  // Settle applies what was read; an empty text, or what is wrong.
  std::string Settle();

 private:
  void AddPaper(CLI::App& app);
  void AddCoding(CLI::App& app);

  // Options that need a second look once all are read.
  SimArguments& arguments_;
  std::vector<std::string> faults_;
  std::string image_header_;
  std::vector<std::uint32_t> margins_;  // left, right
  std::vector<std::uint32_t> range_;    // lowest, highest dpi
  std::vector<double> bed_;             // width, height in inches
  bool raw_lines_ = false;
  bool no_typical_prediction_ = false;
  std::uint64_t cache_ = 0;  // MiB
};

// LoadPaper puts the pages on the glass or into the feeder; an empty text, or what is wrong.
std::string LoadPaper(SimArguments& arguments);

// ReadCommandLine parses and settles; `settle` comes last. Returns: -1 to go on; else the status
// that the program ends with (help and version were printed, or one line says what is wrong).
int ReadCommandLine(CLI::App& app, int argc, char** argv,
                    const std::function<std::string()>& settle);

// Without the words that CLI11 puts into the help text.
inline CLI::Validator Between(std::uint32_t low, std::uint32_t high) {
  return CLI::Range(low, high).description("");
}

// Failures of these programs: SANE's status numbers for a request that cannot be served, an
// input/output error and want of memory; a usage error.
inline constexpr int kInvalid = 4, kIoError = 9, kNoMemory = 10, kUsageError = 64;

// TraceEvent writes one line about an event to standard error.
void TraceEvent(const sim::Event& event);

}  // namespace vox
