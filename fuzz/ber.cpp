// BER primitives: an item that parses builds again; where the encoding is as long as the canonical
// one, it is the canonical one, byte for byte. The first input byte chooses the primitive.
#include "vox/drivers/net/NetworkComm/wnxber.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using namespace vox;

constexpr std::int32_t kRoom = 4096;
constexpr std::uint32_t kWrittenShort = 0xFF800000u;  // unsigned values from here on are not kept

// Check compares what was read from item[0, size) with what was built of it.
void Check(const std::uint8_t* item, std::int32_t size, const std::uint8_t* built,
           const std::uint8_t* end) {
  if (!end) std::abort();
  if (end - built == size && std::memcmp(item, built, static_cast<std::size_t>(size)) != 0) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size > 2048) return 0;
  const std::vector<std::uint8_t> item(data + 1, data + size);
  const auto length = static_cast<std::int32_t>(item.size());
  std::int32_t left = length, room = kRoom, count = kRoom;
  std::uint8_t tag = 0, built[kRoom];
  const auto taken = [&] { return length - left; };
  if (data[0] % 5 == 0) {
    std::int32_t value = 0;
    if (!asn_parse_int(item.data(), &left, &tag, &value, 4)) return 0;
    Check(item.data(), taken(), built, asn_build_int(built, &room, tag, &value, 4));
  } else if (data[0] % 5 == 1) {
    std::uint32_t value = 0;
    if (!asn_parse_unsigned_int(item.data(), &left, &tag, &value, 4)) return 0;
    // Read from four octets or less such a value is not canonical: it lacks the zero in front.
    if (value >= kWrittenShort || (value >> 31 && item[1] != 5)) return 0;
    Check(item.data(), taken(), built, asn_build_unsigned_int(built, &room, tag, &value, 4));
  } else if (data[0] % 5 == 2) {
    std::uint8_t bytes[kRoom];
    if (!asn_parse_string(item.data(), &left, &tag, bytes, &count)) return 0;
    Check(item.data(), taken(), built, asn_build_string(built, &room, tag, bytes, count));
  } else if (data[0] % 5 == 3) {
    std::vector<std::uint32_t> arcs(128);
    count = 128;
    if (!asn_parse_oid(item.data(), &left, &tag, arcs.data(), &count)) return 0;
    const std::uint8_t* const end = asn_build_oid(built, &room, tag, arcs.data(), count);
    // A full array may have lost arcs, and what is longer than 512 octets is not built.
    if (count < 128) Check(item.data(), taken(), built, end);
  } else {
    if (!asn_parse_null(item.data(), &left, &tag)) return 0;
    Check(item.data(), taken(), built, asn_build_null(built, &room, tag));
  }
  return 0;
}
