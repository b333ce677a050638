#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qreg/access.h"
#include "qreg/subscriptions.h"

namespace qreg {

/// Whether @p path is one of those that the filter wants.
bool WantsPath(const Filter& filter, std::string_view path) noexcept;

/// The present values of all readable nodes that a filter wants, read when they are asked for. One thread at a time.
class PresentWalk {
public:
    /// @param access, filter outlive this object
    PresentWalk(const Access& access, const Filter& filter) : m_access(access), m_filter(filter) {}

    /// The next values, without sequence numbers. Nodes without a value now come with an empty one.
    /// @param max the most of them, at least 1
    /// @param time ends early after so long: a board may be slow
    std::vector<std::shared_ptr<Event>> Next(std::size_t max, std::chrono::milliseconds time);

    bool IsAtEnd() const noexcept { return m_isAtEnd; }

private:
    const Access& m_access;
    const Filter& m_filter;
    std::string m_last;  ///< path of the node visited last; empty: none yet
    bool m_isAtEnd = false;
};

}  // namespace qreg
