#include "tools/regctl/commands.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ostream>
#include <string_view>

#include "build_info.h"
#include "qstd/strings.h"
#include "qstd/ver_info.h"
#include "tools/regctl/interruption.h"
#include "tools/regctl/json_text.h"
#include "tools/regctl/tree_text.h"
#include "tools/regctl/value_text.h"
#include "tools/regctl/watch.h"

namespace regctl {

namespace {

using Words = std::vector<std::string>;

[[maybe_unused]] const bool c_versionIsSet = InitVersion();

/// A command's own words.
struct Call {
    const CommandLine& line;
    Words arguments;
    Registry& registry;
    const Output& output;

    std::string PathOrRoot() const { return arguments.empty() ? "" : arguments.front(); }
};

int StatusOf(qreg::ErrorCode_e code) {
    switch (code) {
        case qreg::ErrorCode_e::ok:
            return c_exitDone;
        case qreg::ErrorCode_e::no_such_node:
            return c_exitNoNode;
        case qreg::ErrorCode_e::no_value:
            return c_exitNoValue;
        case qreg::ErrorCode_e::stopping:
            return c_exitNoServer;  // as a moment later
        default:
            return c_exitError;
    }
}

int RunLs(const Call& call) {
    const std::vector<qreg::NodeInfo> children = call.registry.Children(call.PathOrRoot());
    if (call.output.isJson) {
        call.output.out << ChildrenJson(children) << '\n';
    } else {
        for (const qreg::NodeInfo& child : children) {
            call.output.out << qstd::OneLine(child.name) << '\n';
        }
    }
    return c_exitDone;
}

/// The lines of an array, as they come.
class JsonArray {
public:
    explicit JsonArray(std::ostream& out) : m_out(out) {}
    void Put(const std::string& json) {
        m_out << (m_isEmpty ? "[\n" : ",\n") << json;
        m_isEmpty = false;
    }
    void End() { m_out << (m_isEmpty ? "[]\n" : "\n]\n"); }

private:
    std::ostream& m_out;
    bool m_isEmpty = true;
};

int RunTree(const Call& call) {
    const std::string path = call.PathOrRoot();
    const Output& output = call.output;
    if (output.isJson) {
        JsonArray array(output.out);
        call.registry.Subtree(path, [&](const TreeItem& item) { array.Put(ItemJson(item)); });
        array.End();
    } else if (output.isTerminal) {
        std::vector<TreeItem> items;
        call.registry.Subtree(path, [&](const TreeItem& item) { items.push_back(item); });
        output.out << TerminalTree(items, output.hasColour);
    } else {
        bool isFromRoot = false;
        call.registry.Subtree(path, [&](const TreeItem& item) {
            isFromRoot = item.depth == 0 ? item.path.empty() : isFromRoot;
            output.out << PlainTreeLine(item, isFromRoot);
        });
    }
    return c_exitDone;
}

int RunGet(const Call& call) {
    const std::vector<qreg::Outcome> outcomes = call.registry.GetMany(call.arguments);
    int status = c_exitDone;
    JsonArray array(call.output.out);
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        const qreg::Outcome& outcome = outcomes[i];
        if (call.output.isJson) {
            array.Put(OutcomeJson(call.arguments[i], outcome));
        } else if (outcome.code == qreg::ErrorCode_e::ok) {
            call.output.out << ValueText(outcome.value) << '\n';
        }
        if (outcome.code != qreg::ErrorCode_e::ok) {
            call.output.out.flush();  // in the order asked, when both go to one place
            call.output.err << (outcomes.size() > 1 ? call.arguments[i] + ": " : "") << FailureText(outcome) << '\n';
            status = status == c_exitDone ? StatusOf(outcome.code) : status;
        }
    }
    if (call.output.isJson) {
        array.End();
    }
    return status;
}

int RunSet(const Call& call) {
    const qnode::Value value = ParseValue(call.arguments[1]);
    call.registry.Set(call.arguments[0], value);
    if (call.output.isJson) {
        call.output.out << AssignmentJson(call.arguments[0], value) << '\n';
    }
    return c_exitDone;
}

int RunInfo(const Call& call) {
    const qreg::NodeInfo info = call.registry.Describe(call.arguments[0]);
    if (call.output.isJson) {
        call.output.out << InfoJson(call.arguments[0], info) << '\n';
    } else {
        call.output.out << "name = " << qstd::OneLine(info.name) << "\ntype = " << TypeText(info.type)
                        << "\nsize = " << info.size << "\nflags = " << FlagsText(info.flags)
                        << "\nchildren = " << info.children << '\n';
    }
    return c_exitDone;
}

/// What comes of a command's registry, made by @p connect only when signals are in good hands.
int RunWatch(const CommandLine& line, const Words& patterns, const Output& output, const Connector& connect) {
    Interruption interruption;
    const std::unique_ptr<Registry> registry = connect(line.server);
    const auto endPolls = [&](const std::string& id) {
        if (!registry->EndPolls(id)) {
            // The server hangs, and with it the poll. Every line was flushed.
            std::_Exit(c_exitDone);
        }
    };
    struct ActionEnd {
        Interruption& interruption;
        ~ActionEnd() { interruption.SetAction(nullptr); }
    } const end{interruption};
    return Watch(
        {patterns, line.count, line.timeout}, *registry, output, [&] { return interruption.Came(); },
        [&](const std::string& id) { interruption.SetAction([&endPolls, id] { endPolls(id); }); });
}

struct Command {
    std::string_view name;
    std::size_t least, most;  // number of arguments
    std::string_view usage;
    int (*run)(const Call& call);  // null: watch
};

constexpr std::size_t c_any = static_cast<std::size_t>(-1);
constexpr std::array<Command, 6> c_commands{{
    {"ls", 0, 1, "ls [PATH]", RunLs},
    {"tree", 0, 1, "tree [PATH]", RunTree},
    {"get", 1, c_any, "get PATH...", RunGet},
    {"set", 2, 2, "set PATH VALUE", RunSet},
    {"info", 1, 1, "info PATH", RunInfo},
    {"watch", 0, c_any, "watch [--count N] [--timeout S] [PATH...]", nullptr},
}};

/// @throws qstd::Exception saying what is wrong with the command line.
const Command& FindCommand(const CommandLine& line) {
    if (line.words.empty()) {
        throw qstd::Exception(std::string("no command given, see ") + c_program + " --help");
    }
    const std::string& name = line.words.front();
    const auto* const found = std::find_if(c_commands.begin(), c_commands.end(),
                                           [&](const Command& command) { return command.name == name; });
    if (found == c_commands.end()) {
        throw qstd::Exception("unknown command \"" + name + "\", see " + c_program + " --help");
    }
    const std::size_t arguments = line.words.size() - 1;
    if (arguments < found->least || arguments > found->most) {
        throw qstd::Exception("usage: " + std::string(c_program) + " " + std::string(found->usage));
    }
    if (found->run != nullptr && (line.count || line.timeout)) {
        throw qstd::Exception(std::string(line.count ? "--count" : "--timeout") + " is an option of watch, not of " +
                              name);
    }
    return *found;
}

int Dispatch(const CommandLine& line, const Output& output, const Connector& connect) {
    if (line.help) {
        output.out << HelpText();
        return c_exitDone;
    }
    if (line.version) {
        output.out << c_program << ' ' << qstd::VerInfo::Get() << '\n';
        return c_exitDone;
    }
    const Command& command = FindCommand(line);
    const Words arguments(line.words.begin() + 1, line.words.end());
    if (command.run == nullptr) {
        return RunWatch(line, arguments, output, connect);
    }
    const std::unique_ptr<Registry> registry = connect(line.server);
    return command.run({line, arguments, *registry, output});
}

}  // namespace

int Run(const std::vector<std::string>& arguments, Output output, const Connector& connect) {
    try {
        const CommandLine line = ParseCommandLine(arguments);
        output.isJson = line.json;
        const int status = Dispatch(line, output, connect);
        Flush(output);
        return status;
    } catch (const OutputFailure&) {
        throw;
    } catch (const qreg::RegistryError& error) {
        output.out.flush();
        output.err << FailureText({error.GetCode(), {}, error.what()}) << '\n';
        return StatusOf(error.GetCode());
    } catch (const qreg::corba::NoServer& error) {
        output.out.flush();
        output.err << c_program << ": " << error.what() << '\n';
        return c_exitNoServer;
    } catch (const qstd::Exception& error) {
        output.err << c_program << ": " << error.what() << '\n';
        return c_exitError;
    }
}

}  // namespace regctl
