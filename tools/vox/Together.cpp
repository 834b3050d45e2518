#include "tools/vox/Together.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

namespace vox::cli {

void RunTogether(std::size_t count, std::size_t limit,
                 const std::function<void(std::size_t)>& work) {
  std::atomic<std::size_t> next{0};
  const auto run = [&] {
    for (std::size_t i = next++; i < count; i = next++) work(i);
  };
  std::vector<std::thread> threads;
  threads.reserve(std::min(count, limit));
  try {
    while (threads.size() + 1 < std::min(count, limit)) threads.emplace_back(run);
  } catch (const std::system_error&) {  // those that could be had do the work
  }
  run();
  for (std::thread& thread : threads) thread.join();
}

}  // namespace vox::cli
