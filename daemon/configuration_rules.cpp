#include "configuration_rules.h"

#include <limits>
#include <memory>
#include <string>

#include "bmc/enums.h"
#include "qcfg/value_types.h"

namespace {

using qcfg::ElementRule;
using qcfg::Occurrence_e;

constexpr long long c_maxInt = std::numeric_limits<int>::max();
constexpr long long c_maxUnsigned = std::numeric_limits<unsigned int>::max();
constexpr long long c_minSpeed = 2500;
constexpr long long c_maxSpeed = 6500;

ElementRule SectionRule(const std::string& name, const std::string& doc) {
    ElementRule rule{.name = name, .doc = doc};
    rule.attributes = {{.name = "enabled",
                        .type = qcfg::Boolean(),
                        .defaultValue = "true",
                        .doc = "Whether the worker runs; with false it only says its settings and ends."}};
    return rule;
}

ElementRule FrequencyRule(const std::string& defaultValue) {
    return {.name = "frequency",
            .doc = "Seconds from the end of one pass to the begin of the next.",
            .text = qcfg::Whole(1, c_maxInt),
            .defaultValue = defaultValue};
}

/// With a type of board given, the board itself is not looked at; but "none" is as good as no type.
void WarnOfUnusedBoard(const qcfg::Element& entry, qcfg::Findings& findings) {
    std::shared_ptr<qcfg::Attribute> board;
    std::shared_ptr<qcfg::Attribute> boardType;
    if (!entry.FindAttr("boardType", boardType)) {
        return;
    }
    if (boardType->GetValue() == "none" || boardType->GetValue() == "255") {
        findings.push_back({qcfg::Severity_e::warning, entry.GetLine(),
                            "attribute \"boardType\" of <" + entry.GetName() + "> is \"" + boardType->GetValue() +
                                "\" and counts as left out: \"board\" tells the boards, all of them by default"});
    } else if (entry.FindAttr("board", board)) {
        findings.push_back({qcfg::Severity_e::warning, entry.GetLine(),
                            "attribute \"board\" of <" + entry.GetName() + "> is passed over beside \"boardType\""});
    }
}

ElementRule SensorEntryRule(const std::string& name, const std::string& doc) {
    ElementRule rule{.name = name, .occurrence = Occurrence_e::any, .doc = doc, .text = qcfg::IdList()};
    rule.attributes = {
        {.name = "board",
         .type = qcfg::Text("\"all\", or a board as SUBSYSTEM/ID"),
         .defaultValue = "all",
         .doc = "The board that the ids belong to. Not looked at when boardType is given."},
        {.name = "boardType",
         .type = qcfg::EnumName<bmc::BoardType_e>("boardType", "board type"),
         .doc = "The type of the boards that the ids belong to; when left out, board tells which."},
    };
    rule.check = WarnOfUnusedBoard;
    return rule;
}

ElementRule SensorsRule(const std::string& start) {
    ElementRule rule{.name = "sensors",
                     .doc = "Which sensors are watched. The selection starts with " + start +
                            "; the entries change it one after the other, so a later one wins."};
    rule.children = {SensorEntryRule("include", "Adds sensors to the selection, as far as the boards have them."),
                     SensorEntryRule("exclude", "Takes sensors out of the selection.")};
    return rule;
}

ElementRule FilterRule() {
    ElementRule absolute{.name = "absolute",
                         .doc =
                             "Records every reading outside the non-critical limits, and the first one inside "
                             "after it."};
    absolute.attributes = {
        {.name = "enabled", .type = qcfg::Boolean(), .defaultValue = "true", .doc = "Whether this filter is on."}};
    ElementRule relative{.name = "relative",
                         .doc =
                             "Records a reading that differs from the one of the pass before, recorded or not, by "
                             "more than this many percent of the sensor's nominal value.",
                         .text = qcfg::Real(0),
                         .defaultValue = "0"};
    relative.attributes = {
        {.name = "enabled", .type = qcfg::Boolean(), .defaultValue = "false", .doc = "Whether this filter is on."}};
    ElementRule rule{.name = "filter",
                     .doc =
                         "Which readings go to the sensor logs: those that a filter lets through, or every reading "
                         "when both filters are off."};
    rule.children = {absolute, relative};
    return rule;
}

ElementRule FansRule() {
    ElementRule row{.name = "set",
                    .occurrence = Occurrence_e::any,
                    .doc =
                        "A band of temperatures and the fan speed for it. From row to row lower, upper and rpm must "
                        "rise; bands may overlap, which keeps the speed steady around a limit."};
    row.attributes = {
        {.name = "lower",
         .type = qcfg::Whole(0, c_maxUnsigned),
         .isRequired = true,
         .doc = "Lower limit of the band, degrees Celsius."},
        {.name = "upper",
         .type = qcfg::Whole(0, c_maxUnsigned),
         .isRequired = true,
         .doc = "Upper limit of the band, degrees Celsius; at least lower, and at most the lowest upper non-critical "
                "limit of the watched sensors."},
        {.name = "rpm",
         .type = qcfg::Whole(c_minSpeed, c_maxSpeed),
         .isRequired = true,
         .doc = "Fan speed, revolutions per minute."},
    };
    ElementRule rule{.name = "fans",
                     .doc =
                         "The table from temperature to fan speed, by the hottest watched sensor. Without rows the "
                         "fans run at maximum speed."};
    rule.children = {row};
    return rule;
}

}  // namespace

std::vector<ElementRule> WorkerSectionRules() {
    ElementRule monitor = SectionRule("monitor", "Reads sensors, logs crossed limits and keeps the sensor logs.");
    monitor.children = {FrequencyRule("60"), FilterRule(), SensorsRule("all sensors of all boards")};

    ElementRule protection = SectionRule(
        "damage_protection", "Powers a board down when one of its sensors is above its upper non-recoverable limit.");
    protection.children = {FrequencyRule("60"), SensorsRule("the temperature sensors of all boards")};

    ElementRule control = SectionRule("temperature_control", "Sets the speed of the fans by the hottest sensor.");
    control.children = {FrequencyRule("60"), FansRule(), SensorsRule("the temperature sensors of all boards")};

    ElementRule timesync = SectionRule("timesync", "Keeps the clocks of the boards near the clock of the host.");
    timesync.children = {FrequencyRule("3600"),
                         {.name = "delta",
                          .doc = "Seconds by which a board's clock may differ; from this difference on it is set.",
                          .text = qcfg::Whole(0, c_maxInt),
                          .defaultValue = "2"}};
    return {monitor, protection, control, timesync};
}
