// user-dirs.dirs, the file in which a desktop keeps where the user's documents, pictures and so on
// lie, in the form that xdg-user-dirs documents: lines NAME="$HOME/below" or NAME="/absolute", in
// which a backslash takes the special meaning off the next character.
//
// Thread rule: pure functions; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "vox/platform/Export.h"

namespace vox {

// UserDirectory reads one entry ("XDG_DOCUMENTS_DIR") of the file's text; of several the last one
// that is well-formed counts. home stands for $HOME, an absolute path.
// Returns: the absolute path, without a slash at its end unless it is the root; nothing when there
//          is no such entry.
VOX_EXPORT std::optional<std::string> UserDirectory(std::string_view text, std::string_view name,
                                                    std::string_view home);

// WithoutSlashes takes the slashes off the end of a path; the root stays "/".
VOX_EXPORT std::string WithoutSlashes(std::string path);

}  // namespace vox
