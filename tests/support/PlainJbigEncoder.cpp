#include "tests/support/PlainJbigEncoder.h"

#include "tests/support/JbigTemplate.h"
#include "vox/drivers/libjbig3/jbigtbl.h"

namespace vox::test {

PlainJbigEncoder::PlainJbigEncoder(const JbigShape& image)
    : image_(image), above_(image.LineBytes()), above2_(image.LineBytes()) {
  PutHeader();
  StartStripe();
}

void PlainJbigEncoder::Line(const std::uint8_t* line) {
  if (registers_.line_in_stripe >= image_.strip) {
    EndStripe();
    StartStripe();
  }
  current_.assign(line, line + image_.LineBytes());
  if (!IsTypical()) Pixels();
  above2_ = above_;
  above_ = current_;
  ++registers_.line_in_stripe;
  ++lines_;
}

std::vector<std::uint8_t> PlainJbigEncoder::End() {
  EndStripe();
  if (image_.vlength) {
    Put(0xFF);
    Put(0x05);
    PutFour(lines_);
    Put(0xFF);
    Put(0x02);
  }
  return bie_;
}

// ---- 6.8.2, the arithmetic encoder

void PlainJbigEncoder::Encode(int context, int pixel) {
  Context& entry = contexts_[static_cast<std::size_t>(context)];
  if (pixel == entry.mps)
    CodeMps(entry);
  else
    CodeLps(entry);
}

void PlainJbigEncoder::CodeLps(Context& context) {
  const JBIGTBL& row = JbigTbl[static_cast<std::size_t>(context.st)];
  registers_.a -= row.LSZ;
  if (registers_.a >= row.LSZ) Exchange(row.LSZ);
  if (row.SWTCH == 1) context.mps = 1 - context.mps;
  context.st = row.NLPS;
  RenormE();
}

void PlainJbigEncoder::CodeMps(Context& context) {
  const JBIGTBL& row = JbigTbl[static_cast<std::size_t>(context.st)];
  registers_.a -= row.LSZ;
  if (registers_.a >= 0x8000) return;
  if (registers_.a < row.LSZ) Exchange(row.LSZ);
  context.st = row.NMPS;
  RenormE();
}

// Takes the upper part of the interval.
void PlainJbigEncoder::Exchange(std::uint32_t lsz) {
  registers_.c += registers_.a;
  registers_.a = lsz;
}

void PlainJbigEncoder::RenormE() {
  do {
    registers_.a *= 2;
    registers_.c *= 2;
    if (--registers_.ct == 0) ByteOut();
  } while (registers_.a < 0x8000);
}

void PlainJbigEncoder::ByteOut() {
  const std::uint32_t temp = registers_.c >> 19;
  if (temp == 0xFF) {
    ++registers_.sc;
  } else {
    const bool carry = temp > 0xFF;
    stripe_.push_back(static_cast<std::uint8_t>(registers_.buffer + (carry ? 1 : 0)));
    for (; registers_.sc > 0; --registers_.sc) stripe_.push_back(carry ? 0x00 : 0xFF);
    registers_.buffer = static_cast<std::uint8_t>(temp);
  }
  registers_.c &= 0x7FFFF;
  registers_.ct = 8;
}

void PlainJbigEncoder::Flush() {
  std::uint32_t temp = (registers_.a - 1 + registers_.c) & 0xFFFF0000;
  if (temp < registers_.c) temp += 0x8000;
  registers_.c = temp << registers_.ct;
  ByteOut();
  registers_.c <<= 8;
  ByteOut();
  stripe_.push_back(registers_.buffer);
  for (; registers_.sc > 0; --registers_.sc) stripe_.push_back(0xFF);
}

// ---- stripes

void PlainJbigEncoder::StartStripe() {
  const int lntp = registers_.lntp;
  const std::uint8_t buffer = registers_.buffer;
  registers_ = Registers();
  registers_.lntp = lntp;
  registers_.buffer = buffer;
  stripe_.clear();
  if (image_.tx == 0) return;
  Put(0xFF);
  Put(0x06);
  PutFour(0);
  Put(image_.tx);
  Put(0);
}

// The first byte is the empty BUFFER; zeros at the end are left out.
void PlainJbigEncoder::EndStripe() {
  Flush();
  while (stripe_.size() > 1 && stripe_.back() == 0) stripe_.pop_back();
  for (std::size_t i = 1; i < stripe_.size(); ++i) {
    Put(stripe_[i]);
    if (stripe_[i] == 0xFF) Put(0x00);
  }
  Put(0xFF);
  Put(0x02);
}

void PlainJbigEncoder::Put(unsigned byte) {
  unsigned ordered = 0;
  for (int bit = 0; bit < 8; ++bit)
    if (byte & (1u << bit)) ordered |= image_.msb_first ? 1u << bit : 0x80u >> bit;
  bie_.push_back(static_cast<std::uint8_t>(ordered));
}

void PlainJbigEncoder::PutFour(std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) Put(value >> shift & 0xFF);
}

void PlainJbigEncoder::PutHeader() {
  for (const unsigned byte : {0, 0, 1, 0}) Put(byte);
  PutFour(image_.width);
  PutFour(image_.vlength ? 0xFFFFFFFF : image_.height);
  PutFour(image_.strip);
  Put(image_.tx);
  Put(0);
  Put(0);
  Put((image_.lines == 2 ? 0x40u : 0) | (image_.vlength ? 0x20u : 0) | (image_.tp ? 0x08u : 0));
}

// ---- lines

bool PlainJbigEncoder::IsTypical() {
  if (!image_.tp) return false;
  const int lntp = current_ == above_ ? 0 : 1;
  Encode(0x0E5, lntp == registers_.lntp ? 1 : 0);
  registers_.lntp = lntp;
  return lntp == 0;
}

int PlainJbigEncoder::Pixel(int x, int lines_above) const {
  if (x < 0 || x >= static_cast<int>(image_.width)) return 0;
  const auto& line = lines_above == 0 ? current_ : lines_above == 1 ? above_ : above2_;
  return line[static_cast<std::size_t>(x / 8)] >> (7 - x % 8) & 1;
}

void PlainJbigEncoder::Pixels() {
  const auto pixel = [this](int x, int up) { return Pixel(x, up); };
  for (int x = 0; x < static_cast<int>(image_.width); ++x)
    Encode(TemplateContext(image_.lines, static_cast<int>(image_.tx), x, pixel), Pixel(x, 0));
}

std::vector<std::uint8_t> PlainEncode(const Picture& picture, const JbigShape& shape) {
  PlainJbigEncoder plain(shape);
  for (unsigned y = 0; y < picture.height; ++y) plain.Line(picture.Line(y));
  return plain.End();
}

}  // namespace vox::test
