// Any bytes as the shared settings file. Property: the settings read from it lie in their ranges;
// every key that is listed has a value; and a change leaves a whole file with all that could be
// read of the one before.
#include <cerrno>
#include <cstdint>
#include <string>

#include "fuzz/SettingsMachine.h"
#include "vox/UserPreferences.h"

using vox::fuzz::Expect;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const vox::fuzz::SettingsMachine machine;
  vox::UserPreferences& prefs = vox::UserPreferences::instance();
  machine.Put(data, size);
  const double factor = prefs.jpegCompressionFactor();
  Expect(factor >= 0 && factor <= 1);
  prefs.computerName();
  prefs.showComputerNameOnDevice();
  vox::Dictionary before = vox::ReadDictionaryFile(prefs.pathToGlobalSettings()).content;
  for (const std::string& key : prefs.allSharedKeys()) {
    Expect(prefs.valueForSharedKey(key) == before.Value(key));
  }
  prefs.setComputerName("me");
  if (prefs.lastOutcome().error == EFBIG) return 0;  // full already
  before.Set("computerName", "me");
  const vox::DictionaryFile after = vox::ReadDictionaryFile(prefs.pathToGlobalSettings());
  Expect(after.state == vox::FileState::Whole && after.content == before);
  return 0;
}
