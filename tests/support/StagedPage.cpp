#include "tests/support/StagedPage.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

#include "vox/drivers/LineStages.h"

namespace vox::test {
namespace {

using Buffer = std::unique_ptr<unsigned char[]>;

// What a buffer held before must not matter.
Buffer Dirty(std::size_t size) {
  Buffer buffer(new unsigned char[size]);
  std::fill_n(buffer.get(), size, static_cast<unsigned char>(0xA5));
  return buffer;
}

class Page {
 public:
  Page(const tagTWSCANPARAM& request, const _SCANINFO& info, const std::vector<Line>& raw)
      : sizes_(line_sizes(request, info)),
        horizontal_(request, info),
        vertical_(request, info),
        raw_(raw),
        device_(raw.size()) {}

  Buffer ClientLine(std::uint32_t j) {
    const LINE_SPAN span = vertical_.span(j);
    if (!span.white && vertical_.passes_lines()) return Device(span.upper);
    Buffer out = Dirty(sizes_.client_room);
    if (span.white) {
      vertical_.white(out.get());
      return out;
    }
    vertical_.begin(j, out.get());
    Buffer before;
    for (std::uint32_t n = span.lower; n <= span.upper; ++n) {
      Buffer line = Device(n);
      vertical_.add(line.get());
      if (before) Keep(n - 1, std::move(before), span);
      before = std::move(line);
    }
    vertical_.finish();
    floor_ = span.keep_from;
    Keep(span.upper, std::move(before), span);
    return out;
  }

 private:
  // A line that an earlier client line left, or a new one.
  Buffer Device(std::uint32_t n) {
    if (n < floor_) throw std::logic_error("a device line was asked for after it was let go");
    if (device_[n]) return std::move(device_[n]);
    Buffer raw(new unsigned char[sizes_.raw]);
    std::copy_n(raw_[n].begin(), sizes_.raw, raw.get());
    Buffer line = Dirty(sizes_.device_room);
    horizontal_.run(line.get(), raw.get());
    return line;
  }
  void Keep(std::uint32_t n, Buffer line, const LINE_SPAN& span) {
    if (n >= span.keep_from) device_[n] = std::move(line);
  }

  LINE_SIZES sizes_;
  HorizontalStage horizontal_;
  VerticalStage vertical_;
  const std::vector<Line>& raw_;
  std::vector<Buffer> device_;
  std::uint32_t floor_ = 0;  // device lines below were let go
};

}  // namespace

std::vector<Line> StagedLines(const tagTWSCANPARAM& request, const _SCANINFO& info,
                              const std::vector<Line>& device_lines) {
  Page page(request, info, device_lines);
  std::vector<Line> client;
  for (std::uint32_t j = 0; j < request.dwImageLength; ++j) {
    const Buffer line = page.ClientLine(j);
    client.emplace_back(line.get(), line.get() + request.dwLineSize);
  }
  return client;
}

}  // namespace vox::test
