// The pages that the JBIG benchmarks code: rendered text, a drawing, speckle, halftones and scans.
// See bench/make-pages, which makes them.
//
// Thread rule: one thread.
#pragma once

#include <string>
#include <vector>

#include "tests/support/JbigDriver.h"

namespace vox::bench {

struct CorpusPage {
  std::string name;
  test::Picture picture;  // 1 is black
};

// PageGroup returns the pages of a group, made or read on the first call:
//   text300, text600       clean text
//   dense                  small print all over the page
//   sparse, blank          a few lines; nothing
//   speckle0.2, speckle2   clean text, 300 dpi, with that part of all pixels, in percent, the other
//   way round halftone, diffused     a picture, as a clustered halftone and by Floyd and Steinberg
//   scans                  real scans; empty where their folder is missing
// Throws std::runtime_error when the pages cannot be made.
const std::vector<CorpusPage>& PageGroup(const std::string& group);

// The picture with white coded as 1, zeros beyond its width all the same.
test::Picture Inverted(const test::Picture& picture);

}  // namespace vox::bench
