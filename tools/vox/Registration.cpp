#include "tools/vox/Registration.h"

#include <array>
#include <cstdio>
#include <memory>
#include <optional>

#include "tools/vox/Identity.h"
#include "vox/drivers/net/search.h"
#include "vox/drivers/net/searchregister.h"

namespace vox::cli {

namespace {

struct StateRow {
  const char* name;
  ExitStatus exit;
  const char* reason;
};

// One row for each state, in their order.
constexpr std::array<StateRow, 10> kStates{{
    {"accepted", ExitStatus::kDone, ""},
    {"busy", ExitStatus::kBusy, "it is busy; try again when it has finished"},
    {"refused", ExitStatus::kIoError, "it refused; its list may be full, look at its panel"},
    {"odd-reply", ExitStatus::kIoError, "it gave a reply that is not known"},
    {"no-answer", ExitStatus::kIoError,
     "it does not answer; check that it is on and reachable, or find it with vox discover"},
    {"no-interface", ExitStatus::kIoError,
     "this computer has no interface on that device's network, so the device could not reach it; "
     "connect it to that network"},
    {"unsupported", ExitStatus::kCannot, "its model is not supported"},
    {"other-device", ExitStatus::kIoError, ""},  // OtherDeviceReason
    {"not-sent", ExitStatus::kIoError,
     "the command could not be sent; check this computer's network"},
    {"cancelled", ExitStatus::kCancelled, "cancelled before it had answered; ask again to be sure"},
}};

const StateRow& RowOf(RegistrationState state) {
  return kStates[static_cast<std::size_t>(state)];
}

bool HasInterface(const std::string& address) {
  std::uint32_t local = 0;
  std::uint8_t mac[6];
  return getmac_and_ip(address.c_str(), &local, mac) == 0;
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
  if (!HasInterface(target.address)) return {RegistrationState::kNoInterface, -1, {}};
  const Identity identity = AskIdentity(target);
  Registration met{RegistrationState::kNoAnswer, -1, identity.mac};
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

}  // namespace

Registration Register(const DeviceTarget& target) {
  Registration outcome = Meet(target);
  if (outcome.state != RegistrationState::kAccepted) return outcome;
  const auto reply = register_reply(target.address.c_str());
  outcome.state = StateOf(reply);
  if (reply) outcome.reply = *reply;
  return outcome;
}

Registration Unregister(const DeviceTarget& target) {
  Registration outcome = Meet(target);
  if (outcome.state != RegistrationState::kAccepted) return outcome;
  const auto device = std::make_shared<Dictionary>(Dictionary{{kDeviceIpKey, target.address}});
  outcome.state = StateOf(unregisterOnDevice(device));
  return outcome;
}

const char* StateName(RegistrationState state) {
  return RowOf(state).name;
}

Failure RegistrationFailure(bool wanted, const DeviceTarget& target, const Registration& outcome) {
  const StateRow& row = RowOf(outcome.state);
  std::string line = std::string("cannot ") + (wanted ? "register with " : "unregister from ") +
                     CleanText(target.label) + ": ";
  line += outcome.state == RegistrationState::kOtherDevice
              ? OtherDeviceReason(outcome.mac, target.address)
              : row.reason;
  if (outcome.state == RegistrationState::kOddReply) {
    char code[16];
    std::snprintf(code, sizeof code, " (0x%02X)", static_cast<unsigned>(outcome.reply) & 0xFFU);
    line += code;
  }
  return Failure(row.exit, line);
}

}  // namespace vox::cli
