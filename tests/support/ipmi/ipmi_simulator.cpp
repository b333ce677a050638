#include "tests/support/ipmi/ipmi_simulator.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <thread>

#include "tests/support/file.h"
#include "tests/support/ipmi/simulator_files.h"
#include "tests/support/ipmi/simulator_port.h"

namespace test {

namespace {

constexpr const char* c_program = ZELKOR_IPMI_SIM;
constexpr std::chrono::seconds c_patience{100};
constexpr std::chrono::microseconds c_pollPeriod{200};
constexpr int c_startAttempts = 5;
// Below the range from which the system takes ports of clients.
constexpr int c_firstPort = 20000;
constexpr int c_lastPort = 31999;

CommandState& GetCommand(ControllerState& controller, IpmiCommand command) {
    return controller.commands[command.netFunction / 2 % 32][command.command];
}

}  // namespace

IpmiSimulator::IpmiSimulator(SimulatedChassis chassis)
    : m_chassis(std::move(chassis)), m_memory(m_folder.Path("shared"), m_chassis) {
    if (m_chassis.controllers.empty() || m_chassis.controllers.front().address != c_bmc) {
        throw std::invalid_argument("a simulator's first controller is the one at 0x20");
    }
    try {
        Start();
    } catch (...) {
        Stop();
        throw;
    }
}

IpmiSimulator::~IpmiSimulator() {
    Stop();
}

bool IpmiSimulator::HasCipherSuite17() const {
    return Load(m_memory->hasCipherSuite17) != 0;
}

const SimulatedController& IpmiSimulator::GetController(std::uint8_t controller) const {
    const auto& all = m_chassis.controllers;
    const auto found = std::find_if(all.begin(), all.end(), [&](const auto& c) { return c.address == controller; });
    if (found == all.end()) {
        throw std::invalid_argument("the simulator has no controller " + std::to_string(controller));
    }
    return *found;
}

std::uint16_t IpmiSimulator::GetPort(std::uint8_t controller) const {
    return m_ports.at(controller);
}

int IpmiSimulator::GetPid() const {
    return m_process ? m_process->GetPid() : 0;
}

void IpmiSimulator::SetRaw(std::uint8_t controller, std::uint8_t sensor, std::uint8_t raw) {
    SimulatedSensor& description = GetSensor(controller, sensor);
    description.raw = raw;
    if (m_process) {
        Command("sensor_set_value " + std::to_string(controller) + " " + std::to_string(description.lun) + " " +
                std::to_string(sensor) + " " + std::to_string(raw) + " 0");
    }
}

double IpmiSimulator::SetReading(std::uint8_t controller, std::uint8_t sensor, double reading) {
    const SimulatedSensor& description = GetSensor(controller, sensor);
    const std::uint8_t raw = ToRaw(description, reading);
    SetRaw(controller, sensor, raw);
    return ToReading(description, raw);
}

void IpmiSimulator::SetUnavailable(std::uint8_t controller, std::uint8_t sensor, bool isUnavailable) {
    Store(m_memory.GetController(controller).sensors[sensor].isUnavailable, ToByte(isUnavailable));
}

void IpmiSimulator::SetScanning(std::uint8_t controller, std::uint8_t sensor, bool isScanned) {
    Store(m_memory.GetController(controller).sensors[sensor].isNotScanned, ToByte(!isScanned));
}

void IpmiSimulator::SetSensorCompletionCode(std::uint8_t controller, std::uint8_t sensor, std::uint8_t code) {
    Store(m_memory.GetController(controller).sensors[sensor].completionCode, code);
}

void IpmiSimulator::SetCompletionCode(std::uint8_t controller, IpmiCommand command, std::uint8_t code) {
    Store(GetCommand(m_memory.GetController(controller), command).completionCode, code);
}

void IpmiSimulator::SetReplyLength(std::uint8_t controller, IpmiCommand command, std::optional<std::uint8_t> length) {
    Store(GetCommand(m_memory.GetController(controller), command).replyLength, std::uint16_t{length.value_or(0)});
}

void IpmiSimulator::SetServiceTime(std::uint8_t controller, std::chrono::microseconds time) {
    Store(m_memory.GetController(controller).serviceMicroseconds, static_cast<std::uint32_t>(time.count()));
}

void IpmiSimulator::SetPresent(std::uint8_t controller, bool isPresent) {
    if (controller == c_bmc) {
        throw std::invalid_argument("the controller at 0x20 is always present; stop or freeze the simulator");
    }
    static_cast<void>(m_memory.GetController(controller));
    if (isPresent) {
        m_absent.erase(controller);
    } else {
        m_absent.insert(controller);
    }
    if (m_process) {
        Command((isPresent ? "mc_enable " : "mc_disable ") + std::to_string(controller));
    }
}

std::size_t IpmiSimulator::CountSessions() {
    Command("harness_count_sessions");
    return Load(m_memory->sessionCount);
}

void IpmiSimulator::EndSessions() {
    Command("harness_end_sessions");
}

bool IpmiSimulator::IsPowerOn(std::uint8_t controller) const {
    return Load(m_memory.GetController(controller).isPowerOn) != 0;
}

void IpmiSimulator::SetPowerOn(std::uint8_t controller, bool isOn) {
    Store(m_memory.GetController(controller).isPowerOn, ToByte(isOn));
}

void IpmiSimulator::SetObeysShutdown(std::uint8_t controller, bool isObeying) {
    Store(m_memory.GetController(controller).obeysShutdown, ToByte(isObeying));
}

void IpmiSimulator::SetSelfTest(std::uint8_t controller, std::uint8_t result, std::uint8_t detail) {
    Store(m_memory.GetController(controller).selfTest[0], result);
    Store(m_memory.GetController(controller).selfTest[1], detail);
}

int IpmiSimulator::GetIdentify(std::uint8_t controller) const {
    return Load(m_memory.GetController(controller).identify);
}

void IpmiSimulator::SetIdentifySupported(std::uint8_t controller, bool isSupported) {
    Store(m_memory.GetController(controller).isIdentifySupported, ToByte(isSupported));
}

void IpmiSimulator::SetPassword(std::uint8_t controller, const std::string& password) {
    for (SimulatedController& description : m_chassis.controllers) {
        if (description.address == controller) {
            description.users.at(0).password = password;
            return;
        }
    }
    throw std::invalid_argument("the simulator has no controller " + std::to_string(controller));
}

void IpmiSimulator::SetUpdating(std::uint8_t controller, bool isUpdating) {
    Store(m_memory.GetController(controller).isUpdating, ToByte(isUpdating));
}

std::uint16_t IpmiSimulator::GetRegister(std::uint8_t controller, std::uint16_t address) const {
    return Load(m_memory.GetController(controller).registers[address]);
}

void IpmiSimulator::SetRegister(std::uint8_t controller, std::uint16_t address, std::uint16_t value) {
    Store(m_memory.GetController(controller).registers[address], value);
}

std::uint64_t IpmiSimulator::CountRequests(std::uint8_t controller, IpmiCommand command) const {
    return Load(GetCommand(m_memory.GetController(controller), command).count);
}

std::uint64_t IpmiSimulator::CountRequests(std::uint8_t controller) const {
    std::uint64_t sum = 0;
    for (const auto& commands : m_memory.GetController(controller).commands) {
        for (const CommandState& command : commands) {
            sum += Load(command.count);
        }
    }
    return sum;
}

std::chrono::nanoseconds IpmiSimulator::GetBusyTime(std::uint8_t controller) const {
    return std::chrono::nanoseconds(Load(m_memory.GetController(controller).busyNanoseconds));
}

void IpmiSimulator::ResetCounts() {
    for (ControllerState& controller : m_memory->controllers) {
        Store(controller.busyNanoseconds, std::uint64_t{0});
        for (auto& commands : controller.commands) {
            for (CommandState& command : commands) {
                Store(command.count, std::uint32_t{0});
            }
        }
    }
}

std::vector<ExecutedWrite> IpmiSimulator::GetWrites() const {
    std::vector<ExecutedWrite> writes;
    const std::size_t count = std::min<std::size_t>(Load(m_memory->writeCount), SimulatorState::c_maxWrites);
    for (std::size_t i = 0; i < count; ++i) {
        const WriteState& write = m_memory->writes[i];
        writes.push_back({write.controller, write.netFunction, write.command, {write.data, write.data + write.length}});
    }
    return writes;
}

std::size_t IpmiSimulator::CountWrites(std::uint8_t controller, IpmiCommand command) const {
    const std::vector<ExecutedWrite> writes = GetWrites();
    return static_cast<std::size_t>(std::count_if(writes.begin(), writes.end(), [&](const ExecutedWrite& write) {
        return write.controller == controller && write.netFunction == command.netFunction &&
               write.command == command.command;
    }));
}

void IpmiSimulator::Freeze() {
    if (m_process) {
        m_process->Signal(SIGSTOP);
        m_isFrozen = true;
    }
}

void IpmiSimulator::Thaw() {
    if (m_process) {
        m_process->Signal(SIGCONT);
        m_isFrozen = false;
    }
}

void IpmiSimulator::Stop() {
    m_process.reset();
    m_isFrozen = false;
    if (m_console >= 0) {
        ::close(m_console);
        m_console = -1;
    }
}

void IpmiSimulator::Restart() {
    Stop();
    TryStart();
}

void IpmiSimulator::Command(const std::string& line) {
    if (!m_process || m_isFrozen) {
        throw std::runtime_error("the simulator does not run and cannot do \"" + line + "\"");
    }
    Send(line + "\n");
}

std::string IpmiSimulator::GetOutput() const {
    return ReadFile(m_folder.Path("out")) + ReadFile(m_folder.Path("err"));
}

void IpmiSimulator::ChoosePorts() {
    static std::mt19937 generator{std::random_device{}()};
    std::uniform_int_distribution<int> any(c_firstPort, c_lastPort);
    m_ports.clear();
    std::set<std::uint16_t> chosen;
    for (const SimulatedController& controller : m_chassis.controllers) {
        if (controller.hasLan) {
            auto port = static_cast<std::uint16_t>(any(generator));
            while (chosen.contains(port) || !IsFreePort(port)) {
                port = static_cast<std::uint16_t>(any(generator));
            }
            chosen.insert(port);
            m_ports[controller.address] = port;
        }
    }
}

// Another process may take a port between its choice and its use.
void IpmiSimulator::Start() {
    for (int attempt = 1;; ++attempt) {
        ChoosePorts();
        try {
            return TryStart();
        } catch (const std::runtime_error&) {
            if (attempt == c_startAttempts) {
                throw;
            }
            Stop();
        }
    }
}

void IpmiSimulator::TryStart() {
    const std::string configuration = m_folder.Path("lan.conf");
    const std::string commands = m_folder.Path("commands");
    WriteFile(configuration, ComposeConfiguration(m_chassis, m_ports, ZELKOR_IPMI_SIM_MODULE, m_folder.Path("shared")));
    WriteFile(commands, ComposeCommands(m_chassis, m_absent));
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::runtime_error("cannot make the simulator's console");
    }
    m_console = ends[0];
    std::filesystem::remove(m_folder.Path("out"));
    std::filesystem::remove(m_folder.Path("err"));
    m_process = std::make_unique<Process>(
        std::vector<std::string>{c_program, "-c", configuration, "-f", commands, "-p"}, m_folder.Path("out"),
        m_folder.Path("err"), std::map<std::string, std::string>{}, ends[1]);
    ::close(ends[1]);
    Send("");
    for (const auto& [controller, port] : m_ports) {
        Await("an answer", [port = port] { return AnswersOnPort(port); });
    }
}

