#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace regctl {

/// How to speak TLS with a server.
struct TlsFiles {
    std::string ca;           ///< certificates to one of which the server's must lead
    std::string certificate;  ///< of the one who asks; empty: none
    std::string key;          ///< of the certificate
    std::string serverName;   ///< that the server's certificate must be for; empty: the host
};

/// Where the server is, and what it speaks.
struct ServerName {
    std::string host = "127.0.0.1";  ///< name or address, IPv6 without brackets
    int port = 5678;
    std::optional<TlsFiles> tls{};  ///< none: in clear
};

/// What the words of the command line ask for.
struct CommandLine {
    ServerName server;
    std::vector<std::string> words;  ///< the command and its arguments
    bool help = false;
    bool version = false;
    bool json = false;
    // Of `watch`.
    std::optional<std::size_t> count;
    std::optional<std::chrono::milliseconds> timeout;
};

/// Options may stand anywhere; a word that begins with one "-" (a negative number) is an argument, and after "--"
/// every word is.
/// @param arguments without the program's name
/// @throws qstd::Exception saying what is wrong with them.
CommandLine ParseCommandLine(const std::vector<std::string>& arguments);

/// HOST[:PORT]; an IPv6 address in brackets, or as it is when no port follows.
/// @throws qstd::Exception naming the text.
ServerName ParseServer(const std::string& text);

/// What `--help` prints.
std::string HelpText();

}  // namespace regctl
