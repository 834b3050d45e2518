#include "tests/unit/packaging/UdevRules.h"

#include <algorithm>
#include <sstream>

namespace vox::test {
namespace {

// The keys that are known here, with the operators that they take.
const std::map<std::string, std::string> kOperators = {
    {"ACTION", "== !="}, {"SUBSYSTEM", "== !="}, {"ATTR", "== !="},
    {"ENV", "== != ="},  {"GOTO", "="},          {"LABEL", "="},
    {"MODE", "="},       {"GROUP", "="},         {"TAG", "+="}};

bool IsMatch(const std::string& op) {
  return op == "==" || op == "!=";
}

std::string Value(const std::map<std::string, std::string>& values, const std::string& name) {
  const auto found = values.find(name);
  return found != values.end() ? found->second : "";
}

}  // namespace

UdevRules::UdevRules(const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line[0] != '#') ReadRule(line);
  }
  CheckJumps();
}

bool UdevRules::ReadToken(std::string_view& rest, Token& token) {
  const auto take = [&](auto is_part) {
    const auto end = std::find_if_not(rest.begin(), rest.end(), is_part);
    std::string part(rest.begin(), end);
    rest.remove_prefix(part.size());
    return part;
  };
  token.key = take([](char c) { return c >= 'A' && c <= 'Z'; });
  if (!rest.empty() && rest[0] == '{') {
    rest.remove_prefix(1);
    token.name = take([](char c) { return c != '}'; });
    if (rest.empty()) return false;
    rest.remove_prefix(1);
  }
  token.op = take([](char c) { return c == '=' || c == '!' || c == '+'; });
  if (rest.empty() || rest[0] != '"') return false;
  rest.remove_prefix(1);
  token.value = take([](char c) { return c != '"'; });
  if (rest.empty()) return false;
  rest.remove_prefix(1);
  const bool named = token.key == "ATTR" || token.key == "ENV";
  const auto known = kOperators.find(token.key);
  return known != kOperators.end() && named != token.name.empty() &&
         (" " + known->second + " ").find(" " + token.op + " ") != std::string::npos;
}

void UdevRules::ReadRule(const std::string& line) {
  std::string_view rest = line;
  Rule rule;
  while (!rest.empty()) {
    Token token;
    if (!ReadToken(rest, token)) return problems_.push_back(line);
    rule.push_back(token);
    if (rest.empty()) break;
    if (rest.substr(0, 2) != ", " || rest.size() == 2) return problems_.push_back(line);
    rest.remove_prefix(2);
  }
  rules_.push_back(rule);
}

std::size_t UdevRules::Labelled(const std::string& label, std::size_t behind) const {
  for (std::size_t i = behind; i < rules_.size(); ++i) {
    for (const Token& token : rules_[i]) {
      if (token.key == "LABEL" && token.value == label) return i;
    }
  }
  return rules_.size();
}

void UdevRules::CheckJumps() {
  for (std::size_t i = 0; i < rules_.size(); ++i) {
    for (const Token& token : rules_[i]) {
      if (token.key == "GOTO" && Labelled(token.value, i + 1) == rules_.size())
        problems_.push_back("GOTO " + token.value);
    }
  }
}

bool UdevRules::Matches(const Token& token, const UdevDevice& device) {
  const std::string is = token.key == "ACTION"      ? device.action
                         : token.key == "SUBSYSTEM" ? device.subsystem
                         : token.key == "ATTR"      ? Value(device.attributes, token.name)
                                                    : Value(device.properties, token.name);
  std::istringstream choices(token.value);
  bool equal = false;
  for (std::string choice; std::getline(choices, choice, '|');) equal = equal || choice == is;
  return equal == (token.op == "==");
}

void UdevRules::Assign(const Token& token, UdevDevice& device) {
  if (token.key == "MODE") device.mode = token.value;
  if (token.key == "GROUP") device.group = token.value;
  if (token.key == "TAG") device.tags.insert(token.value);
  if (token.key == "ENV") device.properties[token.name] = token.value;
  if (token.key == "ENV" && token.value.empty()) device.properties.erase(token.name);
}

void UdevRules::Apply(UdevDevice& device) const {
  if (!problems_.empty()) return;
  for (std::size_t i = 0; i < rules_.size(); ++i) {
    const Rule& rule = rules_[i];
    if (!std::all_of(rule.begin(), rule.end(), [&](const Token& token) {
          return !IsMatch(token.op) || Matches(token, device);
        }))
      continue;
    for (const Token& token : rule) {
      if (IsMatch(token.op)) continue;
      Assign(token, device);
      if (token.key == "GOTO") i = Labelled(token.value, i + 1) - 1;
    }
  }
}

}  // namespace vox::test
