#include "bmc/ipmi/ipmi_board.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "bmc/ipmi/failures.h"
#include "qstd/exception.h"

namespace bmc::ipmi {

namespace {

// Data of Chassis Control (IPMI v2.0 specification, table 28-4).
constexpr std::uint8_t c_powerDown = 0x00;
constexpr std::uint8_t c_softShutdown = 0x05;

// The first byte of Get Chassis Status (table 28-3).
constexpr std::uint8_t c_powerIsOn = 0x01;
constexpr std::uint8_t c_powerOverload = 0x02;
constexpr std::uint8_t c_powerFault = 0x08;
constexpr std::uint8_t c_powerControlFault = 0x10;

// The third byte of it.
constexpr std::uint8_t c_identifyIsKnown = 0x40;
constexpr std::uint8_t c_identify = 0x30;  ///< 0 off, 1 for a time, 2 until told otherwise

/// The first byte of Get Self Test Results (table 20-8).
BoardStatus_e FromSelfTest(std::uint8_t result) {
    switch (result) {
        case 0x55:  // no error
        case 0x56:  // the controller has no self-test
            return BoardStatus_e::ok;
        case 0x58:  // fatal hardware error
            return BoardStatus_e::failed;
        case 0xff:  // reserved
            return BoardStatus_e::unknown;
        default:  // corrupted or inaccessible data or devices, or a failure of the device's own
            return BoardStatus_e::degraded;
    }
}

constexpr std::uint32_t c_unspecifiedTime = 0xffffffff;
constexpr std::int64_t c_clockMayDiffer = 2;  ///< seconds between what was set and what is read back
constexpr std::chrono::milliseconds c_powerPollPeriod{100};

Request GetClockRequest() {
    return {NetFn_e::storage, 0x48};
}

Request ChassisStatusRequest() {
    return {NetFn_e::chassis, 0x01};
}

std::uint32_t FromLittleEndian(const std::vector<std::uint8_t>& data) {
    return static_cast<std::uint32_t>(data[0]) | static_cast<std::uint32_t>(data[1]) << 8 |
           static_cast<std::uint32_t>(data[2]) << 16 | static_cast<std::uint32_t>(data[3]) << 24;
}

/// The second that is nearest to @p time. @throws qstd::Exception when the clock cannot hold it
std::uint32_t ToClock(const qstd::Time& time, const std::string& what) {
    constexpr std::int32_t c_half = 500'000;
    const std::int64_t seconds = time.GetSeconds() + (time.GetMicroseconds() >= c_half ? 1 : 0);
    if (seconds < 0 || seconds >= c_unspecifiedTime) {
        throw qstd::Exception(fmt::format("{}: {} s since 1970 is not in 0..{}", what, seconds, c_unspecifiedTime - 1));
    }
    return static_cast<std::uint32_t>(seconds);
}

}  // namespace

IpmiBoard::IpmiBoard(BoardSettings settings, Link& link, LoadedSensors& sensors, LogFunction log)
    : m_settings(std::move(settings)), m_link(link), m_sensors(sensors), m_log(std::move(log)) {}

std::string IpmiBoard::About(const Request& request) const {
    return m_settings.uri.ToString() + ": " + CommandName(request);
}

std::vector<std::uint8_t> IpmiBoard::Read(const Request& request, std::size_t leastSize, Purpose_e purpose) const {
    return ExpectData(m_link.Execute(request, purpose), leastSize, About(request));
}

std::optional<Response> IpmiBoard::WriteAndProve(const Request& request, Purpose_e purpose,
                                                 const IsDone& isDone) const {
    std::optional<Response> answer;
    for (bool isRepetition = false; !answer; isRepetition = true) {
        try {
            answer = m_link.Execute(request, purpose);
        } catch (const NoAnswer& silence) {
            if (!silence.WasSent() || isRepetition) {
                throw;
            }
        }
        if (isDone(answer)) {
            return std::nullopt;
        }
    }
    return answer;
}

void IpmiBoard::Change(const Request& request, Purpose_e purpose, const IsDone& isDone) const {
    if (const auto answer = WriteAndProve(request, purpose, isDone)) {
        ExpectData(*answer, 0, About(request));
        throw qstd::Exception(About(request) + ": accepted, but reading back shows that it was not done");
    }
}

std::vector<SensorId> IpmiBoard::GetSensorsIds() {
    return m_sensors.AwaitIds();
}

Sensor* IpmiBoard::GetSensor(const SensorId& id) {
    return m_sensors.Find(id);
}

qstd::Time IpmiBoard::GetTime() const {
    const std::uint32_t seconds = FromLittleEndian(Read(GetClockRequest(), 4));
    return {seconds == c_unspecifiedTime ? 0UL : seconds, 0UL};
}

void IpmiBoard::SetTime(const qstd::Time& time) {
    Request request{NetFn_e::storage, 0x49};
    const std::int64_t seconds = ToClock(time, About(request));
    for (int shift = 0; shift < 32; shift += 8) {
        request.data.push_back(static_cast<std::uint8_t>(seconds >> shift));
    }
    const auto begin = std::chrono::steady_clock::now();
    Change(request, Purpose_e::writing, [&](const auto& /*answer*/) {
        const std::int64_t now = FromLittleEndian(Read(GetClockRequest(), 4, Purpose_e::verifying));
        const auto elapsed = std::chrono::floor<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
        return now >= seconds && now <= seconds + elapsed.count() + c_clockMayDiffer;
    });
}

bool IpmiBoard::WaitForPowerOff(std::chrono::milliseconds patience) {
    const auto begin = std::chrono::steady_clock::now();
    const bool stayedOn = begin < m_stayedOn.load() + c_stayedOnHolds;
    while ((Read(ChassisStatusRequest(), 1, Purpose_e::verifying)[0] & c_powerIsOn) != 0) {
        const auto now = std::chrono::steady_clock::now();
        if (stayedOn || now >= std::min(begin + patience, m_waitsEnd.load())) {
            if (patience.count() > 0) {  // else it refused, and nobody waited
                m_stayedOn = now;
            }
            return false;
        }
        std::this_thread::sleep_for(c_powerPollPeriod);
    }
    m_stayedOn = SteadyTime{};
    return true;
}

void IpmiBoard::PowerDown() {
    Change({NetFn_e::chassis, 0x02, {c_powerDown}}, Purpose_e::switching, [this](const auto& answer) {
        const bool isRefused = answer && answer->completionCode != c_completed;
        return WaitForPowerOff(isRefused ? std::chrono::milliseconds(0) : c_powerOffMayTake);
    });
}

void IpmiBoard::ShutDown() {
    // That an operating system goes down cannot be read back within any time that a caller would wait, and a second
    // request can abort the first. So there is only one.
    const Request request{NetFn_e::chassis, 0x02, {c_softShutdown}};
    ExpectData(m_link.Execute(request, Purpose_e::switching), 0, About(request));
}

std::optional<std::uint16_t> IpmiBoard::ReadRegister(std::uint16_t address, Purpose_e purpose,
                                                     std::string& problem) const {
    const Request request = m_settings.fpga->MakeRead(address);
    const Response response = m_link.Execute(request, purpose);
    std::optional<std::uint16_t> value;
    problem = CommandName(request) + ": ";
    if (response.completionCode != c_completed) {
        problem += CompletionText(response.completionCode);
    } else if (!(value = m_settings.fpga->ReadReply(response.data))) {
        problem += "the reply is not as the configuration says";
    } else {
        problem.clear();
    }
    return value;
}

void IpmiBoard::TellOfTransfer(const std::string& problem) const {
    {
        const std::lock_guard lock(m_mutex);
        if (!m_toldTransferProblems.insert(problem).second) {
            return;
        }
    }
    m_log(qstd::LogLevel_e::warning,
          "Fan registers of board " + m_settings.uri.ToString() + " cannot be accessed: " + problem);
}

FpgaReadResult IpmiBoard::FpgaSpiRead(std::uint16_t address) const {
    if (!m_settings.fpga) {
        return {1, 0};
    }
    std::string problem;
    const auto value = ReadRegister(address, Purpose_e::reading, problem);
    if (!value) {
        TellOfTransfer(problem);
    }
    return value ? FpgaReadResult{0, *value} : FpgaReadResult{1, 0};
}

FpgaWriteResult IpmiBoard::FpgaSpiWrite(std::uint16_t address, std::uint16_t value) const {
    if (!m_settings.fpga) {
        return {1};
    }
    const Request request = m_settings.fpga->MakeWrite(address, value);
    std::string problem;
    const auto isDone = [&](const auto& answer) {
        const auto readBack = ReadRegister(address, Purpose_e::verifying, problem);
        if (!readBack && !answer) {
            throw qstd::Exception(About(request) +
                                  ": no answer, and reading back does not show whether it was done: " + problem);
        }
        return readBack == value;
    };
    const auto answer = WriteAndProve(request, Purpose_e::writing, isDone);
    if (!answer) {
        return {0};
    }
    if (answer->completionCode != c_completed) {
        problem = CommandName(request) + ": " + CompletionText(answer->completionCode);
    } else if (problem.empty()) {
        problem = CommandName(request) + ": accepted, but another value is read back";
    }
    TellOfTransfer(problem);
    return {1};
}

std::vector<FpgaWriteResult> IpmiBoard::FpgaSpiWriteAll(const std::vector<FpgaRegisterValue>& values) const {
    std::vector<FpgaWriteResult> results;
    results.reserve(values.size());
    std::exception_ptr firstFailure;
    for (const FpgaRegisterValue& each : values) {
        try {
            results.push_back(FpgaSpiWrite(each.address, each.value));
        } catch (const qstd::Exception&) {
            if (firstFailure == nullptr) {
                firstFailure = std::current_exception();
            }
        }
    }
    if (firstFailure != nullptr) {
        std::rethrow_exception(firstFailure);
    }
    if (std::all_of(results.begin(), results.end(), [](const FpgaWriteResult& each) { return each.failed == 0; })) {
        const std::lock_guard lock(m_mutex);
        m_toldTransferProblems.clear();
    }
    return results;
}

DeviceId IpmiBoard::ReadDeviceId() const {
    const Request request = DeviceId::MakeRequest();
    return DeviceId::Decode(m_link.Execute(request, Purpose_e::reading), About(request));
}

BoardStatus_e IpmiBoard::GetStatus() const {
    try {
        if (ReadDeviceId().isUpdating) {
            return BoardStatus_e::updating;
        }
        const Response selfTest = m_link.Execute({NetFn_e::app, 0x04}, Purpose_e::reading);
        if (selfTest.completionCode == c_invalidCommand) {
            return BoardStatus_e::ok;
        }
        return selfTest.completionCode != c_completed || selfTest.data.empty() ? BoardStatus_e::unknown
                                                                               : FromSelfTest(selfTest.data[0]);
    } catch (const NoAnswer&) {
        return BoardStatus_e::not_responding;
    }
}

BoardPowerStatus_e IpmiBoard::GetPowerStatus() const {
    const Response response = m_link.Execute(ChassisStatusRequest(), Purpose_e::reading);
    if (response.completionCode == c_invalidCommand) {
        return BoardPowerStatus_e::unknown;
    }
    const std::uint8_t state = ExpectData(response, 1, About(ChassisStatusRequest()))[0];
    if ((state & c_powerIsOn) != 0) {
        return BoardPowerStatus_e::on;
    }
    constexpr std::uint8_t c_anyFault = c_powerOverload | c_powerFault | c_powerControlFault;
    return (state & c_anyFault) != 0 ? BoardPowerStatus_e::fault : BoardPowerStatus_e::off;
}

RedLedStatus_e IpmiBoard::GetRedLighStatus() const {
    const Response response = m_link.Execute(ChassisStatusRequest(), Purpose_e::reading);
    if (response.completionCode == c_invalidCommand) {
        return RedLedStatus_e::unknown;
    }
    const std::uint8_t state = ExpectData(response, 3, About(ChassisStatusRequest()))[2];
    if ((state & c_identifyIsKnown) == 0) {
        return RedLedStatus_e::unknown;
    }
    if ((state & c_identify) == c_identify) {  // reserved
        return RedLedStatus_e::unknown;
    }
    return (state & c_identify) == 0 ? RedLedStatus_e::off : RedLedStatus_e::blinking;
}

FirmwareType_e IpmiBoard::GetFirmwareType() const {
    return ReadDeviceId().isUpdating ? FirmwareType_e::unknown : FirmwareType_e::active;
}

int IpmiBoard::GetFwRevision() const {
    constexpr int c_perMajor = 100;
    const DeviceId id = ReadDeviceId();
    return id.firmwareMajor * c_perMajor + id.firmwareMinor;
}

int IpmiBoard::GetFpgaRevision() const {
    const std::string what = m_settings.uri.ToString() + ": FPGA revision: ";
    if (!m_settings.fpga || !m_settings.fpga->GetRevisionRegister()) {
        throw qstd::Exception(what + "the configuration names no register of it");
    }
    std::string problem;
    const auto revision = ReadRegister(*m_settings.fpga->GetRevisionRegister(), Purpose_e::reading, problem);
    if (!revision) {
        throw qstd::Exception(what + problem);
    }
    return *revision;
}

int IpmiBoard::GetIpmiVersion() const {
    return ReadDeviceId().ipmiVersion;
}

}  // namespace bmc::ipmi
