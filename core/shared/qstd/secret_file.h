#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qstd {

/// What stands in a file that nobody but its owner may read: a password, a private key. Wiped from memory at the end.
/// Any thread, each with its own.
class SecretFile {
public:
    /// Reads the file. Takes no longer than a read of a file does, whatever is under its name.
    /// @param kind what messages call it: "password file"
    /// @param mayGroupRead whether its group may read it, too: the service manager keeps credentials like that
    /// @param most how many bytes are read; what stands behind them is left
    /// @throws Exception "KIND PATH: text", never with what is in it, when it cannot be read, is no regular file,
    /// belongs
    ///         to neither root nor the effective user, or when others can read or write it.
    SecretFile(const std::string& kind, const std::string& path, bool mayGroupRead, std::size_t most);
    SecretFile(const SecretFile&) = delete;
    SecretFile& operator=(const SecretFile&) = delete;
    ~SecretFile();

    /// Not to be copied.
    std::string_view Reveal() const noexcept { return {m_bytes.data(), m_size}; }

private:
    std::vector<char> m_bytes;
    std::size_t m_size = 0;
};

}  // namespace qstd
