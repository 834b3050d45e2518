// The two rescaling stages of the line pipeline as plain objects without threads: the horizontal
// stage turns a raw device line into a device line of the client's width, the vertical stage turns
// device lines into client lines. The threads of the session are wrappers around them.
//
//   raw line --HorizontalStage::run--> device line --VerticalStage::begin/add/finish--> client line
//
// A page is described by the client's request and by the scan-information block; both are read at
// construction only, so a stage is a snapshot. Both records may hold anything, as the block comes
// from the device: what no page can be is refused with std::bad_alloc when sizes are worked out,
// and no call below reads or writes outside the sizes that it states.
//
// Units: widths in pixels, lengths in lines, sizes in bytes.
// Thread rule: an object belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vox/drivers/LineVectors.h"
#include "vox/drivers/ScanRecords.h"
#include "vox/drivers/ShrinkSpans.h"
#include "vox/drivers/WidthScaler.h"

namespace vox {

constexpr std::size_t kMaxLineBytes = std::size_t{4} << 20;  // 36 inch in colour at 9,600 dpi, x 4
constexpr std::uint32_t kMaxPageLines = 1u << 24;            // single precision counts no further

// device_depth gives the bits of a device pixel for a DataType: 0 is 1, 2 is 8, 3 is 24; any other
// value is 0, no depth.
unsigned device_depth(std::uint32_t DataType);

// LINE_SIZES tells how large each line buffer must be.
struct LINE_SIZES {
  unsigned depth;           // bits of a device pixel; 0: the page has no lines
  std::size_t raw;          // bytes that the transport delivers for a line
  std::size_t raw_room;     // to allocate for a raw line, zeroed: raw and 16 bytes
  std::size_t trimmed;      // bytes of a device line between its margins, before it is rescaled
  std::size_t device_room;  // to allocate for a line that HorizontalStage::run writes
  std::size_t client_room;  // to allocate for a line that VerticalStage::finish or white writes
};

// line_sizes works the sizes out in 64 bits. device_room and client_room are each at least
// dwLineSize, so a device line may be handed to the client as it is.
// Throws: std::bad_alloc for a line above kMaxLineBytes or a page above kMaxPageLines on either
//         side.
LINE_SIZES line_sizes(const tagTWSCANPARAM& param, const _SCANINFO& info);

// HorizontalStage cuts the margin that the device adds, puts colour bytes into the order asked for
// and rescales from the frame's width in device pixels to dwImageWidth pixels, where the requested
// resolution, cut to an integer, is not the device's.
class HorizontalStage {
 public:
  // Throws: std::bad_alloc, as line_sizes or for want of memory.
  HorizontalStage(const tagTWSCANPARAM& param, const _SCANINFO& info);

  // run reads raw[0, raw) and writes all of out[0, device_room). Pixels that the raw line does not
  // reach are 0, and so is everything behind the last pixel. 1-bit lines cannot be rescaled: they
  // come out as zeros where that is asked for.
  void run(unsigned char* out, const unsigned char* raw);

  // passes_lines: a raw line is already the device line, but for what lies behind the last pixel.
  bool passes_lines() const { return m_whole && !m_rescale && m_margin == 0; }
  // pass does then in line[0, device_room) what run does elsewhere.
  void pass(unsigned char* line) const;

 private:
  void trim(unsigned char* out, const unsigned char* raw) const;
  void trim_planes(unsigned char* out, const unsigned char* raw) const;
  void trim_shifted(unsigned char* out, const unsigned char* raw) const;

  LINE_SIZES m_sizes;
  std::uint32_t m_dwPlanes;           // row of the plane table; 0: colour bytes stay where they are
  std::size_t m_margin;               // whole bytes of the left cut margin
  unsigned m_shift;                   // bits of the margin beyond them, 1-bit lines only
  bool m_rescale;                     // the trimmed line goes through m_scaler
  bool m_whole;                       // the trimmed line lies in the raw one as it is
  WidthScaler m_scaler;               // does nothing for 1-bit lines
  std::vector<unsigned char> m_line;  // trimmed line on its way to m_scaler
};

// LINE_SPAN names the device lines of a client line.
struct LINE_SPAN {
  bool white;               // none: the client line is white, and the other fields are 0
  std::uint32_t lower;      // first; lower <= upper < yExtent
  std::uint32_t upper;      // last; grows or stays from client line to client line
  std::uint32_t keep_from;  // once the client line is made, no later one needs a line below this
};

// VerticalStage makes client lines, in rising order:
//
//   span = stage.span(j);
//   span.white              stage.white(out)
//   stage.passes_lines()    device line span.upper is the client line, buffer and all
//   otherwise               stage.begin(j, out);
//                           stage.add(line) for each device line span.lower to span.upper in order;
//                           stage.finish()
//
// A device line must stay as it is until the add after its own, or finish, has returned. So no
// more than two device lines are needed at a time, however long a span is.
class VerticalStage {
 public:
  // Throws: std::bad_alloc, as line_sizes or for want of memory.
  VerticalStage(const tagTWSCANPARAM& param, const _SCANINFO& info);

  LINE_SPAN span(std::uint32_t j) const;

  // passes_lines: lines are neither rescaled nor reduced to bilevel.
  bool passes_lines() const { return m_mode == PASS && !m_reduce; }

  // begin starts client line j. out[0, client_room) must stay until finish, which leaves every byte
  // of it written; what lies behind the last pixel is 0. j must have a span that is not white.
  void begin(std::uint32_t j, unsigned char* out);
  // add takes the next device line of the span; line[0, device_room) as HorizontalStage wrote it.
  void add(const unsigned char* line);
  void finish();

  // white fills out[0, client_room) with 0xFF, white in every depth.
  void white(unsigned char* out) const;

 private:
  enum MODE { PASS, ENLARGE, SHRINK };
  float place(std::uint32_t j) const;
  void add_blended(const unsigned char* line);
  void copy(const unsigned char* line, std::size_t size);
  void add_shrunk(const unsigned char* line);

  LINE_SIZES m_sizes;
  MODE m_mode;
  bool m_reduce;                // grey lines become bilevel
  std::uint32_t m_dwWidth;      // pixels of a client line
  std::uint32_t m_dwThreshold;  // 0 stands for the default
  std::uint32_t m_yExtent;      // device lines
  std::uint32_t m_dwLength;     // client lines
  std::size_t m_bytes;          // bytes of the pixels that are blended
  ShrinkSpans m_spans;
  std::vector<unsigned char> m_grey;  // the line before it is reduced to bilevel
  std::vector<float> m_sum;           // weighted sum of a span's lines so far (SHRINK)

  // The client line in the making.
  std::uint32_t m_j = 0;
  LINE_SPAN m_span{};
  std::uint32_t m_n = 0;              // next device line
  float m_fTotal = 0;                 // sum of the span's weights; 0: take the last line as is
  LINE_PART m_firstPart{};            // first line of a span, until the second comes
  unsigned char* m_target = nullptr;  // where pixels go: m_grey or m_out
  unsigned char* m_out = nullptr;
};

}  // namespace vox
