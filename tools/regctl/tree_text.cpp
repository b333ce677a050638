#include "tools/regctl/tree_text.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "qstd/strings.h"
#include "tools/regctl/output.h"
#include "tools/regctl/threshold.h"
#include "tools/regctl/value_text.h"

namespace regctl {

namespace {

constexpr std::size_t c_indent = 2;
constexpr std::size_t c_gap = 2;

/// How many columns @p text takes: its UTF-8 characters.
std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char letter) { return (letter & 0xC0) != 0x80; }));
}

std::string Padded(const std::string& text, std::size_t width) {
    return text + std::string(width - std::min(width, Width(text)), ' ');
}

bool HasValue(const TreeItem& item) {
    return item.outcome.code != qreg::ErrorCode_e::not_readable;
}

std::optional<double> NumberOf(const TreeItem& item) {
    if (const auto* const real = std::get_if<double>(&item.outcome.value)) {
        return *real;
    }
    if (const auto* const whole = std::get_if<int>(&item.outcome.value)) {
        return *whole;
    }
    return std::nullopt;
}

/// What the nodes below a sensor's say together.
struct Sensor {
    std::string name, units, reading;
    std::optional<Crossing> crossing;

    std::string Mark(bool hasColour) const {
        if (!crossing) {
            return {};
        }
        const std::string text = CrossingText(*crossing);
        return hasColour ? (crossing->isCritical ? c_red : c_yellow) + text + c_usual : text;
    }
};

/// The columns of what stands below one node.
struct Widths {
    std::size_t name = 0, sensorName = 0, reading = 0;
};

/// A node, with what is needed to write its line.
struct Line {
    const TreeItem* item = nullptr;
    std::size_t parent = 0;             // place of its line; that of the first is its own
    std::vector<std::size_t> children;  // places of their lines
    std::optional<Sensor> sensor;
    Widths below;
    bool isHidden = false;  // a sensor's line says it
};

class Writer {
public:
    Writer(const std::vector<TreeItem>& items, bool hasColour) : m_hasColour(hasColour) {
        std::vector<std::size_t> above;  // the last line of each depth
        m_lines.reserve(items.size());
        for (const TreeItem& item : items) {
            above.resize(std::min(above.size(), item.depth));
            Line line;
            line.item = &item;
            if (!above.empty()) {
                line.parent = above.back();
                m_lines[above.back()].children.push_back(m_lines.size());
            }
            above.push_back(m_lines.size());
            m_lines.push_back(std::move(line));
        }
        for (Line& line : m_lines) {
            line.sensor = ToSensor(line);
        }
        for (Line& line : m_lines) {
            line.below = WidthsBelow(line);
        }
    }

    std::string Write() {
        const bool isFromRoot = !m_lines.empty() && m_lines.front().item->path.empty();
        for (std::size_t i = isFromRoot ? 1 : 0; i < m_lines.size(); ++i) {
            Line& line = m_lines[i];
            const Line& parent = m_lines[line.parent];
            line.isHidden = parent.isHidden || (parent.sensor && line.parent != 0);
            if (line.isHidden) {
                continue;
            }
            const std::size_t level = line.item->depth - (isFromRoot ? 1 : 0);
            if (line.sensor && i != 0) {
                WriteSensor(line, parent.below, level);
            } else {
                WriteLine(line, i == 0 ? Width(line.item->info.name) : parent.below.name, level,
                          i != 0 && parent.sensor ? &*parent.sensor : nullptr);
            }
        }
        return std::move(m_text);
    }

private:
    /// A sensor has a reading and units.
    std::optional<Sensor> ToSensor(const Line& line) const {
        Sensor sensor;
        Thresholds thresholds;
        const TreeItem* reading = nullptr;
        bool hasUnits = false;
        for (const std::size_t place : line.children) {
            const TreeItem& item = *m_lines[place].item;
            const std::string& name = item.info.name;
            const auto number = NumberOf(item);
            if (name == "value") {
                reading = &item;
            } else if (name == "units") {
                hasUnits = true;
                sensor.units = ValueText(item.outcome.value);
            } else if (name == "name") {
                sensor.name = ValueText(item.outcome.value);
            } else if (number && IsThreshold(name)) {
                thresholds[name] = *number;
            }
        }
        if (reading == nullptr || !hasUnits) {
            return std::nullopt;
        }
        sensor.reading = OutcomeText(reading->outcome);
        if (const auto number = NumberOf(*reading)) {
            sensor.reading += " " + sensor.units;
            sensor.crossing = FindCrossing(*number, thresholds);
        }
        return sensor;
    }

    Widths WidthsBelow(const Line& parent) const {
        Widths widths;
        for (const std::size_t place : parent.children) {
            const Line& line = m_lines[place];
            if (line.sensor || HasValue(*line.item)) {
                widths.name = std::max(widths.name, Width(line.item->info.name));
            }
            if (line.sensor) {
                widths.sensorName = std::max(widths.sensorName, Width(line.sensor->name));
                widths.reading = std::max(widths.reading, Width(line.sensor->reading));
            }
        }
        return widths;
    }

    void WriteSensor(const Line& line, const Widths& widths, std::size_t level) {
        std::string text = Padded(qstd::OneLine(line.item->info.name), widths.name + c_gap);
        text += Padded(line.sensor->name, widths.sensorName + c_gap);
        text += Padded(line.sensor->reading, widths.reading + c_gap) + line.sensor->Mark(m_hasColour);
        Put(text, level);
    }

    /// @param sensor that the node belongs to, or null
    void WriteLine(const Line& line, std::size_t names, std::size_t level, const Sensor* sensor) {
        const TreeItem& item = *line.item;
        std::string text = qstd::OneLine(item.info.name);
        if (HasValue(item)) {
            text = Padded(text, names + c_gap);
            const bool isReading = sensor != nullptr && item.info.name == "value";
            const bool isLimit = sensor != nullptr && (IsThreshold(item.info.name) || item.info.name == "nom");
            if (isReading) {
                text += sensor->reading + "  " + sensor->Mark(m_hasColour);
            } else {
                text += OutcomeText(item.outcome);
                text += isLimit && NumberOf(item) ? " " + sensor->units : "";
            }
        }
        Put(text, level);
    }

    /// Without blanks at the end.
    void Put(const std::string& text, std::size_t level) {
        m_text.append(level * c_indent, ' ');
        m_text.append(text, 0, text.find_last_not_of(' ') + 1);
        m_text += '\n';
    }

    const bool m_hasColour;
    std::vector<Line> m_lines;
    std::string m_text;
};

}  // namespace

std::string PlainTreeLine(const TreeItem& item, bool isFromRoot) {
    if (isFromRoot && item.depth == 0) {
        return {};
    }
    std::string line((item.depth - (isFromRoot ? 1 : 0)) * c_indent, ' ');
    line += qstd::OneLine(item.info.name);
    if (HasValue(item)) {
        line += item.outcome.code == qreg::ErrorCode_e::ok ? " = " : " ";
        line += OutcomeText(item.outcome);
    }
    return line + '\n';
}

std::string TerminalTree(const std::vector<TreeItem>& items, bool hasColour) {
    return Writer(items, hasColour).Write();
}

}  // namespace regctl
