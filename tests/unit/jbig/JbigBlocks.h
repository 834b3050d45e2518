// Blocks of a network scan, and a CJbigDataCtrl that decodes them, as tests write them.
#pragma once

#include <algorithm>
#include <cstring>
#include <optional>

#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"
#include "vox/drivers/JbigBuf.h"

namespace vox::test {

// A block as a receiver holds it: header in host order, data behind header_size bytes.
struct Block {
  WORD width = 0, lines = 0;
  Bytes data;
  BYTE header_size = 8;
  std::optional<DWORD> length{};  // dwLength; the data's unless set

  Bytes Make() const {
    const tagJBIGSCANDATAHEADER header{width, lines,
                                       length.value_or(static_cast<DWORD>(data.size()))};
    Bytes bytes(std::max<std::size_t>(header_size, sizeof header));
    std::memcpy(bytes.data(), &header, sizeof header);
    bytes.resize(header_size);
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
  }
};

inline Bytes Bie(const Picture& picture, int lines = 2, bool tp = false) {
  return Encode(picture, {picture.width, picture.height, picture.height, lines, tp});
}

inline Block BlockOf(const Picture& picture, int lines = 2, bool tp = false) {
  const Bytes bie = Bie(picture, lines, tp);
  return {static_cast<WORD>(picture.width), static_cast<WORD>(picture.height),
          Bytes(bie.begin() + kBihSize, bie.end())};
}

class JbigData : public testing::Test {
 protected:
  JbigData() { EXPECT_TRUE(m_control.AllocImageData()); }
  ~JbigData() override { m_control.m_lpJbigData = nullptr; }

  // Decodes a block that a list owns, in an exact-size buffer.
  bool Decompress(const Bytes& block) {
    m_block.assign(block.begin(), block.end());
    m_block.shrink_to_fit();
    m_control.m_lpJbigData = m_block.data();
    return m_control.Decompress();
  }
  bool DecompressBlock(const Block& block) {
    m_control.SetJbigParam(m_lines, m_tp, block.header_size);
    return Decompress(block.Make());
  }
  Bytes Drain(DWORD piece) {
    Bytes all, buffer(piece);
    while (!Image().IsEmpty()) {
      const DWORD got = Image().SetImageData(buffer.data(), piece);
      all.insert(all.end(), buffer.begin(), buffer.begin() + got);
    }
    return all;
  }
  CImageDataCtrl& Image() { return *m_control.GetImageDataCtrl(); }

  CJbigDataCtrl m_control;
  BYTE m_lines = 2, m_tp = 0;
  Bytes m_block;
};

}  // namespace vox::test
