#pragma once

#include <chrono>
#include <iosfwd>
#include <string>
#include <vector>

#include "tools/chassisctl/control_client.h"

namespace chassisctl {

inline constexpr int c_exitDone = 0;
inline constexpr int c_exitRefused = 1;   ///< wrong usage, or the daemon or the file does not allow it
inline constexpr int c_exitNoAnswer = 2;  ///< no daemon, or no controller, answers

/// Where a command reads and writes.
struct Streams {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
};

/// Carries out one command line. What went wrong is said on `err` in one line.
/// @param arguments without the program's name
/// @param limit how long the daemon may take to answer
/// @return the exit status
int Run(const std::vector<std::string>& arguments, Streams streams,
        std::chrono::milliseconds limit = ControlClient::c_usualLimit);

}  // namespace chassisctl
