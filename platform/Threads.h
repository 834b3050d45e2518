// Threads for the same question to several at once. For the library's inside and its programs.
//
// They take no signals, which are the program's.
#pragma once

#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

#include "vox/platform/Export.h"

namespace vox {

// StartThread adds a thread to *threads; false when none can be had, for want of memory too. Throws
// nothing once `body` is made of what it is given. The body must not throw.
VOX_EXPORT bool StartThread(std::vector<std::thread>* threads, const std::function<void()>& body);

// RunTogether runs work(0) to work(count - 1), `limit` of them at the same time as far as threads
// can be had, and waits for all. The caller's thread is one of them.
// Throws what a work threw first, once those that had begun are over; the others are left out.
// Nothing else.
VOX_EXPORT void RunTogether(std::size_t count, std::size_t limit,
                            const std::function<void(std::size_t)>& work);

}  // namespace vox
