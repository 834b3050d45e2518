// A property list in either form: what is read can be written as XML and reads back equal; what the
// guard refuses is not read.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "vox/platform/PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto value = vox::ParsePropertyList(std::span(data, size));
  if (!value) return 0;
  const auto xml = vox::PropertyListXml(*value);
  if (!xml) {
    // Only binary lists, which may name one object many times, unfold to what passes a limit.
    if (data[0] != 'b') std::abort();
    return 0;
  }
  const auto again = vox::ParsePropertyList(*xml);
  if (!again || *again != *value) std::abort();
  return 0;
}
