// One pass of the monitor: reading the sensors and telling of thresholds and changes. Settings and thread stand in
// monitor.cpp.

#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "bmc/board_pool.h"
#include "bmc/broken_off.h"
#include "bmc_sensor_node.h"
#include "monitor.h"
#include "qapp/zelkor_application.h"
#include "qnode/local_node_structure.h"
#include "qnode/node.h"
#include "qstd/any.h"
#include "qstd/convert.h"
#include "qstd/exception.h"
#include "qstd/log.h"

namespace {

/// " (id = ICB_1[12]:Intake; value = 80 C; HNC = 75)"
std::string CrossingText(const std::string& board, const bmc::Sensor& sensor, const bmc::SensorReading& limit,
                         double value, const std::string& limitName) {
    std::string text = limitName;
    text.append(" (id = ").append(board).append("[");
    qstd::AppendNumber(text, static_cast<long long>(sensor.GetId().GetValue()));
    text.append("]:").append(sensor.GetName()).append("; value = ");
    qstd::AppendNumber(text, value);
    text.append(" ").append(sensor.GetUnits()).append("; ").append(limitName).append(" = ");
    qstd::AppendNumber(text, limit.Converted());
    return text.append(")");
}

using NodePtr = std::shared_ptr<qnode::TreeNode>;

/// The child of that name. The reference is good for as long as @p node is held: nothing is ever taken out.
const NodePtr& ChildOf(const NodePtr& node, std::string_view name) {
    const qnode::LocalNodeStructure& children = *node->GetStructure();  // whatever is in a tree has one
    const std::size_t index = children.FindChild(name);
    if (index == qnode::LocalNodeStructure::c_none) {
        throw qstd::Exception("No node \"" + std::string(name) + "\" under \"" + node->GetName() + "\"");
    }
    return children.GetChild(index);
}

/// A notification to be emitted: on which leaf of the sensor, and of which type.
struct Emission {
    BmcSensorNode::SensorData_e leaf;
    qnode::NotificationType type;
};

/// What there is to tell of a reading. A threshold counts by what it converts to, whether it is valid or not; one that
/// is not there converts to what no value is beyond.
std::optional<Emission> FindEmission(const bmc::Sensor& sensor, double value, double previous) {
    using Data = BmcSensorNode::SensorData_e;
    using Type = qnode::NotificationType;
    if (value > sensor.GetUpperNonRecoverable().Converted()) {
        return Emission{Data::hnr, Type::threshold};
    }
    if (value > sensor.GetUpperCritical().Converted()) {
        return Emission{Data::hc, Type::threshold};
    }
    if (value > sensor.GetUpperNonCritical().Converted()) {
        return Emission{Data::hnc, Type::threshold};
    }
    if (sensor.GetLowerNonRecoverable().Converted() > value) {
        return Emission{Data::lnc, Type::threshold};  // clients expect this one on lnc, not on lnr
    }
    if (sensor.GetLowerCritical().Converted() > value) {
        return Emission{Data::lc, Type::threshold};
    }
    if (sensor.GetLowerNonCritical().Converted() > value) {
        return Emission{Data::lnc, Type::threshold};
    }
    if (!qstd::Equal(previous, value)) {
        return Emission{Data::value, Type::value};
    }
    return std::nullopt;
}

}  // namespace

void Monitor::LogSensors() {
    if (m_sensors.empty() || m_frame.IsStoppedLocked()) {
        return;
    }
    const auto sweep = bmc::BoardPool::Instance().StartSweep(m_ids);
    for (auto& [uri, sensors] : m_sensors) {
        const std::string label = bmc::BoardLabel(uri);
        try {
            LogBoard(uri, label, sensors, *sweep);
        } catch (...) {
            LogAndGoOn("Problem accessing board " + label);
        }
    }
}

void Monitor::LogBoard(const bmc::Uri& uri, const std::string& label, std::vector<SensorData>& sensors,
                       bmc::Sweep& sweep) {
    bmc::Board* const board = bmc::BoardPool::Instance().GetBoard(uri);
    if (board == nullptr) {
        qstd::LogError("Problem accessing board: " + label);
        return;
    }
    Record record;
    for (SensorData& data : sensors) {
        try {
            LogSensor(*board, label, data, sweep, record);
        } catch (...) {
            LogAndGoOn("Problem accessing sensor id: " + bmc::ToString(data.id) + " on board " + label);
        }
    }
    if (record.isWanted) {
        GetLog(uri, record.heading).WriteMessage(record.line);
    }
}

