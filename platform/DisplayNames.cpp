#include "vox/platform/DisplayNames.h"

#include <sys/stat.h>

#include "vox/platform/PropertyList.h"
#include "vox/platform/UserDirectories.h"

namespace vox {
namespace {

class LinuxDisplayNames final : public DisplayNames {
 public:
  std::optional<std::string> NameOf(const std::string& path) override {
    struct stat status {};
    if (path.find('\0') != std::string::npos || ::lstat(path.c_str(), &status) != 0) {
      return std::nullopt;
    }
    const std::string plain = WithoutSlashes(path);
    const std::size_t slash = plain.rfind('/');
    if (plain == "/" || slash == std::string::npos) return FitForXml(plain);
    return FitForXml(plain.substr(slash + 1));
  }
};

}  // namespace

template <>
Service<DisplayNames>::Where& Service<DisplayNames>::Place() {
  static LinuxDisplayNames& own = *new LinuxDisplayNames;  // never destroyed
  static Where where{own};
  return where;
}

}  // namespace vox
