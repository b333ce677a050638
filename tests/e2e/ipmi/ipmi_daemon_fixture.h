#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "registry_fixture.h"
#include "tests/support/ipmi/ipmi_simulator.h"
#include "tests/support/ipmi/recorded_machine.h"

namespace test {

/// A board of the configuration: which controller of a simulator it is, and how the daemon reaches that.
struct BoardAt {
    std::string uri;
    std::string type;
    std::string name;
    const IpmiSimulator* simulator;
    std::uint8_t controller = 0x20;      ///< whose port and first user
    std::optional<std::uint8_t> ipmb{};  ///< a satellite behind that controller
    int cipherSuite = 17;
    std::string privilege = "administrator";
    bool hasFpga = false;  ///< registers by the commands of a simulator's default layout
};

/// The chassis controller, without which a stop of the daemon cannot be in order.
inline BoardAt Icb(const IpmiSimulator& simulator) {
    return {.uri = "icb/0", .type = "icb", .name = "ICB", .simulator = &simulator, .hasFpga = true};
}

inline BoardAt Io(int number, const IpmiSimulator& simulator) {
    const std::string text = std::to_string(number);
    return {.uri = "io/" + text, .type = "io", .name = "IO" + text, .simulator = &simulator};
}

/// The host, whose controller is the reference of the clocks.
inline BoardAt Host(const IpmiSimulator& simulator) {
    return {.uri = "os/0", .type = "os", .name = "HOST", .simulator = &simulator};
}

/// A simulator's one controller with so many synthetic sensors. Their limits, lower to upper non-recoverable: a
/// temperature (5 10 15 80 90 100) at 40, one below zero (-20 -10 none 50 60 none) at -3, voltages and others.
inline SimulatedChassis WithSensors(std::size_t count) {
    SimulatedController controller;
    controller.sensors = SyntheticSensors(count);
    return {.controllers = {controller}};
}

/// Another board of the same controller.
inline BoardAt Behind(const BoardAt& board, std::uint8_t ipmb, const std::string& uri, const std::string& name,
                      const std::string& type = "io") {
    BoardAt satellite = board;
    satellite.uri = uri;
    satellite.type = type;
    satellite.name = name;
    satellite.ipmb = ipmb;
    satellite.hasFpga = false;
    return satellite;
}

/// The built daemon on boards that are simulated controllers of another make, seen from outside only.
class IpmiDaemonTest : public RegistryTest {
protected:
    /// The values of a registry's subtree by their paths from its top ("sensors/ID_1/value"); nothing: no value.
    using Tree = std::map<std::string, std::optional<std::string>>;

    /// Writes the configuration and the files with the passwords.
    void ConfigureBoards(const std::vector<BoardAt>& boards, const std::string& sections = c_noWorkers,
                         const std::string& attributes = "cache='cache'") const {
        std::string text = "<zelkor>\n<boards backend='ipmi' " + attributes + ">\n";
        for (const BoardAt& board : boards) {
            text += Describe(board);
        }
        WriteFile(m_folder.Path("config.xml"), text + "</boards>\n" + sections + "</zelkor>\n");
    }

    /// Starts the daemon, and waits until it has built its tree and started its workers.
    void StartOn(const std::vector<BoardAt>& boards, const std::string& sections = c_noWorkers,
                 const std::string& attributes = "cache='cache'") {
        ConfigureBoards(boards, sections, attributes);
        StartTraced();
        AwaitReports();
    }

    /// Stops the daemon and starts it once more; its log begins anew.
    void StartAgain() {
        EXPECT_EQ(Stop(), 0);
        std::filesystem::remove_all(m_folder.Path("log"));
        StartTraced();
        AwaitReports();
    }

    /// All that the registry tells below @p path.
    Tree TreeOf(const std::string& path) const {
        Tree tree;
        std::vector<std::string> names;
        std::istringstream lines(Ask({"tree", path}));
        for (std::string line; std::getline(lines, line);) {
            const std::size_t begin = line.find_first_not_of(' ');
            const std::size_t end = line.find(' ', begin);
            names.resize(begin / 2);
            names.push_back(line.substr(begin, end - begin));
            if (end == std::string::npos) {
                continue;
            }
            std::string leaf;
            for (std::size_t i = 1; i < names.size(); ++i) {
                leaf += (i > 1 ? "/" : "") + names[i];
            }
            const bool hasValue = line.compare(end, 3, " = ") == 0;
            tree[leaf] = hasValue ? std::optional(line.substr(end + 3)) : std::nullopt;
            EXPECT_TRUE(hasValue || IsUsuallyWithoutValue(line.substr(end + 1))) << path << ": " << line;
        }
        return tree;
    }

    /// One value of the registry.
    std::string Get(const std::string& path) const {
        const std::string text = Ask({"get", path});
        return text.substr(0, text.find('\n'));
    }

    /// Waits until the registry tells this value.
    bool AwaitValue(const std::string& path, const std::string& value) const {
        return Await([&] { return Get(path) == value; });
    }

    /// Everything that was logged as something to look at, or worse.
    std::vector<std::string> Complaints() const {
        std::vector<std::string> complaints;
        for (const std::string& message : Messages()) {
            if (message.compare(0, 4, "INFO") != 0) {
                complaints.push_back(message);
            }
        }
        return complaints;
    }

    static constexpr const char* c_noWorkers =
        "<monitor enabled='false'/>\n<damage_protection enabled='false'/>\n<temperature_control enabled='false'/>\n"
        "<timesync enabled='false'/>\n";

    /// @p sections for the workers they are for; the others are disabled.
    static std::string Only(const std::string& sections) {
        std::string text = sections;
        for (const char* worker : {"monitor", "damage_protection", "temperature_control", "timesync"}) {
            if (sections.find("<" + std::string(worker)) == std::string::npos) {
                text += "<" + std::string(worker) + " enabled='false'/>\n";
            }
        }
        return text;
    }

private:
    std::string Describe(const BoardAt& board) const {
        const SimulatedUser& user = board.simulator->GetController(board.controller).users.at(0);
        const std::uint16_t port = board.simulator->GetPort(board.controller);
        const std::string password = "password-" + std::to_string(port);
        WriteFile(m_folder.Path(password), user.password + "\n");
        EXPECT_EQ(::chmod(m_folder.Path(password).c_str(), S_IRUSR | S_IWUSR), 0);
        std::string text = "<board uri='" + board.uri + "' type='" + board.type + "' name='" + board.name +
                           "' host='127.0.0.1' port='" + std::to_string(port) + "' user='" + user.name +
                           "' password-file='" + password + "' privilege='" + board.privilege + "' cipher='" +
                           std::to_string(board.cipherSuite) + "'";
        if (board.ipmb) {
            text += " ipmb='" + std::to_string(*board.ipmb) + "'";
        }
        return text + (board.hasFpga ? std::string(">") + c_fpga + "</board>\n" : "/>\n");
    }

    /// What a tree says in place of a value where there is none, and where none is ever served.
    static bool IsUsuallyWithoutValue(const std::string& text) {
        return text.find("no value") != std::string::npos || text.find("Unsupported type: fw_") != std::string::npos ||
               text.find("FPGA revision: the configuration names no register of it") != std::string::npos;
    }

    static constexpr const char* c_fpga =
        "<fpga read='0x30 0x10 {addr:hi} {addr:lo}' write='0x30 0x11 {addr:hi} {addr:lo} {value:hi} {value:lo}' "
        "reply='{value:hi} {value:lo}' revision='0x0010'/>";
};

}  // namespace test
