// The part of the command line that is about devices and settings: declared to the parser, and
// turned into a command when one of its verbs was used. Options.h has the whole.
//
// Thread rule: values.
#pragma once

#include <string>

#include "tools/vox/Options.h"

namespace CLI {
class App;
}

namespace vox::cli {

inline constexpr char kDeviceHelp[] = "net:ADDRESS, or a remembered device";

class VerbParser {
 public:
  // The verbs are declared to `app`, which must not outlive the object.
  explicit VerbParser(CLI::App& app);
  VerbParser(const VerbParser&) = delete;
  VerbParser& operator=(const VerbParser&) = delete;

  // Finish gives the command of the verb that was used. Throws UsageFailure.
  Command Finish(const VirtualOptions& with);

 private:
  void DeclareSearch(CLI::App& app);
  void DeclareBook(CLI::App& app);
  void DeclareRegister(CLI::App& app);
  void DeclareSettings(CLI::App& app);
  RegisterOptions FinishRegister() const;
  SettingsOptions FinishSettings() const;

  CLI::App& app_;
  DiscoverOptions discover_;
  ListOptions list_;
  AddOptions add_;
  RemoveOptions remove_;
  RegisterOptions register_;
  SettingsOptions settings_;
  bool reset_ = false;  // settings set KEY --default
};

// CheckDeviceName refuses a DEVICE beside --virtual, which brings its own. Throws UsageFailure.
void CheckDeviceName(const std::string& name, const VirtualOptions& with);

}  // namespace vox::cli
