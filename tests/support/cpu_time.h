#pragma once

#include <chrono>
#include <ctime>

namespace test {

/// What the calling thread has had of the processor so far: what a calculation costs, however much else the machine has
/// to do.
inline std::chrono::nanoseconds ThreadCpuTime() {
    timespec used{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

}  // namespace test
