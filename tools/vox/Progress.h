// Progress draws a bar for the page that is being scanned, on a terminal only.
//
// Thread rule: one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace vox::cli {

class Progress {
 public:
  // Nothing is ever drawn when `shown` is false.
  explicit Progress(bool shown) : shown_(shown) {}
  ~Progress() { Clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Show is cheap: it draws ten times a second at most.
  void Show(unsigned page, std::uint32_t lines, std::uint32_t all_lines);
  // Clear wipes the bar, so that text can be printed.
  void Clear();

 private:
  const bool shown_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point next_{};
};

// ProgressBar gives the text of a bar: "Page 2 [#####-----]  50 %".
std::string ProgressBar(unsigned page, std::uint32_t lines, std::uint32_t all_lines);

}  // namespace vox::cli
