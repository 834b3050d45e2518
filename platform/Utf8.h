// UTF-8 text that may be damaged, a character at a time.
//
//   while (!text.empty()) {
//     const Utf8Step step = FirstCharacter(text);
//     ... step.valid ? step.code : the bytes are none ...
//     text.remove_prefix(step.size);
//   }
//
// Source: RFC 3629, section 4.
// Thread rule: pure functions.
#pragma once

#include <cstddef>
#include <string_view>

#include "vox/platform/Export.h"

namespace vox {

struct Utf8Step {
  std::size_t size = 0;  // bytes; 0 for an empty text alone
  bool valid = false;
  char32_t code = 0;  // of a valid character
};

// FirstCharacter takes the character at the start of text, or what stands in its place: a byte that
// begins none, or one that does with as many of the bytes that should follow as do (an overlong
// form, a surrogate or a number above U+10FFFF is one such sequence).
VOX_EXPORT Utf8Step FirstCharacter(std::string_view text);

}  // namespace vox
