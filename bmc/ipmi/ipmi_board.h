#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bmc/board.h"
#include "bmc/ipmi/controller.h"
#include "bmc/ipmi/device_id.h"
#include "bmc/ipmi/link.h"
#include "bmc/ipmi/loaded_sensors.h"
#include "bmc/ipmi/settings.h"

namespace bmc::ipmi {

/// A board behind a management controller.
///
/// What changes the board is sent once and then proved by reading back; it is sent a second time only when there was no
/// answer and reading shows that nothing was done.
class IpmiBoard : public bmc::Board {
public:
    /// For how long a board may still show power after it accepted to be switched off.
    static constexpr std::chrono::milliseconds c_powerOffMayTake{2000};
    /// One that kept its power that long is not waited for again for some time: each of its sensors that is too hot
    /// switches it off, and other boards come after it.
    static constexpr std::chrono::seconds c_stayedOnHolds{10};

    /// @param link,sensors outlive the board
    IpmiBoard(BoardSettings settings, Link& link, LoadedSensors& sensors, LogFunction log);

    const Uri& GetUri() const override { return m_settings.uri; }
    BoardType_e GetType() const override { return m_settings.type; }
    std::string GetShortName() const override { return m_settings.name; }
    std::string GetDevicePrefix() const override { return m_settings.prefix; }

    /// Waits until the board's sensor records are known, or known not to be had. @throws qstd::Exception in that case
    std::vector<SensorId> GetSensorsIds() override;
    Sensor* GetSensor(const SensorId& id) override;

    /// The SEL clock, whole seconds of UTC. A clock that says that its time is not specified gives 1970-01-01, as far
    /// from the truth as one that was never set.
    qstd::Time GetTime() const override;
    /// Sets it to the nearest second. @throws qstd::Exception for a time before 1970 or that 32 bits do not hold
    void SetTime(const qstd::Time& time) override;

    /// From @p moment on PowerDown does not wait for the power to go: the service stops. Any thread.
    void EndWaits(std::chrono::steady_clock::time_point moment) noexcept { m_waitsEnd = moment; }

    /// Chassis Control "power down". @throws qstd::Exception when power is still on after c_powerOffMayTake
    void PowerDown() override;
    /// Chassis Control "soft shutdown". Whether the operating system heeds it is not awaited.
    void ShutDown() override;

    // By the commands that the configuration names. A board without them: every transfer fails. Why a board that has
    // them lets a transfer fail is logged once, until FpgaSpiWriteAll succeeds with all values.
    FpgaReadResult FpgaSpiRead(std::uint16_t address) const override;
    FpgaWriteResult FpgaSpiWrite(std::uint16_t address, std::uint16_t value) const override;
    /// Writes all, whatever becomes of one; what the first raised is raised at the end.
    std::vector<FpgaWriteResult> FpgaSpiWriteAll(const std::vector<FpgaRegisterValue>& values) const override;

    /// By Get Device ID and the self-test's results. A board that does not answer is told by the status.
    BoardStatus_e GetStatus() const override;
    BoardPowerStatus_e GetPowerStatus() const override;
    /// By the chassis' identification light.
    RedLedStatus_e GetRedLighStatus() const override;
    FirmwareType_e GetFirmwareType() const override;
    /// 100 * major + minor: 245 is firmware 2.45.
    int GetFwRevision() const override;
    /// The register that the configuration names. @throws qstd::Exception when it names none or it cannot be read
    int GetFpgaRevision() const override;
    /// The byte as the controller gives it, the major version in its low half: 2 is IPMI 2.0, 0x51 is IPMI 1.5.
    int GetIpmiVersion() const override;

private:
    /// "io/1: Get SEL Time"
    std::string About(const Request& request) const;

    /// Reads back whether it is done. @param answer what the board said to the request, nothing when there was no
    /// answer
    using IsDone = std::function<bool(const std::optional<Response>& answer)>;

    /// Sends @p request, and again only as the class says.
    /// @return nothing when it is done; else the board's answer, which may say why not
    std::optional<Response> WriteAndProve(const Request& request, Purpose_e purpose, const IsDone& isDone) const;

    /// As above. @throws qstd::Exception when it is not done
    void Change(const Request& request, Purpose_e purpose, const IsDone& isDone) const;

    DeviceId ReadDeviceId() const;
    /// Executes a request that reads. @return at least @p leastSize bytes of data
    std::vector<std::uint8_t> Read(const Request& request, std::size_t leastSize,
                                   Purpose_e purpose = Purpose_e::reading) const;
    bool WaitForPowerOff(std::chrono::milliseconds patience);
    /// Nothing when the transfer failed. @param problem gets the reason then, empty otherwise
    std::optional<std::uint16_t> ReadRegister(std::uint16_t address, Purpose_e purpose, std::string& problem) const;

    /// Logs why a transfer failed, if that was not told since all registers could be written.
    void TellOfTransfer(const std::string& problem) const;

    const BoardSettings m_settings;
    Link& m_link;
    LoadedSensors& m_sensors;
    const LogFunction m_log;
    using SteadyTime = std::chrono::steady_clock::time_point;
    std::atomic<SteadyTime> m_waitsEnd{SteadyTime::max()};
    std::atomic<SteadyTime> m_stayedOn{SteadyTime{}};      ///< when it was last found to have kept its power
    mutable std::mutex m_mutex;                            ///< guards all below
    mutable std::set<std::string> m_toldTransferProblems;  ///< since all registers could be written last
};

}  // namespace bmc::ipmi
