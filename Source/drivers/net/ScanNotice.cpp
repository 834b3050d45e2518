#include "vox/drivers/net/ScanNotice.h"

#include <algorithm>
#include <cstring>

#include "vox/drivers/net/NetworkComm/tvr302udpconst.h"

namespace vox {
namespace {

// The bytes of a notice that begins like this; what is there, when it is no UDP command.
std::size_t notice_size(const std::uint8_t* notice, std::size_t got) {
  if (std::memcmp(notice, UDPCMD_SIGNATURE, std::min(got, UDPCMD_SIGNATURE_SIZE)) != 0) return got;
  if (got <= UDPCMD_AT_PARAMSIZE) return UDPCMD_HEADER_SIZE;
  return UDPCMD_HEADER_SIZE + notice[UDPCMD_AT_PARAMSIZE];
}

}  // namespace

bool read_start_notice(int s, int ms, const tagNWWAKE& wake) {
  std::uint8_t notice[kNoticeRoom];
  std::size_t got = 0;
  if (read_channel(s, notice, sizeof notice, ms, wake, &got) != NW_WAIT_READY) return false;
  if (got == 0) return false;
  for (std::size_t size = notice_size(notice, got); got < size; size = notice_size(notice, got)) {
    std::size_t more = 0;
    const NW_WAIT waited = read_channel(s, notice + got, size - got, ms, wake, &more);
    if (waited == NW_WAIT_WOKEN) return false;
    if (waited != NW_WAIT_READY || more == 0) break;  // a notice is not examined: it will do
    got += more;
  }
  return true;
}

bool receive_scaninfo(int s, int ms, const tagNWWAKE& wake, _SCANINFO* pInfo) {
  _SCANINFO wire{};
  auto* bytes = reinterpret_cast<std::uint8_t*>(&wire);
  for (std::size_t got = 0; got < sizeof wire;) {
    std::size_t more = 0;
    const NW_WAIT waited = read_channel(s, bytes + got, sizeof wire - got, ms, wake, &more);
    if (waited != NW_WAIT_READY || more == 0) return false;
    got += more;
  }
  scaninfo2cpu(pInfo, &wire);
  return true;
}

bool read_end_notice(int s, int firstMs, int ms, const tagNWWAKE& wake, std::uint8_t* pCommand) {
  std::uint8_t notice[kNoticeRoom] = {};
  for (std::size_t got = 0; got <= UDPCMD_AT_COMMAND;) {
    std::size_t more = 0;
    const NW_WAIT waited =
        read_channel(s, notice + got, sizeof notice - got, got == 0 ? firstMs : ms, wake, &more);
    if (waited != NW_WAIT_READY || more == 0) return false;
    got += more;
  }
  *pCommand = notice[UDPCMD_AT_COMMAND];
  return true;
}

}  // namespace vox
