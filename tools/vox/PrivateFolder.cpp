#include "tools/vox/PrivateFolder.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

std::string MakeFolder(const std::vector<std::string>& subfolders) {
  std::string path = TemporaryFolder() + "/vox-virtual-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) throw SpoolFailure("create a folder in", errno);
  for (const std::string& subfolder : subfolders) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path) / subfolder, error);
    if (!error) continue;
    PrivateFolder::Remove(path);
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

void PrivateFolder::Remove(const std::string& path) {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

}  // namespace vox::cli
