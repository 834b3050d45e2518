// DEVICE on the command line, and the address behind it.
//
// Thread rule: any thread; look-ups may block for as long as the resolver does.
#pragma once

#include <string>

namespace vox::cli {

// NetworkAddress gives the dotted IPv4 address of a DEVICE of the form net:ADDRESS.
// Throws Failure: 64 for no DEVICE that this version knows, 4 for a host name that nobody bears.
std::string NetworkAddress(const std::string& device);

}  // namespace vox::cli
