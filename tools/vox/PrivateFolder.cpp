#include "tools/vox/PrivateFolder.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <unistd.h>

#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

void Remove(const std::string& path) {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

std::string MakeFolder(const std::vector<std::string>& subfolders) {
  std::string path = TemporaryFolder() + "/vox-virtual-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) throw SpoolFailure("create a folder in", errno);
  for (const std::string& subfolder : subfolders) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path) / subfolder, error);
    if (!error) continue;
    Remove(path);
    throw SpoolFailure("create a folder in", error.value());
  }
  return path;
}

}  // namespace

PrivateFolder::PrivateFolder(const std::vector<std::string>& subfolders)
    : path_(MakeFolder(subfolders)) {}

PrivateFolder::~PrivateFolder() {
  Remove(path_);
}

// The process becomes the system's shell: with that the kernel has ended all other threads.
void PrivateFolder::RemoveAndExit(const std::string& path, int status) {
  const std::string script = "rm -rf -- \"$1\"; exit " + std::to_string(status);
  ::execl("/bin/sh", "sh", "-c", script.c_str(), "sh", path.c_str(), nullptr);
  Remove(path);
  ::_exit(status);
}

}  // namespace vox::cli
