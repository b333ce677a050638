// What a sweep over boards with management controllers takes, beside other clients of the same controllers, in one run.
//
// usage: ipmi_bench [ROUNDS [one|five|slow]]
//
// The controllers are those of the tests: processes of `ipmi_sim` (Debian package openipmi) on loopback with 60 sensors
// each. The sweep is that of the plug-in in a process that has its sessions open, as a worker's pass makes it; the
// others are programs, which a user would start anew each time. The floor is as many round trips of a UDP echo.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/registry/sampling.h"
#include "bmc/ipmi/plugin_loader.h"
#include "qstd/exception.h"
#include "tests/support/file.h"
#include "tests/support/ipmi/ipmi_simulator.h"
#include "tests/support/ipmi/recorded_machine.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

namespace {

using bench::Samples;
using test::IpmiSimulator;

constexpr std::size_t c_sensors = 60;
constexpr std::size_t c_controllers = 5;
constexpr std::chrono::milliseconds c_serviceTime{2};
constexpr const char* c_cipherSuite = "3";  // the simulator has no other of its own

/// A UDP server in a process of its own that sends back what comes, and a client of it.
class Echo {
public:
    /// @param wait before each answer
    explicit Echo(std::chrono::microseconds wait = {})
        : m_wait(wait), m_server(::socket(AF_INET, SOCK_DGRAM, 0)), m_client(::socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const place = reinterpret_cast<sockaddr*>(&address);
        if (::bind(m_server, place, size) != 0 || ::getsockname(m_server, place, &size) != 0 ||
            ::connect(m_client, place, size) != 0) {
            throw std::runtime_error("no UDP echo");
        }
        m_pid = ::fork();
        if (m_pid == 0) {
            Serve();
        }
    }
    Echo(const Echo&) = delete;
    Echo& operator=(const Echo&) = delete;
    ~Echo() {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
        ::close(m_server);
        ::close(m_client);
    }

    void RoundTrips(std::size_t count) const {
        std::array<char, c_packet> packet{};
        for (std::size_t index = 0; index < count; ++index) {
            if (::send(m_client, packet.data(), packet.size(), 0) < 0 ||
                ::recv(m_client, packet.data(), packet.size(), 0) < 0) {
                throw std::runtime_error("the UDP echo does not answer");
            }
        }
    }

private:
    static constexpr std::size_t c_packet = 80;  // an encrypted request for a reading has about as many bytes

    [[noreturn]] void Serve() const {
        std::array<char, c_packet> packet{};
        sockaddr_in client{};
        for (;;) {
            socklen_t size = sizeof client;
            auto* const place = reinterpret_cast<sockaddr*>(&client);
            const ssize_t length = ::recvfrom(m_server, packet.data(), packet.size(), 0, place, &size);
            if (length >= 0) {
                std::this_thread::sleep_for(m_wait);
                ::sendto(m_server, packet.data(), static_cast<std::size_t>(length), 0, place, size);
            }
        }
    }

    const std::chrono::microseconds m_wait;
    int m_server;
    int m_client;
    pid_t m_pid = -1;
};

/// The plug-in on the first controllers, its sensors known.
class OurSweep {
public:
    OurSweep(const std::vector<std::unique_ptr<IpmiSimulator>>& simulators, std::size_t count,
             const std::string& passwordFile) {
        bmc::ipmi::Settings settings;
        for (std::size_t index = 0; index < count; ++index) {
            bmc::ipmi::ControllerSettings controller;
            controller.host = "127.0.0.1";
            controller.port = simulators[index]->GetPort();
            controller.user = test::SimulatedUser{}.name;
            controller.password.path = passwordFile;
            controller.cipherSuite = static_cast<std::uint8_t>(std::stoi(c_cipherSuite));
            settings.controllers.push_back(controller);
            bmc::ipmi::BoardSettings board;
            board.uri = bmc::Uri("io", std::to_string(index));
            board.name = "IO" + std::to_string(index);
            board.controller = index;
            settings.boards.push_back(board);
        }
        m_backend = bmc::ipmi::LoadBackend(settings, bmc::ipmi::PluginPath());
        for (const bmc::ipmi::BoardSettings& board : settings.boards) {
            bmc::Board* const made = m_backend->GetBoard(board.uri);
            for (const bmc::SensorId& id : m_ids[board.uri] = made->GetSensorsIds()) {
                m_sensors.push_back(made->GetSensor(id));
            }
        }
        if (m_sensors.size() != count * c_sensors) {
            throw std::runtime_error("the sweep has " + std::to_string(m_sensors.size()) + " sensors");
        }
    }

