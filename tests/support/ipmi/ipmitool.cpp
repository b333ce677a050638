#include "tests/support/ipmi/ipmitool.h"

namespace test {

Result Ipmitool(const IpmiSimulator& simulator, const std::vector<std::string>& words, const IpmitoolOptions& options) {
    const SimulatedUser& user = simulator.GetController(options.controller).users.at(0);
    const std::uint16_t port = options.port ? *options.port : simulator.GetPort(options.controller);
    std::vector<std::string> command{"/usr/bin/ipmitool",
                                     "-I",
                                     "lanplus",
                                     "-H",
                                     "127.0.0.1",
                                     "-p",
                                     std::to_string(port),
                                     "-C",
                                     std::to_string(options.cipherSuite),
                                     "-U",
                                     user.name,
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
    return RunProgram(command, {{"IPMI_PASSWORD", options.password.value_or(user.password)}, {"LC_ALL", "C"}});
}

}  // namespace test
