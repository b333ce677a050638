#include "tools/regctl/command_line.h"

#include <algorithm>
#include <boost/program_options.hpp>
#include <limits>

#include "qstd/exception.h"
#include "qstd/from_chars.h"

namespace regctl {

namespace po = boost::program_options;

namespace {

template <class T>
std::optional<T> ParseNumber(const std::string& text) {
    T number{};
    const auto [stop, error] = qstd::FromChars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || stop != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

int ParsePort(const std::string& text, const std::string& server) {
    constexpr int c_largest = 65535;
    const auto port = ParseNumber<int>(text);
    if (!port || *port < 1 || *port > c_largest) {
        throw qstd::Exception("port \"" + text + "\" of server \"" + server + "\" is not a number from 1 to " +
                              std::to_string(c_largest));
    }
    return *port;
}

std::size_t ParseCount(const std::string& text) {
    const auto count = ParseNumber<std::size_t>(text);
    if (!count || *count == 0) {
        throw qstd::Exception("--count \"" + text + "\" is not a number from 1 up");
    }
    return *count;
}

std::chrono::milliseconds ParseTimeout(const std::string& text) {
    constexpr double c_most = 1e9;  // some thirty years
    const auto seconds = ParseNumber<double>(text);
    if (!seconds || !(*seconds >= 0 && *seconds <= c_most)) {
        throw qstd::Exception("--timeout \"" + text + "\" is not a number of seconds from 0 to 1000000000");
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(*seconds));
}

/// @throws qstd::Exception naming an option that lacks another one.
std::optional<TlsFiles> ReadTls(bool isTls, const po::variables_map& found) {
    const auto text = [&](const char* option) {
        return found.count(option) != 0 ? found[option].as<std::string>() : std::string();
    };
    const TlsFiles files{text("ca"), text("certificate"), text("key"), text("server-name")};
    if (!isTls) {
        for (const char* option : {"ca", "certificate", "key", "server-name"}) {
            if (found.count(option) != 0) {
                throw qstd::Exception("--" + std::string(option) + " goes with --tls");
            }
        }
        return std::nullopt;
    }
    if (files.ca.empty()) {
        throw qstd::Exception("--tls needs --ca: the certificates that the server's must lead to");
    }
    if (files.certificate.empty() != files.key.empty()) {
        throw qstd::Exception("--certificate and --key go together");
    }
    return files;
}

}  // namespace

ServerName ParseServer(const std::string& text) {
    ServerName server;
    std::string rest;
    const std::size_t colon = text.find(':');
    if (text.starts_with('[')) {
        const std::size_t end = text.find(']');
        if (end == std::string::npos) {
            throw qstd::Exception("server \"" + text + "\" has no \"]\"");
        }
        server.host = text.substr(1, end - 1);
        rest = text.substr(end + 1);
    } else if (std::count(text.begin(), text.end(), ':') == 1) {
        server.host = text.substr(0, colon);
        rest = text.substr(colon);
    } else {
        server.host = text;
    }
    if (server.host.empty()) {
        throw qstd::Exception("server \"" + text + "\" has no host");
    }
    if (!rest.empty()) {
        if (!rest.starts_with(':')) {
            throw qstd::Exception("server \"" + text + "\" is not HOST[:PORT]");
        }
        server.port = ParsePort(rest.substr(1), text);
    }
    return server;
}

CommandLine ParseCommandLine(const std::vector<std::string>& arguments) {
    CommandLine line;
    bool isTls = false;
    po::options_description options;
    // clang-format off
    options.add_options()
        ("server", po::value<std::string>())
        ("help", po::bool_switch(&line.help))
        ("version", po::bool_switch(&line.version))
        ("json", po::bool_switch(&line.json))
        ("tls", po::bool_switch(&isTls))
        ("ca", po::value<std::string>())
        ("certificate", po::value<std::string>())
        ("key", po::value<std::string>())
        ("server-name", po::value<std::string>())
        ("count", po::value<std::string>())
        ("timeout", po::value<std::string>())
        ("word", po::value(&line.words));
    // clang-format on
    po::positional_options_description positional;
    positional.add("word", -1);
    // No short options: "-5" is a number.
    constexpr int c_style = po::command_line_style::allow_long | po::command_line_style::long_allow_next |
                            po::command_line_style::long_allow_adjacent;
    po::variables_map found;
    try {
        po::store(po::command_line_parser(arguments).options(options).positional(positional).style(c_style).run(),
                  found);
        po::notify(found);
    } catch (const po::error& error) {
        throw qstd::Exception(error.what());
    }
    if (found.count("server") != 0) {
        line.server = ParseServer(found["server"].as<std::string>());
    }
    line.server.tls = ReadTls(isTls, found);
    if (found.count("count") != 0) {
        line.count = ParseCount(found["count"].as<std::string>());
    }
    if (found.count("timeout") != 0) {
        line.timeout = ParseTimeout(found["timeout"].as<std::string>());
    }
    return line;
}

std::string HelpText() {
    return R"(zelkor-regctl: looks into the registry of a running zelkor-platformd, and writes to it.

usage: zelkor-regctl [--server HOST[:PORT]] [TLS] [--json] COMMAND

  ls [PATH]            children of a node, in order, one a line
  tree [PATH]          the subtree with values
  get PATH...          values, one a line, in the order asked
  set PATH VALUE       write a value: a number when VALUE reads as one, else a text
  info PATH            name, value type, size, flags
  watch [PATH...]      notifications as they come: time, path, type, value; until interrupted
                       [--count N] after N of them, [--timeout S] after S seconds

PATH is slash-separated from the root: boards/IO1/sensors/ID_16/value, fans, fans/left_front. That of watch may hold
"*" for a part of a name and "**" for any names, and takes in everything below. The server is 127.0.0.1:5678 unless
given; an IPv6 address stands in brackets when a port follows.

TLS, for a server that speaks it:
  --tls --ca FILE                      the certificates that the server's must lead to
  [--certificate FILE --key FILE]      those of the one who asks; servers require them
  [--server-name NAME]                 the name or address that the server's certificate must be for, when it is not HOST

On a terminal tree shows a sensor in one line, with its units and the threshold that it is beyond; ask for the sensor
itself to see its values one by one. In a pipe every node has its line. Control characters of texts are shown as "?";
--json gives texts as they are, and the numbers that JSON does not know as "nan", "inf" and "-inf".

  --help, --version

Exit status: 0; 1 an error raised by the node or the server, or wrong usage; 2 no server, or none that is trusted; 3 the
node has no value now; 4 no such node.
)";
}

}  // namespace regctl
