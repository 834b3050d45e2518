// Receiving one block of a network scan's JBIG data: a header, then the coded data that it
// announces, in one buffer of 1 MiB. docs/wire/jbig-block.md draws the block. The bytes come from
// a source, so that this code meets sockets in a scan and plain memory in tests.
//
// Thread rule: one thread for a page's blocks.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vox/drivers/JbigBuf.h"

namespace vox {

inline constexpr std::uint32_t kJbigBlockSize = 0x100000;  // bytes of the buffer of a block

// Why a source gives no bytes.
inline constexpr int SOURCE_ENDED = 0;     // the stream was closed
inline constexpr int SOURCE_BROKE = -1;    // it broke, or nothing came in time
inline constexpr int SOURCE_STOPPED = -2;  // the page stops

// JbigSource gives the bytes of a page's data channel.
class JbigSource {
 public:
  // read receives up to `size` bytes; `bHeader` tells which of the two waits to use. Returns: the
  // bytes received, or a SOURCE_ENDED, SOURCE_BROKE or SOURCE_STOPPED.
  virtual int read(BYTE* buf, std::size_t size, bool bHeader) = 0;

 protected:
  ~JbigSource() = default;
};

// tagJBIGRULE: what the blocks of a page have in common.
struct tagJBIGRULE {
  BYTE byHeaderSize = 8;           // bytes from a block's start to its coded data
  bool32 bFirstHeader = 1;         // until the first header has been accepted
  tagJBIGSCANDATAHEADER backup{};  // that first header
};

// accept_header judges a header in host order. The first one sets the width for the page; no block
// may pass the buffer, coded data and header together.
bool accept_header(tagJBIGRULE* rule, const tagJBIGSCANDATAHEADER& header);

enum JBIG_BLOCK : int {
  JBIG_BLOCK_WHOLE,
  JBIG_BLOCK_END,      // the stream ended before this block
  JBIG_BLOCK_CUT,      // it ended in the block's header, or broke before it
  JBIG_BLOCK_REFUSED,  // the header is not accepted
  JBIG_BLOCK_BROKEN,   // it ended or broke in the block's data
  JBIG_BLOCK_STOPPED,
};

// read_block receives one block into block[0, kJbigBlockSize) and puts its header's fields into
// host order. Of a header of fewer than 8 bytes the rest counts as zero.
JBIG_BLOCK read_block(JbigSource* source, tagJBIGRULE* rule, BYTE* block);

}  // namespace vox
