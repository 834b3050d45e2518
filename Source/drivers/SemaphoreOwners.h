// Whose a semaphore set is, and the sets that killed processes have left: those stay until the
// machine is shut down, and there are 256 keys.
//
// Linux notes with each semaphore which process operated on it last (semctl(2), GETPID). A set is
// taken for abandoned only when each of its semaphores bears a process and none of those exists any
// more. So a process id that is in use again keeps a set; it never gives one away. Nor does one of
// a process namespace that cannot be seen from here, which reads as 0.
//
// Thread rule: any thread and any process at once.
#pragma once

#include <sys/types.h>

namespace vox {

// sign_semaphores has each semaphore of a new set, all of them 0, bear this process. Until then
// nobody takes the set for abandoned, whether its process lives or not.
void sign_semaphores(int semid);

// remove_abandoned_semaphores removes the set that has the key, if it is abandoned and has as many
// semaphores as a page needs. A set that another process makes of the key meanwhile has another
// identifier and stays.
// Returns: whether a set was removed; never one that this user may not remove.
bool remove_abandoned_semaphores(key_t key);

}  // namespace vox
