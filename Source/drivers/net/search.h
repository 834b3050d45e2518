// Network discovery: finding the devices of the local IPv4 network with one broadcast, and asking
// one device who it is. docs/wire/discovery.md has the exchange. searchping.h has the liveness
// probe, searchregister.h the registration for scans that are started at a device's panel.
//
// Whatever devices answer is hostile until checked: texts in dictionaries are UTF-8 that a property
// list can hold, what is none of that being replaced (FitForXml).
//
// Addresses: IPv4, dotted, or a host name where not said otherwise.
// Failures:  -1 or nothing; nothing is logged and nothing is thrown.
// Thread rule: any thread; all calls block, each question for 3 s at most.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "vox/CancelDelegate.h"
#include "vox/DeviceDictionary.h"
#include "vox/drivers/net/searchping.h"
#include "vox/drivers/net/searchregister.h"
#include "vox/platform/Export.h"

namespace vox {

inline constexpr std::int32_t NET_MAC_TEXT_SIZE = 18;  // bytes of a MAC address text and its NUL
inline constexpr std::int32_t NET_NAME_SIZE = 1536;    // bytes that any answered name fits into

// get_mac reads the MAC address of the device's first interface as "%02x:%02x:%02x:%02x:%02x:%02x"
// into text[0, NET_MAC_TEXT_SIZE); empty on failure.
// Returns: 0; -1 no answer, or an address of fewer than six bytes.
VOX_EXPORT std::int32_t get_mac(const char* address, char* text);

// get_name reads the device's name (sysName) into name[0, size), NUL-terminated and trimmed as
// snmp2c_str does; empty on failure.
// Returns: 0; -1 no answer, or a name of more than size - 1 bytes.
VOX_EXPORT std::int32_t get_name(const char* address, char* name, std::int32_t size);

// get_model reads the device's model name, trimmed as snmp2c_str does, into model[0, size) with
// "Veltronix " in front; empty on failure.
// Returns: 0; -1 no answer, or not room for all of it and its NUL.
VOX_EXPORT std::int32_t get_model(char* model, std::int32_t size, const char* address);

// snmp2c_str makes a C string of a received text: it puts a NUL at text[length], so text has room
// for length + 1 bytes, and clears the characters at the end that are no graphic ASCII (blanks,
// control characters, bytes of 0x80 and above). Those inside stay.
// Returns: the length of what is left; 0 for a negative length.
VOX_EXPORT std::int32_t snmp2c_str(char* text, std::int32_t length);

// is_qd7xxx tells whether a model, with the vendor's name in front, is supported.
VOX_EXPORT bool is_qd7xxx(const char* model);

// get_dev_info asks the device for its name, its MAC address and, to see whether it answers its
// private objects, for the size of its first scanning unit, all four at the same time; and makes
// its dictionary: "type" "network", "ip" (the address as it is given), "modelName" (the model as it
// is given), "name", and the MAC address text as "mac" and "deviceId".
// Returns: 0; -1 with *device null when any of the four fails.
VOX_EXPORT std::int32_t get_dev_info(const std::string& address, const std::string& model,
                                     DeviceInfo* device);

// searchNetworkDevices asks everybody for their model with one broadcast and gives the dictionaries
// of the supported devices. It ends one second after the last answer, or when the last device has
// been asked, whichever is later; devices are asked from when their answer comes on, up to 64 at
// the same time. Of more than 256 answers the rest is dropped.
// delegate: asked once per answer, in their order, as they come; when it is cancelled no further
//           answer counts and nothing more is waited for but the devices before it. May be null.
// success:  whether the query went out and was answered by anybody. May be null.
// Of two answers with the same "deviceId" the later one stays.
VOX_EXPORT DeviceInfoDictionary searchNetworkDevices(CancelDelegate* delegate, bool* success);

// tagNETSEARCH is how a search may differ from the ordinary one.
struct tagNETSEARCH {
  // Called for each device as soon as it is known, once per "deviceId", in any order, on a thread
  // of the search; one call at a time, all of them before the search returns. Must not throw.
  std::function<void(const DeviceInfo&)> found;
  // A descriptor that ends the search at once when it becomes readable, what was found till then
  // being the result; -1 none. The delegate alone ends it at an answer only.
  int nStopFd = -1;
  const char* pszAddress = "255.255.255.255";  // dotted; whom the query goes to
  // Becomes true when devices may be missing for want of memory. May be null.
  bool* pbNoMemory = nullptr;
  // Becomes true when devices may be missing because this process, or the machine, had no
  // descriptor left for a socket meanwhile, for this search or elsewhere. May be null.
  bool* pbNoDescriptors = nullptr;
};
VOX_EXPORT DeviceInfoDictionary searchNetworkDevices(CancelDelegate* delegate, bool* success,
                                                     const tagNETSEARCH& how);

// getNetworkDeviceInfo gives the dictionary of the device at one address; "ip" is its dotted form.
// success: whether the device told its model. May be null.
// Returns: null when it did not, when the model is not supported, or when get_dev_info fails.
VOX_EXPORT DeviceInfo getNetworkDeviceInfo(bool* success, const char* address);

}  // namespace vox
