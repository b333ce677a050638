#pragma once

#include <string>

// What lines of a settings report begin with: 35 blanks stand below the text of the log, the rest is indentation.

inline const std::string c_s35(35, ' ');
inline const std::string c_s37(37, ' ');
inline const std::string c_s38(38, ' ');
