// Which of the remembered devices answer now, and whether they are still the ones that they were.
//
// Thread rule: the main thread.
#pragma once

#include <vector>

#include "vox/DevicesManager.h"

namespace vox::cli {

enum class Presence {
  kOnline,
  kRenamed,        // the device itself, by its MAC address, under another name
  kOther,          // another device answers at the address
  kSilent,         // none does
  kBrokenAddress,  // what is remembered is no address
  kNotAttached,    // a device at USB
  kUnknown,        // the question was called off before it was answered
  kNoDescriptors,  // it could not be asked for want of file descriptors
};

// AskPresence asks all of them at the same time and gives the answers in their order; a device at
// USB is looked for there, and one of an unknown type is kSilent. Where pings are permitted only a
// device that answers one is asked over SNMP; elsewhere all of them are, and a line on standard
// error says so. Once stop_fd is readable, what has been answered is the result.
std::vector<Presence> AskPresence(const DeviceInfoArray& devices, int stop_fd);

// PresenceWords is for a list: "online", "no answer"; PresenceName for JSON: "online", "no-answer".
const char* PresenceWords(Presence presence);
const char* PresenceName(Presence presence);

}  // namespace vox::cli
