// Threads for questions to several devices at once. Inside the library only.
//
// They take no signals, which are the program's. Bodies and works must not throw.
#pragma once

#include <functional>
#include <thread>
#include <vector>

namespace vox {

// start_thread adds a thread to *threads; false when none can be had, for want of memory too.
// Throws nothing once `body` is made of what it is given.
bool start_thread(std::vector<std::thread>* threads, const std::function<void()>& body);

// run_all runs work(0) to work(count - 1), `limit` of them at the same time as far as threads can
// be had, and waits for all. The caller's thread is one of them. Throws nothing.
void run_all(int count, int limit, const std::function<void(int)>& work);

}  // namespace vox
