// PageFiles decides into which file each page of a scan goes, and keeps the writers: one file for
// one page, one file a page by a pattern, or one file for all pages.
//
//   Begin -> Writer() ... -> End      for each page; Drop instead of End for a page that failed
//   Finish                            files that hold many pages appear now
//
// Errors: Failure. Thread rule: one thread at a time.
#pragma once

#include <memory>
#include <string>

#include "tools/vox/Options.h"
#include "tools/vox/writers/ImageWriter.h"

namespace vox::cli {

// PatternName puts `page` where %d (%03d) stands; "%%" becomes "%".
std::string PatternName(const std::string& pattern, unsigned page);

class PageFiles {
 public:
  PageFiles(const ScanOptions& options, int cancel_fd);

  // Open opens the file of page `page` (1 is the first) unless it is open already. It may be called
  // before the scan starts, so that a file that cannot be written is known before paper moves.
  void Open(unsigned page);
  ImageWriter& Writer() { return *writer_; }
  // Path is the file that takes the current page.
  const std::string& Path() const { return path_; }

  void End();   // of a page, whole
  void Drop();  // the page that was begun
  void Finish();
  // PagesKept says how many whole pages a file holds that Finish has still to bring out.
  unsigned PagesKept() const { return kept_; }

 private:
  bool OneForAll() const { return batch_ && !numbered_; }

  const bool batch_, turned_;
  const bool numbered_;  // the output is a pattern
  const std::string output_;
  const ImageFormat format_;
  const int cancel_fd_;
  std::string path_;
  std::unique_ptr<ImageWriter> writer_;
  unsigned kept_ = 0;
};

}  // namespace vox::cli
