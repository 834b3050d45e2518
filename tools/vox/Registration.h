// What came of registering with a device, or unregistering, in truth: the device's own reply.
// registerOnDevice sorts replies for another purpose and is not asked.
//
// Thread rule: Register and Unregister from any thread; the rest are pure functions.
#pragma once

#include <cstdint>
#include <string>

#include "tools/vox/Failure.h"

namespace vox::cli {

enum class RegistrationState {
  kAccepted,     // also of Unregister: the command was sent; devices do not answer it
  kBusy,         // to all of the attempts
  kRefused,      // the device's list may be full
  kOddReply,     // a reply that this program does not know
  kNoAnswer,     // to all of the attempts
  kNoInterface,  // this computer has no interface on the device's network
};

struct Registration {
  RegistrationState state = RegistrationState::kNoAnswer;
  int reply = -1;  // the device's code; -1: none came
};

// Register waits up to 27 s. `address` is dotted.
Registration Register(const std::string& address);
Registration Unregister(const std::string& address);

// StateName gives "accepted", "busy", "refused", "odd-reply", "no-answer", "no-interface".
const char* StateName(RegistrationState state);

// RegistrationFailure puts what is not kAccepted into words. `device` is as messages name it.
Failure RegistrationFailure(bool wanted, const std::string& device, const Registration& outcome);

}  // namespace vox::cli
