// What a device says before and after a page. Properties: a start notice that comes byte by byte is
// taken to its end and no further, so that the information behind it is read whole; the code of an
// end notice is the same however it is cut. Input: the end notice's piece size, less one; the
// bytes.
#include <sys/socket.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>
#include "vox/drivers/net/NetworkComm/tvr302udpconst.h"
#include "vox/drivers/net/ScanNotice.h"
#include "vox/platform/FileDescriptor.h"

namespace {
using namespace vox;
using Bytes = std::span<const std::uint8_t>;

// A channel on which each piece is received by itself, and which then ends.
FileDescriptor Channel(Bytes sent, std::size_t piece) {
  int ends[2] = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
  const FileDescriptor device(ends[1]);
  for (std::size_t at = 0; at < sent.size(); at += piece)
    ::send(device.Get(), &sent[at], std::min(piece, sent.size() - at), MSG_NOSIGNAL);
  return FileDescriptor(ends[0]);
}

// A start notice goes up to the first byte that no UDP command has, or to the end of one.
std::size_t NoticeSize(Bytes sent) {
  for (std::size_t i = 0; i < std::min(sent.size(), UDPCMD_SIGNATURE_SIZE); ++i)
    if (sent[i] != static_cast<std::uint8_t>(UDPCMD_SIGNATURE[i])) return i + 1;
  const std::size_t params = sent.size() > UDPCMD_AT_PARAMSIZE ? sent[UDPCMD_AT_PARAMSIZE] : 0;
  return std::min(sent.size(), UDPCMD_HEADER_SIZE + params);
}

void CheckStart(Bytes sent) {
  const FileDescriptor channel = Channel(sent, 1);
  if (read_start_notice(channel.Get(), 0, {}) == sent.empty()) std::abort();
  const Bytes behind = sent.subspan(NoticeSize(sent));
  _SCANINFO wire{}, expected{}, info{};
  const bool read = receive_scaninfo(channel.Get(), 0, {}, &info);
  if (read != (behind.size() >= sizeof wire)) std::abort();
  if (!read) return;
  std::memcpy(&wire, behind.data(), sizeof wire);
  scaninfo2cpu(&expected, &wire);
  if (std::memcmp(&info, &expected, sizeof info) != 0) std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > 201) return 0;  // as many pieces as a socket holds
  const Bytes sent(data + 1, size - 1);
  CheckStart(sent);
  const FileDescriptor channel = Channel(sent, data[0] + std::size_t{1});
  std::uint8_t command = 0;
  const bool read = read_end_notice(channel.Get(), 0, 0, {}, &command);
  if (read != (sent.size() > UDPCMD_AT_COMMAND)) std::abort();
  if (read && command != sent[UDPCMD_AT_COMMAND]) std::abort();
  return 0;
}
