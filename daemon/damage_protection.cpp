#include "damage_protection.h"

#include <chrono>

#include "bmc/board_pool.h"
#include "bmc/broken_off.h"
#include "bmc/enums.h"
#include "bmc/sensor.h"
#include "qapp/zelkor_application.h"
#include "qstd/convert.h"
#include "qstd/log.h"
#include "qstd/thread_name.h"
#include "qstd/trace_fnc.h"

namespace {

/// Takes the text of "frequency". One that is negative is passed over like any that is no number: the conversion to an
/// unsigned number would make a period of a lifetime of it.
void ReadFrequency(const qcfg::Element& section, std::uint32_t& frequency) {
    const std::shared_ptr<qcfg::Element> child = section.FindChild("frequency");
    if (child == nullptr) {
        return;
    }
    if (child->GetValue().starts_with('-')) {
        qstd::TraceHere(2, "Cannot cast from config value: Bad cast from " + child->GetValue() + " to " +
                               qstd::CppName(typeid(frequency)));
        return;
    }
    child->GetValue(frequency);
}

}  // namespace

DamageProtection& DamageProtection::GetInstance() {
    static DamageProtection instance;
    return instance;
}

DamageProtection::DamageProtection() {
    m_frame.Start(*this);
}

DamageProtection::~DamageProtection() {
    StopThread();
    m_frame.Join();
}

void DamageProtection::StopThread() {
    m_frame.Stop();
}

std::string DamageProtection::GetClassName() {
    return "damage_protection";
}

void DamageProtection::operator()() {
    const std::string problem = "Problem in Damage Protection process - ";
    const std::string unknown = "Problem in Damage Protection process - Unknown Exception";
    const std::string tracePrefix = " .Error: ";
    const auto here = qstd::SourceLocation::current();  // a pass that raises is traced from here too
    qstd::SetThreadName("protection");
    qstd::LogInfo("*Damage Protection process started.");
    try {
        ReadSettings();
        LogProperties();
        m_frame.RunPasses(!m_sensors.empty(), std::chrono::seconds(m_frequency), [&] {
            try {
                Protect();
            } catch (const bmc::BrokenOff&) {
                throw;
            } catch (...) {
                LogCaught(problem, unknown, tracePrefix, here);
            }
        });
    } catch (const bmc::BrokenOff&) {
        m_frame.AwaitStop();
    } catch (...) {
        TellOfEnd("Damage Protection", LogCaught(problem, unknown, tracePrefix), qapp::Health::Need_e::vital);
    }
    qstd::LogInfo("*Damage Protection process stopped");
}

void DamageProtection::ReadSettings() {
    if (!qapp::ZelkorApplication::Instance().GetConfig().Read(*this)) {
        qstd::LogInfo("Configuration for Damage Protection is not available. Using default values");
        Selection temperatures;
        GetTemperatureSensors(temperatures);
        Convert(temperatures, m_sensors);
    }
}

bool DamageProtection::Deserialize(const std::vector<std::shared_ptr<qcfg::Element>>& elements) {
    if (elements.size() != 1) {
        qstd::LogInfo("No settings found for Damage Protection module");
        return false;
    }
    const std::shared_ptr<qcfg::Element>& section = elements.front();
    bool enabled = false;
    if (section->GetAttrValue("enabled", enabled)) {
        m_frame.SetDisabled(!enabled);
    }
    ReadFrequency(*section, m_frequency);
    Selection all;
    GetAllSensors(all);
    Selection temperatures;
    GetTemperatureSensors(temperatures);
    Convert(HandleSensorsList(section, all, temperatures), m_sensors);
    return true;
}

void DamageProtection::LogProperties() const {
    const std::string keyIndent(35, ' ');
    const std::string boardIndent(37, ' ');
    const std::string idIndent(38, ' ');

    std::string text = "Damage Protection settings:\n";
    text += keyIndent + "enabled   = " + (m_frame.IsStopped() ? "false" : "true") + "\n";
    text += keyIndent + "frequency = " + std::to_string(m_frequency) + " seconds\n";
    text += keyIndent + "Controlling following sensors\n";
    if (m_sensors.empty()) {
        text += boardIndent + "No sensors found!\n";
    }
    for (const auto& [uri, ids] : m_sensors) {
        const bmc::Board* const board = bmc::BoardPool::Instance().GetBoard(uri);
        text += boardIndent + uri.ToString() + "  (";
        if (board != nullptr) {
            text += qstd::EnumMap<bmc::BoardType_e>::items.GetName(board->GetType());
        }
        text += ")\n";
        for (const bmc::SensorId& id : ids) {
            text += idIndent + " " + bmc::ToString(id) + "\n";
        }
    }
    qstd::LogInfo(text);
}

void DamageProtection::Protect() const {
    const auto sweep = bmc::BoardPool::Instance().StartSweep(m_sensors);
    for (const auto& [uri, ids] : m_sensors) {
        const std::string label = bmc::BoardLabel(uri);
        try {
            ProtectBoard(uri, label, ids, *sweep);
        } catch (...) {
            LogAndGoOn("Problem accessing board " + label);
        }
    }
}

void DamageProtection::ProtectBoard(const bmc::Uri& uri, const std::string& label,
                                    const std::vector<bmc::SensorId>& ids, bmc::Sweep& sweep) {
    bmc::Board* const board = bmc::BoardPool::Instance().GetBoard(uri);
    if (board == nullptr) {
        qstd::LogError("Problem accessing board: " + label);
        return;
    }
    for (const bmc::SensorId& id : ids) {
        try {
            ProtectFrom(*board, label, id, sweep);
        } catch (...) {
            LogAndGoOn("Problem accessing sensor id: " + bmc::ToString(id) + " on board " + label);
        }
    }
}

void DamageProtection::ProtectFrom(bmc::Board& board, const std::string& label, const bmc::SensorId& id,
                                   bmc::Sweep& sweep) {
    const bmc::Sensor* const sensor = board.GetSensor(id);
    if (sensor == nullptr) {
        qstd::LogError("Problem accessing sensor id: " + bmc::ToString(id) + " on board " + label);
        return;
    }
    const bmc::SensorReading reading = sweep.Read(*sensor);
    if (sensor->ReadingLimit(reading) != bmc::Sensor::c_aboveUpperNonRecoverable) {
        return;
    }
    const bmc::SensorReading limit = sensor->GetUpperNonRecoverable();
    // What follows "HNC" is the limit that was passed, the non-recoverable one: those who read logs know it like this.
    qstd::LogCritical("Value of sensor id: " + bmc::ToString(id) + " on board " + label +
                      " is higher than HNR!!! (value = " + qstd::NumberText(reading.Converted()) +
                      "; HNC = " + qstd::NumberText(limit.Converted()) + ")");
    qstd::LogCritical("!!! Shutting down board " + label + " to prevent damage.");
    SwitchOff(board);
}

void DamageProtection::SwitchOff(bmc::Board& board) {
    if (board.GetType() != bmc::BoardType_e::os) {
        qstd::LogCritical("Sensor source board will be powered off now.");
        board.PowerDown();
        return;
    }
    qstd::LogCritical("Sensor source is OS, shut-down the ICB.");
    bmc::Board* const controller = bmc::BoardPool::Instance().GetBoard(bmc::c_localIcbUri);
    if (controller == nullptr) {
        qstd::LogCritical("!!! Cannot find ICB board. Shut down aborted.");
        return;
    }
    controller->ShutDown();
}
