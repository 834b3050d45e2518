// A stream of scan blocks in arbitrary pieces never leaves its buffers, never claims more input
// than there was, and a block that decodes gives exactly width x lines / 8 bytes.
//
// Input: 6 bytes of parameters, then the stream.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "tests/support/JbigDriver.h"
#include "vox/drivers/JbigBuf.h"
#include "vox/platform/Bytes.h"

using namespace vox;

namespace {

void Demand(bool holds) {
  if (!holds) std::abort();
}

// Decodes a gathered block and drains it in pieces of that size.
void DecodeBlock(CJbigDataCtrl& control, unsigned piece) {
  const std::uint64_t pixels =
      std::uint64_t{LoadLe16(control.m_lpJbigData)} * LoadLe16(control.m_lpJbigData + 2);
  if (pixels > 1 << 16 || !control.Decompress()) return;
  std::vector<std::uint8_t> out(piece);
  std::uint64_t drained = 0;
  while (!control.GetImageDataCtrl()->IsEmpty())
    drained += control.GetImageDataCtrl()->SetImageData(out.data(), piece);
  Demand(drained == pixels / 8);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 6) return 0;
  const BYTE header_size = data[0];
  const DWORD room = data[3] * 16u + header_size;
  CJbigDataCtrl control;
  Demand(control.AllocImageData());
  control.SetJbigParam(data[1] & 3, data[2] & 1, header_size);
  control.SetMemorySize(room);
  control.m_lpJbigData = static_cast<BYTE*>(std::calloc(std::max<DWORD>(room, 1), 1));
  const test::Sizes pieces = test::RandomSizes(1u + data[4], data[5]);
  for (std::size_t at = 6; at < size;) {
    std::vector<std::uint8_t> piece(data + at, data + std::min<std::size_t>(size, at + pieces()));
    const DWORD consumed = control.CopyJbigData(piece.data(), static_cast<DWORD>(piece.size()));
    Demand(consumed <= piece.size());
    at += std::max<DWORD>(consumed, 1);
    if (!control.IsAvail()) continue;
    if (room >= 4) DecodeBlock(control, 1 + data[4]);
    control.ResetData();
  }
  return 0;
}
