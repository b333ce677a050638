#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/ipmi/simulated_controller.h"
#include "tests/support/ipmi/simulator_memory.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

namespace test {

/// A request that a controller executed and that changed something (chassis control, identify, clock, thresholds, FPGA
/// registers), in the order of execution.
struct ExecutedWrite {
    std::uint8_t controller = 0;
    std::uint8_t netFunction = 0;
    std::uint8_t command = 0;
    std::vector<std::uint8_t> data;  ///< the first 16 bytes of the request's data

    friend bool operator==(const ExecutedWrite&, const ExecutedWrite&) = default;
};

/// A command by its network function (even) and number.
struct IpmiCommand {
    std::uint8_t netFunction = 0;
    std::uint8_t command = 0;
};

inline constexpr IpmiCommand c_getDeviceId{0x06, 0x01};
inline constexpr IpmiCommand c_getSelfTestResults{0x06, 0x04};
inline constexpr IpmiCommand c_getChassisStatus{0x00, 0x01};
inline constexpr IpmiCommand c_chassisControl{0x00, 0x02};
inline constexpr IpmiCommand c_chassisIdentify{0x00, 0x04};
inline constexpr IpmiCommand c_getSensorReadingFactors{0x04, 0x23};
inline constexpr IpmiCommand c_getSensorThresholds{0x04, 0x27};
inline constexpr IpmiCommand c_getSensorReading{0x04, 0x2d};
inline constexpr IpmiCommand c_getSdrRepositoryInfo{0x0a, 0x20};
inline constexpr IpmiCommand c_getSdr{0x0a, 0x23};
inline constexpr IpmiCommand c_getSelTime{0x0a, 0x48};
inline constexpr IpmiCommand c_setSelTime{0x0a, 0x49};

/// Management controllers that are not ours: one process of `ipmi_sim` (Debian package openipmi) on loopback, with a
/// module of our own for what it lacks. It ends with the object. Cipher suites: 3, and 17 where the module could add it
/// (HasCipherSuite17).
///
/// All controllers of one process are served by one thread, one request after another: for controllers that work side
/// by side take one simulator each.
///
/// A setting holds when its function returns, may be made while the simulator is frozen or stopped unless said
/// otherwise, and outlives a restart. Used by one thread at a time. Whatever goes wrong with the process raises
/// std::runtime_error with what the simulator said.
class IpmiSimulator {
public:
    /// Starts the process and waits until every port of it answers.
    explicit IpmiSimulator(SimulatedChassis chassis = {});
    IpmiSimulator(const IpmiSimulator&) = delete;
    IpmiSimulator& operator=(const IpmiSimulator&) = delete;
    ~IpmiSimulator();

    /// Whether controllers accept cipher suite 17.
    bool HasCipherSuite17() const;

    const SimulatedChassis& GetChassis() const noexcept { return m_chassis; }
    const SimulatedController& GetController(std::uint8_t controller = 0x20) const;
    /// UDP port on 127.0.0.1.
    std::uint16_t GetPort(std::uint8_t controller = 0x20) const;
    /// 0 while it is stopped.
    int GetPid() const;

    // Sensors.
    /// What a sensor reads from now on. Not while frozen.
    void SetRaw(std::uint8_t controller, std::uint8_t sensor, std::uint8_t raw);
    /// As SetRaw, with the raw byte closest to @p reading. @return what that byte stands for.
    double SetReading(std::uint8_t controller, std::uint8_t sensor, double reading);
    void SetUnavailable(std::uint8_t controller, std::uint8_t sensor, bool isUnavailable);
    void SetScanning(std::uint8_t controller, std::uint8_t sensor, bool isScanned);
    /// Completion code of every Get Sensor Reading of this sensor; 0 = none forced.
    void SetSensorCompletionCode(std::uint8_t controller, std::uint8_t sensor, std::uint8_t code);

