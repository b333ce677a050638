#pragma once

#include <string>
#include <vector>

namespace qstd {

/// Splits @p text at every @p separator. Tokens are not trimmed; empty tokens are skipped ("16,17," is two tokens).
std::vector<std::string> TokenizeString(const std::string& text, char separator);

/// The name of the running program without its folder. Callable from any thread.
std::string GetProgName();

/// @p text cut to what may stand in one line of a log: control characters become "?".
std::string OneLine(const std::string& text);

}  // namespace qstd
