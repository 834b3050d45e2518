// DevicesManager is the process-wide registry of the scanners that the user has added. It keeps one
// dictionary per device (DeviceDictionary.h) under its "deviceId", and each of them whole in the
// shared settings under the key "Device.DEVICEID".
//
//   search ──found──> appendDevices ──new, or a changed "ip" or "name"──> the shared settings
//   the shared settings ──synchronizeDevices──> knownDevices
//
// A device that was added once is never removed by a search; only removeDevice removes it.
// SearchOnline.h has the searching as free functions and what is asked of the network for it.
//
// Owner: the dictionaries are the registry's own, shared: infoForDevice and knownDevices hand them
//        out, so who changes one changes the registry's, and saves it with saveDeviceInfo.
// Stored records are not trusted: one that is no dictionary, or has no text as "deviceId", is left
// out when the registry loads.
// Errors: nothing is reported but nil, null or NO. A program that wants to know whether a record
//         was written asks UserPreferences::lastOutcome.
// Memory: only instance() throws std::bad_alloc. Where memory runs out in another call it gives
//         nil, null, NO or nothing, and the registry is as before or as it should be then; what
//         was to be written may not be, of which lastOutcome says ENOMEM.
// Thread rule: instance() from any thread; all else from one thread at a time. A search that runs
// on another thread hands its result to appendDevices on the client's.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vox/CancelDelegate.h"
#include "vox/DeviceDictionary.h"
#include "vox/Singleton.h"
#include "vox/drivers/TwainImageIF.h"
#include "vox/platform/Export.h"

namespace vox {

class VOX_EXPORT DevicesManager : public Singleton<DevicesManager> {
 public:
  // synchronizeDevices forgets everything and loads the records of the shared settings. A network
  // device without "isNetworkPushEnabled" gets true, and every device its "location"; nothing is
  // written back.
  void synchronizeDevices();

  // appendDevices merges what a search found, each as appendOneDeviceInfo does; what changed is
  // saved in one piece. The dictionary's own keys do not matter.
  void appendDevices(const DeviceInfoDictionary& devices);
  // appendOneDeviceInfo merges one found device: a new one is kept (a copy), a known network device
  // takes over the found "ip" and "name", a known USB device stays as it is. What changed is saved.
  // Null, or no "deviceId": nothing happens.
  void appendOneDeviceInfo(const DeviceInfo& found);

  // saveDeviceInfo stores a known device's dictionary; nothing happens for nil or an unknown id.
  void saveDeviceInfo(const std::optional<std::string>& deviceId);
  // saveDevices does that for several, in one piece: others see all of them stored or none.
  void saveDevices(const std::vector<std::string>& ids);
  // saveAllDevices does that for every known device, in one piece.
  void saveAllDevices();
  // removeDevice forgets a device, here and in the shared settings; an unknown id is no error.
  void removeDevice(const std::string& deviceId);

  // knownDevices gives all dictionaries in a new array, in no promised order.
  DeviceInfoArray knownDevices() const;
  // infoForDevice gives the dictionary itself; null for an unknown id.
  DeviceInfo infoForDevice(const std::string& deviceId) const;
  // devicesListFromDevicesIdList gives the dictionary of each id, in the same order.
  // Returns: nothing at all when one of them is not known: a list with a gap would lie.
  std::optional<DeviceInfoArray> devicesListFromDevicesIdList(
      const std::vector<std::string>& ids) const;
  // devicesIdListFromDevicesList gives each "deviceId", in the same order; empty where there is
  // none.
  std::vector<std::string> devicesIdListFromDevicesList(const DeviceInfoArray& devices) const;

  // deviceLocation says where a known device is, for a person: "NAME (IP)" or "USB"; nil for an
  // unknown id and for other types.
  std::optional<std::string> deviceLocation(const std::string& deviceId) const;
  static std::optional<std::string> deviceLocationWithDeviceInfo(const Dictionary& info);

  // createInterfaceForDevice makes the scan interface of a known device: CTwImgIFNW for a network
  // device, CTwImgIFUsb for one at USB. Returns: null for an unknown id, for other types, and when
  // the record lacks what the interface is made with.
  // Owner: the caller, who must end a scan before the interface goes.
  std::unique_ptr<CTwainImageIF> createInterfaceForDevice(const std::string& deviceId) const;

  // isDeviceOnline asks whether a known device answers now, without opening it; a network device
  // must also bear the name that the registry has, one at USB be attached with its serial number.
  // No for nil. Waits up to 9 s.
  bool isDeviceOnline(const std::optional<std::string>& deviceId) const;

  // The searches end with appendDevices. The delegate may be null.
  void searchAllDevices(CancelDelegate* delegate);
  void searchUsbDevices(CancelDelegate* delegate);
  bool searchNetworkDevices(CancelDelegate* delegate);  // YES
  bool searchDevices(CancelDelegate* delegate);         // searchAllDevices, then YES

  // filterOnlineDevicesCancelDelegate gives those of the devices that can be reached now: first the
  // devices of other types than "network" that are on line, then the network devices that answer an
  // echo request and are on line, both in the list's order. Where echo requests are not permitted
  // no network device answers one; network_ping_access (searchping.h) tells.
  // delegate: asked before each device and every 0.1 s while answers are awaited; once it is
  //           cancelled the result is what was found so far.
  // Returns: nothing when there is no memory for the test.
  DeviceInfoArray filterOnlineDevicesCancelDelegate(const DeviceInfoArray& devices,
                                                    CancelDelegate* delegate) const;

 private:
  friend class Singleton<DevicesManager>;
  DevicesManager();
  ~DevicesManager() = default;

  void initDevices();
  bool stage(const DeviceInfo& found, DeviceInfoDictionary* staged) const;
  void commit(DeviceInfoDictionary* staged);

  DeviceInfoDictionary m_knownDevices;  // by "deviceId"; no null
};

template <>
VOX_EXPORT Singleton<DevicesManager>::Slot& Singleton<DevicesManager>::slot();

}  // namespace vox
