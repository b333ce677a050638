#pragma once

#include <cstdint>

namespace test {

/// Puts this process's calendar clock (CLOCK_REALTIME, gettimeofday, time) off by so many seconds; the steady clock
/// goes on. For programs that are linked with the shim. Any thread.
void SetClockStep(std::int64_t seconds);

/// By how much it is off. Any thread.
std::int64_t GetClockStep();

/// Name in the environment of the file whose first 8 bytes are the step of a program that runs with the shim preloaded
/// (LD_PRELOAD); it is obeyed whenever it changes.
inline constexpr const char* c_clockStepFile = "ZELKOR_TEST_CLOCK_STEP";

}  // namespace test
