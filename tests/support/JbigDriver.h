// Drives COMPRESS and DECOMPRESS as clients do: with line buffers of any height and coded data in
// pieces of any size. Every buffer is an exact-size heap block, so that a sanitizer sees a step
// outside it.
//
// Thread rule: the functions share nothing; a Decoding belongs to one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "tests/support/JbigShape.h"
#include "vox/drivers/libjbig3/codec32s.h"

namespace vox::test {

using Bytes = std::vector<std::uint8_t>;
using Sizes = std::function<unsigned()>;  // the next size to use

// A bitmap, (width + 7) / 8 bytes a line, bits beyond the width 0.
struct Picture {
  unsigned width = 0;
  unsigned height = 0;
  Bytes bits;

  Picture() = default;
  Picture(unsigned w, unsigned h) : width(w), height(h), bits(std::size_t{(w + 7) / 8} * h) {}
  unsigned LineBytes() const { return (width + 7) / 8; }
  std::uint8_t* Line(unsigned y) { return bits.data() + std::size_t{y} * LineBytes(); }
  const std::uint8_t* Line(unsigned y) const { return bits.data() + std::size_t{y} * LineBytes(); }
  void Set(unsigned x, unsigned y) { Line(y)[x / 8] |= static_cast<std::uint8_t>(0x80 >> x % 8); }
  bool Get(unsigned x, unsigned y) const { return Line(y)[x / 8] >> (7 - x % 8) & 1; }
};

// The pictures that tests use: random dots with `ones` of 256 set; blobs that look like print; a
// pattern that repeats every `period` pixels, as halftones do.
Picture RandomDots(unsigned width, unsigned height, unsigned ones, std::uint32_t seed);
Picture Blobs(unsigned width, unsigned height, std::uint32_t seed);
Picture Halftone(unsigned width, unsigned height, unsigned period);

// Buffers of one image and the parameter block that points to them.
class CodecBlock {
 public:
  explicit CodecBlock(const JbigShape& shape);
  CodecBlock(const CodecBlock&) = delete;
  CodecBlock& operator=(const CodecBlock&) = delete;
  CODECCSTR codec{};

 private:
  Bytes m_a, m_b, m_contexts;
};

// A decoding under way, one DECOMPRESS at a time.
class Decoding {
 public:
  // `coded` holds the data behind the BIH. `piece` gives the sizes of the pieces in which they are
  // handed over; without it they come at once and any callback counts as a question for more.
  Decoding(const JbigShape& shape, std::span<const std::uint8_t> coded, Sizes piece = nullptr);

  // Calls DECOMPRESS with a fresh buffer of that many lines and keeps the lines that it wrote.
  int Call(unsigned buffer_lines);
  // Calls until the status is not CODEC_NEXT_BUFFER.
  int Run(const Sizes& buffer_lines);

  CODECCSTR& Codec() { return m_block.codec; }
  const Bytes& Lines() const { return m_lines; }  // packed, LineBytes() apart
  unsigned Callbacks() const { return m_callbacks; }
  std::size_t Taken() const;  // coded bytes that the decoder has taken

 private:
  static void MoreData(CODECCSTR* codec);
  void NextPiece();

  JbigShape m_shape;
  Bytes m_coded;
  Sizes m_piece;
  CodecBlock m_block;
  std::unique_ptr<std::uint8_t[]> m_current;  // the piece, exact size
  std::size_t m_given = 0;                    // coded bytes handed over
  unsigned m_callbacks = 0;
  bool m_started = false;
  Bytes m_lines;
};

// Encode returns the whole BIE. `lines` gives the lines of each call, `room` the sizes of the
// output buffers (20 at least for the first). With lines_to_end below the height the image is ended
// there.
struct EncodeHow {
  Sizes lines;
  Sizes room;
  unsigned end_after = 0xFFFFFFFF;  // lines, then CODEC_END
};
Bytes Encode(const Picture& picture, const JbigShape& shape, const EncodeHow& how = {});

// Decode decodes in one call and returns the lines; empty when the status is not CODEC_DONE.
Bytes Decode(const JbigShape& shape, std::span<const std::uint8_t> coded);

Sizes Always(unsigned size);
Sizes RandomSizes(unsigned most, std::uint32_t seed);  // 1 to most

}  // namespace vox::test
