#include "tools/vox/Registration.h"

#include <array>
#include <cstdio>

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
constexpr std::array<StateRow, 6> kStates{{
    {"accepted", ExitStatus::kDone, ""},
    {"busy", ExitStatus::kBusy, "it is busy; try again when it has finished"},
    {"refused", ExitStatus::kIoError, "it refused; its list may be full, look at its panel"},
    {"odd-reply", ExitStatus::kIoError, "it gave a reply that is not known"},
    {"no-answer", ExitStatus::kIoError,
     "it does not answer; check that it is on and reachable, or find it with vox discover"},
    {"no-interface", ExitStatus::kIoError,
     "this computer has no interface on that device's network, so the device could not reach it; "
     "connect it to that network"},
}};

const StateRow& RowOf(RegistrationState state) {
  return kStates[static_cast<std::size_t>(state)];
}

bool HasInterface(const std::string& address) {
  std::uint32_t local = 0;
  std::uint8_t mac[6];
  return getmac_and_ip(address.c_str(), &local, mac) == 0;
}

RegistrationState StateOf(std::int32_t reply) {
  switch (reply) {
    case 0:
      return RegistrationState::kAccepted;
    case REG_RSP_BUSY:
      return RegistrationState::kBusy;
    case REG_RSP_REFUSED:
      return RegistrationState::kRefused;
    case -1:
      return RegistrationState::kNoAnswer;
    default:
      return RegistrationState::kOddReply;
  }
}

}  // namespace

Registration Register(const std::string& address) {
  if (!HasInterface(address)) return {RegistrationState::kNoInterface, -1};
  const std::int32_t reply = cmd_register(address.c_str());
  return {StateOf(reply), reply == 0 ? REG_RSP_ACCEPTED : reply};
}

Registration Unregister(const std::string& address) {
  if (!HasInterface(address)) return {RegistrationState::kNoInterface, -1};
  const auto device = std::make_shared<Dictionary>(Dictionary{{kDeviceIpKey, address}});
  const bool sent = unregisterOnDevice(device) == RegistrationResult_Ok;
  return {sent ? RegistrationState::kAccepted : RegistrationState::kNoAnswer, -1};
}

const char* StateName(RegistrationState state) {
  return RowOf(state).name;
}

Failure RegistrationFailure(bool wanted, const std::string& device, const Registration& outcome) {
  const StateRow& row = RowOf(outcome.state);
  std::string line = std::string("cannot ") + (wanted ? "register with " : "unregister from ") +
                     device + ": " + row.reason;
  if (outcome.state == RegistrationState::kOddReply) {
    char code[16];
    std::snprintf(code, sizeof code, " (0x%02X)", static_cast<unsigned>(outcome.reply) & 0xFFU);
    line += code;
  }
  return Failure(row.exit, line);
}

}  // namespace vox::cli
