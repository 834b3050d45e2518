// A list of change points becomes the line that the plain version makes of it, whatever the list
// says and whatever the widths are; nothing beyond the list's end and outside the line is touched.
//
// Input: 5 bytes of parameters, then the entries, two bytes each.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "fuzz/LineInput.h"
#include "tests/support/PlainHenkaten.h"
#include "vox/drivers/libjbig3/henkaten.h"

namespace {

using List = std::vector<std::uint16_t>;

void Require(bool holds) {
  if (!holds) std::abort();
}

// The first `count` entries in a heap block of exactly that size.
std::unique_ptr<std::uint16_t[]> Exactly(const List& list, std::size_t count) {
  std::unique_ptr<std::uint16_t[]> block(new std::uint16_t[count]());
  std::copy_n(list.begin(), std::min(count, list.size()), block.get());
  return block;
}

void CheckRaw(const List& list, unsigned s_width, unsigned d_width, bool checked) {
  const vox::test::PlainRaw plain = vox::test::PlainHenkatenToRaw(list, s_width, d_width, checked);
  const std::size_t size = (d_width + 7) / 8;
  const std::unique_ptr<std::uint8_t[]> raw(new std::uint8_t[size]);
  const auto entries = Exactly(list, list.size());
  const int result = vox::henkaten_to_raw(raw.get(), entries.get(), s_width, d_width, checked);
  Require(result == plain.result);
  Require(std::vector<std::uint8_t>(raw.get(), raw.get() + size) ==
          vox::test::Packed(plain.pixels));
}

// A copy makes the same line as its original, as far as that has a line at all.
void CheckCopy(const List& list, unsigned width) {
  const auto entries = Exactly(list, list.size());
  const std::size_t most = std::size_t{width} + 5;
  const auto copy = Exactly({}, most);
  vox::henkaten_copy(copy.get(), entries.get(), width);
  std::size_t i = 0;
  for (; i < list.size() && i <= width && list[i] <= width; ++i) Require(copy[i] == list[i]);
  for (const unsigned beyond : {1, 1, 2, 2})
    Require(copy[i++] == static_cast<std::uint16_t>(width + beyond));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 5) return 0;
  const bool checked = data[0] & 1, same_width = data[0] & 2;
  vox::LineInput numbers(data + 1, 4);
  const unsigned s_width = numbers.Number(2000);
  const unsigned d_width = same_width ? s_width : numbers.Number(5000);
  List list;
  for (std::size_t at = 5; at + 1 < size; at += 2)
    list.push_back(static_cast<std::uint16_t>(data[at] << 8 | data[at + 1]));
  list.resize(s_width + 5);
  list.resize(vox::test::ReadableEntries(list, s_width));
  CheckRaw(list, s_width, d_width, checked);
  CheckCopy(list, s_width);
  return 0;
}
