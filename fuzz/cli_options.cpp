// Command lines: whatever is typed either means something or is refused with one line and status
// 64; what is accepted holds to its own bounds.
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "tools/vox/Failure.h"
#include "tools/vox/Options.h"
#include "tools/vox/PageFiles.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

void Check(const vox::cli::ScanOptions& scan) {
  Require(!scan.output.empty());
  Require(scan.brightness >= -100 && scan.brightness <= 100);
  Require(scan.contrast >= -100 && scan.contrast <= 100);
  Require(!scan.threshold || (*scan.threshold >= 1 && *scan.threshold <= 255));
  if (scan.resolution) Require(scan.resolution->x > 0 && scan.resolution->y > 0);
  if (scan.frame) Require(scan.frame->Width() > 0 && scan.frame->Height() > 0);
  if (scan.frame) Require(scan.frame->left >= 0 && scan.frame->top >= 0);
  if (!scan.batch) return;
  const bool numbered =
      vox::cli::PatternName(scan.output, 1) != vox::cli::PatternName(scan.output, 2);
  Require(numbered || scan.output == "-" || vox::cli::HoldsManyPages(scan.format));
}

}  // namespace

// Words are separated by newlines.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words;
  std::string word;
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == '\n') {
      words.push_back(std::exchange(word, {}));
    } else if (data[i] != 0) {
      word += static_cast<char>(data[i]);
    }
  }
  if (!word.empty()) words.push_back(word);
  try {
    const vox::cli::Command command = vox::cli::ParseCommandLine(words, false);
    if (const auto* scan = std::get_if<vox::cli::ScanOptions>(&command)) Check(*scan);
  } catch (const vox::cli::Failure& failure) {
    Require(failure.Status() == vox::cli::ExitStatus::kUsage);
    Require(std::string(failure.what()).find('\n') == std::string::npos);
  }
  return 0;
}
