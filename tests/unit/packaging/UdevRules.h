// UdevRules reads a file of udev rules and does to a device what they say: as much of udev(7) as
// rules need that match by kernel attributes and properties and jump ahead.
//
// What is no rule, an operator that its key does not take, and a GOTO without a LABEL behind it are
// problems; a file with problems does nothing.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace vox::test {

struct UdevDevice {
  std::string action = "add", subsystem = "usb";
  std::map<std::string, std::string> attributes;  // of sysfs
  std::map<std::string, std::string> properties;  // an empty value removes one
  std::string mode, group;
  std::set<std::string> tags;
};

class UdevRules {
 public:
  explicit UdevRules(const std::string& text);

  const std::vector<std::string>& Problems() const { return problems_; }
  void Apply(UdevDevice& device) const;

 private:
  struct Token {
    std::string key, name, op, value;  // KEY{name}op"value"
  };
  using Rule = std::vector<Token>;

  static bool ReadToken(std::string_view& rest, Token& token);
  void ReadRule(const std::string& line);
  void CheckJumps();
  static bool Matches(const Token& token, const UdevDevice& device);
  static void Assign(const Token& token, UdevDevice& device);
  std::size_t Labelled(const std::string& label, std::size_t behind) const;

  std::vector<Rule> rules_;
  std::vector<std::string> problems_;
};

}  // namespace vox::test
