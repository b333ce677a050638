#pragma once

#include <ostream>

#include "qstd/exception.h"

namespace regctl {

inline constexpr const char* c_program = "zelkor-regctl";

inline constexpr int c_exitDone = 0;
inline constexpr int c_exitError = 1;  ///< an error raised by the node or the server, or wrong usage
inline constexpr int c_exitNoServer = 2;
inline constexpr int c_exitNoValue = 3;  ///< the node has no value now
inline constexpr int c_exitNoNode = 4;

// What a terminal understands as colours.
inline constexpr const char* c_red = "\x1b[31m";
inline constexpr const char* c_yellow = "\x1b[33m";
inline constexpr const char* c_usual = "\x1b[0m";

/// Where and how a command writes.
struct Output {
    std::ostream& out;
    std::ostream& err;
    bool isTerminal = false;  ///< for the eye
    bool hasColour = false;
    bool isJson = false;
};

/// Nobody reads standard output any more, or it cannot be written.
class OutputFailure : public qstd::Exception {
public:
    OutputFailure() : qstd::Exception("standard output cannot be written") {}
};

/// @throws OutputFailure when what was written did not arrive.
inline void Flush(const Output& output) {
    output.out.flush();
    if (!output.out.good()) {
        throw OutputFailure();
    }
}

}  // namespace regctl
