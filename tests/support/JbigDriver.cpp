#include "tests/support/JbigDriver.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace vox::test {
namespace {

// The size of an image buffer whose last line needs all its bytes.
std::size_t BufferBytes(unsigned lines, unsigned pitch_bytes, unsigned line_bytes) {
  return lines == 0 ? 0 : std::size_t{lines - 1} * pitch_bytes + line_bytes;
}

WORD* Words(Bytes& bytes) {
  return reinterpret_cast<WORD*>(bytes.data());
}

}  // namespace

Picture RandomDots(unsigned width, unsigned height, unsigned ones, std::uint32_t seed) {
  Picture picture(width, height);
  std::minstd_rand random(seed + 1);
  for (unsigned y = 0; y < height; ++y)
    for (unsigned x = 0; x < width; ++x)
      if (random() >> 8 & 0xFF ? (random() >> 8 & 0xFF) < ones : ones == 256) picture.Set(x, y);
  return picture;
}

Picture Blobs(unsigned width, unsigned height, std::uint32_t seed) {
  Picture picture(width, height);
  std::minstd_rand random(seed + 1);
  for (unsigned n = 0; n < width * height / 400 + 1; ++n) {
    const unsigned left = random() % (width + 1), top = random() % (height + 1);
    const unsigned w = random() % 40, h = random() % 12;
    for (unsigned y = top; y < std::min(height, top + h); ++y)
      for (unsigned x = left; x < std::min(width, left + w); ++x) picture.Set(x, y);
  }
  return picture;
}

Picture Halftone(unsigned width, unsigned height, unsigned period) {
  Picture picture(width, height);
  for (unsigned y = 0; y < height; ++y)
    for (unsigned x = 0; x < width; ++x) {
      const unsigned dx = x % period, dy = y % period;
      if (dx * dx + dy * dy < (x * period * period) / (width + 1)) picture.Set(x, y);
    }
  return picture;
}

CodecBlock::CodecBlock(const JbigShape& shape)
    : m_a(shape.LineBytes() + 2), m_b(shape.LineBytes() + 2), m_contexts(2 * kContexts) {
  codec.Mode = shape.msb_first ? 1 : 0;
  codec.ImageWidth = static_cast<WORD>(shape.width);
  codec.ImageHeight = shape.height;
  codec.Strip = shape.strip;
  codec.Tpv = static_cast<BYTE>(shape.lines);
  codec.Tpb = shape.tp ? 1 : 0;
  codec.Vln = shape.vlength ? 1 : 0;
  codec.PitchIBuff = static_cast<WORD>(std::min(8 * shape.LineBytes(), 65535u));
  codec.lpABuff = Words(m_a);
  codec.lpBBuff = Words(m_b);
  codec.ContextBuff = Words(m_contexts);
}

Decoding::Decoding(const JbigShape& shape, std::span<const std::uint8_t> coded, Sizes piece)
    : m_shape(shape),
      m_coded(coded.begin(), coded.end()),
      m_piece(std::move(piece)),
      m_block(shape) {
  m_block.codec.CCallBack = MoreData;
  m_block.codec.user_p1 = this;
  NextPiece();
}

void Decoding::NextPiece() {
  const std::size_t left = m_coded.size() - m_given;
  const std::size_t size = m_piece ? std::min<std::size_t>(left, m_piece()) : left;
  m_current.reset(new std::uint8_t[size]);
  std::copy_n(m_coded.data() + m_given, size, m_current.get());
  m_given += size;
  m_block.codec.lpCBuff = m_current.get();
  m_block.codec.szCBuff = static_cast<DWORD>(size);
}

void Decoding::MoreData(CODECCSTR* codec) {
  auto* decoding = static_cast<Decoding*>(codec->user_p1);
  ++decoding->m_callbacks;
  if (codec->Command != CODEC_NEXT_DATA || decoding->m_given == decoding->m_coded.size()) {
    codec->Command = CODEC_END;
    return;
  }
  decoding->NextPiece();
}

std::size_t Decoding::Taken() const {
  const BYTEW& work = m_block.codec.work.bytew;
  return m_given - (work.Fend ? 0 : work.c_rsize);
}

