#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace chassisctl {

/// What the words of the command line ask for.
struct CommandLine {
    std::string socketPath;
    std::vector<std::string> words;  ///< the command and its arguments
    bool help = false;
    bool version = false;
    bool json = false;
    bool follow = false;
    // Of `import`.
    std::optional<std::string> type, uri, name, live;
    /// Of `import`, the way to a controller: the options' texts by their names, which are those of the configuration's
    /// attributes ("host", "password-file", ..).
    std::map<std::string, std::string> controller;
    std::vector<std::string> ipmb;  ///< of `import`, in the order in which they were given
};

/// Options may stand anywhere; a word that begins with one "-" (a negative number, or "-" for standard input) is an
/// argument, and after "--" every word is.
/// @param arguments without the program's name
/// @throws qstd::Exception saying what is wrong with them.
CommandLine ParseCommandLine(const std::vector<std::string>& arguments);

/// What `--help` prints.
std::string HelpText();

}  // namespace chassisctl
