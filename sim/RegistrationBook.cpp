#include "sim/RegistrationBook.h"

#include <algorithm>

namespace vox::sim {

std::optional<ClientRegistration> ParseRegistration(std::span<const std::uint8_t> bytes) {
  if (bytes.size() != kRegistrationSize) return std::nullopt;
  ClientRegistration client;
  std::copy_n(bytes.begin(), 4, client.host_address.begin());
  const auto name = bytes.subspan(4, 16);
  client.host_name.assign(name.begin(), std::find(name.begin(), name.end(), 0));
  std::copy_n(bytes.begin() + 20, 6, client.host_mac.begin());
  client.registration_time = bytes[26];
  client.application_support = bytes[27];
  return client;
}

bool RegistrationBook::Register(const ClientRegistration& client) {
  Unregister(client);
  if (clients_.size() >= kCapacity) return false;
  clients_.push_back(client);
  return true;
}

void RegistrationBook::Unregister(const ClientRegistration& client) {
  std::erase_if(clients_, [&](const ClientRegistration& entry) {
    return entry.host_address == client.host_address;
  });
}

}  // namespace vox::sim
