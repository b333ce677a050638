#include "tests/support/ipmi/ipmitool.h"

#include <map>

namespace test {

namespace {

std::vector<std::string> MakeCommand(const IpmiSimulator& simulator, const std::vector<std::string>& words,
                                     const IpmitoolOptions& options) {
    const std::uint16_t port = options.port ? *options.port : simulator.GetPort(options.controller);
    std::vector<std::string> command{ZELKOR_IPMITOOL,
                                     "-I",
                                     "lanplus",
                                     "-H",
                                     "127.0.0.1",
                                     "-p",
                                     std::to_string(port),
                                     "-C",
                                     std::to_string(options.cipherSuite),
                                     "-U",
                                     simulator.GetController(options.controller).users.at(0).name,
                                     "-L",
                                     options.privilege,
                                     "-E",
                                     "-N",
                                     "1",
                                     "-R",
                                     "4"};
    if (options.target) {
        command.insert(command.end(), {"-t", std::to_string(*options.target)});
    }
    command.insert(command.end(), words.begin(), words.end());
    return command;
}

std::map<std::string, std::string> MakeEnvironment(const IpmiSimulator& simulator, const IpmitoolOptions& options) {
    const SimulatedUser& user = simulator.GetController(options.controller).users.at(0);
    return {{"IPMI_PASSWORD", options.password.value_or(user.password)}, {"LC_ALL", "C"}};
}

}  // namespace

Result Ipmitool(const IpmiSimulator& simulator, const std::vector<std::string>& words, const IpmitoolOptions& options) {
    return RunProgram(MakeCommand(simulator, words, options), MakeEnvironment(simulator, options));
}

Process StartIpmitool(const IpmiSimulator& simulator, const std::vector<std::string>& words,
                      const IpmitoolOptions& options) {
    return Process(MakeCommand(simulator, words, options), "/dev/null", "/dev/null",
                   MakeEnvironment(simulator, options));
}

}  // namespace test
