#include "tests/interop/jbig/LibjbigPeer.h"

extern "C" {
#include <jbig.h>
#include <jbig_ar.h>
}

#include <memory>

namespace vox::test {
namespace {

void Collect(unsigned char* start, std::size_t length, void* bytes) {
  auto* out = static_cast<Bytes*>(bytes);
  out->insert(out->end(), start, start + length);
}

int OptionsOf(const JbigShape& shape, const PeerOptions& options) {
  return (shape.lines == 2 ? JBG_LRLTWO : 0) | (shape.tp ? JBG_TPBON : 0) |
         (options.sdrst ? JBG_SDRST : 0) | (options.delay_at ? JBG_DELAY_AT : 0) |
         (options.announced != 0 ? JBG_VLENGTH : 0);
}

}  // namespace

Bytes PeerEncode(const Picture& picture, const JbigShape& shape, const PeerOptions& options) {
  Bytes out;
  PeerEncode(picture, shape, options, out);
  return out;
}

void PeerEncode(const Picture& picture, const JbigShape& shape, const PeerOptions& options,
                Bytes& out) {
  Bytes padded;
  unsigned char* planes[1] = {const_cast<unsigned char*>(picture.bits.data())};
  if (shape.strip == 1) {
    // With one-line stripes libjbig looks two lines above the picture's second line: white, as T.82
    // has it, needs room in front.
    padded.resize(2 * std::size_t{picture.LineBytes()});
    padded.insert(padded.end(), picture.bits.begin(), picture.bits.end());
    planes[0] = padded.data() + 2 * std::size_t{picture.LineBytes()};
  }
  Bytes comment(options.comment.begin(), options.comment.end());
  jbg_enc_state state;
  jbg_enc_init(&state, picture.width, picture.height, 1, planes, Collect, &out);
  jbg_enc_options(&state, 0, OptionsOf(shape, options), shape.strip,
                  static_cast<int>(options.most_at), 0);
  if (options.announced != 0) state.yd1 = options.announced;
  if (!comment.empty()) {
    state.comment = comment.data();
    state.comment_len = comment.size();
  }
  jbg_enc_out(&state);
  jbg_enc_free(&state);
}

Bytes PeerDecode(std::span<const std::uint8_t> bie) {
  Bytes lines;
  PeerDecode(bie, lines);
  return lines;
}

void PeerDecode(std::span<const std::uint8_t> bie, Bytes& lines) {
  jbg_dec_state state;
  jbg_dec_init(&state);
  if (jbg_dec_in(&state, const_cast<unsigned char*>(bie.data()), bie.size(), nullptr) == JBG_EOK) {
    const unsigned char* image = jbg_dec_getimage(&state, 0);
    lines.insert(lines.end(), image, image + jbg_dec_getsize(&state));
  }
  jbg_dec_free(&state);
}

Bytes PeerCode(int state, int mps, std::span<const int> pixels) {
  Bytes out;
  const auto coder = std::make_unique<jbg_arenc_state>();
  coder->byte_out = [](int byte, void* bytes) {
    static_cast<Bytes*>(bytes)->push_back(static_cast<std::uint8_t>(byte));
  };
  coder->file = &out;
  arith_encode_init(coder.get(), 0);
  coder->st[0] = static_cast<unsigned char>(state | mps << 7);
  for (const int pixel : pixels) arith_encode(coder.get(), 0, pixel);
  arith_encode_flush(coder.get());
  return out;
}

bool PeerSettleHeight(Bytes& bie) {
  return jbg_newlen(bie.data(), bie.size()) == JBG_EOK;
}

}  // namespace vox::test
