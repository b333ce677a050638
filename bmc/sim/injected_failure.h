#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string>

#include "qstd/exception.h"

namespace bmc::sim {

/// An error that every access raises while it is set. All operations may be called from any thread; while none is set
/// Check costs one load.
class InjectedFailure {
public:
    void Set(const std::string& text) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_text = text;
        m_isSet.store(true, std::memory_order_release);
    }

    void Clear() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_text.reset();
        m_isSet.store(false, std::memory_order_release);
    }

    /// The text of the error, nothing when none is set.
    std::optional<std::string> GetText() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_text;
    }

    /// @throws qstd::Exception the error that is set.
    void Check() const {
        if (m_isSet.load(std::memory_order_acquire)) {
            if (const auto text = GetText()) {
                throw qstd::Exception(*text);
            }
        }
    }

private:
    mutable std::mutex m_mutex;  ///< guards m_text
    std::optional<std::string> m_text;
    std::atomic<bool> m_isSet{false};
};

}  // namespace bmc::sim
