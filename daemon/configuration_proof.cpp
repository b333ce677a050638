#include "configuration_proof.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <string>
#include <vector>

#include "chassis_survey.h"
#include "fan_table_proof.h"
#include "heard_warnings.h"
#include "qstd/strings.h"
#include "sensor_list_proof.h"
#include "temperature_control.h"

namespace {

using ElementPtr = std::shared_ptr<qcfg::Element>;
using qcfg::Severity_e;

class ConfigurationProof {
public:
    ConfigurationProof(const qcfg::Configuration& configuration, qcfg::Findings& findings)
        : m_configuration(configuration), m_survey(SurveyChassis()), m_findings(findings) {}

    void Prove() {
        ReportSilentBoards();
        ReportWarnings();
        ProveFanController();
        ProveList("monitor", m_survey.all, m_survey.all);
        const Module::Selection isProtected = ProveList("damage_protection", m_survey.all, m_survey.temperatures);
        const Module::Selection watched =
            ProveList("temperature_control", m_survey.temperatures, m_survey.temperatures);
        const bool protects = IsEnabled(FindSection("damage_protection"));
        // Without the section the fans run at maximum speed, the safe default, and nobody counts on more.
        if (const ElementPtr section = FindSection("temperature_control")) {
            ProveTable(section, NameSensors(watched, protects ? isProtected : Module::Selection()));
        }
    }

private:
    ElementPtr FindSection(const std::string& name) const {
        const std::vector<ElementPtr> sections = m_configuration.FindSections(name);
        return sections.size() == 1 ? sections.front() : nullptr;
    }

    static bool IsEnabled(const ElementPtr& section) {
        bool isEnabled = true;
        if (section != nullptr) {
            section->GetAttrValue("enabled", isEnabled);
        }
        return isEnabled;
    }

    /// Where the file tells of the board: its own element, if it has one.
    int LineOf(const bmc::Uri& uri) const {
        const ElementPtr boards = FindSection("boards");
        if (boards == nullptr) {
            return m_configuration.GetRoot().GetLine();
        }
        for (const ElementPtr& board : boards->GetChildren()) {
            std::shared_ptr<qcfg::Attribute> own;
            if (board->FindAttr("uri", own) && own->GetValue() == uri.ToString()) {
                return board->GetLine();
            }
        }
        return boards->GetLine();
    }

    void ReportSilentBoards() {
        for (const ChassisSurvey::Board& board : m_survey.boards) {
            if (!board.silence.empty()) {
                m_findings.push_back({Severity_e::warning, LineOf(board.uri),
                                      "board " + board.uri.ToString() +
                                          " does not answer, nothing is proved of its sensors: " + board.silence});
            }
        }
    }

    /// What boards that answer say of their records and thresholds. What is said of the others stands there already.
    void ReportWarnings() {
        for (const std::string& text : m_heard.Get()) {
            const auto named = std::find_if(m_survey.boards.begin(), m_survey.boards.end(),
                                            [&](const auto& board) { return Names(text, board.uri.ToString()); });
            const bool isNamed = named != m_survey.boards.end();
            if (!isNamed || named->silence.empty()) {
                m_findings.push_back(
                    {Severity_e::warning, LineOf(isNamed ? named->uri : bmc::Uri()), qstd::OneLine(text)});
            }
        }
    }

    /// Whether @p text holds @p uri as a word of its own.
    static bool Names(const std::string& text, const std::string& uri) {
        const auto isPart = [](char letter) { return std::isalnum(static_cast<unsigned char>(letter)) != 0; };
        for (std::size_t at = text.find(uri); at != std::string::npos; at = text.find(uri, at + 1)) {
            const std::size_t end = at + uri.size();
            if ((at == 0 || !isPart(text[at - 1])) && (end == text.size() || !isPart(text[end]))) {
                return true;
            }
        }
        return false;
    }

