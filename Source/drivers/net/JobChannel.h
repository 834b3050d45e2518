// A scan's channels to the job server: connected, registered, and read with waits that a stop
// interrupts. docs/wire/job-server.md has the messages.
//
// Units:       waits in milliseconds. A signal does not lengthen a wait.
// Thread rule: any thread; each call uses the descriptors that it is given.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vox/drivers/ScanRecords.h"
#include "vox/platform/Export.h"

namespace vox {

// tagNWWAITS: how long a network scan waits for others, in milliseconds.
struct tagNWWAITS {
  int nFirstData = 70'000;    // for the first bytes of a line or block, and for the end notice
  int nData = 3'000;          // for further bytes, the start notice and the scan information
  int nRegistration = 5'000;  // for the job server's answer
  int nCancel = 300;          // for the device's answer to a cancelled job
};

// tagNWWAKE: the eventfds that end a wait early; -1 none.
struct tagNWWAKE {
  int nAbort = -1;
  int nPage = -1;
};

enum NW_WAIT : int {
  NW_WAIT_READY,
  NW_WAIT_TIMEOUT,
  NW_WAIT_WOKEN,
  NW_WAIT_ERROR,
};

// wait_channel waits until there is something to read, the end of the stream included. A raised
// wake goes before readiness, so that a device that never stops sending cannot hold a stop up.
NW_WAIT wait_channel(int s, int ms, const tagNWWAKE& wake);

// read_channel waits as wait_channel does and receives up to `size` bytes once.
// Returns: NW_WAIT_READY with *got the bytes received, 0 when the other side has closed; else why
//          there are none.
NW_WAIT read_channel(int s, void* buf, std::size_t size, int ms, const tagNWWAKE& wake,
                     std::size_t* got);

// take_channel receives what is there already, without a wait and without a look at a wake.
// Returns: as read_channel; NW_WAIT_TIMEOUT when there is nothing yet.
NW_WAIT take_channel(int s, void* buf, std::size_t size, std::size_t* got);

// write_channel sends all bytes of a short message: true when the system took them.
bool write_channel(int s, const void* buf, std::size_t size);

// get_lpd_soc connects to the job server at 127.0.0.1:port.
// Returns: a TCP socket, close-on-exec and the caller's to close; -1.
VOX_EXPORT int get_lpd_soc(unsigned short port);

// add_job2lpd registers the socket for a channel of a job: the device at `ip` (dotted text) will
// be connected to it when it names the same job and sequence id. It waits up to 5 s for the answer.
// Shapes:  the job id's eight bytes go out in the order in which they lie in memory.
// Returns: 0 accepted; -1.
VOX_EXPORT int add_job2lpd(int s, const char* ip, unsigned char type, const _SCANJOBID* j,
                           unsigned short sequenceId);

// The same two with the waits of a scan.
int get_lpd_soc(unsigned short port, int ms, const tagNWWAKE& wake);
int add_job2lpd(int s, const char* ip, unsigned char type, const _SCANJOBID* j,
                unsigned short sequenceId, int ms, const tagNWWAKE& wake);

}  // namespace vox
