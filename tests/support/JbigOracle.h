// A JBIG decoder that follows the flow charts of ITU-T T.82 step by step: one pixel at a time, one
// bit at a time, one byte at a time. It is the oracle of the fast decoder, so it is written to be
// read beside the standard, not to be quick, and shares only the probability table with it.
//
// Thread rule: a value; no globals.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/support/JbigShape.h"

namespace vox::test {

// Registers between two lines: T.82's A, C and CT, the last byte read, and the bytes read so far.
struct OracleRegisters {
  std::uint32_t a = 0, c = 0;
  int ct = 0;
  std::uint8_t last_byte = 0;
  std::size_t taken = 0;
};

// What is remembered from line to line besides.
struct OracleState {
  bool at_end = false;        // no more data: zeros are read
  bool stripe_ended = false;  // its end marker has been read
  bool reset = true;          // the next stripe starts afresh
  bool error = false;
  bool at_waits = false;  // an AT move waits for line at_line
  bool at_moved = false;
  std::uint32_t at_line = 0;
  int waiting_tx = 0;
  int tx = 0;
  int lntp = 1;
  std::uint32_t line_in_stripe = 0;
  std::uint32_t newlen = 0xFFFFFFFF;
};

class JbigOracle {
 public:
  JbigOracle(const JbigShape& image, const std::uint8_t* data, std::size_t size);

  // Line decodes the next line. Returns false when there is none: see Status.
  bool Line();

  // 0 while lines follow; 192 complete; 201 data error.
  int Status() const { return status_; }
  // The lines that were decoded, (width + 7) / 8 bytes each.
  const std::vector<std::vector<std::uint8_t>>& Lines() const { return lines_; }
  // Lines beyond the height that a NEWLEN announced.
  std::uint32_t Excess() const { return excess_; }
  const OracleRegisters& Registers() const { return registers_; }
  const OracleState& State() const { return state_; }

  // One context: T.82's MPS(CX) and ST(CX).
  struct Context {
    int mps = 0;
    int st = 0;
  };
  const std::array<Context, 1024>& Contexts() const { return contexts_; }
  const std::vector<std::uint8_t>& Above() const { return above_; }
  const std::vector<std::uint8_t>& Above2() const { return above2_; }

 private:
  // 6.8.3: the arithmetic decoder.
  void InitDec();
  int Decode(Context& context);
  static int MoreProbable(Context& context);
  static int LessProbable(Context& context);
  void RenormD();
  void ByteIn();

  // 6.2.6: coded bytes and markers.
  int Take();
  int Peek(std::size_t distance) const;
  std::uint32_t TakeFour();
  int Marker();
  void AtMove();
  void StripeEnd();
  void LookForNewlen();

  // 6.5 and 6.7: lines.
  bool NextStripe();
  void StartStripe();
  bool IsTypical();
  void Pixels();
  int Pixel(int x, int lines_above) const;
  int ContextOf(int x) const;

  JbigShape image_;
  const std::uint8_t* data_;
  std::size_t size_;
  std::array<Context, 1024> contexts_{};
  OracleRegisters registers_;
  OracleState state_;
  std::uint32_t excess_ = 0;
  int status_ = 0;
  std::vector<std::uint8_t> current_, above_, above2_;
  std::vector<std::vector<std::uint8_t>> lines_;
};

}  // namespace vox::test
