#include "tools/vox/PageFiles.h"

#include <cstdio>

namespace vox::cli {

namespace {

bool HasNumber(const std::string& pattern) {
  return PatternName(pattern, 1) != PatternName(pattern, 2);
}

}  // namespace

std::string PatternName(const std::string& pattern, unsigned page) {
  std::string name;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '%') {
      name += pattern[i];
      continue;
    }
    std::size_t width = 0;
    bool zeros = false;
    for (++i; i < pattern.size() && pattern[i] >= '0' && pattern[i] <= '9'; ++i) {
      zeros = zeros || (width == 0 && pattern[i] == '0');
      width = width * 10 + static_cast<std::size_t>(pattern[i] - '0');
    }
    if (i < pattern.size() && pattern[i] == 'd') {
      const std::string number = std::to_string(page);
      if (number.size() < width) name.append(width - number.size(), zeros ? '0' : ' ');
      name += number;
    } else {
      name += '%';
    }
  }
  return name;
}

PageFiles::PageFiles(const ScanOptions& options, int cancel_fd)
    : batch_(options.batch),
      turned_(options.turned),
      numbered_(options.batch && HasNumber(options.output)),
      output_(options.output),
      format_(options.format),
      cancel_fd_(cancel_fd) {}

void PageFiles::Open(unsigned page) {
  if (writer_) return;
  path_ = batch_ && output_ != "-" ? PatternName(output_, page) : output_;
  writer_ = MakeWriter(path_, format_, turned_, cancel_fd_);
}

void PageFiles::End() {
  writer_->EndPage();
  ++kept_;
  if (!OneForAll()) Finish();
}

void PageFiles::Drop() {
  if (writer_) writer_->DropPage();
}

void PageFiles::Finish() {
  if (writer_ && kept_ > 0) writer_->Finish();
  writer_.reset();
  kept_ = 0;
}

}  // namespace vox::cli