void IpmiSimulator::Await(const char* what, const std::function<bool()>& isDone) {
    const auto end = std::chrono::steady_clock::now() + c_patience;
    while (!isDone()) {
        if (const auto status = m_process->Wait(std::chrono::milliseconds(0)); status) {
            throw std::runtime_error("the simulator ended with status " + std::to_string(*status) + ":\n" +
                                     GetOutput());
        }
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error(std::string("the simulator gave no sign of ") + what + ":\n" + GetOutput());
        }
        std::this_thread::sleep_for(c_pollPeriod);
    }
}

SimulatedSensor& IpmiSimulator::GetSensor(std::uint8_t controller, std::uint8_t sensor) {
    for (SimulatedController& description : m_chassis.controllers) {
        for (SimulatedSensor& candidate : description.sensors) {
            if (description.address == controller && candidate.number == sensor) {
                return candidate;
            }
        }
    }
    throw std::invalid_argument("controller " + std::to_string(controller) + " has no sensor " +
                                std::to_string(sensor));
}

// Sends the lines and a last one that says when they are done.
void IpmiSimulator::Send(const std::string& lines) {
    const std::string text = lines + "harness_done " + std::to_string(++m_commandsSent) + "\n";
    if (::send(m_console, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("the simulator does not read its console:\n" + GetOutput());
    }
    Await("having done its commands", [this] { return Load(m_memory->executedCommand) == m_commandsSent; });
}

}  // namespace test
