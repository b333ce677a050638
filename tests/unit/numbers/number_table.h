#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace test {

/// Conversions of one kind: a line for each, of which a digest is kept and every so many lines.
class NumberSection {
public:
    /// @param stride every how many lines one is kept: 1 keeps all
    explicit NumberSection(std::string name, std::size_t stride = 1) : m_name(std::move(name)), m_stride(stride) {}

    void Add(const std::string& line);

    /// "== NAME: N lines, digest D" and the lines kept.
    std::string Text() const;

private:
    std::string m_name;
    std::size_t m_stride;
    std::size_t m_count = 0;
    std::uint64_t m_digest = 0xcbf29ce484222325U;  // FNV-1a
    std::string m_kept;
};

/// Numbers that differ in every bit, the same on every machine.
class NumberSource {
public:
    std::uint64_t Next();

private:
    std::uint64_t m_state = 1;
};

// Each the text of one or more sections.
std::string TextNumbers();
std::string FanNumbers();
std::string IpmiNumbers();
std::string TimeNumbers();
std::string ModelNumbers();

/// The whole table. @param stride as of NumberSection in place of each section's own; 0 leaves those
std::string NumberTable(std::size_t stride = 0);

}  // namespace test