    // Requests.
    /// Completion code of every request with @p command, which is then not executed; 0 = none forced.
    void SetCompletionCode(std::uint8_t controller, IpmiCommand command, std::uint8_t code);
    /// Replies to @p command are cut to @p length bytes, the completion code counted (so at least 1); nothing = whole.
    void SetReplyLength(std::uint8_t controller, IpmiCommand command, std::optional<std::uint8_t> length);
    /// How long every request takes to serve (Send Message, which only carries another one, none).
    void SetServiceTime(std::uint8_t controller, std::chrono::microseconds time);
    /// A satellite is taken from the IPMB or comes back. Not while frozen; not for the one at 0x20.
    void SetPresent(std::uint8_t controller, bool isPresent);

    // Sessions. Not while frozen.
    /// Sessions of all controllers that are open, or were never closed and have not timed out (after 30 s). A
    /// controller has room for 63.
    std::size_t CountSessions();
    /// The controllers forget all sessions, as after the time-out, without a word to the clients.
    void EndSessions();

    // State.
    bool IsPowerOn(std::uint8_t controller = 0x20) const;
    void SetPowerOn(std::uint8_t controller, bool isOn);
    /// What a soft shutdown does: counts only (false, the state at the start) or also turns the power off.
    void SetObeysShutdown(std::uint8_t controller, bool isObeying);
    /// Bytes 2 and 3 of Get Self Test Results; 0x55 0x00 = passed.
    void SetSelfTest(std::uint8_t controller, std::uint8_t result, std::uint8_t detail);
    /// 0 off, 1 on for a time, 2 on.
    int GetIdentify(std::uint8_t controller = 0x20) const;
    /// Whether Get Chassis Status tells the identify state (so at the start).
    void SetIdentifySupported(std::uint8_t controller, bool isSupported);
    /// Password of the controller's first user, from the next start on.
    void SetPassword(std::uint8_t controller, const std::string& password);
    /// Device id byte 4 bit 7: the firmware is being updated.
    void SetUpdating(std::uint8_t controller, bool isUpdating);
    std::uint16_t GetRegister(std::uint8_t controller, std::uint16_t address) const;
    void SetRegister(std::uint8_t controller, std::uint16_t address, std::uint16_t value);

    // What happened, also over restarts.
    std::uint64_t CountRequests(std::uint8_t controller, IpmiCommand command) const;
    /// All requests to this controller.
    std::uint64_t CountRequests(std::uint8_t controller = 0x20) const;
    /// How long the controller was busy with requests, the waits of SetServiceTime included.
    std::chrono::nanoseconds GetBusyTime(std::uint8_t controller = 0x20) const;
    /// Sets counts and busy times of all controllers to zero.
    void ResetCounts();
    /// The first 4096 of them.
    std::vector<ExecutedWrite> GetWrites() const;
    std::size_t CountWrites(std::uint8_t controller, IpmiCommand command) const;

    // The process.
    /// Nothing answers any more; sockets stay open. Thaw goes on.
    void Freeze();
    void Thaw();
    /// The process is killed: its ports answer with ICMP "port unreachable".
    void Stop();
    /// Starts anew on the same ports (after Stop, or kills first). Clocks and sessions are lost, all else stays.
    void Restart();
    /// Runs a command of the simulator's console to its end.
    void Command(const std::string& line);
    /// What the process printed since its last start.
    std::string GetOutput() const;

private:
    void ChoosePorts();
    void Start();
    void TryStart();
    void Await(const char* what, const std::function<bool()>& isDone);
    SimulatedSensor& GetSensor(std::uint8_t controller, std::uint8_t sensor);
    void Send(const std::string& lines);

    SimulatedChassis m_chassis;
    TempFolder m_folder;
    std::map<std::uint8_t, std::uint16_t> m_ports;
    std::set<std::uint8_t> m_absent;
    SimulatorMemory m_memory;
    std::uint64_t m_commandsSent = 0;
    bool m_isFrozen = false;
    int m_console = -1;
    std::unique_ptr<Process> m_process;
};

}  // namespace test
