#pragma once

#include <string>

namespace qstd {

/// Names the calling thread for those who look into the process (top, debuggers, /proc); cut to 15 characters.
void SetThreadName(const std::string& name);

}  // namespace qstd
