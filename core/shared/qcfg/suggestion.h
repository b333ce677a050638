#pragma once

#include <string>
#include <vector>

namespace qcfg {

/// The one of @p known that somebody who wrote @p word most likely meant: the nearest by inserted, left out, changed
/// and exchanged letters, when that is at most one letter in three. Empty when none is that near. Any thread.
std::string FindSimilar(const std::string& word, const std::vector<std::string>& known);

}  // namespace qcfg
