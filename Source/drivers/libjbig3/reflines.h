// The reference lines in the caller's A and B buffers. Two template lines: A is the line above.
// Three: A is the line two above, B the line above. They are copies, so that image buffers may be
// as narrow as their pitch says and may change between the calls.
#pragma once

#include <cstring>
#include <utility>

#include "vox/drivers/libjbig3/codec32s.h"

namespace vox {

// start_afresh makes the lines above white and all contexts state 0, as at the start of an image
// and behind SDRST.
inline void start_afresh(CODECCSTR* codec) {
  const std::size_t bytes = (codec->ImageWidth + 7u) / 8;
  std::memset(codec->lpABuff, 0, bytes);
  if (codec->lpBBuff) std::memset(codec->lpBBuff, 0, bytes);
  std::memset(codec->ContextBuff, 0, kContexts * sizeof(CntxTbl));
}

template <int LINES>
bool has_scratch(const CODECCSTR* codec) {
  return codec->lpABuff && codec->ContextBuff && (codec->lpBBuff || LINES == 2);
}

template <int LINES>
class REFLINES {
 public:
  explicit REFLINES(const CODECCSTR* codec)
      : m_a(reinterpret_cast<BYTE*>(codec->lpABuff)),
        m_b(reinterpret_cast<BYTE*>(codec->lpBBuff)),
        m_older(m_a),
        m_newer(LINES == 3 ? m_b : m_a),
        m_bytes((codec->ImageWidth + 7u) / 8) {}

  const BYTE* above() const { return m_newer; }
  const BYTE* above2() const { return m_older; }
  unsigned bytes() const { return m_bytes; }

  // push makes `line` the line above. Bits of its last byte outside `last_mask` are cleared.
  void push(const BYTE* line, BYTE last_mask = 0xFF) {
    if (m_bytes == 0) return;
    if (LINES == 3) std::swap(m_older, m_newer);
    std::memcpy(m_newer, line, m_bytes);
    m_newer[m_bytes - 1] &= last_mask;
  }
  // repeat makes the line above the line above again.
  void repeat() {
    if (LINES == 3 && m_bytes > 0) std::memcpy(m_older, m_newer, m_bytes);
  }
  // settle puts the lines into the buffers in which the next call looks for them.
  void settle() {
    if (LINES == 3 && m_newer != m_b) {
      for (unsigned i = 0; i < m_bytes; ++i) std::swap(m_a[i], m_b[i]);
      std::swap(m_older, m_newer);
    }
  }

 private:
  BYTE* m_a;
  BYTE* m_b;
  BYTE* m_older;
  BYTE* m_newer;
  unsigned m_bytes;
};

}  // namespace vox
