#include "tools/chassisctl/listing.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "qstd/convert.h"
#include "qstd/exception.h"
#include "qstd/from_chars.h"
#include "tools/chassisctl/sensor_table.h"

namespace chassisctl {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* c_notThere = "na";

/// "set,slow 20,fail: no answer, again": the text of a failure comes last and may hold commas.
std::vector<std::string> ReadState(std::string state) {
    std::vector<std::string> injected;
    if (state == "ok") {
        return injected;
    }
    while (!state.empty()) {
        const std::size_t end = state.starts_with("fail: ") ? std::string::npos : state.find(',');
        injected.push_back(state.substr(0, end));
        state.erase(0, end == std::string::npos ? end : end + 1);
        state.erase(0, state.find_first_not_of(' '));
    }
    return injected;
}

std::optional<double> ReadDouble(const std::string& text) {
    double number = 0.0;
    const auto [stop, error] = qstd::FromChars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && stop == text.data() + text.size() ? std::optional<double>(number) : std::nullopt;
}

/// A number for people: six significant digits, "-" when it is not there.
std::string ShortNumber(const std::string& text) {
    const auto number = ReadDouble(text);
    return number ? qstd::NumberText(*number) : text == c_notThere ? "-" : text;
}

Json NumberJson(const std::string& text) {
    const auto number = ReadDouble(text);
    if (number && std::isfinite(*number)) {
        return *number;
    }
    return text == c_notThere ? Json(nullptr) : Json(text);
}

Json IntegerJson(const std::string& text) {
    long long number = 0;
    const auto [stop, error] = qstd::FromChars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && stop == text.data() + text.size() ? Json(number) : Json(text);
}

/// Text that is not valid UTF-8 gets replacement characters rather than no output at all.
std::string Dump(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string Join(const std::vector<std::string>& words, const char* separator) {
    std::string joined;
    for (const std::string& word : words) {
        joined += (joined.empty() ? "" : separator) + word;
    }
    return joined;
}

/// Number of places that UTF-8 text takes in a column.
std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char letter) {
        return (static_cast<unsigned char>(letter) & 0xc0U) != 0x80U;  // all but continuation bytes
    }));
}

struct Column {
    const char* heading;
    bool isNumber;  // stands to the right
};

constexpr std::array<Column, 13> c_columns{{{"ID", true},
                                            {"NAME", false},
                                            {"TYPE", false},
                                            {"READING", true},
                                            {"UNITS", false},
                                            {"NOMINAL", true},
                                            {"LNR", true},
                                            {"LC", true},
                                            {"LNC", true},
                                            {"UNC", true},
                                            {"UC", true},
                                            {"UNR", true},
                                            {"INJECTED", false}}};

using Line = std::array<std::string, c_columns.size()>;

Line SensorLine(const SensorEntry& sensor) {
    const auto& limits = sensor.thresholds;
    return {sensor.id,
            sensor.name,
            sensor.type,
            sensor.reading == c_notThere ? c_notThere : ShortNumber(sensor.reading),
            sensor.units,
            ShortNumber(sensor.nominal),
            ShortNumber(limits[0]),
            ShortNumber(limits[1]),
            ShortNumber(limits[2]),
            ShortNumber(limits[3]),
            ShortNumber(limits[4]),
            ShortNumber(limits[5]),
            Join(sensor.injected, ", ")};
}

std::string Aligned(const Line& line, const std::array<std::size_t, c_columns.size()>& widths) {
    std::string text = " ";
    for (std::size_t i = 0; i < line.size(); ++i) {
        const std::string padding(widths[i] - Width(line[i]), ' ');
        text += " " + (c_columns[i].isNumber ? padding + line[i] : line[i] + padding);
        text += i + 1 < line.size() ? " " : "";
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text + "\n";
}

}  // namespace

