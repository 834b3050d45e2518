// What came of registering with a device, or unregistering, in truth: the device's own reply.
// registerOnDevice sorts replies for another purpose and is not asked.
//
// Thread rule: Register and Unregister from any thread; the rest are pure functions.
#pragma once

#include <cstdint>
#include <string>

#include "tools/vox/DeviceChoice.h"
#include "tools/vox/Failure.h"

namespace vox::cli {

enum class RegistrationState {
  kAccepted,       // the command was sent, of Unregister: devices do not answer it
  kBusy,           // to all of the attempts
  kRefused,        // the device's list may be full
  kOddReply,       // a reply that this program does not know
  kNoAnswer,       // to all of the attempts
  kNoInterface,    // this computer has no interface on the device's network
  kUnsupported,    // the model
  kOtherDevice,    // the remembered device's address has passed to another one, which is left alone
  kNotSent,        // the command could not be sent
  kCancelled,      // before a reply came
  kNoDescriptors,  // it could not be asked for want of file descriptors
};

// What a device was asked last.
enum class Question {
  kNone,
  kIdentity,      // who it is, over SNMP
  kRegistration,  // the command itself, or to be struck
};

struct Registration {
  RegistrationState state = RegistrationState::kNoAnswer;
  int reply = -1;   // the device's code; -1: none came
  std::string mac;  // of whom answers at the address; empty: it was not told

  // What was tried.
  Question question = Question::kNone;
  std::string from;    // the address of this computer on the device's network; empty: none
  double seconds = 0;  // from the first question on
};

// Register asks who is there first: a remembered device must be the same one still, and the model a
// supported one. It then waits up to 27 s for the reply.
Registration Register(const DeviceTarget& target);
Registration Unregister(const DeviceTarget& target);

// StateName gives "accepted", "busy", "refused", "odd-reply", "no-answer", "no-interface",
// "unsupported", "other-device", "not-sent", "cancelled", "no-descriptors".
const char* StateName(RegistrationState state);

// QuestionName gives "identity", "registration"; null for kNone.
const char* QuestionName(Question question);

// RegistrationFailure puts what is not kAccepted into words.
Failure RegistrationFailure(bool wanted, const DeviceTarget& target, const Registration& outcome);

}  // namespace vox::cli
