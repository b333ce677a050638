#include "monitor.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>

#include "bmc/board_pool.h"
#include "bmc/broken_off.h"
#include "qapp/zelkor_application.h"
#include "qstd/convert.h"
#include "qstd/log.h"
#include "qstd/thread_name.h"

Monitor& Monitor::GetInstance() {
    static Monitor instance;
    return instance;
}

Monitor::Monitor() {
    m_frame.Start(*this);
}

Monitor::~Monitor() {
    StopThread();
    m_frame.Join();
}

void Monitor::StopThread() {
    m_frame.Stop();
}

std::string Monitor::GetClassName() {
    return "monitor";
}

void Monitor::operator()() {
    qstd::SetThreadName("monitor");
    qstd::LogInfo("*Monitor process started.");
    try {
        ReadSettings();
        LogProperties();
        m_frame.RunPasses(!m_sensors.empty(), std::chrono::seconds(m_frequency), [this] { LogSensors(); });
    } catch (const bmc::BrokenOff&) {
        m_frame.AwaitStop();
    } catch (...) {
        const std::string why =
            LogCaught("Problem in monitor process - ", "Problem in monitor process - Unknown Exception", "Error: ");
        TellOfEnd("Monitor", why, qapp::Health::Need_e::useful);
    }
    qstd::LogInfo("*Monitor process stopped");
}

void Monitor::ReadSettings() {
    if (!qapp::ZelkorApplication::Instance().GetConfig().Read(*this)) {
        qstd::LogInfo("Configuration for Monitor is not available. Using default values");
        Selection all;
        GetAllSensors(all);
        Convert(all, m_sensors);
    }
    for (const auto& [uri, sensors] : m_sensors) {
        std::vector<bmc::SensorId>& ids = m_ids[uri];
        std::transform(sensors.begin(), sensors.end(), std::back_inserter(ids),
                       [](const SensorData& data) { return data.id; });
    }
}

bool Monitor::Deserialize(const std::vector<std::shared_ptr<qcfg::Element>>& elements) {
    if (elements.size() != 1) {
        qstd::LogInfo("No settings found for Monitor module");
        return false;
    }
    const std::shared_ptr<qcfg::Element>& section = elements.front();
    bool enabled = false;
    if (section->GetAttrValue("enabled", enabled)) {
        m_frame.SetDisabled(!enabled);
    }
    section->GetValue("frequency", m_frequency);
    if (const auto filter = section->FindChild("filter")) {
        if (const auto absolute = filter->FindChild("absolute")) {
            absolute->GetAttrValue("enabled", m_absoluteFilter);
        }
        if (const auto relative = filter->FindChild("relative")) {
            relative->GetAttrValue("enabled", m_relativeFilter);
            relative->GetValue(m_relativeValue);
        }
    }
    Selection all;
    GetAllSensors(all);
    Convert(HandleSensorsList(section, all, all), m_sensors);
    return true;
}

void Monitor::Convert(const Selection& selected, Sensors& out) {
    for (const auto& [board, ids] : selected) {
        std::vector<SensorData>& sensors = out[board->GetUri()];
        for (const bmc::SensorId& id : ids) {
            sensors.push_back(SensorData{id});
        }
    }
}

void Monitor::LogProperties() const {
    const std::string keyIndent(35, ' ');
    const std::string boardIndent(37, ' ');
    const std::string idIndent(38, ' ');
    const auto boolText = [](bool value) { return value ? "true" : "false"; };

    std::string text = "Monitor settings:\n";
    text += keyIndent + "enabled   = " + boolText(!m_frame.IsStopped()) + "\n";
    text += keyIndent + "frequency = " + std::to_string(m_frequency) + " seconds\n";
    if (m_sensors.empty()) {
        text += boardIndent + "No sensors found!\n";
    } else {
        text += keyIndent + "Monitoring following sensors\n";
    }
    for (const auto& [uri, sensors] : m_sensors) {
        const bmc::Board* const board = bmc::BoardPool::Instance().GetBoard(uri);
        text += boardIndent + uri.ToString() + "  (";
        if (board != nullptr) {
            text += qstd::EnumMap<bmc::BoardType_e>::items.GetName(board->GetType());
        }
        text += ")\n" + idIndent;
        for (const SensorData& data : sensors) {
            text += " " + bmc::ToString(data.id);
        }
        text += "\n";
    }
    text += keyIndent + "absolute filter = " + boolText(m_absoluteFilter) + "\n";
    text += keyIndent + "relative filter = " + boolText(m_relativeFilter) +
            " (value = " + qstd::NumberText(m_relativeValue) + ")\n";
    qstd::LogInfo(text);
}

bool Monitor::Filter(bmc::Sensor* sensor, const SensorData& data, double value) const {
    if (m_absoluteFilter) {
        const bmc::SensorReading upper = sensor->GetUpperNonCritical();
        const bmc::SensorReading lower = sensor->GetLowerNonCritical();
        const bool hasUpper = upper.IsValid();
        const bool hasLower = lower.IsValid();
        if ((hasUpper && value > upper.Converted()) || (hasLower && lower.Converted() > value) ||
            (data.valid && hasUpper && data.value > upper.Converted()) ||
            (data.valid && hasLower && lower.Converted() > data.value)) {
            return true;
        }
    }
    if (m_relativeFilter) {
        constexpr double c_percent = 100.0;
        const bmc::SensorReading nominal = sensor->GetNominal();
        // A share of a negative nominal is no size of a change: such a sensor never passes.
        if (nominal.IsValid() && !(nominal.Converted() < 0.0) && data.valid &&
            std::fabs(value - data.value) > nominal.Converted() * (m_relativeValue / c_percent)) {
            return true;
        }
    }
    return !m_absoluteFilter && !m_relativeFilter;
}

SensorLog& Monitor::GetLog(const bmc::Uri& uri, const std::string& columns) {
    const auto found = m_logs.find(uri);
    if (found != m_logs.end()) {
        return found->second;
    }
    const std::string label = bmc::BoardLabel(uri);
    const std::string fileName = qapp::ZelkorApplication::Instance().LogFileDir() + "/sensors/" + label + ".log";
    return m_logs.emplace(uri, SensorLog(fileName, label, columns)).first->second;
}
