// Which of this computer's interfaces is on a device's network. Inside the library only.
//
// Thread rule: a pure function.
#pragma once

#include <cstdint>

struct ifaddrs;

namespace vox {

// choose_interface is getmac_and_ip over a list as getifaddrs(3) gives it; `device` is in network
// byte order. Returns: whether there is one.
bool choose_interface(const ifaddrs* list, std::uint32_t device, std::uint32_t* local,
                      std::uint8_t* mac);

}  // namespace vox