void Monitor::LogSensor(bmc::Board& board, const std::string& label, SensorData& data, bmc::Sweep& sweep,
                        Record& record) const {
    bmc::Sensor* const sensor = board.GetSensor(data.id);
    if (sensor == nullptr) {
        record.heading.append(";[").append(bmc::ToString(data.id)).append("]");
        record.line.append(";N/A");
        qstd::LogError("Problem accessing sensor id: " + bmc::ToString(data.id) + " on board " + label);
        return;
    }
    const double value = sweep.Read(*sensor).Converted();
    const std::string& name = sensor->GetName();
    record.heading.append(";[");
    qstd::AppendNumber(record.heading, static_cast<long long>(data.id.GetValue()));
    record.heading.append("]-").append(name);
    record.line.append(";");
    qstd::AppendNumber(record.line, value);
    record.isWanted |= Filter(sensor, data, value);  // stands even when a threshold below raises
    LogCriticalValues(label, sensor, data, value);
    EmitNotifications(sensor, board.GetShortName(), bmc::ToString(data.id), value, data.value);
    data.valid = true;
    data.value = value;
}

void Monitor::LogCriticalValues(const std::string& board, bmc::Sensor* sensor, const SensorData& data, double value) {
    const bmc::SensorReading upperNonRecoverable = sensor->GetUpperNonRecoverable();
    const bmc::SensorReading upperCritical = sensor->GetUpperCritical();
    const bmc::SensorReading upperNonCritical = sensor->GetUpperNonCritical();
    const bmc::SensorReading lowerNonRecoverable = sensor->GetLowerNonRecoverable();
    const bmc::SensorReading lowerCritical = sensor->GetLowerCritical();
    const bmc::SensorReading lowerNonCritical = sensor->GetLowerNonCritical();
    if (LogAboveValues(board, sensor, upperNonRecoverable, data, value, "HNR") ||
        LogAboveValues(board, sensor, upperCritical, data, value, "HC") ||
        LogAboveValues(board, sensor, upperNonCritical, data, value, "HNC") ||
        LogBelowValues(board, sensor, lowerNonRecoverable, data, value, "LNR") ||
        LogBelowValues(board, sensor, lowerCritical, data, value, "LC") ||
        LogBelowValues(board, sensor, lowerNonCritical, data, value, "LNC")) {
        return;
    }
    // A threshold that is not there converts to an infinity, which no value passes: such a side is always inside.
    const double upper = upperNonCritical.Converted();
    const double lower = lowerNonCritical.Converted();
    const bool wasOutside = data.valid && (data.value > upper || data.value < lower);
    if (wasOutside && lower <= value && value <= upper) {
        std::string text = "Sensor value is is back to normal. (id = " + board + "[";
        text.append(bmc::ToString(sensor->GetId())).append("] - ").append(sensor->GetName()).append(";value = ");
        qstd::AppendNumber(text, value);
        qstd::LogInfo(text.append(" ").append(sensor->GetUnits()).append(")"));
    }
}

bool Monitor::LogAboveValues(const std::string& board, bmc::Sensor* sensor, const bmc::SensorReading& limit,
                             const SensorData& data, double value, const std::string& limitName) {
    // A previous value that was not available counts as not above.
    const bool wasAbove = data.valid && data.value > limit.Converted();
    if (!limit.IsValid() || !(limit.Converted() < value) || wasAbove) {
        return false;
    }
    qstd::LogWarning("Sensor value is above " + CrossingText(board, *sensor, limit, value, limitName));
    return true;
}

bool Monitor::LogBelowValues(const std::string& board, bmc::Sensor* sensor, const bmc::SensorReading& limit,
                             const SensorData& data, double value, const std::string& limitName) {
    const bool wasBelow = data.valid && data.value < limit.Converted();
    if (!limit.IsValid() || !(value < limit.Converted()) || wasBelow) {
        return false;
    }
    qstd::LogWarning("Sensor value is below " + CrossingText(board, *sensor, limit, value, limitName));
    return true;
}

void Monitor::EmitNotifications(bmc::Sensor* sensor, const std::string& board, const std::string& sensorId,
                                double value, double previous) {
    try {
        const NodePtr& boards = ChildOf(qapp::ZelkorApplication::Instance().GetRegistry(), "boards");
        const NodePtr& sensors = ChildOf(ChildOf(boards, board), "sensors");
        const NodePtr& node = ChildOf(sensors, "ID_" + sensorId);
        if (const std::optional<Emission> emission = FindEmission(*sensor, value, previous)) {
            const NodePtr& leaf = ChildOf(node, BmcSensorNode::SensorDataTypeToStr(emission->leaf));
            qnode::Node(leaf).Emit(emission->type, qstd::Any(value));
        }
    } catch (const bmc::BrokenOff&) {
        throw;
    } catch (const std::exception& error) {
        qstd::LogError(std::string("Error at emitting notifications. ") + error.what());
    } catch (...) {
        qstd::LogError("Error at emitting notifications. Unknown exception.");
    }
}
