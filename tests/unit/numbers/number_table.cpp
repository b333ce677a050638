#include "number_table.h"

#include <fmt/format.h>

namespace test {

namespace {

std::size_t g_stride = 0;

}  // namespace

void NumberSection::Add(const std::string& line) {
    constexpr std::uint64_t c_prime = 0x100000001b3U;
    for (const char character : line + "\n") {
        m_digest = (m_digest ^ static_cast<unsigned char>(character)) * c_prime;
    }
    if (m_count % (g_stride != 0 ? g_stride : m_stride) == 0) {
        m_kept += line + "\n";
    }
    ++m_count;
}

std::string NumberSection::Text() const {
    return fmt::format("== {}: {} lines, digest {:016x}\n{}", m_name, m_count, m_digest, m_kept);
}

std::uint64_t NumberSource::Next() {
    m_state ^= m_state << 13U;
    m_state ^= m_state >> 7U;
    m_state ^= m_state << 17U;
    return m_state;
}

std::string NumberTable(std::size_t stride) {
    g_stride = stride;
    return TextNumbers() + FanNumbers() + IpmiNumbers() + TimeNumbers() + ModelNumbers();
}

}  // namespace test
