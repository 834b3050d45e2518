// Any bytes as the shared settings file. Property: the settings read from it lie in their ranges;
// every key that is listed has a value; and a change leaves a whole file with all that could be
// read of the one before.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "vox/UserPreferences.h"

namespace {

namespace fs = std::filesystem;

void Expect(bool holds) {
  if (!holds) std::abort();
}

// A machine of the process's own, which vanishes with it.
class Machine {
 public:
  Machine() {
    std::string name = (fs::temp_directory_path() / "vox-fuzz-XXXXXX").string();
    Expect(::mkdtemp(name.data()) != nullptr);
    root_ = name;
    ::setenv("VOX_ROOT", root_.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", root_.c_str(), 1);
    fs::create_directories(root_ / "var/lib/Veltronix Vox");
  }
  ~Machine() { fs::remove_all(root_); }

 private:
  fs::path root_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Machine machine;
  vox::UserPreferences& prefs = vox::UserPreferences::instance();
  std::ofstream(prefs.pathToGlobalSettings(), std::ios::binary)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
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
