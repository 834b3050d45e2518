// JBIG decode and encode beside libjbig in the same run: one row per promise. See JbigRows.h.
//
// jbig_bench --code OPERATION GROUP LINES does one page of a group once and ends: what a profiler
// is to see.
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>

#include <benchmark/benchmark.h>

#include "bench/JbigRows.h"

int main(int argc, char** argv) {
  try {
    if (argc == 5 && std::strcmp(argv[1], "--code") == 0)
      return vox::bench::CodeOnce(argv[2], argv[3], std::atoi(argv[4]));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    vox::bench::RegisterJbigRows(argv[0]);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
  } catch (const std::exception& error) {
    std::cerr << "jbig_bench: " << error.what() << "\n";
    return 1;
  }
  return 0;
}
