#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace bmc::ipmi {

/// Where the password of an account is kept. Passwords are read when a session is opened
/// and are not kept here; the IPMI library keeps its copy as long as the session is open.
struct PasswordSource {
    std::string path{};         ///< absolute; empty: there is no account, a device asks for none
    bool isCredential = false;  ///< kept by the service manager, which may let the service's group read it

    friend bool operator==(const PasswordSource&, const PasswordSource&) = default;
};

/// A password in memory, wiped at the end. There is no way to print it but to ask for its text. Used by one thread.
class Secret {
public:
    /// What IPMI v2.0 has room for, in bytes.
    static constexpr std::size_t c_maxSize = 20;

    /// @pre @p size is at most c_maxSize
    Secret(const char* text, std::size_t size);
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    ~Secret();

    /// The password with a null byte at its end, for whoever opens the session. Not to be copied.
    const char* Reveal() const noexcept { return m_text.data(); }
    std::size_t GetSize() const noexcept { return m_size; }

private:
    std::array<char, c_maxSize + 1> m_text{};
    std::size_t m_size;
};

/// Reads a password: the only line of a file that nobody but root or the effective user can read or write (of a
/// credential: its group may read it, too). Blocks no longer than a read of a file does. Any thread may call it.
/// @throws qstd::Exception naming the file and what is wrong with it, never the password
Secret ReadPassword(const PasswordSource& source);

}  // namespace bmc::ipmi
