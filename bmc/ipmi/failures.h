#pragma once

#include <string>

#include "qstd/exception.h"

namespace bmc::ipmi {

/// There was no answer in time, or the board was known not to answer and nothing was sent. A request that changes
/// something may have been executed if WasSent().
class NoAnswer : public qstd::Exception {
public:
    NoAnswer(const std::string& text, bool wasSent) : Exception(text), m_wasSent(wasSent) {}
    bool WasSent() const noexcept { return m_wasSent; }

private:
    bool m_wasSent;
};

}  // namespace bmc::ipmi
