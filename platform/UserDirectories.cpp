#include "vox/platform/UserDirectories.h"

namespace vox {
namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view SkipBlanks(std::string_view text) {
  const std::size_t start = text.find_first_not_of(kBlanks);
  return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

// Takes `token` off the front, with blanks before it; false leaves the text as it is.
bool Take(std::string_view& text, std::string_view token) {
  const std::string_view rest = SkipBlanks(text);
  if (!rest.starts_with(token)) return false;
  text = rest.substr(token.size());
  return true;
}

// What stands before the closing quotation mark; nothing if there is none.
std::optional<std::string> Unquoted(std::string_view text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '"') return plain;
    if (text[at] == '\\' && ++at == text.size()) break;
    plain += text[at];
  }
  return std::nullopt;
}

// The path of one line, if it is an entry of that name.
std::optional<std::string> PathOfLine(std::string_view line, std::string_view name,
                                      std::string_view home) {
  if (!Take(line, name) || !Take(line, "=") || !Take(line, "\"")) return std::nullopt;
  const bool in_home = Take(line, "$HOME");
  if (!line.starts_with('/') && !(in_home && line.starts_with('"'))) return std::nullopt;
  const std::optional<std::string> path = Unquoted(line);
  if (!path || path->find('\0') != std::string::npos) return std::nullopt;
  return WithoutSlashes(in_home && home != "/" ? std::string(home) + *path : *path);
}

}  // namespace

std::optional<std::string> UserDirectory(std::string_view text, std::string_view name,
                                         std::string_view home) {
  std::optional<std::string> found;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    if (auto path = PathOfLine(line, name, home)) found = std::move(path);
    text.remove_prefix(line.size());
    if (!text.empty()) text.remove_prefix(1);
  }
  return found;
}

std::string WithoutSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace vox
