#include "module.h"

#include <string>
#include <vector>

#include "bmc/board_pool.h"
#include "bmc/broken_off.h"
#include "bmc/uri.h"
#include "qstd/enum_map.h"
#include "qstd/exception.h"
#include "qstd/log.h"
#include "sensor_list_helper.h"

namespace {

/// Calls @p visit with each local board that can be reached and its label; a failure is logged and costs the rest of
/// that board. @throws bmc::BrokenOff
template <class Visit>
void ForEachLocalBoard(const Visit& visit) {
    for (const bmc::Uri& uri : bmc::BoardPool::Instance().GetAllLocalBoardUris()) {
        const std::string name = bmc::BoardLabel(uri);
        bmc::Board* const board = bmc::BoardPool::Instance().GetBoard(uri);
        if (board == nullptr) {
            qstd::LogError("Problem accessing board: " + name);
            continue;
        }
        try {
            visit(*board, name);
        } catch (const bmc::BrokenOff&) {
            throw;
        } catch (const qstd::Exception& error) {
            qstd::LogError("Problem accessing board " + name + ". Exception: " + error.what());
        } catch (...) {
            qstd::LogError("Problem accessing board " + name + ". Unknown exception.");
        }
    }
}

/// The board type that an entry names; nothing, and a log message, when there is no such type.
bool ReadBoardType(const qcfg::Element& entry, bmc::BoardType_e& boardType) {
    std::shared_ptr<qcfg::Attribute> attribute;
    if (!entry.FindAttr("boardType", attribute)) {
        return true;
    }
    try {
        boardType = qstd::EnumFromString<bmc::BoardType_e>(attribute->GetValue());
        return true;
    } catch (const qstd::Exception& error) {
        qstd::LogError(std::string("Unknown board type used in the include/exclude list. ") + error.what());
        return false;
    }
}

}  // namespace

void Module::GetAllSensors(Selection& out) {
    ForEachLocalBoard([&out](bmc::Board& board, const std::string& /*name*/) {
        for (const bmc::SensorId& id : board.GetSensorsIds()) {
            out[&board].insert(id);
        }
    });
}

void Module::GetTemperatureSensors(Selection& out) {
    ForEachLocalBoard([&out](bmc::Board& board, const std::string& name) {
        for (const bmc::SensorId& id : board.GetSensorsIds()) {
            const bmc::Sensor* const sensor = board.GetSensor(id);
            if (sensor == nullptr) {
                qstd::LogError("Problem accessing sensor id: " + bmc::ToString(id) + " on board " + name);
            } else if (sensor->GetType() == bmc::SensorType_e::temperature) {
                out[&board].insert(id);
            }
        }
    });
}

Module::Selection Module::HandleSensorsList(const std::shared_ptr<qcfg::Element>& section, const Selection& available,
                                            const Selection& starting) {
    SensorListHelper helper(available, starting);
    const std::shared_ptr<qcfg::Element> sensors = section->FindChild("sensors");
    if (sensors != nullptr) {
        for (const std::shared_ptr<qcfg::Element>& entry : sensors->GetChildren()) {
            const bool include = entry->GetName() == "include";
            if (!include && entry->GetName() != "exclude") {
                continue;
            }
            std::shared_ptr<qcfg::Attribute> attribute;
            const std::string board = entry->FindAttr("board", attribute) ? attribute->GetValue() : "all";
            auto boardType = SensorListHelper::c_noBoardType;
            if (ReadBoardType(*entry, boardType)) {
                helper.AddToSensorList(board, boardType, entry->GetValue(), include);
            }
        }
    }
    return helper.GetSensors();
}

void Module::Convert(const Selection& selected, SensorIds& out) {
    for (const auto& [board, ids] : selected) {
        std::vector<bmc::SensorId>& sensors = out[board->GetUri()];
        sensors.insert(sensors.end(), ids.begin(), ids.end());
    }
}
