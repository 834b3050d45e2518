#include "bench/ScanUsage.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

#include <sys/resource.h>
#include <unistd.h>

namespace vox::bench {
namespace {

using Clock = std::chrono::steady_clock;

double CpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double PeakMib() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    double kib = 0;
    if (word == "VmHWM:" && status >> kib) return kib / 1024;
  }
  return 0;
}

}  // namespace

UsageWatch::UsageWatch() : start_(Clock::now()), cpu_(CpuSeconds()) {}

void UsageWatch::Fill(Usage& usage) const {
  usage.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
  usage.cpu_share = (CpuSeconds() - cpu_) / usage.seconds;
  usage.peak_mib = PeakMib();
}

std::string OwnProgram() {
  std::vector<char> path(4096);
  const ssize_t size = ::readlink("/proc/self/exe", path.data(), path.size());
  return {path.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

Usage RunForUsage(const std::string& command) {
  Usage usage;
  std::FILE* out = ::popen(command.c_str(), "re");
  if (out == nullptr) return usage;
  int done = 0;
  const bool read = std::fscanf(out, "%d %lf %lf %lf %lf %lf", &done, &usage.lines, &usage.bytes,
                                &usage.peak_mib, &usage.cpu_share, &usage.seconds) == 6;
  usage.done = ::pclose(out) == 0 && read && done == 1;
  return usage;
}

void PrintUsage(const Usage& usage) {
  std::printf("%d %.0f %.0f %.3f %.6f %.6f\n", usage.done ? 1 : 0, usage.lines, usage.bytes,
              usage.peak_mib, usage.cpu_share, usage.seconds);
}

}  // namespace vox::bench
