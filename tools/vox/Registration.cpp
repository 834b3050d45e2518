#include "tools/vox/Registration.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>

#include <arpa/inet.h>

#include "tools/vox/Identity.h"
#include "tools/vox/KnownDevices.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"
#include "vox/drivers/net/search.h"
#include "vox/drivers/net/searchregister.h"
#include "vox/platform/DescriptorRefusals.h"

namespace vox::cli {

namespace {

struct StateRow {
  const char* name;
  ExitStatus exit;
  const char* reason;
};

// One row for each state, in their order.
constexpr std::array<StateRow, 11> kStates{{
    {"accepted", ExitStatus::kDone, ""},
    {"busy", ExitStatus::kBusy, "it is busy; try again when it has finished"},
    {"refused", ExitStatus::kIoError, "it refused; its list may be full, look at its panel"},
    {"odd-reply", ExitStatus::kIoError, "it gave a reply that is not known"},
    {"no-answer", ExitStatus::kIoError, ""},  // NoAnswerReason
    {"no-interface", ExitStatus::kIoError,
     "this computer has no interface on that device's network, so the device could not reach it; "
     "connect it to that network"},
    {"unsupported", ExitStatus::kCannot, "its model is not supported"},
    {"other-device", ExitStatus::kIoError, ""},  // OtherDeviceReason
    {"not-sent", ExitStatus::kIoError,
     "the command could not be sent; check this computer's network"},
    {"cancelled", ExitStatus::kCancelled, "cancelled before it had answered; ask again to be sure"},
    {"no-descriptors", ExitStatus::kNoMemory, kTooFewDescriptors},
}};

const StateRow& RowOf(RegistrationState state) {
  return kStates[static_cast<std::size_t>(state)];
}

// OwnAddress gives this computer's address on the device's network, dotted; empty: it has none.
std::string OwnAddress(const std::string& device) {
  in_addr local{};
  std::uint8_t mac[6];
  if (getmac_and_ip(device.c_str(), &local.s_addr, mac) != 0) return {};
  std::array<char, INET_ADDRSTRLEN> text{};
  return ::inet_ntop(AF_INET, &local, text.data(), text.size()) != nullptr ? text.data() : "";
}

// NoAnswerReason tells what was tried, and what can be done about it.
std::string NoAnswerReason(const Registration& outcome, const std::string& address) {
  const bool asked_who = outcome.question != Question::kRegistration;
  const unsigned snmp_port = snmpPort, named_port = udpCommandPort;
  const unsigned command_port = named_port != 0 ? named_port : UDPCMD_PORT;
  const std::string from = outcome.from.empty() ? "" : " from " + outcome.from;
  char tried[96];
  std::snprintf(tried, sizeof tried, ", port %u%s, for %.1f s",
                asked_who ? snmp_port : command_port, from.c_str(), outcome.seconds);
  const std::string at = CleanText(address) + tried;
  return asked_who ? "it does not answer; it was asked who it is (SNMP) at " + at +
                         "; check that it is on and reachable, or find it with vox discover"
                   : "it does not answer; it told who it is, and was sent the command (UDP) at " +
                         at + "; try again, and check that no firewall keeps that port";
}

RegistrationState StateOf(std::optional<std::uint8_t> reply) {
  if (!reply) return RegistrationState::kNoAnswer;
  switch (*reply) {
    case REG_RSP_ACCEPTED:
      return RegistrationState::kAccepted;
    case REG_RSP_BUSY:
      return RegistrationState::kBusy;
    case REG_RSP_REFUSED:
      return RegistrationState::kRefused;
    default:
      return RegistrationState::kOddReply;
  }
}

// Meet gives what keeps the device from being asked; kAccepted: nothing does.
Registration Meet(const DeviceTarget& target) {
  Registration met;
  met.from = OwnAddress(target.address);
  if (met.from.empty()) {
    met.state = RegistrationState::kNoInterface;
    return met;
  }
  met.question = Question::kIdentity;
  const Identity identity = AskIdentity(target);
  met.mac = identity.mac;
  std::array<char, NET_NAME_SIZE> model{};
  if (identity.who == Who::kOther) {
    met.state = RegistrationState::kOtherDevice;
  } else if ((identity.who == Who::kSame || target.remembered == nullptr) &&
             get_model(model.data(), NET_NAME_SIZE, target.address.c_str()) == 0) {
    met.state =
        is_qd7xxx(model.data()) ? RegistrationState::kAccepted : RegistrationState::kUnsupported;
  }
  return met;
}

// Of a device whose model has been seen to be a supported one.
RegistrationState StateOf(RegistrationResult result) {
  switch (result) {
    case RegistrationResult_Ok:
      return RegistrationState::kAccepted;
    case RegistrationResult_Failed:
      return RegistrationState::kNotSent;
    default:
      return RegistrationState::kNoAnswer;
  }
}

// MayBeUnasked is whether a failure may be for want of a socket to ask with.
bool MayBeUnasked(RegistrationState state) {
  return state == RegistrationState::kNoAnswer || state == RegistrationState::kNoInterface ||
         state == RegistrationState::kNotSent;
}

// Timed gives what a registration came to, with the time that it took.
template <class Ask>
Registration Timed(Ask ask) {
  const auto start = std::chrono::steady_clock::now();
  const std::uint32_t refused = DescriptorRefusalsHere();
  Registration outcome = ask();
  if (MayBeUnasked(outcome.state) && DescriptorRefusalsHere() != refused)
    outcome.state = RegistrationState::kNoDescriptors;
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return outcome;
}

}  // namespace

Registration Register(const DeviceTarget& target) {
  return Timed([&] {
    Registration outcome = Meet(target);
    if (outcome.state != RegistrationState::kAccepted) return outcome;
    outcome.question = Question::kRegistration;
    const auto reply = register_reply(target.address.c_str());
    outcome.state = StateOf(reply);
    if (reply) outcome.reply = *reply;
    return outcome;
  });
}

Registration Unregister(const DeviceTarget& target) {
  return Timed([&] {
    Registration outcome = Meet(target);
    if (outcome.state != RegistrationState::kAccepted) return outcome;
    const auto device = std::make_shared<Dictionary>(Dictionary{{kDeviceIpKey, target.address}});
    outcome.state = StateOf(unregisterOnDevice(device));
    // It asks for the model once more before it sends the command.
    if (outcome.state != RegistrationState::kNoAnswer) outcome.question = Question::kRegistration;
    return outcome;
  });
}

const char* StateName(RegistrationState state) {
  return RowOf(state).name;
}

const char* QuestionName(Question question) {
  return question == Question::kIdentity       ? "identity"
         : question == Question::kRegistration ? "registration"
                                               : nullptr;
}

Failure RegistrationFailure(bool wanted, const DeviceTarget& target, const Registration& outcome) {
  const StateRow& row = RowOf(outcome.state);
  std::string line = std::string("cannot ") + (wanted ? "register with " : "unregister from ") +
                     CleanText(target.label) + ": ";
  if (outcome.state == RegistrationState::kOtherDevice) {
    line += OtherDeviceReason(outcome.mac, target.address);
  } else if (outcome.state == RegistrationState::kNoAnswer) {
    line += NoAnswerReason(outcome, target.address);
  } else {
    line += row.reason;
  }
  if (outcome.state == RegistrationState::kOddReply) {
    char code[16];
    std::snprintf(code, sizeof code, " (0x%02X)", static_cast<unsigned>(outcome.reply) & 0xFFU);
    line += code;
  }
  return Failure(row.exit, line);
}

}  // namespace vox::cli