std::vector<BoardEntry> ReadListing(const std::vector<Fields>& rows) {
    constexpr std::size_t c_boardFields = 6;
    constexpr std::size_t c_sensorFields = 15;
    std::vector<BoardEntry> boards;
    for (const Fields& row : rows) {
        if (row[0] == "board" && row.size() == c_boardFields) {
            boards.push_back({row[1], row[2], row[3], row[4], ReadState(row[5]), {}});
        } else if (row[0] == "sensor" && row.size() == c_sensorFields && !boards.empty() &&
                   row[1] == boards.back().uri) {
            SensorEntry sensor{row[2], row[3], row[4], row[5], row[6], row[7], {}, ReadState(row[14])};
            std::copy_n(row.begin() + 8, sensor.thresholds.size(), sensor.thresholds.begin());
            boards.back().sensors.push_back(std::move(sensor));
        } else {
            throw qstd::Exception("the daemon's listing is not understood: " + Join(row, " "));
        }
    }
    return boards;
}

std::string ListingText(const std::vector<BoardEntry>& boards) {
    std::array<std::size_t, c_columns.size()> widths{};
    Line headings;
    std::transform(c_columns.begin(), c_columns.end(), headings.begin(),
                   [](const Column& column) { return column.heading; });
    const auto widen = [&](const Line& line) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], Width(line[i]));
        }
    };
    widen(headings);
    for (const BoardEntry& board : boards) {
        for (const SensorEntry& sensor : board.sensors) {
            widen(SensorLine(sensor));
        }
    }
    std::string text;
    for (const BoardEntry& board : boards) {
        text += (text.empty() ? "" : "\n") + board.uri + "  " + board.name + "  (" + board.type + ", power " +
                board.power + ")" + (board.injected.empty() ? "" : "  injected: " + Join(board.injected, ", ")) + "\n";
        text += board.sensors.empty() ? "" : Aligned(headings, widths);
        for (const SensorEntry& sensor : board.sensors) {
            text += Aligned(SensorLine(sensor), widths);
        }
    }
    return text;
}

std::string ListingJson(const std::vector<BoardEntry>& boards) {
    Json list = Json::array();
    for (const BoardEntry& board : boards) {
        Json sensors = Json::array();
        for (const SensorEntry& sensor : board.sensors) {
            Json entry{{"id", IntegerJson(sensor.id)}, {"name", sensor.name},
                       {"type", sensor.type},          {"reading", NumberJson(sensor.reading)},
                       {"units", sensor.units},        {"nominal", NumberJson(sensor.nominal)}};
            for (std::size_t i = 0; i < sensor.thresholds.size(); ++i) {
                entry[c_thresholdNames[i]] = NumberJson(sensor.thresholds[i]);
            }
            entry["injected"] = sensor.injected;
            sensors.push_back(std::move(entry));
        }
        list.push_back(Json{{"uri", board.uri},
                            {"name", board.name},
                            {"type", board.type},
                            {"power", board.power},
                            {"injected", board.injected},
                            {"sensors", std::move(sensors)}});
    }
    return Dump(Json{{"boards", std::move(list)}}, 2);
}

std::string JournalText(const Fields& row) {
    if (row[0] == "dropped" && row.size() > 1) {
        return "(" + row[1] + " older entries were dropped)\n";
    }
    return Join(row, " ") + "\n";
}

std::string JournalJson(const Fields& row) {
    constexpr int c_oneLine = -1;
    constexpr std::size_t c_fixedFields = 3;
    if (row[0] == "dropped" && row.size() > 1) {
        return Dump(Json{{"dropped", IntegerJson(row[1])}}, c_oneLine);
    }
    if (row.size() < c_fixedFields) {
        throw qstd::Exception("the daemon's journal is not understood: " + Join(row, " "));
    }
    return Dump(Json{{"seconds", NumberJson(row[0])},
                     {"uri", row[1]},
                     {"action", row[2]},
                     {"arguments", std::vector<std::string>(row.begin() + c_fixedFields, row.end())}},
                c_oneLine);
}

}  // namespace chassisctl
