#pragma once

#include <string>
#include <vector>

#include "bmc/board.h"
#include "bmc/enums.h"
#include "bmc/sensor_id.h"
#include "module.h"

/// Builds a selection of sensors from "include" and "exclude" entries, applied one after the other, so that a later
/// entry overrides an earlier one for the sensors both touch. For one thread.
class SensorListHelper {
public:
    /// Stands for "no board type given".
    static constexpr bmc::BoardType_e c_noBoardType = bmc::BoardType_e::none;

    /// The id that a token of a list stands for: decimal, or hexadecimal with "0x" and at least a digit.
    /// @throws qstd::Exception naming the token when it is no number.
    static bmc::SensorId ToSensorId(const std::string& token);

    /// @param available what entries may choose from
    /// @param starting the selection before the first entry
    SensorListHelper(const Module::Selection& available, const Module::Selection& starting);

    /// Applies one entry.
    /// @param board "all" or a board's uri; not looked at when @p boardType is given
    /// @param sensors "all" or a comma-separated list of sensor ids, each decimal or, with "0x" in front, hexadecimal
    /// @param include whether the sensors are added or removed. Sensors and boards that are not there are passed over.
    /// @throws qstd::Exception for an id that is not a number; nothing of the entry is applied then.
    void AddToSensorList(const std::string& board, const bmc::BoardType_e& boardType, const std::string& sensors,
                         bool include);

    /// The boards an entry applies to, in the order of the available map.
    std::vector<bmc::Board*> FindUris(const std::string& board, const bmc::BoardType_e& boardType) const;

    /// Drops the boards without sensors and returns the selection.
    Module::Selection GetSensors();

private:
    Module::Selection m_result;
    Module::Selection m_all;
    std::vector<bmc::Board*> m_boards;
};
