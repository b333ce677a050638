#include "tools/chassisctl/commands.h"

#include <algorithm>
#include <array>
#include <istream>
#include <ostream>
#include <string_view>

#include "bmc/sim/control_protocol.h"
#include "build_info.h"
#include "qstd/exception.h"
#include "qstd/ver_info.h"
#include "tools/chassisctl/command_line.h"
#include "tools/chassisctl/import.h"
#include "tools/chassisctl/listing.h"

namespace chassisctl {

namespace {

using Outcome_e = Reply::Outcome_e;

constexpr const char* c_program = "zelkor-chassisctl";

[[maybe_unused]] const bool c_versionIsSet = InitVersion();

/// A command whose words are the fields of its request as they stand.
struct PlainCommand {
    std::string_view name;
    std::size_t required;  // number of arguments
    std::size_t fields;    // of the request, arguments that are not given being empty
    std::string_view usage;
};

constexpr std::array<PlainCommand, 10> c_plainCommands{{
    {"set", 3, 3, "set BOARD SENSOR VALUE"},
    {"auto", 2, 2, "auto BOARD SENSOR"},
    {"invalid", 2, 2, "invalid BOARD SENSOR"},
    {"missing", 1, 2, "missing BOARD [SENSOR]"},
    {"slow", 2, 2, "slow BOARD MILLISECONDS"},
    {"heal", 1, 2, "heal BOARD [SENSOR]"},
    {"limit", 4, 4, "limit BOARD SENSOR NAME VALUE"},
    {"clock", 2, 2, "clock BOARD SECONDS"},
    {"power", 1, 1, "power BOARD"},
    {"shutdown-count", 1, 1, "shutdown-count BOARD"},
}};

[[noreturn]] void BadUsage(std::string_view usage) {
    throw qstd::Exception("usage: " + std::string(c_program) + " " + std::string(usage));
}

unsigned int ParseRegister(const std::string& text, const char* what) {
    const auto number = bmc::sim::ParseRegister(text);
    if (!number) {
        throw qstd::Exception("register " + std::string(what) + " \"" + text + "\" is not a number from 0 to 0xFFFF");
    }
    return *number;
}

Fields PlainRequest(const PlainCommand& command, const Fields& words) {
    if (words.size() < command.required + 1 || words.size() > command.fields + 1) {
        BadUsage(command.usage);
    }
    // On the wire an empty sensor is the whole board: a script's empty variable must not get that far.
    const auto empty = std::find(words.begin() + 1, words.end(), std::string());
    if (empty != words.end()) {
        throw qstd::Exception("argument " + std::to_string(empty - words.begin()) + " of " + words[0] + " is empty");
    }
    Fields request = words;
    request.resize(command.fields + 1);
    return request;
}

/// Decimal, of any length; ids may be negative.
bool IsWholeNumber(const std::string& word) {
    const std::size_t first = word.starts_with('-') ? 1 : 0;
    return word.size() > first && word.find_first_not_of("0123456789", first) == std::string::npos;
}

/// fail BOARD [SENSOR] [TEXT]: a first word behind the board that is no whole number is the text already. The words
/// of a text may stand unquoted.
Fields FailRequest(const Fields& words) {
    if (words.size() < 2) {
        BadUsage("fail BOARD [SENSOR] [TEXT]");
    }
    Fields request{words[0], words[1], "", ""};
    std::size_t next = 2;
    if (words.size() > next && IsWholeNumber(words[next])) {
        request[2] = words[next++];
    }
    for (; next < words.size(); ++next) {
        request[3] += (request[3].empty() ? "" : " ") + words[next];
    }
    return request;
}

Fields FpgaRequest(const Fields& words) {
    constexpr std::string_view c_usage = "fpga read|fail|heal ADDRESS, or fpga write ADDRESS VALUE";
    const std::string action = words.size() > 1 ? words[1] : "";
    const bool isWrite = action == "write";
    const bool isKnown = isWrite || action == "read" || action == "fail" || action == "heal";
    constexpr std::size_t c_withAddress = 3;
    if (!isKnown || words.size() != c_withAddress + (isWrite ? 1 : 0)) {
        BadUsage(c_usage);
    }
    Fields request{"fpga-" + action, bmc::sim::AddressText(ParseRegister(words[2], "address"))};
    if (isWrite) {
        request.push_back(std::to_string(ParseRegister(words[3], "value")));
    }
    return request;
}

/// The request of every command but list, journal and import.
Fields BuildRequest(const Fields& words) {
    const std::string& name = words.front();
    if (name == "fail") {
        return FailRequest(words);
    }
    if (name == "fpga") {
        return FpgaRequest(words);
    }
    const auto* const found = std::find_if(c_plainCommands.begin(), c_plainCommands.end(),
                                           [&](const PlainCommand& command) { return command.name == name; });
    if (found == c_plainCommands.end()) {
        throw qstd::Exception("unknown command \"" + name + "\", see " + c_program + " --help");
    }
    return PlainRequest(*found, words);
}

/// Says what went wrong. @return the exit status
int Conclude(const Reply& reply, std::ostream& err) {
    if (reply.outcome == Outcome_e::done) {
        return c_exitDone;
    }
    err << c_program << ": " << reply.text << '\n';
    return reply.outcome == Outcome_e::refused ? c_exitRefused : c_exitNoAnswer;
}

int RunList(const CommandLine& line, const ControlClient& client, Streams streams) {
    if (line.words.size() != 1) {
        BadUsage("list [--json]");
    }
    const Reply reply = client.Ask(line.words);
    if (reply.outcome == Outcome_e::done) {
        const std::vector<BoardEntry> boards = ReadListing(reply.rows);
        streams.out << (line.json ? ListingJson(boards) : ListingText(boards));
    }
    return Conclude(reply, streams.err);
}

int RunJournal(const CommandLine& line, const ControlClient& client, Streams streams) {
    if (line.words.size() != 1) {
        BadUsage("journal [--follow] [--json]");
    }
    const auto print = [&](const Fields& row) {
        streams.out << (line.json ? JournalJson(row) : JournalText(row)) << std::flush;
        return streams.out.good();
    };
    if (line.follow) {
        return Conclude(client.Follow({"journal-follow"}, print), streams.err);
    }
    const Reply reply = client.Ask(line.words);
    if (reply.outcome == Outcome_e::done) {
        for (const Fields& row : reply.rows) {
            print(row);
        }
    }
    return Conclude(reply, streams.err);
}

int RunOther(const CommandLine& line, const ControlClient& client, Streams streams) {
    const Fields request = BuildRequest(line.words);
    const Reply reply = client.Ask(request);
    if (reply.outcome == Outcome_e::done) {
        for (const Fields& row : reply.rows) {
            streams.out << row.back() << '\n';  // a register's row is address and value; the others have one field
        }
    }
    return Conclude(reply, streams.err);
}

void CheckOptions(const CommandLine& line) {
    const std::string& command = line.words.front();
    const bool isImport = command == "import";
    const auto demand = [&](bool isGiven, bool isAllowed, const char* option, const char* where) {
        if (isGiven && !isAllowed) {
            throw qstd::Exception(std::string(option) + " is an option of " + where + ", not of " + command);
        }
    };
    demand(line.json, command == "list" || command == "journal", "--json", "list and journal");
    demand(line.follow, command == "journal", "--follow", "journal");
    demand(line.type.has_value(), isImport, "--type", "import");
    demand(line.uri.has_value(), isImport, "--uri", "import");
    demand(line.name.has_value(), isImport, "--name", "import");
    demand(line.live.has_value(), isImport, "--live", "import");
    for (const auto& [option, text] : line.controller) {
        demand(true, isImport, ("--" + option).c_str(), "import");
    }
    demand(!line.ipmb.empty(), isImport, "--ipmb", "import");
}

int Dispatch(const CommandLine& line, Streams streams, std::chrono::milliseconds limit) {
    if (line.help) {
        streams.out << HelpText();
        return c_exitDone;
    }
    if (line.version) {
        streams.out << c_program << ' ' << qstd::VerInfo::Get() << '\n';
        return c_exitDone;
    }
    if (line.words.empty()) {
        throw qstd::Exception(std::string("no command given, see ") + c_program + " --help");
    }
    CheckOptions(line);
    const std::string& command = line.words.front();
    if (command == "import") {
        return RunImport(line, streams);
    }
    const ControlClient client(line.socketPath, limit);
    if (command == "list") {
        return RunList(line, client, streams);
    }
    return command == "journal" ? RunJournal(line, client, streams) : RunOther(line, client, streams);
}

}  // namespace

int Run(const std::vector<std::string>& arguments, Streams streams, std::chrono::milliseconds limit) {
    try {
        const int status = Dispatch(ParseCommandLine(arguments), streams, limit);
        streams.out.flush();
        if (!streams.out.good()) {
            throw qstd::Exception("standard output cannot be written");
        }
        return status;
    } catch (const qstd::Exception& error) {
        streams.err << c_program << ": " << error.what() << '\n';
        return c_exitRefused;
    }
}

}  // namespace chassisctl
