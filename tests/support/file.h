#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace test {

inline bool Exists(const std::string& path) {
    return std::filesystem::exists(path);
}

/// All of a file; empty when it is not there.
inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// The lines of a file without their newlines.
inline std::vector<std::string> ReadLines(const std::string& path) {
    std::vector<std::string> lines;
    std::istringstream text(ReadFile(path));
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

}  // namespace test
