// A JBIG encoder that follows the flow charts of ITU-T T.82 6.8.2 step by step: one pixel at a
// time, one bit at a time. It is the oracle of the fast encoder, so it is written to be read beside
// the standard, not to be quick, and shares only the probability table with it.
//
// A stripe's bytes are gathered raw; its end drops what T.82 drops and stuffs the rest.
// Thread rule: a value; no globals.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "tests/support/JbigDriver.h"

namespace vox::test {

class PlainJbigEncoder {
 public:
  explicit PlainJbigEncoder(const JbigShape& image);

  // Line encodes the next line, (width + 7) / 8 bytes, bits beyond the width 0.
  void Line(const std::uint8_t* line);
  // End ends the image and returns the whole BIE.
  std::vector<std::uint8_t> End();

  // T.82's registers between two lines.
  struct Registers {
    std::uint32_t a = 0x10000, c = 0;
    int ct = 11;
    std::uint8_t buffer = 0;
    int sc = 0;
    std::uint32_t line_in_stripe = 0;
    int lntp = 1;
    bool operator==(const Registers&) const = default;
  };
  const Registers& State() const { return registers_; }

  struct Context {
    int mps = 0;
    int st = 0;
    bool operator==(const Context&) const = default;
  };
  const std::array<Context, 1024>& Contexts() const { return contexts_; }

 private:
  void Encode(int context, int pixel);
  void CodeLps(Context& context);
  void CodeMps(Context& context);
  void Exchange(std::uint32_t lsz);
  void RenormE();
  void ByteOut();
  void Flush();
  void StartStripe();
  void EndStripe();
  bool IsTypical();
  void Pixels();
  int Pixel(int x, int lines_above) const;
  void Put(unsigned byte);
  void PutFour(std::uint32_t value);
  void PutHeader();

  JbigShape image_;
  Registers registers_;
  std::array<Context, 1024> contexts_{};
  std::uint32_t lines_ = 0;
  std::vector<std::uint8_t> current_, above_, above2_;
  std::vector<std::uint8_t> stripe_;  // as BYTEOUT gives them
  std::vector<std::uint8_t> bie_;
};

// PlainEncode returns the whole BIE of a picture.
std::vector<std::uint8_t> PlainEncode(const Picture& picture, const JbigShape& shape);

}  // namespace vox::test
