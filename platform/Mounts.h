// The file systems that are mounted now.
//
// Thread rule: any thread.
#pragma once

#include <string>
#include <vector>

#include "vox/platform/Export.h"
#include "vox/platform/Service.h"

namespace vox {

struct Mount {
  std::string source;  // what is mounted: mostly a device node, else a plain word such as "tmpfs"
  std::string point;   // absolute path of the folder where it appears

  bool operator==(const Mount&) const = default;
};

// ReadMounts reads a table in the form of /proc/self/mounts (mounts(5), fstab(5)). Blanks and other
// characters that the table writes as backslash and three octal digits are decoded.
// Returns: the mounts in the order of the table; none when it cannot be read.
VOX_EXPORT std::vector<Mount> ReadMounts(const std::string& table);

class VOX_EXPORT MountTable : public Service<MountTable> {
 public:
  // Mounts lists what this process sees mounted, the root volume included.
  virtual std::vector<Mount> Mounts() = 0;

 protected:
  ~MountTable() = default;
};

template <>
VOX_EXPORT Service<MountTable>::Where& Service<MountTable>::Place();

}  // namespace vox
