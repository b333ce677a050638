#pragma once

#include <atomic>
#include <cstddef>

namespace qreg::corba {

/// Whether one more connection may stay: by the number of open descriptors, because the transport does not tell when a
/// connection ends. New descriptors take the lowest free number, so the lowest free number is at most the count, and
/// equal to it once the gaps are filled.
class DescriptorLimit {
public:
    /// Descriptors that are kept for the rest of the program: logs, boards, a look into /proc.
    static constexpr std::size_t c_reserve = 32;

    /// Makes room for @p connections besides what is open now: raises this process's limit as far as needed and
    /// allowed. Says so in the log when that is not enough.
    void Begin(std::size_t connections);

    /// Whether a connection that was accepted just now may stay. Any thread; costs two system calls.
    bool IsRoom() const noexcept;

private:
    std::atomic<std::size_t> m_limit{0};
};

}  // namespace qreg::corba
