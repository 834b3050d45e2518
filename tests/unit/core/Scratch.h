// Scratch is a folder that vanishes with its test; Variable sets or unsets an environment variable
// and puts the former value back.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

namespace vox {

class Scratch {
 public:
  Scratch() {
    std::string name = (std::filesystem::temp_directory_path() / "vox-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch folder " + name);
    folder_ = name;
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  std::string Path(const std::string& leaf) const { return folder_ + "/" + leaf; }

 private:
  std::string folder_;
};

class Variable {
 public:
  explicit Variable(const char* name, std::optional<std::string> value = std::nullopt)
      : name_(name) {
    if (const char* before = std::getenv(name)) before_ = before;
    Set(value);
  }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;
  ~Variable() { Set(before_); }

 private:
  void Set(const std::optional<std::string>& value) {
    if (value) {
      ::setenv(name_, value->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }
  const char* name_;
  std::optional<std::string> before_;
};

}  // namespace vox
