// What vox says about devices and pages: for people, and as JSON with keys that stay
// (docs/vox.md lists them).
//
// Thread rule: pure functions.
#pragma once

#include <string>

#include "tools/vox/Request.h"
#include "vox/DeviceDictionary.h"

namespace vox::cli {

struct DeviceReport {
  std::string name, ip;
  bool is_virtual = false;
  Abilities abilities;
  DeviceInfo remembered = nullptr;  // its record in the registry, or null
  DeviceInfo usb = nullptr;         // its record when it is at USB, remembered or not
};

// DeviceWords and DeviceJson end in a newline; names are cleaned of control characters.
std::string DeviceWords(const DeviceReport& device);
std::string DeviceJson(const DeviceReport& device);

struct PageReport {
  unsigned page = 1;  // in the job, 1 is the first
  std::string file;   // that holds it; "-" is standard output
  ImageFormat format = ImageFormat::kPng;
  bool turned = false;
  double seconds = 0;  // from the start of the page to its last line
};

// PageWords: "scan.png: page 1, 2550 x 3510 pixels, color, 300 dpi". Both end in a newline.
std::string PageWords(const PageReport& page, const ScanPlan& plan);
std::string PageJson(const PageReport& page, const ScanPlan& plan);

}  // namespace vox::cli
