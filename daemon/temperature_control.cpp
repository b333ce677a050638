#include "temperature_control.h"

#include <chrono>
#include <cmath>
#include <limits>
#include <optional>

#include "bmc/board_pool.h"
#include "bmc/broken_off.h"
#include "fan_node.h"
#include "fans_node.h"
#include "qapp/zelkor_application.h"
#include "qreg/reg_node.h"
#include "qstd/convert.h"
#include "qstd/log.h"
#include "qstd/source_name.h"
#include "qstd/thread_name.h"
#include "qstd/trace_fnc.h"

static_assert(qstd::SourceName(__FILE__) == "temperature_control", "trace records name sources of the daemon bare");

namespace {

/// Calls @p visit with each sensor that can be reached. What cannot is logged; an exception costs the rest of its
/// board.
template <class Visit>
void ForEachSensor(const Module::SensorIds& watched, const Visit& visit) {
    for (const auto& [uri, ids] : watched) {
        try {
            bmc::Board* const board = bmc::BoardPool::Instance().GetBoard(uri);
            if (board == nullptr) {
                qstd::LogError("Problem accessing board: " + uri.ToString());
                continue;
            }
            for (const bmc::SensorId& id : ids) {
                const bmc::Sensor* const sensor = board->GetSensor(id);
                if (sensor == nullptr) {
                    qstd::LogError("Problem accessing sensor id: " + bmc::ToString(id) + " on board " + uri.ToString());
                } else {
                    visit(*sensor);
                }
            }
        } catch (...) {
            LogAndGoOn("Problem accessing board " + uri.ToString());
        }
    }
}

/// The sensor's name for the report, which shows what it can.
std::string SensorName(const bmc::Uri& uri, const bmc::SensorId& id) {
    try {
        bmc::Board* const board = bmc::BoardPool::Instance().GetBoard(uri);
        const bmc::Sensor* const sensor = board == nullptr ? nullptr : board->GetSensor(id);
        if (sensor != nullptr) {
            return sensor->GetName();
        }
    } catch (const bmc::BrokenOff&) {
        throw;
    } catch (...) {
        // the report is no place to tell of it: the next reading of the sensor does
    }
    return "invalid value";
}

}  // namespace

TemperatureControl& TemperatureControl::GetInstance(std::shared_ptr<qnode::TreeNode> fansNode) {
    static TemperatureControl instance(fansNode);
    return instance;
}

TemperatureControl::TemperatureControl(std::shared_ptr<qnode::TreeNode>& fansNode) : m_fansNode(fansNode) {
    m_frame.Start(*this);
}

TemperatureControl::~TemperatureControl() {
    StopThread();
    m_frame.Join();
}

void TemperatureControl::StopThread() {
    m_frame.Stop();
}

std::string TemperatureControl::GetClassName() {
    return "temperature_control";
}

void TemperatureControl::operator()() {
    qstd::SetThreadName("temp_control");
    qstd::LogInfo("*Temperature Control process started.");
    try {
        ReadSettings();
        CheckTable();
        LogProperties();
        m_frame.RunPasses(!m_sensors.empty(), std::chrono::seconds(m_frequency), [this] { Control(); });
    } catch (const bmc::BrokenOff&) {
        m_frame.AwaitStop();
    } catch (...) {
        const std::string why = LogCaught("Problem in Temperature Control process - ",
                                          "Problem in Temperature Control process - Unknown Exception", "Error: ");
        TellOfEnd("Temperature Control", why, qapp::Health::Need_e::vital);
    }
    qstd::LogInfo("*Temperature Control process stopped");
}

void TemperatureControl::ReadSettings() {
    if (!qapp::ZelkorApplication::Instance().GetConfig().Read(*this)) {
        qstd::LogInfo("Configuration for Temperature Control is not available. Using default values");
        Selection sensors;
        GetTemperatureSensors(sensors);
        Convert(sensors, m_sensors);
    }
}

void TemperatureControl::CheckTable() {
    if (!VerifyTempFansTable()) {
        qstd::LogError("Errors in temperature to fans conversion table!");
        m_table.clear();
    } else if (!m_table.empty()) {
        // Begin fast and come down: how hot it is shows only after the first cycles.
        m_band = static_cast<std::uint32_t>(m_table.size() - 1);
    }
}

bool TemperatureControl::Deserialize(const std::vector<std::shared_ptr<qcfg::Element>>& elements) {
    if (elements.size() != 1) {
        qstd::LogInfo("No settings found for Temperature Control module");
        return false;
    }
    const std::shared_ptr<qcfg::Element>& section = elements.front();
    bool enabled = false;
    if (section->GetAttrValue("enabled", enabled)) {
        m_frame.SetDisabled(!enabled);
    }
    section->GetValue("frequency", m_frequency);
    ReadTable(*section);
    Selection sensors;
    GetTemperatureSensors(sensors);
    Convert(HandleSensorsList(section, sensors, sensors), m_sensors);
    return true;
}

TemperatureControl::TempFansElem TemperatureControl::ReadRow(const qcfg::Element& set) {
    TempFansElem row;  // what is missing or no number stays 0, which the check of the table does not let pass
    set.GetAttrValue("upper", row.upper);
    set.GetAttrValue("lower", row.lower);
    set.GetAttrValue("rpm", row.rpm);
    return row;
}

