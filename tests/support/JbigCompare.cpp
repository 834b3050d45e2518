#include "tests/support/JbigCompare.h"

#include <algorithm>

#include "tests/support/JbigOracle.h"
#include "vox/drivers/libjbig3/jbigmark.h"

namespace vox::test {
namespace {

// Steps the oracle over the lines of one call and gives the status that the call must have.
int StepOracle(JbigOracle& oracle, unsigned buffer_lines) {
  for (unsigned i = 0; i < buffer_lines && oracle.Line(); ++i) continue;
  return oracle.Status() == 0 ? CODEC_NEXT_BUFFER : oracle.Status();
}

std::string Differs(const char* what, unsigned long long got, unsigned long long wanted) {
  return std::string(what) + " is " + std::to_string(got) + ", wanted " + std::to_string(wanted);
}

std::string CompareRegisters(const Decoding& decoding, const BYTEW& work,
                             const JbigOracle& oracle) {
  const OracleRegisters wanted = oracle.Registers();
  if (static_cast<std::uint32_t>(work.Areg) != wanted.a)
    return Differs("A", static_cast<std::uint32_t>(work.Areg), wanted.a);
  if (work.Creg != wanted.c) return Differs("C", work.Creg, wanted.c);
  if (work.CTreg != wanted.ct)
    return Differs("CT", static_cast<unsigned>(work.CTreg), static_cast<unsigned>(wanted.ct));
  if (work.Breg != wanted.last_byte) return Differs("last byte", work.Breg, wanted.last_byte);
  // At the end of a piece the look for a NEWLEN may have taken a 0xFF, or be still to come.
  const std::size_t held = work.nlsd == kPrefixTaken ? 1 : 0;
  if (!work.Fend && work.nlsd != kNewlenWaits && decoding.Taken() != wanted.taken + held)
    return Differs("bytes taken", decoding.Taken(), wanted.taken + held);
  return "";
}

std::string CompareState(const BYTEW& work, const JbigOracle& oracle) {
  const OracleState& wanted = oracle.State();
  const int at = (wanted.at_waits ? kAtWaits : 0) | (wanted.at_moved ? kAtMoved : 0);
  const bool looked = work.nlsd != kNewlenWaits;  // for a NEWLEN behind the stripe's end
  const struct {
    const char* what;
    unsigned long long got, wanted;
  } fields[] = {
      {"Atmf", work.Atmf, static_cast<unsigned>(at)},
      {"Atm", work.Atm, static_cast<unsigned>(wanted.tx)},
      {"Atm2", work.Atm2, static_cast<unsigned>(wanted.waiting_tx)},
      {"Yat", work.Yat, wanted.at_line},
      {"Lntpc", work.Lntpc, static_cast<unsigned>(wanted.lntp)},
      {"Stripc", work.Stripc, wanted.line_in_stripe},
      {"Sdnm", work.Sdnm, wanted.stripe_ended},
      {"Sdrst", work.Sdrst, wanted.reset},
      {"Fend", work.Fend, looked ? wanted.at_end ? 1u : 0u : work.Fend},
      {"Nwln", work.Nwln, looked ? wanted.newlen : work.Nwln},
      {"Error of the state", work.Error, wanted.error || oracle.Excess() > 0},
  };
  for (const auto& field : fields)
    if (field.got != field.wanted) return Differs(field.what, field.got, field.wanted);
  return "";
}

std::string CompareContexts(const CODECCSTR& codec, const JbigOracle& oracle) {
  const auto* bytes = reinterpret_cast<const BYTE*>(codec.ContextBuff);
  for (std::size_t i = 0; i < oracle.Contexts().size(); ++i) {
    const auto& wanted = oracle.Contexts()[i];
    if (bytes[2 * i] != wanted.mps || bytes[2 * i + 1] != wanted.st)
      return Differs("context", i, static_cast<unsigned>(wanted.st));
  }
  return "";
}

std::string CompareReferences(const CODECCSTR& codec, const JbigShape& shape,
                              const JbigOracle& oracle) {
  const auto same = [](const WORD* buffer, const std::vector<std::uint8_t>& line) {
    return std::equal(line.begin(), line.end(), reinterpret_cast<const BYTE*>(buffer));
  };
  if (shape.lines == 2) return same(codec.lpABuff, oracle.Above()) ? "" : "A differs";
  if (!same(codec.lpABuff, oracle.Above2())) return "A differs";
  return same(codec.lpBBuff, oracle.Above()) ? "" : "B differs";
}

std::string CompareLines(const Decoding& decoding, const JbigShape& shape,
                         const JbigOracle& oracle) {
  if (decoding.Lines().size() != oracle.Lines().size() * shape.LineBytes())
    return Differs("bytes of lines", decoding.Lines().size(),
                   oracle.Lines().size() * shape.LineBytes());
  for (std::size_t y = 0; y < oracle.Lines().size(); ++y)
    if (!std::equal(oracle.Lines()[y].begin(), oracle.Lines()[y].end(),
                    decoding.Lines().begin() + static_cast<std::ptrdiff_t>(y * shape.LineBytes())))
      return "line " + std::to_string(y) + " differs";
  return "";
}

}  // namespace

std::string CompareWithOracle(const JbigShape& shape, std::span<const std::uint8_t> coded,
                              const Sizes& buffer_lines, const Sizes& piece) {
  JbigOracle oracle(shape, coded.data(), coded.size());
  Decoding decoding(shape, coded, piece);
  for (;;) {
    const unsigned lines = buffer_lines();
    const int wanted = StepOracle(oracle, lines);
    const int status = decoding.Call(lines);
    if (status != wanted)
      return Differs("status", static_cast<unsigned>(status), static_cast<unsigned>(wanted));
    std::string difference = CompareLines(decoding, shape, oracle);
    if (difference.empty() && status != CODEC_DATA_ERROR) {
      difference = CompareRegisters(decoding, decoding.Codec().work.bytew, oracle);
      if (difference.empty()) difference = CompareState(decoding.Codec().work.bytew, oracle);
      if (difference.empty()) difference = CompareContexts(decoding.Codec(), oracle);
      if (difference.empty()) difference = CompareReferences(decoding.Codec(), shape, oracle);
    }
    if (difference.empty() && decoding.Codec().Error != (oracle.Excess() & 0xFFFF))
      difference = Differs("Error", decoding.Codec().Error, oracle.Excess());
    if (!difference.empty())
      return "after " + std::to_string(oracle.Lines().size()) + " lines: " + difference;
    if (status != CODEC_NEXT_BUFFER) return "";
  }
}

}  // namespace vox::test
