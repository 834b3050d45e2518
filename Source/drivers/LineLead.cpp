#include "vox/drivers/LineLead.h"

#include <algorithm>

namespace vox {
namespace {

// lines_of gives how many lines of `bytes` bytes the lead holds, not fewer than `least`.
std::uint32_t lines_of(std::uint64_t bytes, std::uint32_t least) {
  const std::uint64_t lines = bytes == 0 ? kLeadLines : kLeadBytes / bytes;
  return static_cast<std::uint32_t>(
      std::clamp<std::uint64_t>(lines, std::uint64_t{least}, std::uint64_t{kLeadLines}));
}

// client_bytes gives the bytes of the client lines that are made of one device line, rounded up.
std::uint64_t client_bytes(const LINE_SIZES& sizes, std::uint32_t yExtent, std::uint32_t length) {
  if (yExtent == 0) return 0;
  return (std::uint64_t{sizes.client_room} * length + yExtent - 1) / yExtent;
}

}  // namespace

LineLead::LineLead(const LINE_SIZES& sizes, const VerticalStage& vertical, std::uint32_t yExtent,
                   std::uint32_t dwImageLength)
    : m_vertical(vertical),
      m_dwLength(dwImageLength),
      m_device_lines(
          lines_of(std::max({std::uint64_t{sizes.raw_room}, std::uint64_t{sizes.device_room},
                             client_bytes(sizes, yExtent, dwImageLength)}),
                   2)),  // a blend needs two lines at a time
      m_client_lines(lines_of(sizes.client_room, 1)) {}

bool LineLead::may_read(std::uint32_t i, std::uint32_t taken, std::uint32_t freed) const {
  if (m_dwLength == 0) return i < m_device_lines;
  // Lines that no client line needs any more count as ahead of the last one.
  const LINE_SPAN next = m_vertical.span(std::min(taken, m_dwLength - 1));
  if (next.white) return true;
  const bool within_lead = std::uint64_t{i} < std::uint64_t{next.lower} + m_device_lines;
  return within_lead ||
         (i <= next.upper && std::uint64_t{i} < std::uint64_t{freed} + m_device_lines);
}

}  // namespace vox
