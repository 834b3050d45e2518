// DEVICE on the command line, and the address behind it.
//
// Thread rule: any thread; look-ups may block for as long as the resolver does.
#pragma once

#include <string>

namespace vox::cli {

// IsNetworkName tells whether a DEVICE has the form net:ADDRESS.
bool IsNetworkName(const std::string& device);

// IsDottedAddress tells whether a text is an IPv4 address in dotted form.
bool IsDottedAddress(const std::string& text);

// NetworkAddress gives the dotted IPv4 address of a DEVICE of the form net:ADDRESS; "net:" may be
// missing. Throws Failure: 64 for an empty address, 4 for a host name that nobody bears.
std::string NetworkAddress(const std::string& device);

}  // namespace vox::cli