int Decoding::Call(unsigned buffer_lines) {
  CODECCSTR& codec = m_block.codec;
  const unsigned pitch = codec.PitchIBuff / 8;
  const std::size_t size = BufferBytes(buffer_lines, pitch, m_shape.LineBytes());
  std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[size]);
  std::fill_n(buffer.get(), size, std::uint8_t{0xA5});
  codec.lpIBuff = buffer.get();
  codec.HeightIBuff = static_cast<WORD>(buffer_lines);
  codec.Command = m_started ? CODEC_NEXT_BUFFER : CODEC_START;
  m_started = true;
  const int status = DECOMPRESS(&codec);
  for (unsigned y = 0; y < codec.LineIBuff; ++y) {
    const std::uint8_t* line = buffer.get() + std::size_t{y} * pitch;
    m_lines.insert(m_lines.end(), line, line + m_shape.LineBytes());
  }
  return status;
}

int Decoding::Run(const Sizes& buffer_lines) {
  int status = CODEC_NEXT_BUFFER;
  while (status == CODEC_NEXT_BUFFER) status = Call(buffer_lines());
  return status;
}

namespace {

// Collects the output of COMPRESS from buffers of the sizes asked for.
struct Output {
  Sizes room;
  Bytes bie;
  std::unique_ptr<std::uint8_t[]> buffer;

  void Offer(CODECCSTR& codec, unsigned least) {
    const unsigned size = std::max(least, room ? room() : 1u << 16);
    buffer.reset(new std::uint8_t[size]);
    codec.lpCBuff = buffer.get();
    codec.szCBuff = size;
  }
  void Keep(const CODECCSTR& codec) {
    bie.insert(bie.end(), buffer.get(), buffer.get() + codec.CodeSize);
  }
  static void Full(CODECCSTR* codec) {
    auto* output = static_cast<Output*>(codec->user_p1);
    output->Keep(*codec);
    output->Offer(*codec, 1);
  }
};

}  // namespace

Bytes Encode(const Picture& picture, const JbigShape& shape, const EncodeHow& how) {
  CodecBlock block(shape);
  CODECCSTR& codec = block.codec;
  codec.Atm = static_cast<BYTE>(shape.tx);
  Output output{how.room, {}, nullptr};
  codec.CCallBack = Output::Full;
  codec.user_p1 = &output;
  output.Offer(codec, kBihSize);
  codec.Command = CODEC_START;
  const unsigned end = std::min(picture.height, how.end_after);
  // A pitch of 16 bits is a byte short of the widest lines: those go in one by one.
  const unsigned at_once = 8 * picture.LineBytes() > codec.PitchIBuff ? 1 : end;
  for (unsigned y = 0;;) {
    const unsigned lines = std::min(end - y, how.lines ? how.lines() : at_once);
    Bytes copy(picture.Line(y), picture.Line(y) + std::size_t{lines} * picture.LineBytes());
    codec.lpIBuff = copy.data();
    codec.HeightIBuff = static_cast<WORD>(lines);
    y += lines;
    const int status = COMPRESS(&codec);
    if (status == CODEC_NEXT_DATA && y < end) continue;
    if (status == CODEC_NEXT_DATA) {
      codec.Command = CODEC_END;
      if (COMPRESS(&codec) != CODEC_DONE) return {};
    } else if (status != CODEC_DONE) {
      return {};
    }
    output.Keep(codec);
    return output.bie;
  }
}

Bytes Decode(const JbigShape& shape, std::span<const std::uint8_t> coded) {
  Decoding decoding(shape, coded);
  return decoding.Run(Always(std::min<std::uint32_t>(shape.height, 65535))) == CODEC_DONE
             ? decoding.Lines()
             : Bytes{};
}

Sizes Always(unsigned size) {
  return [size] { return size; };
}

Sizes RandomSizes(unsigned most, std::uint32_t seed) {
  return [most, random = std::minstd_rand(seed + 1)]() mutable {
    return 1 + static_cast<unsigned>(random() % most);
  };
}

}  // namespace vox::test
