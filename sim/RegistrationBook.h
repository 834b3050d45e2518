// RegistrationBook keeps who asked to receive the scans that are started at the device's panel.
//
// Thread rule: a RegistrationBook belongs to one thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vox::sim {

inline constexpr std::size_t kRegistrationSize = 28;

// The 28 parameter bytes of a registration command.
struct ClientRegistration {
  std::array<std::uint8_t, 4> host_address{};  // IPv4, network order
  std::string host_name;                       // at most 16 bytes, up to the first NUL
  std::array<std::uint8_t, 6> host_mac{};
  std::uint8_t registration_time = 0;
  std::uint8_t application_support = 0;
  bool operator==(const ClientRegistration&) const = default;
};

// ParseRegistration refuses anything but exactly 28 bytes.
std::optional<ClientRegistration> ParseRegistration(std::span<const std::uint8_t> bytes);

class RegistrationBook {
 public:
  static constexpr std::size_t kCapacity = 64;
  // Register enters a host, replacing an entry of the same address; false when the book is full.
  bool Register(const ClientRegistration& client);
  // Unregister strikes the entry of that address, if there is one.
  void Unregister(const ClientRegistration& client);
  const std::vector<ClientRegistration>& Clients() const { return clients_; }

 private:
  std::vector<ClientRegistration> clients_;  // oldest first
};

}  // namespace vox::sim
