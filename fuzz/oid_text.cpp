// Dotted OID text: the arcs that are read from any text, written out and read again, are the same
// arcs, and no text is written past the room it was given.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vox/drivers/net/NetworkComm/wnxoid.h"

namespace {

using Arcs = std::vector<std::uint32_t>;

// Read gives the arcs of text[0, size), which needs no NUL; false when it is refused.
bool Read(const std::vector<char>& text, Arcs* arcs) {
  arcs->assign(128, 0);
  auto length = static_cast<std::int32_t>(text.size());
  std::int32_t count = 128;
  if (vox::oid_string2array(text.data(), &length, arcs->data(), &count) != 0) return false;
  if (count < 1 || count > 128 || length < 0) std::abort();
  arcs->resize(static_cast<std::size_t>(count));
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  Arcs arcs, again;
  if (!Read(std::vector<char>(data + 1, data + size), &arcs)) return 0;
  // 128 arcs of ten digits with a full stop each are below 2,000 characters.
  std::vector<char> text(2000);
  const auto count = static_cast<std::int32_t>(arcs.size());
  if (vox::oid_array2string(text.data(), 2000, arcs.data(), count) != 0) std::abort();
  if (!Read(text, &again) || again != arcs) std::abort();
  // The first byte is the room of another try: it fits there exactly if the text does.
  std::vector<char> small(data[0] + std::size_t{1});
  const auto room = static_cast<std::int32_t>(small.size());
  const bool fits = std::strlen(text.data()) < small.size();
  if ((vox::oid_array2string(small.data(), room, arcs.data(), count) == 0) != fits) std::abort();
  if (std::strlen(small.data()) >= small.size()) std::abort();
  return 0;
}
