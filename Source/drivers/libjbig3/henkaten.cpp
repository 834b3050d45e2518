#include "vox/drivers/libjbig3/henkaten.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace vox {
namespace {

constexpr DWORD kClosers = 4;  // entries behind the last change

DWORD end_mark(unsigned int width) {
  return (width + 1) & 0xFFFF;
}

void close_list(WORD* list, unsigned int width) {
  list[0] = list[1] = static_cast<WORD>(width + 1);
  list[2] = list[3] = static_cast<WORD>(width + 2);
}

// A packed line on which runs are laid; pixels count from 0.
struct RAWLINE {
  BYTE* bytes;
  std::int64_t width;

  void clear() { std::memset(bytes, 0, static_cast<std::size_t>((width + 7) / 8)); }

  // Sets the pixels from `from` up to `to`, as far as they are on the line.
  void set(std::int64_t from, std::int64_t to) {
    from = std::max<std::int64_t>(from, 0);
    to = std::min(to, width);
    if (from >= to) return;
    BYTE* const first = bytes + from / 8;
    BYTE* const last = bytes + to / 8;
    const auto head = static_cast<BYTE>(0xFF >> from % 8);
    const auto tail = static_cast<BYTE>(0xFF00 >> to % 8);  // 0: the run ends with a whole byte
    if (first == last) {
      *first |= head & tail;
      return;
    }
    *first |= head;
    std::memset(first + 1, 0xFF, static_cast<std::size_t>(last - first - 1));
    if (tail != 0) *last |= tail;
  }
};

// Where the positions of a list lie on a line of another width, or of the same.
class PLACES {
 public:
  PLACES(unsigned int s_width, unsigned int d_width)
      : m_ratio((std::uint64_t{d_width} << 16) / s_width) {}

  std::int64_t of(WORD position) const {  // 48 bits at most
    return static_cast<std::int64_t>(position * m_ratio >> 16);
  }

 private:
  std::uint64_t m_ratio;
};

}  // namespace

void henkaten_init(WORD* curp, unsigned int width) {
  if (!curp) return;
  curp[0] = 1;
  close_list(curp + 1, width);
}

// An entry 0 is the end mark of 65535 pixels and no position: nothing behind it is read.
void henkaten_copy(WORD* dstp, const WORD* srcp, unsigned int width) {
  if (!dstp || !srcp) return;
  const DWORD most = width & 0xFFFF;
  DWORD count = 0;
  for (; count <= most && srcp[count] <= most; ++count) {
    if (most == 0xFFFF && srcp[count] == 0) break;
    dstp[count] = srcp[count];
  }
  close_list(dstp + count, width);
}

void raw_to_henkaten(const BYTE*, WORD*, unsigned int) {}

int henkaten_to_raw(BYTE* d_addr, const WORD* curp, unsigned int s_width, unsigned int d_width,
                    int err_chk) {
  if (!d_addr || !curp) return 1;
  RAWLINE line{d_addr, d_width};
  line.clear();
  const DWORD mark = end_mark(s_width);
  if (s_width == 0 || curp[0] >= mark) return 0;

  const PLACES places(s_width, d_width);
  const std::int64_t start = places.of(curp[0]);
  std::int64_t from = 0;
  for (DWORD i = 1; i < mark + kClosers; ++i) {
    const std::int64_t to = places.of(curp[i]) - start;
    const bool ones = i % 2 == 0;
    if (err_chk && (curp[i] < curp[i - 1] || (ones && to > line.width))) return 1;
    if (ones) line.set(from, to);
    if (curp[i] >= mark) return 0;
    from = to;
  }
  return err_chk ? 1 : 0;
}

}  // namespace vox