void TemperatureControl::ReadTable(const qcfg::Element& section) {
    const std::shared_ptr<qcfg::Element> fans = section.FindChild("fans");
    if (fans == nullptr) {
        return;
    }
    for (const std::shared_ptr<qcfg::Element>& set : fans->GetChildren()) {
        if (set->GetName() != "set") {
            continue;
        }
        m_table.push_back(ReadRow(*set));
    }
}

void TemperatureControl::LogProperties() const {
    const std::string keyIndent(35, ' ');
    const std::string itemIndent(37, ' ');
    const std::string idIndent(38, ' ');

    std::string text = "Temperature Control settings:\n";
    text += keyIndent + "enabled   = " + (m_frame.IsStopped() ? "false" : "true") + "\n";
    text += keyIndent + "frequency = " + std::to_string(m_frequency) + " seconds\n";
    text += keyIndent + "Controlling following sensors\n";
    if (m_sensors.empty()) {
        text += itemIndent + "No sensors found!\n";
    }
    for (const auto& [uri, ids] : m_sensors) {
        text += itemIndent + uri.ToString() + "\n";
        for (const bmc::SensorId& id : ids) {
            text += idIndent + " " + bmc::ToString(id) + "  (" + SensorName(uri, id) + ")\n";
        }
    }
    text += keyIndent + "Temperature to fans conversion table\n";
    if (m_table.empty()) {
        text += itemIndent + "Fans are set to maximum speed\n";
    }
    for (const TempFansElem& row : m_table) {
        text += itemIndent + std::to_string(row.lower) + ", " + std::to_string(row.upper) + " -> " +
                std::to_string(row.rpm) + "\n";
    }
    qstd::LogInfo(text);
}

bool TemperatureControl::VerifyTempFansTable() {
    if (m_table.empty()) {
        return true;
    }
    const double highNonCritical = LowestHighNonCritical();
    qstd::TraceHere(1, "Lowest HNC found: " + qstd::NumberText(highNonCritical));
    const std::optional<std::string> error = fan_table::FindError(m_table, highNonCritical);
    if (error) {
        qstd::LogWarning(*error);
    }
    return !error;
}

double TemperatureControl::LowestHighNonCritical() const {
    double lowest = 0.0;
    ForEachSensor(m_sensors, [&lowest](const bmc::Sensor& sensor) {
        lowest = fan_table::LowerLimit(lowest, sensor.GetUpperNonCritical());
    });
    return lowest;
}

void TemperatureControl::Control() {
    const std::uint32_t current = GetReferenceFanSpeed();
    const double temperature = GetMaxTemp();
    const fan_table::Step step = fan_table::TakeStep(m_table, m_band, temperature);
    if (!step.warning.empty()) {
        qstd::LogWarning(step.warning);
    }
    m_band = step.band;
    SetFansSpeed(step.rpm, current, &temperature);
}

double TemperatureControl::GetMaxTemp() const {
    double highest = -1.0;
    const auto sweep = bmc::BoardPool::Instance().StartSweep(m_sensors);
    ForEachSensor(m_sensors, [&highest, &sweep](const bmc::Sensor& sensor) {
        const bmc::SensorReading reading = sweep->Read(sensor);
        if (reading.IsValid() && reading.Converted() > highest) {
            highest = reading.Converted();
        }
    });
    return highest;
}

std::uint32_t TemperatureControl::GetReferenceFanSpeed() const {
    const auto fans = std::dynamic_pointer_cast<FansNode>(m_fansNode.lock());
    if (fans == nullptr) {
        qstd::LogWarning("Fans node not valid. Returning maximum.");
        return std::numeric_limits<std::uint32_t>::max();
    }
    double common = 0.0;
    for (const double speed : fans->GetReferenceFansSpeed()) {
        if (!qstd::Equal(speed, common) && !qstd::Equal(common, 0.0)) {
            return 0;
        }
        common = speed;
    }
    return static_cast<std::uint32_t>(std::lround(common));
}

void TemperatureControl::SetFansSpeed(std::uint32_t rpm, std::uint32_t currentRpm, const double* maxTemp) const {
    if (IsRpmEqual(rpm, currentRpm)) {
        return;
    }
    const auto fans = std::dynamic_pointer_cast<qreg::RegNode>(m_fansNode.lock());
    if (fans == nullptr) {
        qstd::LogWarning("Fans node not valid. Can't set fan speed.");
        return;
    }
    fans->Set(static_cast<double>(rpm));
    std::string text = "Fans changed from ";
    qstd::AppendNumber(text, currentRpm);
    qstd::AppendNumber(text.append(" RPM to "), rpm);
    text.append(" RPM.");
    if (maxTemp != nullptr) {
        qstd::AppendNumber(text.append(" (Max temperature is "), *maxTemp);
        text.append(")");
    }
    qstd::LogInfo(text);
}

bool TemperatureControl::IsRpmEqual(std::uint32_t left, std::uint32_t right) {
    return FanNode::RpmToRaw(left) == FanNode::RpmToRaw(right);
}
