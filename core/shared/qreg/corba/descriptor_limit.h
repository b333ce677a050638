#pragma once

#include <atomic>
#include <cstddef>

namespace qreg::corba {

/// Whether one more connection may stay, by the number of its descriptor, because the transport does not tell when a
/// connection ends. A new descriptor takes the lowest free number: so connections whose numbers are below the limit are
/// never more than it allows, however many come at once, and every number below it can be taken again.
class DescriptorLimit {
public:
    /// Descriptors that are kept for the rest of the program: logs, boards, a look into /proc.
    static constexpr std::size_t c_reserve = 32;

    /// Makes room for @p connections besides what is open now: raises this process's limit as far as needed and
    /// allowed. Says so in the log when that is not enough.
    void Begin(std::size_t connections);

    /// Whether a connection that was accepted just now, with this descriptor, may stay. Any thread.
    bool IsRoom(int descriptor) const noexcept;

private:
    std::atomic<std::size_t> m_limit{0};
};

}  // namespace qreg::corba