    /// The fans are set through the first board of that type.
    void ProveFanController() {
        const ElementPtr section = FindSection("temperature_control");
        if (section == nullptr || !IsEnabled(section)) {
            return;
        }
        const auto controller = std::find_if(m_survey.boards.begin(), m_survey.boards.end(),
                                             [](const ChassisSurvey::Board& board) { return board.isController; });
        if (controller != m_survey.boards.end() && !controller->fanTrouble.empty()) {
            m_findings.push_back(
                {Severity_e::warning, LineOf(controller->uri),
                 "board " + controller->uri.ToString() +
                     ": its fan registers cannot be read, so the fans do not follow the temperature: " +
                     controller->fanTrouble});
        } else if (controller == m_survey.boards.end() && m_survey.IsComplete()) {
            m_findings.push_back(
                {Severity_e::error, section->GetLine(),
                 "<temperature_control>: the chassis has no board of the type \"icb\", through which the "
                 "fans are set"});
        }
    }

    Module::Selection ProveList(const std::string& worker, const Module::Selection& available,
                                const Module::Selection& starting) {
        return ProveSensorList(FindSection(worker), {worker, &available, &starting}, m_survey, m_findings);
    }

    /// The sensors in the order in which the temperature control goes through them.
    std::vector<fan_table::WatchedSensor> NameSensors(const Module::Selection& watched,
                                                      const Module::Selection& isProtected) const {
        Module::SensorIds ids;
        Module::Convert(watched, ids);
        std::vector<fan_table::WatchedSensor> sensors;
        for (const auto& [uri, idsOfBoard] : ids) {
            const ChassisSurvey::Board* const board = m_survey.Find(uri);
            for (const bmc::SensorId& id : idsOfBoard) {
                const auto known = board->sensors.find(id);
                if (known == board->sensors.end()) {
                    continue;
                }
                const ChassisSurvey::Sensor& sensor = known->second;
                sensors.push_back(
                    {"sensor " + bmc::ToString(id) + " of " + uri.ToString() + " (" + qstd::OneLine(sensor.name) + ")",
                     sensor.highNonCritical, sensor.highCritical});
                const auto guarded = isProtected.find(board->board);
                if (guarded != isProtected.end() && guarded->second.count(id) != 0 &&
                    sensor.highNonRecoverable.IsValid()) {
                    sensors.back().switchOff = sensor.highNonRecoverable.Converted();
                }
            }
        }
        return sensors;
    }

    void ProveTable(const ElementPtr& section, const std::vector<fan_table::WatchedSensor>& sensors) {
        const ElementPtr fans = section->FindChild("fans");
        std::vector<ElementPtr> rows;
        fan_table::FanTable table;
        if (fans != nullptr) {
            rows = fans->GetChildren();
            std::transform(rows.begin(), rows.end(), std::back_inserter(table),
                           [](const ElementPtr& row) { return TemperatureControl::ReadRow(*row); });
        }
        if (table.empty()) {
            const ElementPtr& place = fans == nullptr ? section : fans;
            if (IsEnabled(section)) {
                m_findings.push_back(
                    {Severity_e::warning, place->GetLine(),
                     "<" + place->GetName() + "> has no row of a table: the fans always run at maximum speed"});
            }
            return;
        }
        // That nothing is watched was said before; then there are no limits to prove the table by.
        const bool areAllKnown = m_survey.IsComplete() && !sensors.empty();
        for (const fan_table::RowFinding& finding : fan_table::Prove(table, sensors, areAllKnown)) {
            m_findings.push_back({finding.severity, rows[finding.row]->GetLine(), finding.text});
        }
        const bool hasLimit = std::any_of(sensors.begin(), sensors.end(),
                                          [](const auto& sensor) { return sensor.highNonCritical.IsValid(); });
        if (!hasLimit && !sensors.empty() && !m_survey.IsComplete()) {
            m_findings.push_back({Severity_e::warning, fans->GetLine(),
                                  "<fans>: the table cannot be proved: no watched sensor that answers has an upper "
                                  "non-critical limit. As long as that is so the fans run at maximum speed"});
        }
    }

    const qcfg::Configuration& m_configuration;
    const HeardWarnings m_heard;  ///< from before the survey on
    const ChassisSurvey m_survey;
    qcfg::Findings& m_findings;
};

}  // namespace

void ProveConfiguration(const qcfg::Configuration& configuration, qcfg::Findings& findings) {
    ConfigurationProof(configuration, findings).Prove();
}
