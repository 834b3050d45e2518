// LinePool keeps the line buffers that a page is through with and hands them out for the lines to
// come, so that a page takes as many lines from the heap as it holds at a time, and not one for
// every line that it has.
//
//   taker (one thread)     any thread of the page
//   take() <---- kept <---- give()         nothing kept: take() goes to the heap
//
// A pool keeps no more lines than were out of it at a time; what bounds those bounds it too
// (LineLead.h). Once the last line of the page is taken nothing is kept any more: what comes back
// goes to the heap, while the client still reads. What the taker left undone, clear() ends.
//
// Owner: a line that is out belongs to who holds it, who may free it as well as give it back.
// Thread rule: take() is for one thread, give() for any, clear() while none of them runs.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace vox {

// LineBuffer owns one line; lines are made with malloc or calloc.
struct LineFree {
  void operator()(unsigned char* line) const { std::free(line); }
};
using LineBuffer = std::unique_ptr<unsigned char, LineFree>;

// new_line gives `size` bytes, cleared_line gives them zeroed. Throws: std::bad_alloc.
LineBuffer new_line(std::size_t size);
LineBuffer cleared_line(std::size_t size);

class LinePool {
 public:
  // Lines of `room` bytes, of which a page takes `lines`.
  LinePool(std::size_t room, std::uint32_t lines);
  ~LinePool() { clear(); }
  LinePool(const LinePool&) = delete;
  LinePool& operator=(const LinePool&) = delete;

  // take gives a line whose bytes are anything. Throws: std::bad_alloc.
  LineBuffer take();
  // give takes back a line of room() bytes, of this pool or made with new_line; null is nothing.
  void give(LineBuffer line);
  void clear();  // frees what is kept

  std::size_t room() const { return m_room; }  // bytes of a line

 private:
  // What is kept is linked in the lines themselves.
  struct KEPT {
    KEPT* next;
  };
  static void free_all(KEPT* first);

  const std::size_t m_room;
  std::atomic<std::uint32_t> m_left;     // lines to take yet; written by the taker
  KEPT* m_mine = nullptr;                // the taker's own
  std::atomic<KEPT*> m_given = nullptr;  // given since it last ran out of them
};

}  // namespace vox