    void operator()() const {
        const std::unique_ptr<bmc::Sweep> sweep = m_backend->StartSweep(m_ids);
        for (const bmc::Sensor* const sensor : m_sensors) {
            sweep->Read(*sensor);
        }
    }

private:
    std::unique_ptr<bmc::Backend> m_backend;
    bmc::SensorIds m_ids;
    std::vector<const bmc::Sensor*> m_sensors;
};

double Milliseconds(const Samples& samples) {
    return samples.Median() / 1000;
}

class Bench {
public:
    explicit Bench(int rounds) : m_rounds(rounds), m_passwordFile(m_folder.Path("password")) {
        test::SimulatedChassis chassis;
        chassis.controllers[0].sensors = test::SyntheticSensors(c_sensors);
        for (std::size_t index = 0; index < c_controllers; ++index) {
            m_simulators.push_back(std::make_unique<IpmiSimulator>(chassis));
        }
        const std::string password = test::SimulatedUser{}.password;
        test::WriteFile(m_passwordFile, password + "\n");
        test::WriteFile(m_folder.Path("freeipmi.conf"), "password " + password + "\n");
        for (const std::string& file : {m_passwordFile, m_folder.Path("freeipmi.conf")}) {
            ::chmod(file.c_str(), S_IRUSR | S_IWUSR);
        }
    }

    /// Everybody on the same controllers, as quick as they are. @return the median of our sweep of one
    void BesideOthers(std::size_t controllers) {
        const OurSweep sweep(m_simulators, controllers, m_passwordFile);
        const Echo echo;
        Samples floor, ours, sensor, list, cold, warm;
        for (int round = 0; round < m_rounds; ++round) {
            constexpr std::size_t c_repetitions = 50;
            floor.Add(bench::Time(c_repetitions, [&] { echo.RoundTrips(controllers * c_sensors); }));
            ours.Add(bench::Time(c_repetitions, [&] { sweep(); }));
            sensor.Add(bench::Time(1, [&] { Ipmitool(controllers, {"sensor"}); }));
            list.Add(bench::Time(1, [&] { Ipmitool(controllers, {"sdr", "elist"}); }));
            cold.Add(bench::Time(1, [&] { IpmiSensors(controllers, round, true); }));
            warm.Add(bench::Time(1, [&] { IpmiSensors(controllers, round, false); }));
        }
        std::printf("\n%zu x %zu sensors, programs for several controllers side by side: median ms, of the sweep\n",
                    controllers, c_sensors);
        const auto show = [&](const char* name, const Samples& samples, const char* goal) {
            std::printf("  %-36s %9.2f %9.2f%s\n", name, Milliseconds(samples),
                        Milliseconds(samples) / Milliseconds(ours), goal);
        };
        const bool isOne = controllers == 1;
        show("UDP echo, as many round trips", floor, "");
        show("sweep of a running backend", ours, "");
        show("ipmitool sensor", sensor, isOne ? "  (goal 12)" : "");
        show("ipmitool sdr elist", list, "");
        show("ipmi-sensors, cold cache", cold, "");
        show("ipmi-sensors, warm cache", warm, isOne ? "  (goal 2)" : "");
    }

    /// Controllers that take their time, which hides what ours costs or does not.
    void SlowControllers() {
        for (const auto& simulator : m_simulators) {
            simulator->SetServiceTime(0x20, c_serviceTime);
        }
        const OurSweep one(m_simulators, 1, m_passwordFile);
        const OurSweep five(m_simulators, c_controllers, m_passwordFile);
        const Echo echo(c_serviceTime);
        Samples floor, ones, fives;
        std::chrono::nanoseconds busy{0};
        for (int round = 0; round < m_rounds; ++round) {
            floor.Add(bench::Time(c_slowRepetitions, [&] { echo.RoundTrips(c_sensors); }));
            m_simulators[0]->ResetCounts();
            const std::size_t before = ones.Count();
            ones.Add(bench::Time(c_slowRepetitions, [&] { one(); }));
            // The repetition for warming up is counted, too.
            busy += m_simulators[0]->GetBusyTime() / (ones.Count() - before + c_slowRepetitions / 10);
            fives.Add(bench::Time(c_slowRepetitions, [&] { five(); }));
        }
        const double sum = static_cast<double>(c_sensors * c_serviceTime.count());
        const double measured = std::chrono::duration<double, std::milli>(busy).count() / m_rounds;
        std::printf("\ncontrollers that serve one request in %d ms: median ms, of the sum\n",
                    static_cast<int>(c_serviceTime.count()));
        const auto show = [&](const char* name, double milliseconds, const char* goal) {
            std::printf("  %-36s %9.2f %9.3f%s\n", name, milliseconds, milliseconds / sum, goal);
        };
        show("sum of a board's service times", sum, "");
        show("the same as the controller took it", measured, "");
        show("UDP echo that waits as long", Milliseconds(floor), "");
        show("sweep of one", Milliseconds(ones), "");
        show("sweep of five", Milliseconds(fives), "");
        std::printf("  sweep of one: %.3f of what the controller took (goal 1.1)\n", Milliseconds(ones) / measured);
        std::printf("  sweep of five: %.3f of the sweep of one (goal 1.2)\n", Milliseconds(fives) / Milliseconds(ones));
        for (const auto& simulator : m_simulators) {
            simulator->SetServiceTime(0x20, std::chrono::microseconds(0));
        }
    }

private:
    static constexpr std::size_t c_slowRepetitions = 10;

