// Answers of the UDP command protocol: the record that comes out, built as a command, gives the
// answer's header again, and the parameters that arrived with zeros for those that did not; nothing
// is written past the announced size.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "vox/drivers/net/NetworkComm/tvr302udpcmd.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vox;
  using Bytes = std::vector<std::uint8_t>;
  if (size > 1536) return 0;
  const Bytes answer(data, data + size);
  const auto length = static_cast<std::int32_t>(size);
  const std::uint16_t sequence = udp_cmd_sequence(answer.data(), length);
  const bool is_whole = size >= UDPCMD_HEADER_SIZE;
  // The parameter buffer is a heap block of exactly what the answer announces.
  Bytes param(is_whole ? answer[UDPCMD_AT_PARAMSIZE] : 0u, 0xEE);
  _tagUDPCMD response{0, 0, 0, 0, param.empty() ? nullptr : param.data()};
  const std::int32_t result = udp_cmd_parse(answer.data(), length, &response);
  if ((result == NET_OK) != is_whole) std::abort();
  if (!is_whole) return 0;

  _tagUDPCMD without = response;
  without.param = nullptr;
  if (udp_cmd_parse(answer.data(), length, &without) != (param.empty() ? NET_OK : NET_TOO_SMALL)) {
    std::abort();
  }

  Bytes wanted = answer;
  wanted.resize(UDPCMD_HEADER_SIZE + param.size());
  std::copy_n(UDPCMD_SIGNATURE, UDPCMD_SIGNATURE_SIZE, wanted.begin());
  wanted[UDPCMD_AT_RESERVE] = wanted[UDPCMD_AT_RESERVE + 1] = 0;
  Bytes built(static_cast<std::size_t>(udp_cmd_size(&response)));
  udp_cmd_build(built.data(), sequence, &response);
  if (built != wanted) std::abort();
  return 0;
}
