// The rendezvous between the scanning library and the job server: one lock file, machine-wide, that
// says whether a server runs and at which loopback port its client door is.
//
// The file is /var/tmp/com.veltronix.vox.lpd.lock (behind VOX_ROOT), text "%d\n". Whoever holds the
// write lock on it is the server. The lock is one of the open file description (fcntl_locking(2),
// F_OFD_SETLK): it meets the record locks that lockf(3) takes in other processes, works between two
// descriptors of one process, and is not lost when another descriptor of the file is closed.
//
// Thread rule: any thread; nothing is shared but the file.
#pragma once

#include <string>

#include "vox/platform/Export.h"

namespace vox {

// The service type that callers pass; neither call looks at it.
inline constexpr char kScannerServiceType[] = "_scaner._tcp";

// bonjour_register takes the lock and writes `port` (1 to 65535, a TCP port of 127.0.0.1) into the
// file. A missing file is made with mode 0666 whatever the umask, so that every user may serve;
// symbolic links are not followed. `name` and `type` are not used.
// Returns: the descriptor that holds the lock (owned by the caller; give it to bonjour_unregister);
//          -1 with errno: EWOULDBLOCK when another server holds the lock, else why the file cannot
//          be had.
VOX_EXPORT int bonjour_register(const char* name, const char* type, unsigned short port);

// bonjour_resolve finds the running server. It never takes the lock itself, so two clients that
// look at the same time do not see each other. `name` and `type` are not used.
// Returns: 0 with *port 1 to 65535; -1 when no server holds the lock or the file holds no port.
VOX_EXPORT int bonjour_resolve(const char* name, const char* type, unsigned short* port);

// bonjour_lock_file names the file, for messages.
VOX_EXPORT std::string bonjour_lock_file();

// bonjour_unregister closes the descriptor, which releases the lock. -1 is left alone.
VOX_EXPORT void bonjour_unregister(int descriptor);

}  // namespace vox
