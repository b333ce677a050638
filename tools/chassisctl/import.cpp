#include "tools/chassisctl/import.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <istream>
#include <ostream>
#include <system_error>

#include "bmc/uri.h"
#include "qstd/exception.h"
#include "tools/chassisctl/board_writer.h"
#include "tools/chassisctl/controller_import.h"
#include "tools/chassisctl/sensor_table.h"
#include "tools/chassisctl/sensor_text.h"

namespace chassisctl {

namespace {

constexpr std::size_t c_largestTable = std::size_t{16} * 1024 * 1024;  // bytes; a machine's table has some ten thousand

std::string ReadAll(std::istream& in, const std::string& label) {
    std::string text(c_largestTable + 1, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    if (in.bad()) {
        throw qstd::Exception(label + ": cannot be read");
    }
    if (text.size() > c_largestTable) {
        throw qstd::Exception(label + ": larger than a sensor table may be, " + std::to_string(c_largestTable) +
                              " bytes");
    }
    return text;
}

std::string ReadFile(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        throw qstd::Exception(path + ": is a folder");
    }
    errno = 0;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw qstd::Exception(path + ": " + std::generic_category().message(errno));
    }
    return ReadAll(in, path);
}

double ParsePercent(const std::string& text) {
    constexpr double c_whole = 100.0;
    const NumberCell percent = ReadNumber(text);
    if (percent.kind != Cell_e::number || percent.number <= 0.0 || percent.number > c_whole) {
        throw qstd::Exception("--live \"" + text + "\" is not a number above 0 and up to 100");
    }
    return percent.number;
}

/// The options as far as the command line settles them.
BoardOptions ReadOptions(const CommandLine& line) {
    BoardOptions options;
    try {
        options.uri = bmc::Uri::Parse(line.uri.value_or(options.uri)).ToString();
    } catch (const qstd::Exception& error) {
        throw qstd::Exception(std::string("--uri: ") + error.what());
    }
    options.type = line.type.value_or(options.type);
    try {
        const auto type = qstd::EnumFromString<bmc::BoardType_e>(options.type);
        if (type == bmc::BoardType_e::none) {
            throw qstd::Exception("no board has it");
        }
    } catch (const qstd::Exception& error) {
        throw qstd::Exception("--type \"" + Printable(options.type) +
                              "\" is no board type, neither a name nor a number: " + error.what());
    }
    if (line.live) {
        options.live = ParsePercent(*line.live);
    }
    return options;
}

void ProveName(const std::string& name) {
    if (const auto why = WhyNotPrintable(name)) {
        throw qstd::Exception("board name \"" + Printable(name) + "\": " + *why + ", give another with --name");
    }
}

std::string BoardName(const CommandLine& line, const SensorTable& table, const std::string& path) {
    std::string name = line.name.value_or(table.board);
    if (name.empty()) {
        name = path == "-" ? "stdin" : std::filesystem::path(path).stem().string();
    }
    ProveName(name);
    return name;
}

int ImportTable(const CommandLine& line, Streams streams) {
    const std::string& path = line.words[1];
    const bool isStandardInput = path == "-";
    const std::string label = isStandardInput ? "<stdin>" : path;
    BoardOptions options = ReadOptions(line);
    const SensorTable table = ReadSensorTable(isStandardInput ? ReadAll(streams.in, label) : ReadFile(path));
    options.name = BoardName(line, table, path);
    for (const TableRemark& remark : table.remarks) {
        streams.err << label << ':' << remark.line << ": " << (remark.isLeftOut ? "left out: " : "") << remark.reason
                    << ": " << remark.name << '\n';
    }
    const std::string counts =
        std::to_string(table.sensors.size()) + " sensors, " + std::to_string(table.CountLeftOut()) + " rows left out";
    if (table.sensors.empty()) {
        throw qstd::Exception(label + ": no sensor found: " + counts);
    }
    streams.out << WriteBoard(table, options);
    streams.err << label << ": " << counts << '\n';
    return c_exitDone;
}

}  // namespace

int RunImport(const CommandLine& line, Streams streams) {
    const bool isController = NamesController(line);
    if (line.words.size() != (isController ? 1 : 2)) {
        throw qstd::Exception(
            "usage: zelkor-chassisctl import [--type NAME] [--uri URI] [--name NAME] [--live PERCENT] FILE, or --host "
            "or --device in place of FILE, see zelkor-chassisctl --help");
    }
    if (!isController) {
        return ImportTable(line, streams);
    }
    BoardOptions options = ReadOptions(line);
    options.name = line.name.value_or("");
    ProveName(options.name);
    return ImportController(line, options, streams);
}

}  // namespace chassisctl
