// Whole-file reading and replacement. A replaced file is at every moment, also after a kill or a
// power cut, either the old or the new one, whole; other readers never see a part.
//
// Thread rule: any thread and any process at once; the last replacement wins.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>
#include <sys/types.h>

#include "vox/platform/Export.h"

namespace vox {

// FileReplacementSystem: the system calls that storing depends on, so that a test can make any of
// them fail as a full or broken disk does. Each sets errno as the call does.
struct FileReplacementSystem {
  ssize_t (*write)(int fd, const void* bytes, std::size_t size);
  int (*sync)(int fd);  // of the file, then of its folder
  int (*rename)(const char* from, const char* to);
};

// SetFileReplacementSystem replaces them, for tests, and returns those that were in use. No other
// thread may be storing meanwhile.
VOX_EXPORT FileReplacementSystem SetFileReplacementSystem(const FileReplacementSystem& system);

// TargetOfLinks gives the path that symbolic links at `path` lead to in the end, whether a file is
// there or not; `path` itself when it is no link. A link in a folder that others can write to is
// followed only when it belongs to this user or to the folder's owner, so that nobody can lead
// somebody else's files away.
// Returns: 0; ELOOP for links without end, EACCES for a link that is not to be trusted, or the
//          errno of the call that failed. A missing file is no failure; a missing folder is ENOENT.
VOX_EXPORT int TargetOfLinks(const std::string& path, std::string* target);

// ReadWholeFile reads a regular file of at most `limit` bytes. status may be null.
// Returns: 0; ENOENT when there is none, EFBIG above the limit, EINVAL for what is no regular file
//          (a pipe or device is never waited for), or the errno of the call that failed.
VOX_EXPORT int ReadWholeFile(const std::string& path, std::size_t limit,
                             std::vector<std::uint8_t>* bytes, struct stat* status);

// ReadOpenFile does the same with a file that is open and has been read nothing of.
VOX_EXPORT int ReadOpenFile(int fd, std::size_t limit, std::vector<std::uint8_t>* bytes,
                            struct stat* status);

// ReplaceFile stores bytes under the name `path`: written aside in the same folder, stored, renamed
// over the old file, the folder stored. A symbolic link is followed and stays. The new file has the
// old one's mode, and its owner and group as far as this user may give them (a group that cannot be
// kept loses what it had beyond others); without an old file mode `new_mode`, whatever the umask.
// Returns: 0, or the errno of what failed (EACCES, ENOSPC, EROFS, ENOENT for a missing folder,
//          EINVAL when a folder or device bears the name and so on). On failure the old file is as
//          it was and nothing is left beside it, with one exception: when the folder alone cannot
//          be stored (EIO), the new file is in place and only its survival of a power cut is open.
//          A kill can leave a file .vox-XXXXXX beside the old one, which nobody needs any more: a
//          replacement removes those of this user there that are older than an hour (Leftovers.h).
VOX_EXPORT int ReplaceFile(const std::string& path, std::string_view bytes, mode_t new_mode = 0644);

}  // namespace vox
