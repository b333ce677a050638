#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bmc/enums.h"
#include "bmc/sensor.h"
#include "bmc/sensor_id.h"
#include "bmc/uri.h"
#include "qstd/time.h"

namespace bmc {

/// What reading a register of the fan controller gave.
struct FpgaReadResult {
    std::uint8_t failed = 0;  ///< not zero: the transfer failed and value means nothing
    std::uint16_t value = 0;
};

/// What writing a register of the fan controller gave.
struct FpgaWriteResult {
    std::uint8_t failed = 0;  ///< not zero: the transfer failed
};

/// What is to be written to a register of the fan controller.
struct FpgaRegisterValue {
    std::uint16_t address = 0;
    std::uint16_t value = 0;
};

/// One board of the chassis, owned by the pool for the whole life of the process. All operations may be called from any
/// thread. Accesses to one board are serialised; boards do not wait for one another. Every operation that asks the
/// board's controller raises qstd::Exception when it does not answer.
class Board {
public:
    Board() = default;
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;
    virtual ~Board() = default;

    // What the board is.
    virtual const Uri& GetUri() const = 0;
    /// 44 is the chassis controller board (ICB), 243 the host operating system as a source of sensors.
    virtual BoardType_e GetType() const = 0;
    /// A short human name.
    virtual std::string GetShortName() const = 0;

    /// The ids of the board's sensors, in the board's order.
    virtual std::vector<SensorId> GetSensorsIds() = 0;
    /// The sensor, null when the board does not have it (any more).
    virtual Sensor* GetSensor(const SensorId& id) = 0;

    // The controller's clock.
    virtual qstd::Time GetTime() const = 0;
    virtual void SetTime(const qstd::Time& time) = 0;

    /// Switches the board's power off.
    virtual void PowerDown() = 0;
    /// Shuts the operating system of the board down.
    virtual void ShutDown() = 0;

    // Registers of the fan controller, which the chassis controller board carries. A transfer that fails is told by
    // the result, not by an exception.
    virtual FpgaReadResult FpgaSpiRead(std::uint16_t address) const = 0;
    virtual FpgaWriteResult FpgaSpiWrite(std::uint16_t address, std::uint16_t value) const = 0;
    /// Writes all of @p values in their order; one that fails does not keep the others from being written. A board may
    /// take them in one access, without an answer to each. @return a result for each value
    virtual std::vector<FpgaWriteResult> FpgaSpiWriteAll(const std::vector<FpgaRegisterValue>& values) const;

    // State and revisions.
    virtual BoardStatus_e GetStatus() const = 0;
    virtual BoardPowerStatus_e GetPowerStatus() const = 0;
    virtual RedLedStatus_e GetRedLighStatus() const = 0;
    virtual FirmwareType_e GetFirmwareType() const = 0;
    virtual int GetFwRevision() const = 0;
    virtual int GetFpgaRevision() const = 0;
    virtual int GetIpmiVersion() const = 0;
    virtual std::string GetDevicePrefix() const = 0;
};

}  // namespace bmc
