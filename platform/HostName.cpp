#include "vox/platform/HostName.h"

#include <array>
#include <climits>

#include <unistd.h>

namespace vox {
namespace {

class LinuxHostName final : public HostName {
 public:
  std::string Name() override {
    std::array<char, HOST_NAME_MAX + 1> name{};
    // A name that was cut may come without its NUL, so the last byte is kept from the call.
    ::gethostname(name.data(), name.size() - 1);
    return name.data();
  }
};

}  // namespace

template <>
Service<HostName>::Where& Service<HostName>::Place() {
  static LinuxHostName& own = *new LinuxHostName;  // never destroyed: threads may outlive main
  static Where where{own};
  return where;
}

}  // namespace vox
