// What the device says on a page's channels besides the page: the start notice, the scan
// information, the end notice. docs/wire/network-scan.md has the bytes.
//
// Units:       waits in milliseconds, each for the next bytes.
// Thread rule: any thread; each call uses the socket that it is given.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vox/drivers/ScanRecords.h"
#include "vox/drivers/net/JobChannel.h"

namespace vox {

inline constexpr std::size_t kNoticeRoom = 8'192;  // bytes of a notice that are read at most

// Command codes of the end notice; any other ends the job.
enum END_NOTICE : std::uint8_t {
  END_NOTICE_NEXT_PAGE = 0x90,  // another page of the job follows
  END_NOTICE_NOT_YET = 0xF0,    // the job is not finished: wait on a fresh channel
};

// read_start_notice takes the notice that precedes a page, whatever it says. One that looks like a
// UDP command is read to its end, for its bytes may come in pieces and the page's information is
// next. Returns: false when nothing came.
bool read_start_notice(int s, int ms, const tagNWWAKE& wake);

// receive_scaninfo receives the page's 128 bytes and converts them into *pInfo, which is unchanged
// on failure.
bool receive_scaninfo(int s, int ms, const tagNWWAKE& wake, _SCANINFO* pInfo);

// read_end_notice waits for the end notice, `firstMs` for its first bytes, and reads up to its
// command code at least. Returns: whether the code came, in *pCommand.
bool read_end_notice(int s, int firstMs, int ms, const tagNWWAKE& wake, std::uint8_t* pCommand);

}  // namespace vox
