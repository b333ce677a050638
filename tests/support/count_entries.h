#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <string>

namespace test {

/// How many entries a folder has, for example "/proc/self/fd".
inline std::ptrdiff_t CountEntries(const std::string& folder) {
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

}  // namespace test
