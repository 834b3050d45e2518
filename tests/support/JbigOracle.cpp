#include "tests/support/JbigOracle.h"

#include "tests/support/JbigTemplate.h"
#include "vox/drivers/libjbig3/jbigtbl.h"

namespace vox::test {

JbigOracle::JbigOracle(const JbigShape& image, const std::uint8_t* data, std::size_t size)
    : image_(image), data_(data), size_(size) {
  StartStripe();
  if (image_.height == 0)
    status_ = 192;
  else if (image_.strip == 0)
    status_ = 201;
}

// ---- 6.8.3, the arithmetic decoder

void JbigOracle::InitDec() {
  registers_.c = 0;
  for (int shift = 24; shift >= 8; shift -= 8) {
    ByteIn();
    registers_.c |= std::uint32_t{registers_.last_byte} << shift;
  }
  registers_.ct = 8;
  registers_.a = 0x10000;
}

int JbigOracle::Decode(Context& context) {
  const std::uint32_t lsz = JbigTbl[static_cast<std::size_t>(context.st)].LSZ;
  int pixel = 0;
  registers_.a -= lsz;
  if ((registers_.c >> 16) < registers_.a) {
    if (registers_.a >= 0x8000) return context.mps;
    pixel = registers_.a < lsz ? LessProbable(context) : MoreProbable(context);
  } else {
    registers_.c -= registers_.a << 16;
    pixel = registers_.a < lsz ? MoreProbable(context) : LessProbable(context);
    registers_.a = lsz;
  }
  RenormD();
  return pixel;
}

int JbigOracle::MoreProbable(Context& context) {
  context.st = JbigTbl[static_cast<std::size_t>(context.st)].NMPS;
  return context.mps;
}

int JbigOracle::LessProbable(Context& context) {
  const JBIGTBL& row = JbigTbl[static_cast<std::size_t>(context.st)];
  const int pixel = 1 - context.mps;
  if (row.SWTCH == 1) context.mps = 1 - context.mps;
  context.st = row.NLPS;
  return pixel;
}

void JbigOracle::RenormD() {
  do {
    if (registers_.ct == 0) {
      ByteIn();
      registers_.c += std::uint32_t{registers_.last_byte} << 8;
      registers_.ct = 8;
    }
    registers_.a *= 2;
    registers_.c *= 2;
    registers_.ct -= 1;
  } while (registers_.a < 0x8000);
}

void JbigOracle::ByteIn() {
  int byte = 0;
  if (!state_.stripe_ended && !state_.at_end) {
    byte = Take();
    if (byte == 0xFF) byte = Marker();
  }
  registers_.last_byte = static_cast<std::uint8_t>(byte);
}

// ---- 6.2.6, coded bytes and markers

int JbigOracle::Peek(std::size_t distance) const {
  if (state_.at_end || size_ - registers_.taken <= distance) return -1;
  const int byte = data_[registers_.taken + distance];
  if (image_.msb_first) return byte;
  int reversed = 0;
  for (int bit = 0; bit < 8; ++bit)
    if (byte & (1 << bit)) reversed |= 0x80 >> bit;
  return reversed;
}

int JbigOracle::Take() {
  const int byte = Peek(0);
  if (byte < 0) {
    state_.at_end = true;
    return 0;
  }
  ++registers_.taken;
  return byte;
}

std::uint32_t JbigOracle::TakeFour() {
  std::uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value = value * 256 + static_cast<std::uint32_t>(Take());
  return value;
}

// Acts on the marker whose 0xFF has been read and returns the data byte to deliver.
int JbigOracle::Marker() {
  const int code = Take();
  if (code == 0x00) return 0xFF;       // STUFF
  if (code == 0x02 || code == 0x03) {  // SDNORM, SDRST
    if (code == 0x03) state_.reset = true;
    StripeEnd();
    return 0;
  }
  if (code == 0x04) {  // ABORT
    state_.at_end = state_.reset = state_.stripe_ended = true;
    return 0;
  }
  if (code == 0x05) state_.newlen = TakeFour();
  if (code == 0x06) AtMove();
  if (code == 0x07) {  // COMMENT
    for (std::uint32_t left = TakeFour(); left > 0 && !state_.at_end; --left) Take();
  }
  const int next = Take();
  return next == 0xFF ? Marker() : next;
}

void JbigOracle::AtMove() {
  state_.at_line = TakeFour();
  state_.waiting_tx = Take();
  Take();  // ty
  state_.at_moved = state_.at_moved || state_.at_waits;
  state_.at_waits = true;
  if (state_.waiting_tx >= 128) state_.error = true;
}

void JbigOracle::StripeEnd() {
  state_.stripe_ended = true;
  if (image_.vlength) LookForNewlen();
}

// The look meets the end of the data, and uses up a 0xFF that is the very last byte.
void JbigOracle::LookForNewlen() {
  if (Peek(0) == 0xFF && Peek(1) == 0x05) {
    registers_.taken += 2;
    state_.newlen = TakeFour();
    return;
  }
  if (Peek(0) < 0 || (Peek(0) == 0xFF && Peek(1) < 0)) {
    Take();
    state_.at_end = true;
  }
  if (image_.strip == 0xFFFFFFFF) state_.error = true;
}

// ---- lines

void JbigOracle::StartStripe() {
  const std::size_t bytes = (image_.width + 7) / 8;
  if (state_.reset) {
    above_.assign(bytes, 0);
    above2_.assign(bytes, 0);
    contexts_.fill({});
    state_.waiting_tx = state_.tx = 0;
    state_.at_line = 0;
    state_.lntp = 1;
    state_.at_waits = state_.at_moved = state_.reset = false;
  }
  state_.stripe_ended = state_.error = false;
  InitDec();
  state_.line_in_stripe = 0;
}

bool JbigOracle::NextStripe() {
  if (!state_.stripe_ended) ByteIn();
  if (!state_.stripe_ended) return false;
  StartStripe();
  return true;
}

bool JbigOracle::IsTypical() {
  if (!image_.tp) return false;
  const int sltp = Decode(contexts_[0x0E5]);
  state_.lntp = sltp == state_.lntp ? 1 : 0;
  return state_.lntp == 0;
}

int JbigOracle::Pixel(int x, int lines_above) const {
  if (x < 0 || x >= static_cast<int>(image_.width)) return 0;
  const auto& line = lines_above == 0 ? current_ : lines_above == 1 ? above_ : above2_;
  return line[static_cast<std::size_t>(x / 8)] >> (7 - x % 8) & 1;
}

int JbigOracle::ContextOf(int x) const {
  return TemplateContext(image_.lines, state_.at_moved ? state_.tx : 0, x,
                         [this](int at, int up) { return Pixel(at, up); });
}

void JbigOracle::Pixels() {
  for (int x = 0; x < static_cast<int>(image_.width); ++x) {
    const int pixel = Decode(contexts_[static_cast<std::size_t>(ContextOf(x))]);
    if (pixel)
      current_[static_cast<std::size_t>(x / 8)] |= static_cast<std::uint8_t>(0x80 >> x % 8);
  }
}

bool JbigOracle::Line() {
  if (status_ != 0) return false;
  if (state_.line_in_stripe >= image_.strip && !NextStripe()) {
    status_ = 201;
    return false;
  }
  if (state_.at_waits && state_.line_in_stripe == state_.at_line) {
    state_.tx = state_.waiting_tx;
    state_.at_waits = false;
    state_.at_moved = state_.tx != 0;
  }
  current_.assign((image_.width + 7) / 8, 0);
  if (IsTypical())
    current_ = above_;
  else
    Pixels();
  if (state_.error) {
    status_ = 201;
    return false;
  }
  ++state_.line_in_stripe;
  lines_.push_back(current_);
  above2_ = above_;
  above_ = current_;
  const auto count = static_cast<std::uint32_t>(lines_.size());
  if (count == image_.height) {
    status_ = 192;
  } else if (image_.vlength && count >= state_.newlen) {
    excess_ = count - state_.newlen;
    status_ = 192;
  }
  return true;
}

}  // namespace vox::test
