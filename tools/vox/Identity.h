// Whether a remembered device is still the one at its address, which may have passed to another one
// since; seen by its MAC address.
//
// Thread rule: any thread, as long as none changes the remembered record.
#pragma once

#include <string>

#include "tools/vox/DeviceChoice.h"

namespace vox::cli {

enum class Who {
  kSame,    // or one about which nothing is remembered that could differ
  kSilent,  // no answer over SNMP
  kOther,
};

struct Identity {
  Who who = Who::kSilent;
  std::string mac;  // of whom answers; empty when kSilent
};

// AskIdentity asks for the MAC address at the target's address, and waits as long as get_mac does.
Identity AskIdentity(const DeviceTarget& target);

// OtherDeviceReason puts kOther into words that go behind "cannot ...: ". `address` is dotted.
std::string OtherDeviceReason(const std::string& mac, const std::string& address);

}  // namespace vox::cli
