// The promises of the JBIG codec, a row each.
//
// operation/group: how many times as fast as libjbig, on processor time, the two taking turns. The
// ratio is the geometric mean over the pages of the group, or the worst page where the row says so,
// and of the variants the slowest: white coded as 0 and as 1, one stripe and stripes of 128 lines,
// templates of two and three lines. All results are compared before any time counts.
// operation/group/instructions/LINES: instructions a pixel, counted by valgrind.
#pragma once

#include <string>

namespace vox::bench {

// `program` is this one, which valgrind is to run.
void RegisterJbigRows(const std::string& program);

// Codes the first page of a group once. `operation` is "decode" or "encode"; writes the number of
// pixels to standard output. Returns the exit status.
int CodeOnce(const std::string& operation, const std::string& group, int lines);

}  // namespace vox::bench
