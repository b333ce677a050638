#pragma once

#include <map>
#include <string>
#include <vector>

#include "bmc/board.h"
#include "bmc/enums.h"
#include "bmc/sensor_id.h"
#include "bmc/sensor_reading.h"
#include "bmc/uri.h"
#include "module.h"

/// What the boards of the chassis tell of their sensors when all of them are asked once: what a configuration is proved
/// on. A value; it refers to boards of the pool.
struct ChassisSurvey {
    struct Sensor {
        bmc::SensorType_e type = bmc::SensorType_e::unspecified;
        std::string name;
        bmc::SensorReading highNonCritical = bmc::SensorReading::NoUpperLimit();
        bmc::SensorReading highCritical = bmc::SensorReading::NoUpperLimit();
        bmc::SensorReading highNonRecoverable = bmc::SensorReading::NoUpperLimit();
    };

    struct Board {
        bmc::Uri uri;
        bmc::Board* board = nullptr;  ///< null when the pool does not find it
        std::string silence;          ///< why its sensors are not known; empty: they are
        bool isController = false;    ///< it answers, and is the one that carries the fan controller
        std::string fanTrouble;       ///< of such a board: why a fan's register cannot be read; empty: it can
        std::map<bmc::SensorId, Sensor> sensors;
    };

    std::vector<Board> boards;       ///< all that the chassis has, in the pool's order
    Module::Selection all;           ///< every sensor of the boards that answer
    Module::Selection temperatures;  ///< every temperature sensor of them
    Module::Selection boardsAsKeys;  ///< every board that the pool finds, without sensors

    bool IsComplete() const;

    /// Null when there is no such board.
    const Board* Find(const bmc::Uri& uri) const;
};

/// Asks all boards of the pool, side by side, and reads no sensor, and of the fans one register. A board counts as
/// answering only when its controller does: what a backend keeps of a dead one proves nothing. Lasts as long as the
/// slowest board, at most until the time that bmc::BoardPool::LimitAccesses has set.
ChassisSurvey SurveyChassis();
