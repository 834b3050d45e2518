// libjbig as the peer: what it writes must decode here, and the other way round.
//
// Thread rule: the functions share nothing.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "tests/support/JbigDriver.h"

namespace vox::test {

constexpr std::array<std::uint8_t, 2> kAtMove = {0xFF, 0x06};  // how a marker begins that moves AT

struct PeerOptions {
  bool sdrst = false;     // stripes end with SDRST
  unsigned most_at = 0;   // it may move AT up to this far
  bool delay_at = false;  // and does so in the first line of the next stripe only
  std::uint32_t announced =
      0;                  // height in the BIH, the real one following in NEWLEN; 0: the real one
  std::string comment{};  // content of a COMMENT at the start
};

// PeerEncode returns the BIE that libjbig writes; the shape gives template, TP, stripes.
Bytes PeerEncode(const Picture& picture, const JbigShape& shape, const PeerOptions& options = {});
// The same, appended to `out`.
void PeerEncode(const Picture& picture, const JbigShape& shape, const PeerOptions& options,
                Bytes& out);

// PeerDecode returns the lines that libjbig reads; empty when it reports an error.
Bytes PeerDecode(std::span<const std::uint8_t> bie);
// The same, appended to `lines`.
void PeerDecode(std::span<const std::uint8_t> bie, Bytes& lines);

// PeerCode returns what libjbig's arithmetic coder writes for the pixels, all in one context that
// starts in the given state, without the marker at the end.
Bytes PeerCode(int state, int mps, std::span<const int> pixels);

// PeerSettleHeight puts a NEWLEN's height into the BIH, which PeerDecode needs. False: no such.
bool PeerSettleHeight(Bytes& bie);

}  // namespace vox::test
