#include "vox/drivers/net/JbigBlock.h"

#include <cstring>

#include "vox/platform/Bytes.h"

namespace vox {
namespace {

// A header shorter than eight bytes is filled up from here, and whoever looks a little past a
// header finds zeros.
constexpr std::size_t CLEARED_SIZE = 256;
constexpr std::size_t HEADER_FIELDS = sizeof(tagJBIGSCANDATAHEADER);

// read_exactly receives `size` bytes. Returns: 1; else what the source said. *got counts what came.
int read_exactly(JbigSource* source, BYTE* buf, std::size_t size, bool bHeader, std::size_t* got) {
  *got = 0;
  while (*got < size) {
    const int count = source->read(buf + *got, size - *got, bHeader);
    if (count <= 0) return count;
    *got += static_cast<std::size_t>(count);
  }
  return 1;
}

tagJBIGSCANDATAHEADER from_wire(const BYTE* bytes) {
  return {LoadLe16(bytes), LoadLe16(bytes + 2), LoadLe32(bytes + 4)};
}

// Where the header is shorter than its fields, the coded data lie over them; data that change them
// would let the decoder read past the block.
bool is_header_unchanged(const BYTE* block, const tagJBIGSCANDATAHEADER& header) {
  return std::memcmp(block, &header, HEADER_FIELDS) == 0;
}

}  // namespace

bool accept_header(tagJBIGRULE* rule, const tagJBIGSCANDATAHEADER& header) {
  const std::uint64_t size = std::uint64_t{header.dwLength} + rule->byHeaderSize;
  if (size > kJbigBlockSize) return false;
  if (!rule->bFirstHeader) return header.wdWidth == rule->backup.wdWidth;
  rule->backup = header;
  rule->bFirstHeader = 0;
  return true;
}

JBIG_BLOCK read_block(JbigSource* source, tagJBIGRULE* rule, BYTE* block) {
  std::memset(block, 0, CLEARED_SIZE);
  std::size_t got = 0;
  const int head = read_exactly(source, block, rule->byHeaderSize, true, &got);
  if (head == SOURCE_STOPPED) return JBIG_BLOCK_STOPPED;
  if (head <= 0) return head == SOURCE_ENDED && got == 0 ? JBIG_BLOCK_END : JBIG_BLOCK_CUT;
  const tagJBIGSCANDATAHEADER header = from_wire(block);
  std::memcpy(block, &header, HEADER_FIELDS);
  if (!accept_header(rule, header)) return JBIG_BLOCK_REFUSED;
  const int data = read_exactly(source, block + rule->byHeaderSize, header.dwLength, false, &got);
  if (data == SOURCE_STOPPED) return JBIG_BLOCK_STOPPED;
  if (data <= 0) return JBIG_BLOCK_BROKEN;
  return is_header_unchanged(block, header) ? JBIG_BLOCK_WHOLE : JBIG_BLOCK_REFUSED;
}

}  // namespace vox
