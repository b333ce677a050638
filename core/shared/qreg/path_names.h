#pragma once

#include <string_view>

namespace qreg {

/// The names of a path one after another; empty ones are passed over. The text outlives this object.
class PathNames {
public:
    explicit PathNames(std::string_view path) noexcept : m_rest(path) {}

    /// The next name. @return false at the end of the path; @p name is then empty.
    bool Next(std::string_view& name) noexcept {
        while (!m_rest.empty() && m_rest.front() == '/') {
            m_rest.remove_prefix(1);
        }
        name = m_rest.substr(0, m_rest.find('/'));
        m_rest.remove_prefix(name.size());
        return !name.empty();
    }

private:
    std::string_view m_rest;
};

}  // namespace qreg
