#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/regctl/commands.h"
#include "tools/regctl/remote_registry.h"

namespace {

bool WantsColour() {
    const char* const terminal = std::getenv("TERM");
    const char* const refusal = std::getenv("NO_COLOR");
    return terminal != nullptr && std::string_view(terminal) != "dumb" && (refusal == nullptr || *refusal == '\0');
}

/// Whether standard output is a pipe that nobody reads any more.
bool IsReaderGone() {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    return ::poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

}  // namespace

int main(int argc, char* argv[]) {
    std::ios::sync_with_stdio(false);
    const bool isTerminal = ::isatty(STDOUT_FILENO) != 0;
    try {
        const std::vector<std::string> arguments(argv + 1, argv + argc);
        return regctl::Run(
            arguments, {std::cout, std::cerr, isTerminal, isTerminal && WantsColour()},
            [](const regctl::ServerName& server) { return std::make_unique<regctl::RemoteRegistry>(server); });
    } catch (const regctl::OutputFailure& error) {
        if (IsReaderGone()) {
            // The ORB has SIGPIPE ignored: "tree | head" ends as other programs do.
            std::signal(SIGPIPE, SIG_DFL);
            std::raise(SIGPIPE);
        }
        std::cerr << regctl::c_program << ": " << error.what() << '\n';
    } catch (const std::exception& error) {
        std::cerr << regctl::c_program << ": " << error.what() << '\n';
    }
    return regctl::c_exitError;
}
