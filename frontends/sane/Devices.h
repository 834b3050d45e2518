// Devices is what sane_get_devices gives: the devices that are known, at once, and those that a
// search of the network on a thread of its own has found since.
//
//   List -> vox.conf's devices, the remembered ones, those at USB          at once
//        -> an address of vox.conf that no record is of, or several are:
//           asks who that is, 1 s at most
//        -> nobody is known: waits for the search, 2 s in all at most
//        whoever answers is remembered
//   the next List -> also what the search has found since
//   SearchFor, where a device was not at its record's address
//        -> asks whoever is at vox.conf's addresses, then the network
//
// A record tells where a device was once. It stands for an address of vox.conf as long as nobody
// else has answered there and no other record claims the address; it stays remembered.
//
// Thread rule: one thread at a time. The threads of searches are started by the first List that
// needs them and joined by the destructor, which does not wait for devices.
#pragma once

#include <chrono>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <sane/sane.h>

#include "frontends/sane/Config.h"
#include "tools/vox/NetworkSearch.h"
#include "vox/DeviceDictionary.h"

namespace vox::sane {

// IsMacName tells whether a device's name is "net:" and a MAC address.
bool IsMacName(const std::string& name);

// NameOf gives the stable name of a device dictionary: usb:SERIAL, net:MAC, or net:ADDRESS where
// the MAC address is not known; empty when it has none, or one that would not print.
std::string NameOf(const Dictionary& device);

class Devices {
 public:
  explicit Devices(Config config) : config_(std::move(config)) {}
  Devices(const Devices&) = delete;
  Devices& operator=(const Devices&) = delete;

  // List gives the devices, null-terminated; the list stays valid until the next call. Known ones
  // come first. Throws std::bad_alloc, cli::Failure.
  const SANE_Device** List(bool local_only);

  // First gives the name of the first device of a list that is none of `others`; empty: there is
  // none.
  std::string First(const std::vector<std::string>& others = {});

  // Remembered gives the remembered device with that stable name, or null.
  DeviceInfo Remembered(const std::string& name);
  // AtUsb gives the attached device with that serial number, or null.
  DeviceInfo AtUsb(const std::string& serial);
  // SearchFor asks vox.conf's dotted addresses, 1 s at most for each 16 of them, and then searches
  // the network, 2 s at most and only where vox.conf allows it, for the device with that stable
  // name; null when it is not found.
  DeviceInfo SearchFor(const std::string& name);

 private:
  using Clock = std::chrono::steady_clock;
  struct Entry {
    std::string name, vendor, model;
    SANE_Device device{};
  };
  struct Search {
    // Begin asks whoever is at the address unless that is still going on, or was done a moment ago.
    // Returns: whether it has begun.
    bool Begin(const std::string& address);

    std::unique_ptr<cli::NetworkSearch> running;
    Clock::time_point begun{};
  };

  void Synchronize();
  DeviceInfo Collect(Clock::time_point deadline, const std::string& until);
  DeviceInfo CollectConfigured(Clock::time_point deadline, const std::string& until);
  void Take(const DeviceInfoArray& found);
  static void Remember(const DeviceInfoArray& found);
  std::vector<std::string> ConfiguredAddresses() const;
  bool AskConfigured();
  DeviceInfo RecordOf(const std::string& name) const;
  void Add(const std::string& name, const std::string& model);
  void AddConfigured(bool network);
  void AddKnown(bool network);
  bool KnowsAny() const;
  bool HasName(const std::string& name) const;

  const Config config_;
  DeviceInfoArray found_;     // network devices of the searches; a settings' file may not take them
  DeviceInfoArray known_;     // those that are remembered, and found_
  DeviceInfoArray attached_;  // at USB
  std::map<std::string, std::string> answered_;  // the name of who answered last, by address
  Search search_;                                // of the network
  std::map<std::string, Search> asked_;          // of vox.conf's devices, by address
  std::list<Entry> entries_;
  std::vector<const SANE_Device*> list_;
};

}  // namespace vox::sane
