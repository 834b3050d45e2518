#include "tools/vox/VerbParser.h"

#include <CLI/CLI.hpp>

#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

constexpr char kJsonHelp[] = "As JSON, one object a line";

}  // namespace

VerbParser::VerbParser(CLI::App& app) : app_(app) {
  DeclareSearch(app);
  DeclareBook(app);
  DeclareRegister(app);
  DeclareSettings(app);
}

void VerbParser::DeclareSearch(CLI::App& app) {
  CLI::App* discover =
      app.add_subcommand("discover", "Find devices at USB and on the network, remember them");
  discover->add_flag("--json", discover_.json, kJsonHelp);
  CLI::App* list = app.add_subcommand("list", "List the remembered devices");
  list->add_flag("--online", list_.online, "Ask each whether it answers now");
  list->add_flag("--json", list_.json, kJsonHelp);
}

void VerbParser::DeclareBook(CLI::App& app) {
  CLI::App* add = app.add_subcommand("add", "Remember the device at an address");
  add->add_option("ADDRESS", add_.device.name, "A dotted address, a host name, or usb:SERIAL")
      ->type_name("");
  add->add_flag("--json", add_.json, kJsonHelp);
  CLI::App* remove = app.add_subcommand("remove", "Forget a device");
  remove->add_option("DEVICE", remove_.device.name, kDeviceHelp)->type_name("");
  remove->add_flag("--json", remove_.json, kJsonHelp);
}

void VerbParser::DeclareRegister(CLI::App& app) {
  const auto declare = [&](const char* name, const char* help) {
    CLI::App* verb = app.add_subcommand(name, help);
    verb->add_option("DEVICE", register_.names, std::string(kDeviceHelp) + "; may be given again")
        ->type_name("");
    verb->add_flag("--all", register_.all, "Every remembered device");
    verb->add_flag("--json", register_.json, kJsonHelp);
  };
  declare("register", "Have devices list this computer for scans started at their panel");
  declare("unregister", "Have devices strike this computer from their list");
}

void VerbParser::DeclareSettings(CLI::App& app) {
  CLI::App* settings = app.add_subcommand("settings", "Show and change settings");
  settings->require_subcommand(1);
  CLI::App* get = settings->add_subcommand("get", "Print the value of a setting");
  get->add_option("KEY", settings_.key, "See vox settings list")->required()->type_name("");
  CLI::App* set = settings->add_subcommand("set", "Change a setting");
  set->add_option("KEY", settings_.key, "See vox settings list")->required()->type_name("");
  set->add_option("VALUE", settings_.value, "What it shall be")->type_name("");
  set->add_flag("--default", reset_, "Instead of a VALUE: as if it had never been set");
  CLI::App* list = settings->add_subcommand("list", "All settings: value, default, meaning");
  for (CLI::App* action : {get, set, list}) action->add_flag("--json", settings_.json, kJsonHelp);
}

RegisterOptions VerbParser::FinishRegister() const {
  RegisterOptions options = register_;
  options.wanted = app_.got_subcommand("register");
  if (!options.names.empty()) CheckDeviceName(options.names.front(), options.with);
  if (options.all && !options.names.empty())
    throw UsageFailure("--all means every remembered device: leave the names out");
  options.all = options.all || options.with.on;
  if (!options.all && options.names.empty())
    throw UsageFailure("which devices? Name them, or give --all; vox list shows them");
  return options;
}

SettingsOptions VerbParser::FinishSettings() const {
  SettingsOptions options = settings_;
  const CLI::App& used = *app_.get_subcommand("settings");
  using Action = SettingsOptions::Action;
  options.action = used.got_subcommand("get")   ? Action::kGet
                   : used.got_subcommand("set") ? Action::kSet
                                                : Action::kList;
  if (options.action != Action::kSet) return options;
  if (reset_ && !options.value.empty())
    throw UsageFailure("a value and --default exclude each other: give one of the two");
  if (!reset_ && options.value.empty())
    throw UsageFailure("what shall " + options.key + " be? Give a value, or --default");
  if (reset_) options.action = Action::kReset;
  return options;
}

Command VerbParser::Finish(const VirtualOptions& with) {
  discover_.with = list_.with = add_.device.with = remove_.device.with = with;
  register_.with = settings_.with = with;
  if (app_.got_subcommand("discover")) return discover_;
  if (app_.got_subcommand("list")) return list_;
  if (app_.got_subcommand("add")) {
    CheckDeviceName(add_.device.name, with);
    if (add_.device.name.empty() && !with.on)
      throw UsageFailure(
          "which device? Give its address, as in: vox add 192.168.0.5, or usb:SERIAL");
    return add_;
  }
  if (app_.got_subcommand("settings")) return FinishSettings();
  if (!app_.got_subcommand("remove")) return FinishRegister();
  CheckDeviceName(remove_.device.name, with);
  if (remove_.device.name.empty() && !with.on)
    throw UsageFailure("which device shall be forgotten? vox list shows them");
  return remove_;
}

void CheckDeviceName(const std::string& name, const VirtualOptions& with) {
  if (with.on && !name.empty())
    throw UsageFailure("--virtual brings its own device: leave " + name + " out");
}

}  // namespace vox::cli
