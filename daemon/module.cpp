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

/// Calls @p visit with each local board that can be reached; a failure is logged and costs the rest of that board.
/// @throws bmc::BrokenOff
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
            visit(*board);
        } catch (const bmc::BrokenOff&) {
            throw;
        } catch (const qstd::Exception& error) {
            qstd::LogError("Problem accessing board " + name + ". Exception: " + error.what());
        } catch (...) {
            qstd::LogError("Problem accessing board " + name + ". Unknown exception.");
        }
    }
}

}  // namespace

std::optional<Module::ListEntry> Module::ReadEntry(const qcfg::Element& element) {
    ListEntry entry;
    entry.isInclude = element.GetName() == "include";
    if (!entry.isInclude && element.GetName() != "exclude") {
        return std::nullopt;
    }
    entry.sensors = element.GetValue();
    std::shared_ptr<qcfg::Attribute> attribute;
    if (element.FindAttr("board", attribute)) {
        entry.board = attribute->GetValue();
    }
    if (element.FindAttr("boardType", attribute)) {
        try {
            entry.boardType = qstd::EnumFromString<bmc::BoardType_e>(attribute->GetValue());
        } catch (const qstd::Exception& error) {
            qstd::LogError(std::string("Unknown board type used in the include/exclude list. ") + error.what());
            return std::nullopt;
        }
    }
    return entry;
}

void Module::AddSensors(bmc::Board& board, Selection& out) {
    for (const bmc::SensorId& id : board.GetSensorsIds()) {
        out[&board].insert(id);
    }
}

void Module::AddTemperatureSensors(bmc::Board& board, Selection& out) {
    for (const bmc::SensorId& id : board.GetSensorsIds()) {
        const bmc::Sensor* const sensor = board.GetSensor(id);
        if (sensor == nullptr) {
            qstd::LogError("Problem accessing sensor id: " + bmc::ToString(id) + " on board " +
                           bmc::BoardLabel(board.GetUri()));
        } else if (sensor->GetType() == bmc::SensorType_e::temperature) {
            out[&board].insert(id);
        }
    }
}

void Module::GetAllSensors(Selection& out) {
    ForEachLocalBoard([&out](bmc::Board& board) { AddSensors(board, out); });
}

void Module::GetTemperatureSensors(Selection& out) {
    ForEachLocalBoard([&out](bmc::Board& board) { AddTemperatureSensors(board, out); });
}

Module::Selection Module::HandleSensorsList(const std::shared_ptr<qcfg::Element>& section, const Selection& available,
                                            const Selection& starting) {
    SensorListHelper helper(available, starting);
    const std::shared_ptr<qcfg::Element> sensors = section->FindChild("sensors");
    if (sensors != nullptr) {
        for (const std::shared_ptr<qcfg::Element>& element : sensors->GetChildren()) {
            if (const auto entry = ReadEntry(*element)) {
                helper.AddToSensorList(entry->board, entry->boardType, entry->sensors, entry->isInclude);
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
