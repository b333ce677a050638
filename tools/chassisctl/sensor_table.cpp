#include "tools/chassisctl/sensor_table.h"

#include <algorithm>
#include <charconv>
#include <set>

#include "tools/chassisctl/sensor_text.h"

namespace chassisctl {

namespace {

using bmc::SensorType_e;
using Cells = std::vector<std::string>;

constexpr std::string_view c_byteOrderMark = "\xef\xbb\xbf";
constexpr std::string_view c_discrete = "discrete";

/// The columns of the table that `ipmitool sensor` prints.
enum Column_e : std::size_t { name = 0, value = 1, units = 2, firstThreshold = 4, columnCount = 10 };

SensorType_e TypeFromUnits(std::string_view unitsText) {
    struct Unit {
        std::string_view text;
        SensorType_e type;
    };
    static constexpr std::array<Unit, 5> c_units{{{"degrees C", SensorType_e::temperature},
                                                  {"Volts", SensorType_e::voltage},
                                                  {"Amps", SensorType_e::current},
                                                  {"RPM", SensorType_e::fan},
                                                  {"Watts", SensorType_e::power_unit}}};
    const auto* const found = std::find_if(c_units.begin(), c_units.end(),
                                           [&](const Unit& unit) { return EqualIgnoringCase(unit.text, unitsText); });
    return found == c_units.end() ? SensorType_e::other : found->type;
}

/// The cells between separators, each trimmed. In comma-separated values a cell may stand in double quotes.
Cells SplitCells(std::string_view line, char separator) {
    Cells cells(1);
    bool isQuoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char letter = line[i];
        if (separator == ',' && letter == '"') {
            const bool isDoubled = isQuoted && i + 1 < line.size() && line[i + 1] == '"';
            if (isDoubled) {
                cells.back() += '"';
                ++i;
            } else {
                isQuoted = !isQuoted;
            }
        } else if (letter == separator && !isQuoted) {
            cells.emplace_back();
        } else {
            cells.back() += letter;
        }
    }
    for (std::string& cell : cells) {
        cell = std::string(Trim(cell));
    }
    return cells;
}

/// @p text fit for a message, however long it is: a file that is no table may hold anything.
std::string Shown(std::string_view text) {
    constexpr std::size_t c_longest = 200;
    if (text.size() <= c_longest) {
        return Printable(text);
    }
    std::size_t end = c_longest;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80U) {
        --end;  // not through the middle of a character
    }
    return Printable(text.substr(0, end)) + "...";
}

std::string WrongColumnCount(std::size_t found, std::size_t expected) {
    return "malformed, " + std::to_string(found) + " columns instead of " + std::to_string(expected);
}

/// The cells of one row, before they are judged.
struct RawRow {
    int id = 0;
    SensorType_e type = SensorType_e::other;
    std::string board, name, value, units, nominal;
    std::array<std::string, c_thresholdNames.size()> thresholds;
};

/// Collects the sensors and the remarks of one table, row by row.
class Reader {
public:
    SensorTable Read(std::string_view text) {
        if (text.starts_with(c_byteOrderMark)) {
            text.remove_prefix(c_byteOrderMark.size());
        }
        while (!text.empty()) {
            ++m_line;
            const std::size_t end = std::min(text.find('\n'), text.size());
            std::string_view line = text.substr(0, end);
            text.remove_prefix(std::min(end + 1, text.size()));
            if (line.ends_with('\r')) {
                line.remove_suffix(1);
            }
            ReadLine(line);
        }
        return std::move(m_table);
    }

private:
    void ReadLine(std::string_view line) {
        const auto columns = static_cast<std::size_t>(std::count(line.begin(), line.end(), '|')) + 1;
        const bool isComment = line.starts_with('#') && columns != Column_e::columnCount;
        if (isComment || Trim(line).empty()) {
            return;
        }
        if (m_isCsv) {
            ReadCsvRow(line);
        } else if (m_analogRows > 0 || !ReadHeader(line)) {
            ReadTableRow(line, columns);
        }
    }

    /// Whether the line names the columns of comma-separated values.
    bool ReadHeader(std::string_view line) {
        m_header = SplitCells(line, ',');
        m_isCsv = Find("sensor_id") && Find("name") && Find("value");
        return m_isCsv;
    }

    void ReadTableRow(std::string_view line, std::size_t columns) {
        if (columns == 1) {
            LeaveOut("no table row", line);
            return;
        }
        const Cells cells = SplitCells(line, '|');
        if (columns != Column_e::columnCount) {
            LeaveOut(WrongColumnCount(columns, Column_e::columnCount), cells[Column_e::name]);
            return;
        }
        if (EqualIgnoringCase(cells[Column_e::units], c_discrete)) {
            LeaveOut("discrete", cells[Column_e::name]);
            return;
        }
        RawRow raw;
        raw.id = ++m_analogRows;
        raw.name = cells[Column_e::name];
        raw.value = cells[Column_e::value];
        raw.units = cells[Column_e::units];
        raw.type = TypeFromUnits(raw.units);
        std::copy_n(cells.begin() + Column_e::firstThreshold, raw.thresholds.size(), raw.thresholds.begin());
        TakeRow(raw);
    }

