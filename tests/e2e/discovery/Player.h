// Player plays a scenario on a neighbourhood: the library runs on the host, with a registry, a user
// and a machine root of its own.
//
// The neighbourhood, before all other steps:
//   device ID [model=M] [name=N] [fault=WORDS] [object=OBJECT=VALUE] [other=ADDRESS]
//   devices N                   devices d1 to dN
//   snmpd ID                    net-snmp's agent, saying what a device says
// What happens to it:
//   sleep ID, wake ID           nothing is answered but ping
//   unplug ID..., plug ID       the network cable
//   move ID ADDRESS, rename ID NAME
//   ping-groups "LOW HIGH"      ping_group_range of the host
//   no-raw-sockets              the host's programs lose that right
//   no-shared-folder            the shared settings' folder is missing
//   usb SERIAL                  a remembered device at USB
// What the host does:
//   search [cancel-at=N]        and merge what was found; cancelled at the N-th question
//   register ID CODE            CODE is what the command gives
//   on-device ID RESULT         registration: Ok, Failed or InvalidDevice
//   unregister ID RESULT
//   push ID yes|no              registration wanted
//   register-all ID...|none     the devices that it fails for
//   ping ID...|none             the known devices that answer an echo request
//   online ID...|none           the known devices that are on line
//   cancelled-online MS         the same, cancelled after so many ms; it returns within 0.2 s
//   restart                     the program starts anew
//   vox WORD...                 the vox program, in a folder of its own
//   vox-cancelled TEXT WORD...  the same, cancelled as soon as it has written TEXT
// What came of it:
//   found ID...|none            by the last search, and nothing else
//   answered yes|no             whether anybody answered it
//   value ID KEY TEXT           of what was found
//   known ID...|none            by the registry, and nothing else
//   stored ID KEY TEXT          in the shared settings
//   status N, says TEXT         how the vox program ended, and what it wrote somewhere
//   says-times N TEXT           how often it wrote that
//   lists ID...|none            the devices by whose MAC addresses it wrote, each as often
//   unasked ID...               no SNMP question came to them in the last step of the host
//   file LEAF                   is there, and not empty
//   saved yes|no                whether the last step of the host wrote the shared settings
//   book ID N [NAME]            entries in the device's registration book, in a moment; the name
//                               of the last one
//   commands ID N               registration commands that came to it
//   packet ID HEX...            the last of them; ss any byte, mm the host's MAC address
//   less-than MS, at-least MS   that the last step of the host took; five times less-than under a
//                               sanitizer
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "tests/e2e/discovery/Neighbourhood.h"
#include "tests/e2e/discovery/Scenario.h"
#include "tests/unit/registry/Registry.h"

namespace vox {

class Player : public Registry {
 protected:
  // Play ends with the first step that cannot be done; expectations that fail name their line.
  void Play(const std::vector<test::Step>& steps);

 private:
  using Words = std::vector<std::string>;
  using Clock = std::chrono::steady_clock;
  friend struct Verb;

  void Settle(const std::vector<test::Step>& steps);
  void AddDevice(const std::string& id, const std::multimap<std::string, std::string>& options);
  void Do(const test::Step& step);

  void Search(const test::Step& step);
  void RegisterAll(const Words& words);
  void CancelledOnline(const Words& words);
  void ExpectDevices(const DeviceInfoArray& devices, const Words& ids);
  void ExpectPacket(const Words& words);
  void ExpectSaved(bool wanted);
  void ExpectTimes(std::size_t wanted, const std::string& text);
  void ExpectLists(const Words& ids);
  void ExpectUnasked(const std::string& id);
  void ExpectBook(const Words& words);
  void DropRawSockets();
  void Vox(const Words& words, const std::string& cancelled_at = {});
  DeviceInfo Known(const std::string& id);
  std::string Value(const DeviceInfo& info, const std::string& key);
  std::string IpOf(const std::string& id);

  std::unique_ptr<test::Neighbourhood> street_;
  DeviceInfoDictionary found_;
  bool answered_ = false;
  std::string settings_before_;
  Clock::time_point begun_;  // of the last step of the host
  Clock::duration took_{};
  int status_ = -1;
};

}  // namespace vox
