#pragma once

#include <chrono>
#include <future>
#include <list>
#include <mutex>
#include <optional>
#include <string_view>

#include "qreg/access.h"

namespace qreg {

/// What nodes hold before clients write them, for the log. A write acts on hardware and is not kept waiting for a line
/// of the log: a value that the board is slow to tell is left out. Any thread, many at once.
class ValueBefore {
public:
    /// The most reads that came too late and still run: with as many, no further one is begun,
    /// for they keep the board busy.
    static constexpr std::size_t c_mostLate = 4;

    /// @param access outlives this object
    /// @param patience how long a write may be kept waiting
    ValueBefore(const Access& access, std::chrono::milliseconds patience) : m_access(access), m_patience(patience) {}

    /// Waits for the reads that came too late.
    ~ValueBefore() = default;
    ValueBefore(const ValueBefore&) = delete;
    ValueBefore& operator=(const ValueBefore&) = delete;

    /// Access::ReadBeforeWrite, asked on a thread of its own. None when the answer does not come in time: it is dropped
    /// then, so what is returned is never a value from after the write. Never throws but for want of memory.
    std::optional<Outcome> Read(std::string_view path);

private:
    bool HasRoom();

    const Access& m_access;
    const std::chrono::milliseconds m_patience;
    std::mutex m_mutex;                      ///< guards m_late
    std::list<std::future<Outcome>> m_late;  ///< each waits for its thread when it goes
};

}  // namespace qreg