    void ReadCsvRow(std::string_view line) {
        const Cells cells = SplitCells(line, ',');
        if (cells.size() != m_header.size()) {
            LeaveOut(WrongColumnCount(cells.size(), m_header.size()), line);
            return;
        }
        const auto cell = [&](const char* column) {
            const auto index = Find(column);
            return index ? cells[*index] : std::string();
        };
        RawRow raw;
        raw.name = cell("name");
        raw.value = cell("value");
        raw.units = cell("units");
        raw.nominal = cell("nominal");
        std::transform(c_thresholdNames.begin(), c_thresholdNames.end(), raw.thresholds.begin(), cell);
        if (EqualIgnoringCase(cell("type"), c_discrete) || EqualIgnoringCase(raw.units, c_discrete)) {
            LeaveOut("discrete", raw.name);
        } else if (TakeId(raw, cell("sensor_id")) && TakeType(raw, cell("type")) && TakeBoard(raw, cell("board"))) {
            TakeRow(raw);
        }
    }

    bool TakeId(RawRow& raw, const std::string& id) {
        const auto [stop, error] = std::from_chars(id.data(), id.data() + id.size(), raw.id);
        if (error != std::errc() || stop != id.data() + id.size()) {
            LeaveOut("malformed, sensor_id \"" + Shown(id) + "\" is not a whole number that fits", raw.name);
            return false;
        }
        return true;
    }

    bool TakeType(RawRow& raw, const std::string& type) {
        constexpr std::string_view c_power = "power";
        if (type.empty()) {
            raw.type = TypeFromUnits(raw.units);
        } else if (type == c_power) {
            raw.type = SensorType_e::power_unit;
        } else if (const auto named = qstd::EnumMap<SensorType_e>::items.FindValue(type)) {
            raw.type = *named;
        } else {
            LeaveOut("malformed, unknown sensor type \"" + Shown(type) + "\"", raw.name);
            return false;
        }
        return true;
    }

    bool TakeBoard(RawRow& raw, const std::string& board) {
        if (const auto why = WhyNotPrintable(board)) {
            LeaveOut("board name " + *why, raw.name);
            return false;
        }
        if (!m_table.sensors.empty() && board != m_table.board) {
            LeaveOut("of another board, \"" + board + "\" instead of \"" + m_table.board + "\"", raw.name);
            return false;
        }
        raw.board = board;
        return true;
    }

    /// The part that both forms have in common.
    void TakeRow(const RawRow& raw) {
        const NumberCell value = ReadNumber(raw.value);
        const auto whyName = raw.name.empty() ? std::optional<std::string>("missing") : WhyNotPrintable(raw.name);
        if (whyName) {
            LeaveOut("name " + *whyName, raw.name);
        } else if (const auto whyUnits = WhyNotPrintable(raw.units)) {
            LeaveOut("units " + *whyUnits, raw.name);
        } else if (value.kind == Cell_e::malformed) {
            LeaveOut("malformed, value \"" + Shown(raw.value) + "\" is not a number", raw.name);
        } else if (!m_ids.insert(raw.id).second) {
            LeaveOut("duplicate sensor id " + std::to_string(raw.id), raw.name);
        } else {
            SensorRow row{raw.id, raw.name, raw.type, raw.units, std::nullopt, {}, std::nullopt};
            if (value.kind == Cell_e::number) {
                row.value = value.number;
            } else if (value.kind == Cell_e::notFinite) {
                Remark("value \"" + raw.value + "\" is not finite, taken as not available", raw.name);
            }
            for (std::size_t i = 0; i < row.thresholds.size(); ++i) {
                row.thresholds[i] = TakeLimit(c_thresholdNames[i], raw.thresholds[i], raw.name);
            }
            row.nominal = TakeLimit("nominal", raw.nominal, raw.name);
            m_table.board = raw.board;
            m_table.sensors.push_back(std::move(row));
        }
    }

    std::optional<double> TakeLimit(const char* limit, const std::string& text, const std::string& sensor) {
        const NumberCell read = ReadNumber(text);
        if (read.kind == Cell_e::number) {
            return read.number;
        }
        if (read.kind != Cell_e::notAvailable) {
            Remark(std::string(limit) + " \"" + Shown(text) + "\" left out, " +
                       (read.kind == Cell_e::notFinite ? "not finite" : "not a number"),
                   sensor);
        }
        return std::nullopt;
    }

    std::optional<std::size_t> Find(const char* column) const {
        const auto found = std::find(m_header.begin(), m_header.end(), column);
        return found == m_header.end() ? std::nullopt
                                       : std::optional<std::size_t>(static_cast<std::size_t>(found - m_header.begin()));
    }

    void LeaveOut(std::string reason, std::string_view sensor) {
        m_table.remarks.push_back({m_line, true, std::move(reason), Shown(sensor)});
    }

    void Remark(std::string reason, std::string_view sensor) {
        m_table.remarks.push_back({m_line, false, std::move(reason), Shown(sensor)});
    }

    SensorTable m_table;
    std::size_t m_line = 0;
    bool m_isCsv = false;
    Cells m_header;
    int m_analogRows = 0;
    std::set<int> m_ids;
};

}  // namespace

std::size_t SensorTable::CountLeftOut() const {
    return static_cast<std::size_t>(
        std::count_if(remarks.begin(), remarks.end(), [](const TableRemark& remark) { return remark.isLeftOut; }));
}

SensorTable ReadSensorTable(std::string_view text) {
    return Reader().Read(text);
}

}  // namespace chassisctl