    /// One process for each controller, all at once. @throws std::runtime_error when one fails
    void RunForEach(std::size_t controllers,
                    const std::function<std::vector<std::string>(const IpmiSimulator& simulator)>& command) const {
        std::vector<std::unique_ptr<test::Process>> running;
        for (std::size_t index = 0; index < controllers; ++index) {
            running.push_back(std::make_unique<test::Process>(
                command(*m_simulators[index]), "/dev/null", m_folder.Path("errors"),
                std::map<std::string, std::string>{{"IPMI_PASSWORD", test::SimulatedUser{}.password},
                                                   {"LC_ALL", "C"}}));
        }
        for (const auto& process : running) {
            if (process->Wait() != 0) {
                throw std::runtime_error("a client failed: " + test::ReadFile(m_folder.Path("errors")));
            }
        }
    }

    void Ipmitool(std::size_t controllers, const std::vector<std::string>& words) const {
        RunForEach(controllers, [&](const IpmiSimulator& simulator) {
            std::vector<std::string> command{"/usr/bin/ipmitool",
                                             "-I",
                                             "lanplus",
                                             "-H",
                                             "127.0.0.1",
                                             "-p",
                                             std::to_string(simulator.GetPort()),
                                             "-C",
                                             c_cipherSuite,
                                             "-U",
                                             test::SimulatedUser{}.name,
                                             "-L",
                                             "OPERATOR",
                                             "-E"};
            command.insert(command.end(), words.begin(), words.end());
            return command;
        });
    }

    void IpmiSensors(std::size_t controllers, int round, bool isCold) const {
        const std::string cache = m_folder.Path("cache-" + std::to_string(controllers) + "-" + std::to_string(round));
        if (isCold) {
            std::filesystem::remove_all(cache);
        }
        std::filesystem::create_directory(cache);
        RunForEach(controllers, [&](const IpmiSimulator& simulator) {
            return std::vector<std::string>{"/usr/sbin/ipmi-sensors",
                                            "--config-file",
                                            m_folder.Path("freeipmi.conf"),
                                            "-D",
                                            "LAN_2_0",
                                            "-h",
                                            "127.0.0.1:" + std::to_string(simulator.GetPort()),
                                            "-u",
                                            test::SimulatedUser{}.name,
                                            "-l",
                                            "OPERATOR",
                                            "-I",
                                            c_cipherSuite,
                                            "-W",
                                            "opensesspriv",
                                            "--quiet-cache",
                                            "--sdr-cache-directory",
                                            cache};
        });
    }

    const int m_rounds;
    const test::TempFolder m_folder;
    const std::string m_passwordFile;
    std::vector<std::unique_ptr<IpmiSimulator>> m_simulators;
};

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    constexpr int c_usualRounds = 9;
    try {
        Bench bench(argc > 1 ? std::atoi(argv[1]) : c_usualRounds);
        const std::string only = argc > 2 ? argv[2] : "";
        const std::vector<std::pair<std::string, std::function<void()>>> all{
            {"one", [&] { bench.BesideOthers(1); }},
            {"five", [&] { bench.BesideOthers(c_controllers); }},
            {"slow", [&] { bench.SlowControllers(); }}};
        for (const auto& [name, measure] : all) {
            if (only.empty() || only == name) {
                measure();
            }
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ipmi_bench: %s\n", error.what());
        return 1;
    }
}
