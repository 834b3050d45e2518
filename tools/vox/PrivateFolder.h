// PrivateFolder is a folder of this process alone under TMPDIR or /var/tmp, mode 0700. It is
// removed with what lies in it when the object goes, or by RemoveAndExit when a cancel ends the
// program.
//
// Thread rule: the main thread; RemoveAndExit any thread.
#pragma once

#include <string>
#include <vector>

namespace vox::cli {

class PrivateFolder {
 public:
  // `subfolders` ("var/tmp") are made in it. Throws Failure.
  explicit PrivateFolder(const std::vector<std::string>& subfolders);
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  // RemoveAndExit ends the program with the status and removes the folder at `path`, while other
  // threads may still be at work in it, and make anew what is gone.
  [[noreturn]] static void RemoveAndExit(const std::string& path, int status);

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace vox::cli
