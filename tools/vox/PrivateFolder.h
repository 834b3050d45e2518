// PrivateFolder is a folder of this process alone under TMPDIR or /tmp, mode 0700. It is removed
// with what lies in it when the object goes, and when a cancel ends the program.
//
// Thread rule: the main thread.
#pragma once

#include <string>

namespace vox::cli {

class CancelWatch;

class PrivateFolder {
 public:
  explicit PrivateFolder(CancelWatch& watch);  // throws Failure
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  const std::string& Path() const { return path_; }

 private:
  CancelWatch& watch_;
  std::string path_;
};

}  // namespace vox::cli
