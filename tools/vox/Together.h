// The same question to several devices at once.
//
// Thread rule: from the main thread; the works run on threads of their own.
#pragma once

#include <cstddef>
#include <functional>

namespace vox::cli {

// RunTogether runs work(0) to work(count - 1), `limit` of them at the same time, and waits for all.
// Works must not throw.
void RunTogether(std::size_t count, std::size_t limit,
                 const std::function<void(std::size_t)>& work);

}  // namespace vox::cli
