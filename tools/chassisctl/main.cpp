#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "tools/chassisctl/commands.h"

// SIGPIPE keeps its usual meaning on standard output ("list | head"); the control socket never raises it.
int main(int argc, char* argv[]) {
    try {
        const std::vector<std::string> arguments(argv + 1, argv + argc);
        return chassisctl::Run(arguments, {std::cin, std::cout, std::cerr});
    } catch (const std::exception& error) {
        std::cerr << "zelkor-chassisctl: " << error.what() << '\n';
        return chassisctl::c_exitRefused;
    }
}
