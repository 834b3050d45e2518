// Blocks are decoded with libjbig, which shares nothing with the codec that made them.
#include <gtest/gtest.h>

extern "C" {
#include <jbig.h>
}

#include "tests/unit/sim/ScriptedHost.h"
#include "vox/platform/Bytes.h"

namespace vox::sim {
namespace {

// The image header that a block without one would have: T.82 6.2.
Bytes MakeImageHeader(const Blocks::Header& block, const ScanInfo& info) {
  Bytes header(20);
  header[2] = 1;  // one plane
  StoreBe32(header.data() + 4, block.width);
  StoreBe32(header.data() + 8, block.lines);
  StoreBe32(header.data() + 12, block.lines);
  header[19] = static_cast<std::uint8_t>((info.jbig_line_template == 2 ? 0x40 : 0) |
                                         (info.jbig_typical_prediction != 0 ? 0x08 : 0));
  return header;
}

void Decode(const Bytes& entity, const Blocks::Header& header, Bytes& lines) {
  jbg_dec_state state;
  jbg_dec_init(&state);
  std::size_t used = 0;
  Bytes input = entity;
  const int result = jbg_dec_in(&state, input.data(), input.size(), &used);
  EXPECT_EQ(result, JBG_EOK) << jbg_strerror(result);
  EXPECT_EQ(jbg_dec_getwidth(&state), header.width);
  EXPECT_EQ(jbg_dec_getheight(&state), header.lines);
  if (result == JBG_EOK) {
    const std::uint8_t* bitmap = jbg_dec_getimage(&state, 0);
    const std::size_t pitch = (std::size_t{header.width} + 7) / 8;
    for (std::size_t y = 0; y < header.lines; ++y) {
      // Hosts count width / 8 bytes a line, truncated.
      lines.insert(lines.end(), bitmap + y * pitch, bitmap + y * pitch + header.width / 8);
    }
  }
  jbg_dec_free(&state);
}

}  // namespace

Blocks DecodeBlocks(const Bytes& data, const ScanInfo& info, ImageHeader image_header) {
  Blocks blocks;
  ByteReader reader(data.data(), data.size());
  while (reader.Left() > 0) {
    const auto head = reader.Take(8);
    if (!head) break;
    const Blocks::Header header{LoadLe16(head->data()), LoadLe16(head->data() + 2),
                                LoadLe32(head->data() + 4)};
    Bytes entity;
    if (image_header == ImageHeader::kNone) entity = MakeImageHeader(header, info);
    const auto rest =
        reader.Take(header.length + (image_header == ImageHeader::kInHeader ? 20u : 0u));
    EXPECT_TRUE(rest) << "a block is cut short";
    if (!rest) break;
    entity.insert(entity.end(), rest->begin(), rest->end());
    blocks.headers.push_back(header);
    Decode(entity, header, blocks.lines);
  }
  EXPECT_EQ(reader.Left(), 0u);
  return blocks;
}

}  // namespace vox::sim
