#include "tools/vox/PrivateFolder.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "tools/vox/CancelWatch.h"
#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

void RemoveAll(const std::string& path) {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

std::string MakeFolder() {
  const char* wanted = std::getenv("TMPDIR");
  const std::string parent = wanted != nullptr && *wanted != '\0' ? wanted : "/tmp";
  std::string path = parent + "/vox-virtual-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr)
    throw FileFailure("create a temporary folder in", parent, errno);
  return path;
}

}  // namespace

PrivateFolder::PrivateFolder(CancelWatch& watch) : watch_(watch) {
  watch_.Undoable([this]() -> CancelWatch::Action {
    path_ = MakeFolder();
    return [path = path_] { RemoveAll(path); };
  });
}

PrivateFolder::~PrivateFolder() {
  watch_.Forget();
  RemoveAll(path_);
}

}  // namespace vox::cli
