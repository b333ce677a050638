#include "fan_table_proof.h"

#include <algorithm>
#include <cstdint>

#include "qstd/convert.h"

namespace fan_table {

namespace {

using qcfg::Severity_e;

/// Of those that a row is too hot for, so many are named besides the first.
constexpr std::size_t c_namedSensors = 5;

std::string Number(std::uint32_t number) {
    return std::to_string(number);
}

/// The rows by themselves are the right way round, and the second one is above the first.
bool AreInOrder(const TempFansElem& row, const TempFansElem& next) {
    return row.lower <= row.upper && next.lower <= next.upper && row.lower < next.lower && row.upper < next.upper;
}

bool IsGap(const TempFansElem& row, const TempFansElem& next) {
    return AreInOrder(row, next) && row.upper < next.lower;
}

class TableProof {
public:
    TableProof(const FanTable& table, const std::vector<WatchedSensor>& sensors, bool areAllKnown)
        : m_table(table), m_sensors(sensors), m_areAllKnown(areAllKnown) {}

    std::vector<RowFinding> Prove() {
        AddErrors();
        for (std::size_t row = 0; row < m_table.size(); ++row) {
            if (row == 0) {
                ProveBelow();
            } else {
                ProveGapBefore(row);
            }
            ProveSpeed(row);
            ProveReach(row);
        }
        std::stable_sort(m_findings.begin(), m_findings.end(),
                         [](const RowFinding& left, const RowFinding& right) { return left.row < right.row; });
        return std::move(m_findings);
    }

private:
    void AddErrors() {
        double lowest = 0.0;
        const WatchedSensor* coolest = nullptr;
        for (const WatchedSensor& sensor : m_sensors) {
            const double lower = LowerLimit(lowest, sensor.highNonCritical);
            coolest = lower != lowest ? &sensor : coolest;
            lowest = lower;
        }
        for (const RowError& error : FindErrors(m_table, lowest)) {
            std::string text = error.text;
            if (error.isAboveNonCritical) {
                if (coolest == nullptr && !m_areAllKnown) {
                    continue;  // the limits of the others are not known
                }
                text += coolest == nullptr ? "; no watched sensor has an upper non-critical limit"
                                           : ", the upper non-critical limit of " + coolest->name +
                                                 NameOthersBelow(m_table[error.row].upper, *coolest);
            }
            m_findings.push_back({error.row, Severity_e::error, text});
        }
    }

    /// The sensors but @p named that the row is too hot for, too, so that nobody has to find them one after another.
    std::string NameOthersBelow(std::uint32_t upper, const WatchedSensor& named) const {
        std::string text;
        std::size_t count = 0;
        for (const WatchedSensor& sensor : m_sensors) {
            const bool isBelow = sensor.highNonCritical.IsValid() && sensor.highNonCritical.Converted() < upper;
            if (&sensor == &named || !isBelow || ++count > c_namedSensors) {
                continue;
            }
            text += (text.empty() ? "; also below: " : ", ") + sensor.name + ": ";
            qstd::AppendNumber(text, sensor.highNonCritical.Converted());
        }
        if (count > c_namedSensors) {
            text += " and " + std::to_string(count - c_namedSensors) + " more";
        }
        return text;
    }

    /// Whichever sensor is at that temperature, it may be the hottest one, which the table goes by.
    ///
    /// @param upTo the fans run at @p speed below this temperature, and maybe at it
    void ProveCritical(std::size_t row, const std::string& where, std::uint32_t speed, std::uint32_t upTo) {
        const auto isPast = [upTo](const WatchedSensor& sensor) {
            return sensor.highCritical.IsValid() && sensor.highCritical.Converted() < upTo;
        };
        const auto count = std::count_if(m_sensors.begin(), m_sensors.end(), isPast);
        if (count == 0) {
            return;
        }
        const auto first = std::min_element(
            m_sensors.begin(), m_sensors.end(), [&](const WatchedSensor& left, const WatchedSensor& right) {
                return isPast(left) &&
                       (!isPast(right) || left.highCritical.Converted() < right.highCritical.Converted());
            });
        std::string text = where + " " + Number(upTo) + " degrees the fans may run at " + Number(speed) + " RPM, but " +
                           first->name + " is past its upper critical limit above ";
        qstd::AppendNumber(text, first->highCritical.Converted());
        if (count > 1) {
            text += " (and " + std::to_string(count - 1) + " more past theirs)";
        }
        m_findings.push_back({row, Severity_e::error, text});
    }

    /// Colder than the first band the fans run at the lowest speed, which shows only when they do not do so in the
    /// band.
    void ProveBelow() {
        if (m_table[0].rpm >= c_maxSpeed) {
            ProveCritical(0, "below", c_minSpeed, m_table[0].lower);
        }
    }

    /// In the gap after a band its speed comes back in every second pass.
    void ProveSpeed(std::size_t row) {
        const TempFansElem& band = m_table[row];
        if (band.rpm >= c_maxSpeed || band.upper < band.lower) {
            return;
        }
        const bool isBeforeGap = row + 1 < m_table.size() && IsGap(band, m_table[row + 1]);
        ProveCritical(row, "up to", band.rpm, isBeforeGap ? m_table[row + 1].lower : band.upper);
    }

    void ProveGapBefore(std::size_t row) {
        const TempFansElem& before = m_table[row - 1];
        const TempFansElem& band = m_table[row];
        if (IsGap(before, band)) {
            m_findings.push_back({row, Severity_e::warning,
                                  "gap between " + Number(before.upper) + " and " + Number(band.lower) +
                                      " degrees: there the fans change between " + Number(before.rpm) + " and " +
                                      Number(band.rpm) + " RPM in every pass"});
        }
    }

    /// Control begins with the hottest band and goes one band a pass. As both limits rise from row to row, every band
    /// holds temperatures that neither of its neighbours lets go to, and is entered from both: there is no band that
    /// the steps leave out. One is left out only when no sensor lives to be that hot; if it is the hottest, control
    /// begins with it and leaves it at once.
    void ProveReach(std::size_t row) {
        if (!m_areAllKnown || m_sensors.empty()) {
            return;
        }
        const auto hottest = std::max_element(
            m_sensors.begin(), m_sensors.end(),
            [](const WatchedSensor& left, const WatchedSensor& right) { return left.switchOff < right.switchOff; });
        if (m_table[row].lower <= m_table[row].upper && hottest->switchOff < m_table[row].lower) {
            std::string text = "no watched sensor stays in this band: damage protection switches the board of " +
                               hottest->name + ", the last one, off above ";
            qstd::AppendNumber(text, hottest->switchOff);
            m_findings.push_back({row, Severity_e::warning, text + " degrees"});
        }
    }

    const FanTable& m_table;
    const std::vector<WatchedSensor>& m_sensors;
    const bool m_areAllKnown;
    std::vector<RowFinding> m_findings;
};

}  // namespace

std::vector<RowFinding> Prove(const FanTable& table, const std::vector<WatchedSensor>& sensors, bool areAllKnown) {
    return TableProof(table, sensors, areAllKnown).Prove();
}

}  // namespace fan_table
