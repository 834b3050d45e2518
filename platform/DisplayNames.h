// The names under which the file browser shows files.
//
// Thread rule: any thread.
#pragma once

#include <optional>
#include <string>

#include "vox/platform/Export.h"
#include "vox/platform/Service.h"

namespace vox {

class VOX_EXPORT DisplayNames : public Service<DisplayNames> {
 public:
  // NameOf gives the display name of the file or folder at the path: its leaf as valid UTF-8, with
  // U+FFFD for what is none; "/" for the root. A slash at the end does not count. A link is shown
  // by its own name, wherever it leads.
  // Returns: the name; nothing when there is no such file.
  virtual std::optional<std::string> NameOf(const std::string& path) = 0;

 protected:
  ~DisplayNames() = default;
};

template <>
VOX_EXPORT Service<DisplayNames>::Where& Service<DisplayNames>::Place();

}  // namespace vox
