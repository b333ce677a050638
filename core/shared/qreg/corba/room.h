#pragma once

#include <cstddef>

namespace qreg::corba {

/// What is left for the items of one reply.
class Room {
public:
    explicit Room(std::size_t bytes) : m_left(bytes) {}

    /// Takes @p bytes when there are so many.
    bool Take(std::size_t bytes) noexcept {
        if (bytes > m_left) {
            return false;
        }
        m_left -= bytes;
        return true;
    }

private:
    std::size_t m_left;
};

}  // namespace qreg::corba
