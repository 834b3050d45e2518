#include "vox/platform/HelpViewer.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include <unistd.h>

#include "vox/platform/Folders.h"

namespace vox {
namespace {

namespace fs = std::filesystem;

// A link that leads to a folder of the same leaf was made by an earlier registration of the book.
bool IsEarlierRegistration(const fs::path& link, const fs::path& bundle) {
  std::error_code error;
  const fs::path target = fs::read_symlink(link, error);
  return !error && target.filename() == bundle.filename();
}

int Link(const fs::path& bundle, const fs::path& link) {
  if (::symlink(bundle.c_str(), link.c_str()) == 0) return 0;
  if (errno != EEXIST) return errno;
  if (!IsEarlierRegistration(link, bundle)) return EEXIST;
  std::error_code error;
  if (fs::read_symlink(link, error) == bundle) return 0;
  // The new link takes the place of the old one in one step, so that the book is never missing.
  const fs::path aside = link.string() + ".new-" + std::to_string(::getpid());
  ::unlink(aside.c_str());
  if (::symlink(bundle.c_str(), aside.c_str()) != 0) return errno;
  if (::rename(aside.c_str(), link.c_str()) == 0) return 0;
  const int failed = errno;
  ::unlink(aside.c_str());
  return failed;
}

class LinuxHelpViewer final : public HelpViewer {
 public:
  int RegisterBook(const std::string& bundle) override {
    const std::string data = UserDataFolder();
    if (data.empty()) return ENOENT;
    const fs::path books = fs::path(data) / "help" / "C";
    std::error_code error;
    fs::create_directories(books, error);
    if (error) return error.value();
    return Link(bundle, books / fs::path(bundle).stem());
  }
};

}  // namespace

template <>
Service<HelpViewer>::Where& Service<HelpViewer>::Place() {
  static LinuxHelpViewer& own = *new LinuxHelpViewer;  // never destroyed: threads may outlive main
  static Where where{own};
  return where;
}

}  // namespace vox
