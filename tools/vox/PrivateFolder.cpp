#include "tools/vox/PrivateFolder.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "tools/vox/CancelWatch.h"
#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

std::string MakeFolder(const std::string& subfolders) {
  const char* wanted = std::getenv("TMPDIR");
  const std::string parent = wanted != nullptr && *wanted != '\0' ? wanted : "/var/tmp";
  std::string path = parent + "/vox-virtual-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr)
    throw FileFailure("create a temporary folder in", parent, errno);
  std::error_code error;
  std::filesystem::create_directories(path + "/" + subfolders, error);
  if (error) throw FileFailure("create a temporary folder in", path, error.value());
  return path;
}

}  // namespace

PrivateFolder::PrivateFolder(const std::string& subfolders, CancelWatch& watch) {
  watch.StayToTheEnd();
  path_ = MakeFolder(subfolders);
}

PrivateFolder::~PrivateFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace vox::cli
