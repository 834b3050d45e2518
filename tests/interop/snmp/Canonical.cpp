#include "tests/interop/snmp/Canonical.h"

#include "tests/support/SnmpMessage.h"

namespace vox::test {
namespace {

// Written from X.690 8.1 on its own, so that the library's parser is not its own judge.
bool IsConstructed(std::uint8_t tag) {
  return (tag & 0x20) != 0;
}

// Shortest appends the items of bytes[at, end) in their shortest form; false when malformed.
bool Shortest(const Bytes& bytes, std::size_t at, std::size_t end, Bytes* out) {
  while (at < end) {
    if (end - at < 2) return false;
    const std::uint8_t tag = bytes[at++];
    std::size_t length = bytes[at++];
    if (length & 0x80) {
      std::size_t octets = length & 0x7F;
      if (octets < 1 || octets > 3 || octets > end - at) return false;
      for (length = 0; octets > 0; --octets) length = (length << 8) | bytes[at++];
    }
    if (length > end - at) return false;
    Bytes contents(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                   bytes.begin() + static_cast<std::ptrdiff_t>(at + length));
    if (IsConstructed(tag)) {
      Bytes inner;
      if (!Shortest(contents, 0, contents.size(), &inner)) return false;
      contents = inner;
    }
    *out = *out + Item(tag, contents);
    at += length;
  }
  return true;
}

}  // namespace

Bytes Canonical(const Bytes& message) {
  Bytes out;
  return Shortest(message, 0, message.size(), &out) ? out : Bytes{};
}

}  // namespace vox::test
