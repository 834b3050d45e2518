#include "vox/drivers/net/NetworkComm/wnxoid.h"

#include <charconv>
#include <cstring>

namespace vox {
namespace {

// No locale: OID text is ASCII.
bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

std::int32_t oid_string2array(const char* text, std::int32_t* length, std::uint32_t* arcs,
                              std::int32_t* count) {
  const char* at = text;
  const char* const end = text + (*length > 0 ? *length : 0);
  if (at == end || !is_digit(*at)) return -1;
  std::int32_t read = 0;
  while (at < end && *at != '\0') {
    if (!is_digit(*at)) {
      ++at;
      continue;
    }
    if (read >= *count) return -1;
    std::uint32_t arc = 0;
    for (; at < end && is_digit(*at); ++at) arc = arc * 10 + static_cast<std::uint32_t>(*at - '0');
    arcs[read++] = arc;
  }
  *count = read;
  *length = static_cast<std::int32_t>(end - at);
  return 0;
}

std::int32_t oid_array2string(char* text, std::int32_t capacity, const std::uint32_t* arcs,
                              std::int32_t count) {
  if (capacity < 1 || (count > 0 && !arcs)) return -1;
  char* at = text + strnlen(text, static_cast<std::size_t>(capacity));
  char* const last = text + capacity - 1;  // kept for the NUL
  if (at > last) return -1;
  for (std::int32_t i = 0; i < count; ++i) {
    char piece[12];  // a full stop, ten digits
    piece[0] = '.';
    const char* const piece_end = std::to_chars(piece + 1, piece + sizeof piece, arcs[i]).ptr;
    const char* const begin = i == 0 ? piece + 1 : piece;
    const std::ptrdiff_t size = piece_end - begin;
    if (size > last - at) return -1;
    std::memcpy(at, begin, static_cast<std::size_t>(size));
    at += size;
    *at = '\0';
  }
  return 0;
}

}  // namespace vox
