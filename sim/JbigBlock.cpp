#include "sim/JbigBlock.h"

#include <algorithm>
#include <vector>

#include "vox/drivers/libjbig3/codec32s.h"
#include "vox/platform/Bytes.h"

namespace vox::sim {
namespace {

constexpr BYTE kMostSignificantFirst = 1;

// The output buffer is as large as a block may be: more is dropped and noticed.
void OutputFull(CODECCSTR* codec) {
  codec->user_i1 = 1;
  codec->Command = CODEC_END;
}

// Encode gives the image header and the stripe data.
std::optional<Bytes> Encode(std::span<const std::uint8_t> bitmap, std::uint32_t width,
                            std::uint32_t lines, std::size_t line_bytes,
                            const CodingOptions& coding) {
  Bytes coded(kMaxBlock);
  std::vector<WORD> above(line_bytes / 2 + 8), further(line_bytes / 2 + 8);
  std::vector<WORD> contexts(kContexts);
  CODECCSTR codec{};
  codec.Mode = kMostSignificantFirst;
  codec.lpCBuff = coded.data();
  codec.szCBuff = static_cast<DWORD>(coded.size());
  codec.lpIBuff = const_cast<BYTE*>(bitmap.data());  // the encoder only reads its lines
  codec.PitchIBuff = static_cast<WORD>(line_bytes * 8);
  codec.HeightIBuff = static_cast<WORD>(lines);
  codec.ImageWidth = static_cast<WORD>(width);
  codec.ImageHeight = lines;
  codec.lpABuff = above.data();
  codec.lpBBuff = further.data();
  codec.ContextBuff = contexts.data();
  codec.Tpv = coding.line_template;
  codec.Tpb = coding.typical_prediction ? 1 : 0;
  codec.Strip = lines;
  codec.CCallBack = OutputFull;
  if (COMPRESS(&codec) != CODEC_DONE || codec.user_i1 != 0) return std::nullopt;
  coded.resize(codec.CodeSize);
  return coded;
}

}  // namespace

std::optional<Bytes> BuildBlock(std::span<const std::uint8_t> bitmap, std::uint32_t width,
                                std::uint32_t lines, std::size_t line_bytes,
                                const CodingOptions& coding) {
  const auto coded = Encode(bitmap, width, lines, line_bytes, coding);
  if (!coded || coded->size() < kImageHeaderSize) return std::nullopt;
  const std::size_t skipped = coding.image_header == ImageHeader::kNone ? kImageHeaderSize : 0;
  const std::size_t uncounted =
      coding.image_header == ImageHeader::kInHeader ? kImageHeaderSize : skipped;
  const std::size_t size = kBlockHeaderSize + coded->size() - skipped;
  if (size > kMaxBlock) return std::nullopt;
  Bytes block(kBlockHeaderSize);
  StoreLe16(block.data(), static_cast<std::uint16_t>(width));
  StoreLe16(block.data() + 2, static_cast<std::uint16_t>(lines));
  StoreLe32(block.data() + 4, static_cast<std::uint32_t>(coded->size() - uncounted));
  block.insert(block.end(), coded->begin() + static_cast<std::ptrdiff_t>(skipped), coded->end());
  return block;
}

}  // namespace vox::sim
