#include "tools/vox/Progress.h"

#include <cstdio>

namespace vox::cli {

namespace {

constexpr unsigned kBarWidth = 40;
constexpr std::chrono::milliseconds kBetween{100};

}  // namespace

std::string ProgressBar(unsigned page, std::uint32_t lines, std::uint32_t all_lines) {
  const std::uint64_t all = all_lines == 0 ? 1 : all_lines;
  const auto filled = static_cast<unsigned>(std::uint64_t{lines} * kBarWidth / all);
  const auto percent = static_cast<unsigned>(std::uint64_t{lines} * 100 / all);
  char number[16];
  std::snprintf(number, sizeof number, "] %3u %%", percent);
  return "Page " + std::to_string(page) + " [" + std::string(filled, '#') +
         std::string(kBarWidth - filled, '-') + number;
}

void Progress::Show(unsigned page, std::uint32_t lines, std::uint32_t all_lines) {
  if (!shown_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now < next_ && lines != all_lines) return;
  next_ = now + kBetween;
  std::fprintf(stderr, "\r%s", ProgressBar(page, lines, all_lines).c_str());
  drawn_ = true;
}

void Progress::Clear() {
  if (drawn_) std::fputs("\r\033[K", stderr);
  drawn_ = false;
}

}  // namespace vox::cli
