#pragma once

#include <atomic>
#include <cstddef>

namespace qreg::corba {

/// Whether one more connection may stay. The transport does not tell when a connection ends, so it goes by the open
/// descriptors: a new one takes the lowest free number, and so many numbers are free below the limit as there may be
/// connections.
class DescriptorLimit {
public:
    /// Descriptors that are kept for the rest of the program: logs, boards, a look into /proc.
    static constexpr std::size_t c_reserve = 32;

    /// Descriptors beyond those, where they are allowed: a connection has its own until it is refused, and a thousand
    /// clients that come at the same moment would leave the rest of the program none.
    static constexpr std::size_t c_forSurplus = 4096;

    /// Makes room for @p connections besides what is open now: raises this process's limit as far as needed and
    /// allowed. Says so in the log when that is not enough.
    void Begin(std::size_t connections);

    /// Whether Begin was called. Any thread.
    bool HasBegun() const noexcept { return m_limit != 0; }

    /// Whether a connection whose descriptor has the number @p descriptor may stay. Any thread.
    bool IsRoomFor(int descriptor) const noexcept { return static_cast<std::size_t>(descriptor) < m_limit; }

    /// Shuts down the connections to @p port: who waits for one of them waits no longer.
    void ShutDown(int port) const noexcept;

private:
    std::atomic<std::size_t> m_limit{0};  ///< connections have lower numbers
};

}  // namespace qreg::corba
