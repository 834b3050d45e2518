#include "tests/interop/jbig/LibjbigPeer.h"

extern "C" {
#include <jbig.h>
}

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
  // With one-line stripes libjbig looks two lines above the picture's second line: white, as T.82
  // has it, needs room in front.
  const std::size_t margin = 2 * std::size_t{picture.LineBytes()};
  Bytes bits(margin);
  bits.insert(bits.end(), picture.bits.begin(), picture.bits.end());
  unsigned char* planes[1] = {bits.data() + margin};
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
  return out;
}

Bytes PeerDecode(std::span<const std::uint8_t> bie) {
  Bytes in(bie.begin(), bie.end());
  Bytes lines;
  jbg_dec_state state;
  jbg_dec_init(&state);
  if (jbg_dec_in(&state, in.data(), in.size(), nullptr) == JBG_EOK) {
    const unsigned char* image = jbg_dec_getimage(&state, 0);
    lines.assign(image, image + jbg_dec_getsize(&state));
  }
  jbg_dec_free(&state);
  return lines;
}

bool PeerSettleHeight(Bytes& bie) {
  return jbg_newlen(bie.data(), bie.size()) == JBG_EOK;
}

}  // namespace vox::test
