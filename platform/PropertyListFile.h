// Dictionaries in property-list files.
//
//   const DictionaryFile settings = ReadDictionaryFile(path);   // then settings.content
//   if (int error = WriteDictionaryFile(path, changed)) ...
//
// A damaged file is worth keeping: before a program writes over one, it sets it aside with
// KeepDamagedFile, which also tells whether this was done before, so that it is reported once.
//
// Thread rule: any thread and any process at once; see FileReplacement.h.
#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

#include "vox/platform/Export.h"
#include "vox/platform/PropertyValue.h"

namespace vox {

enum class FileState {
  Whole,       // read
  Missing,     // no file, or no folder for it
  Unreadable,  // a file may be there: no permission, an input error, no regular file
  Damaged,     // read, but no property list with a dictionary at the top, or past a limit
};

struct DictionaryFile {
  FileState state = FileState::Missing;
  int error = 0;       // the errno of Missing and Unreadable
  Dictionary content;  // empty unless Whole
};

VOX_EXPORT DictionaryFile ReadDictionaryFile(const std::string& path);

// WriteDictionaryFile replaces the file with content as an XML property list (see ReplaceFile).
// Returns: 0, EFBIG when content passes the limits of a property list, or ReplaceFile's errno.
VOX_EXPORT int WriteDictionaryFile(const std::string& path, const Dictionary& content,
                                   mode_t new_mode = 0644);

struct KeptFile {
  int error = 0;      // 0; ENOENT when the file is gone or damaged no more, or the errno
  std::string path;   // where the damaged content is now kept, too
  bool first = true;  // false when the same content was kept already: it has been reported then
};

// KeepDamagedFile gives the damaged file at `path` a second name beside it, path.damaged (with a
// number when other content has that name), which lives on when the file itself is replaced. Where
// a second name cannot be given it makes a copy, readable by its owner alone. The file itself is
// left where it is.
VOX_EXPORT KeptFile KeepDamagedFile(const std::string& path);

}  // namespace vox
