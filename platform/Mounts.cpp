#include "vox/platform/Mounts.h"

#include <cstdio>
#include <memory>

#include <mntent.h>

namespace vox {
namespace {

// Room for two paths of 4,096 bytes, each byte written as four characters, and some options: the
// rest of a longer line is left out.
constexpr std::size_t kLongestMount = 36u << 10;

struct EndOfTable {
  void operator()(FILE* table) const { ::endmntent(table); }
};

// The kernel escapes the sign that begins a comment too, which the C library does not undo.
std::string Decoded(const char* field) {
  static const std::string escape = "\\043";
  std::string text = field;
  for (std::size_t at = 0; (at = text.find(escape, at)) != std::string::npos; ++at) {
    text[at] = '#';
    text.erase(at + 1, escape.size() - 1);
  }
  return text;
}

class LinuxMountTable final : public MountTable {
 public:
  std::vector<Mount> Mounts() override { return ReadMounts("/proc/self/mounts"); }
};

}  // namespace

std::vector<Mount> ReadMounts(const std::string& table) {
  std::vector<Mount> mounts;
  const std::unique_ptr<FILE, EndOfTable> lines(::setmntent(table.c_str(), "re"));
  if (!lines) return mounts;
  std::vector<char> line(kLongestMount);
  mntent entry{};
  while (::getmntent_r(lines.get(), &entry, line.data(), static_cast<int>(line.size())) !=
         nullptr) {
    mounts.push_back({Decoded(entry.mnt_fsname), Decoded(entry.mnt_dir)});
  }
  return mounts;
}

template <>
Service<MountTable>::Where& Service<MountTable>::Place() {
  static LinuxMountTable& own = *new LinuxMountTable;  // never destroyed: threads may outlive main
  static Where where{own};
  return where;
}

}  // namespace vox
