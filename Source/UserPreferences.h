// UserPreferences is the one object through which settings are read and written. It keeps two
// stores apart:
//
//   of the user   the domain "com.veltronix.vox", com.veltronix.vox.plist in the user's
//                 configuration folder: "LastScannerDeviceId", "Settings.DEVICEID",
//                 "pushScanTargetPath", "pushScanTargetPathMountPoint", "ocrApplicationPath"
//   shared        one file for all users of the machine, pathToGlobalSettings(): "computerName",
//                 "showComputerName", "jpegCompressionFactor", and the keys of other subsystems
//                 ("Device.DEVICEID" and so on)
//
// Of the shared file nothing is cached and nothing is locked: every call reads it as it is now,
// every change writes it whole (other readers see the old file or the new one), and of two writers
// at once the last one wins. A file that is missing, damaged or not to be read counts as empty, so
// the next change replaces it where the folder allows that; its folder is not created here.
//
// Errors: the calls report nothing but nil. A program that tells a person asks lastOutcome()
// afterwards, and globalSettingsOutcome() before it changes the shared file.
// nil is an empty optional; storing nil removes the key. A stored value of the wrong type counts as
// absent.
// Thread rule: any thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vox/Singleton.h"
#include "vox/platform/Export.h"
#include "vox/platform/PreferencesStore.h"
#include "vox/platform/PropertyListFile.h"
#include "vox/platform/PropertyValue.h"

namespace vox {

// StoreOutcome tells how one access to a store went.
struct StoreOutcome {
  int error = 0;     // errno of a file that could not be read or written; 0 when all went well
  std::string path;  // the file
  // Of the shared file: what was found when it was read, before a change was written. A file that
  // was Unreadable or Damaged counted as empty, and so was replaced when error is 0.
  FileState found = FileState::Whole;
};

class VOX_EXPORT UserPreferences : public Singleton<UserPreferences> {
 public:
  // measurementUnits gives the units that the user measures in, "Centimeters" or "Inches", as they
  // were when this object was made.
  std::string measurementUnits() const;
  bool isMetricMeasurementUnits() const;

  // --- settings of the user; setters are synchronised with the file at once

  // The id of the scanner last used, as it was set or last synchronised.
  std::optional<std::string> lastScannerDeviceId() const;
  void setLastScannerDeviceId(const std::optional<std::string>& deviceId);

  // The clients' saved scan settings for a device. No id, or one that is no valid UTF-8 text (of
  // which no key can be formed): reading gives nil, saving does nothing.
  std::optional<PropertyValue> settingsForDevice(const std::optional<std::string>& deviceId);
  void saveSettingsForDevice(const std::optional<PropertyValue>& value,
                             const std::optional<std::string>& deviceId);

  // pushScanTargetFolder gives the folder that receives pushed scans: the chosen one if it is
  // there, else the user's documents folder. When the chosen folder's volume is there and only the
  // folder itself is missing, it is created and the result is nil: not available this time, ask
  // again. unavailable, if not null, receives the chosen folder when the documents folder stands in
  // for it, else nil.
  // Returns: the path; nil also when the user has no documents folder.
  std::optional<std::string> pushScanTargetFolder(
      std::optional<std::string>* unavailable = nullptr);
  // The folder's full path, kept with the source of the volume that holds it now.
  void setPushScanTargetFolder(const std::optional<std::string>& path);

  // The application, as a full path, that pushed scans are handed to for text recognition.
  std::optional<std::string> pushScanOCRApplication();
  void setPushScanOCRApplication(const std::optional<std::string>& path);

  // --- settings of the machine

  // The name under which devices list this computer; without a stored one the host's name, its
  // first 15 characters (not bytes) when it is longer.
  std::string computerName();
  std::string defaultComputerName() const;  // what that is without a stored one
  void setComputerName(const std::optional<std::string>& name);

  // Whether devices show the name; YES when nothing is stored.
  bool showComputerNameOnDevice();
  void setShowComputerNameOnDevice(bool show);

  // The quality of JPEG images, 0.0 to 1.0, into which a stored number is clamped; 0.8 when nothing
  // or not-a-number is stored.
  double jpegCompressionFactor();
  void setJpegCompressionFactor(double factor);

  // --- the shared file

  // The file's path, whether it or its folder is there or not.
  std::string pathToGlobalSettings() const;
  std::optional<PropertyValue> valueForSharedKey(const std::string& key);
  // Keys in byte order.
  std::vector<std::string> allSharedKeys();
  // All keys with their values, as they were at one moment.
  Dictionary allSharedValues();
  void setValueForSharedKey(const std::optional<PropertyValue>& value, const std::string& key);
  // Sets several keys with one replacement of the file: others see all of them set or none. Nothing
  // to set: nothing is read or written.
  void setValuesForSharedKeys(const Dictionary& values);
  // Writes the file also when the key was not there.
  void removeSharedKey(const std::string& key);

  // --- for programs that tell a person what happened

  // lastOutcome tells how the last call of this thread that touched a store went.
  StoreOutcome lastOutcome() const;
  // noteNoMemory makes lastOutcome tell ENOMEM of this thread, for a call that lacked the memory to
  // read or write.
  static void noteNoMemory();
  // globalSettingsOutcome looks at the shared file and changes nothing: it tells what a change
  // would replace now. A missing file is no error.
  StoreOutcome globalSettingsOutcome() const;
  // keepDamagedGlobalSettings sets the content of a damaged shared file aside under a second name,
  // so that a change may replace the file; see KeepDamagedFile for the result.
  KeptFile keepDamagedGlobalSettings();

 private:
  friend class Singleton<UserPreferences>;
  UserPreferences();
  ~UserPreferences() = default;

  std::optional<std::string> user_string(const char* key) const;
  void set_user(const std::string& key, const std::optional<PropertyValue>& value);
  void synchronize_user();

  const std::string units;  // set once
  Dictionary devices;       // kept with the object for records of devices; nothing is put there
  PreferencesStore user;
};

template <>
VOX_EXPORT Singleton<UserPreferences>::Slot& Singleton<UserPreferences>::slot();

}  // namespace vox
