// LineLead says how far the stages of a page may run ahead of the client, so that a page of any
// size fits in memory when the client is slow, and no semaphore of the page comes near its greatest
// value.
//
//   device lines   0 ....... released ............... read so far
//                            |<------- the lead ------>|
//   released: every client line that needs a lower device line has been handed out
//
// The lead is at most kLeadLines lines and kLeadBytes bytes, a device line counting as much as the
// largest form that it takes on its way: raw, rescaled, or the client lines that are made of it.
// The client lines that wait for the client have a bound of their own, of the same size, for pages
// that make many of one device line.
//
// One client line may need more device lines than that (a page shrunk to a few lines). The lines of
// the client's next line may therefore always be read, as long as no more than the lead of them are
// in memory; the vertical stage adds them up and frees them one by one.
//
// Thread rule: constant after construction; any thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vox/drivers/LineStages.h"

namespace vox {

constexpr std::uint32_t kLeadLines = 16384;
constexpr std::size_t kLeadBytes = std::size_t{64} << 20;

class LineLead {
 public:
  // vertical is kept and must outlive the object; only its span() is called.
  LineLead(const LINE_SIZES& sizes, const VerticalStage& vertical, std::uint32_t yExtent,
           std::uint32_t dwImageLength);

  // may_read: device line i may be read when `taken` client lines have been handed out and the
  // vertical stage has freed the device lines below `freed`.
  bool may_read(std::uint32_t i, std::uint32_t taken, std::uint32_t freed) const;

  // may_make: client line j may be made when `taken` client lines have been handed out.
  bool may_make(std::uint32_t j, std::uint32_t taken) const {
    return std::uint64_t{j} < std::uint64_t{taken} + m_client_lines;
  }

  std::uint32_t device_lines() const { return m_device_lines; }  // the lead, 2 to kLeadLines
  std::uint32_t client_lines() const { return m_client_lines; }  // its like, 1 to kLeadLines

 private:
  const VerticalStage& m_vertical;
  std::uint32_t m_dwLength;
  std::uint32_t m_device_lines;
  std::uint32_t m_client_lines;
};

}  // namespace vox
