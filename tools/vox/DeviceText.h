// What vox says about a remembered or found device: for people, and as JSON with the keys of the
// device dictionary.
//
// Thread rule: pure functions.
#pragma once

#include <string>

#include "tools/vox/Json.h"
#include "vox/DeviceDictionary.h"

namespace vox::cli {

// DeviceName is how messages name a device: "Office (192.168.0.5)", "Veltronix QD7200 (A7K0123 at
// USB)"; its id when it has no name.
// Control characters are replaced.
std::string DeviceName(const Dictionary& device);

// DeviceLine is a row of a list: address or "at USB", name, model, id, and what `behind` says; with
// a newline.
std::string DeviceLine(const Dictionary& device, const std::string& behind);

// HasBrokenAddress tells whether a network device is remembered with what is no dotted IPv4
// address, or with nothing, as its address. BrokenAddressLine says so, and how to mend it.
bool HasBrokenAddress(const Dictionary& device);
std::string BrokenAddressLine(const Dictionary& device);

// HasChanged says whether a device was found at another address or under another name than known.
bool HasChanged(const Dictionary& known, const Dictionary& found);

// DeviceRecord has those of the device dictionary's keys that the device has.
Json DeviceRecord(const Dictionary& device);

}  // namespace vox::cli
