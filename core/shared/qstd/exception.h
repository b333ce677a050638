#pragma once

#include <exception>
#include <string>

namespace qstd {

/// The one exception type that this system raises. Immutable, so safe to read from any thread.
class Exception : public std::exception {
public:
    /// @param text what went wrong: subject, value and limit, ready to be shown.
    /// @param flag the text is a complete statement to whoever made the request (a remote client, an operator): it is
    ///        passed on as it stands. Without the flag the catcher may put its own context in front.
    explicit Exception(std::string text, bool flag = false);

    /// The text, letter by letter as given.
    const char* what() const noexcept override;

    /// The flag given at construction.
    bool GetFlag() const noexcept;

private:
    std::string m_text;
    bool m_flag;
};

}  // namespace qstd
