// A page's data channel as JBIG blocks. Properties: however the stream is cut into pieces, the same
// blocks come out of it; a block that is accepted fits its buffer and, decoded, stays inside it.
// Input: the header size, the piece size, how the stream ends (even: closed, odd: broken), the
// stream.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tests/support/MemorySource.h"

namespace {

using namespace vox;

// The block in as much memory as it has, so that a sanitizer sees whoever reads beyond.
void Decode(const test::Bytes& block, const tagJBIGSCANDATAHEADER& header, BYTE header_size) {
  if (header.wdWidth * std::uint64_t{header.wdLength} > 1'000'000) return;
  CJbigDataCtrl control;
  control.AllocImageData();
  control.SetJbigParam(2 + header.wdWidth % 2, header.wdLength % 2, header_size);
  control.m_lpJbigData = static_cast<BYTE*>(std::malloc(block.size()));
  std::copy(block.begin(), block.end(), control.m_lpJbigData);
  control.Decompress();
}

struct Outcome {
  std::vector<test::Bytes> blocks;
  JBIG_BLOCK last = JBIG_BLOCK_WHOLE;
  bool operator==(const Outcome&) const = default;
};

Outcome Receive(test::MemorySource source, BYTE header_size, bool decode) {
  static test::Bytes buffer(kJbigBlockSize);
  tagJBIGRULE rule{header_size, 1, {}};
  Outcome outcome;
  while ((outcome.last = read_block(&source, &rule, buffer.data())) == JBIG_BLOCK_WHOLE) {
    tagJBIGSCANDATAHEADER header;
    std::memcpy(&header, buffer.data(), sizeof header);
    const std::uint64_t size = std::uint64_t{header.dwLength} + header_size;
    if (size > kJbigBlockSize || header.wdWidth != rule.backup.wdWidth) std::abort();
    const auto kept = static_cast<std::ptrdiff_t>(std::max<std::uint64_t>(size, sizeof header));
    outcome.blocks.emplace_back(buffer.begin(), buffer.begin() + kept);
    if (decode) Decode(outcome.blocks.back(), header, header_size);
  }
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3 || size > 65'536 || data[0] == 0) return 0;  // without a header there are no blocks
  const int end = data[2] % 2 == 0 ? SOURCE_ENDED : SOURCE_BROKE;
  const test::Bytes bytes(data + 3, data + size);
  const test::MemorySource whole(bytes, size, end), pieces(bytes, data[1] % 64 + 1u, end);
  if (Receive(whole, data[0], true) != Receive(pieces, data[0], false)) std::abort();
  return 0;
}
