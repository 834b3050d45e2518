// The command line of vox, parsed: plain records that say what a person asked for, and the one
// function that reads them. Nothing here looks at a device or a file.
//
// Thread rule: pure functions and values.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/vox/Frame.h"
#include "tools/vox/writers/MakeWriter.h"

namespace vox::cli {

enum class Mode { kLineart, kGray, kColor };

// ModeName gives "lineart", "gray" or "color".
const char* ModeName(Mode mode);

struct Resolution {
  unsigned x = 0, y = 0;  // dpi
};

// How a virtual device of one's own is made up (--virtual).
struct VirtualOptions {
  bool on = false;
  std::vector<std::string> page_files;  // PNM, PNG, TIFF; empty: the built-in test chart
  std::optional<unsigned> feeder;       // sheets in the feeder; absent: pages decide
  std::string faults;                   // what shall go wrong, in the virtual device's words
};

struct DeviceOptions {
  std::string name;  // DEVICE as given; empty with --virtual, and when it was left out
  VirtualOptions with;
};

struct ScanOptions {
  DeviceOptions device;
  std::string output;  // FILE or PATTERN; "-" is standard output
  bool batch = false;  // output is a PATTERN: take every page
  ImageFormat format = ImageFormat::kPng;
  std::optional<Mode> mode;
  std::optional<Resolution> resolution;
  std::optional<Frame> frame;  // of --frame or --paper; absent: the whole bed
  bool paper = false;          // frame is a paper's
  bool preview = false;
  int brightness = 0;            // percent, -100 to 100
  int contrast = 0;              // percent, -100 to 100
  std::optional<int> threshold;  // 1 to 255: vox makes the black and white itself
  bool halftone = false;         // likewise, by error diffusion
  bool duplex = false;
  bool turned = false;  // --rotate 180
  bool json = false;
  bool trace = false;       // write the TWAIN operations of this scan to standard error
  bool trace_only = false;  // vox trace: the page goes nowhere; json is about the operations
};

struct InfoOptions {
  DeviceOptions device;
  bool json = false;
};

struct DiscoverOptions {
  VirtualOptions with;
  bool json = false;
};

struct ListOptions {
  VirtualOptions with;
  bool online = false;  // ask each whether it is on
  bool json = false;
};

struct AddOptions {
  DeviceOptions device;  // ADDRESS, with or without net: in front
  bool json = false;
};

struct RemoveOptions {
  DeviceOptions device;
  bool json = false;
};

// vox register, and vox unregister.
struct RegisterOptions {
  bool wanted = true;              // false: unregister
  std::vector<std::string> names;  // of devices, at least one unless all
  bool all = false;
  VirtualOptions with;
  bool json = false;
};

struct SettingsOptions {
  enum class Action { kGet, kSet, kReset, kList };  // kReset: back to the default
  Action action = Action::kList;
  std::string key, value;
  VirtualOptions with;
  bool json = false;
};

// A text that was asked for instead of work: --help, --version.
struct TextAnswer {
  std::string text;
};

using Command = std::variant<ScanOptions, InfoOptions, DiscoverOptions, ListOptions, AddOptions,
                             RemoveOptions, RegisterOptions, SettingsOptions, TextAnswer>;

// ParseCommandLine reads the arguments behind the program's name. `stdout_is_terminal` decides
// whether an image may go there when no file is named. Throws UsageFailure, one line.
Command ParseCommandLine(const std::vector<std::string>& arguments, bool stdout_is_terminal);

}  // namespace vox::cli
