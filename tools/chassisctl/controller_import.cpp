#include "tools/chassisctl/controller_import.h"

#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "bmc/backend.h"
#include "bmc/ipmi/plugin_loader.h"
#include "bmc/sweep.h"
#include "qstd/exception.h"
#include "qstd/log.h"
#include "tools/chassisctl/controller_settings.h"
#include "tools/chassisctl/sensor_table.h"
#include "tools/chassisctl/sensor_text.h"

namespace chassisctl {

namespace {

/// What the backend has to log and that matters.
class WarningSink : public qstd::LogSink {
public:
    void Write(qstd::LogLevel_e level, const qstd::Time& /*time*/, const std::string& text) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (level != qstd::LogLevel_e::info) {
            m_texts.push_back(text);
        }
    }

    std::vector<std::string> Take() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_texts, {});
    }

private:
    std::mutex m_mutex;  ///< guards m_texts
    std::vector<std::string> m_texts;
};

/// Has the log go to a WarningSink while it lives.
class Warnings {
public:
    Warnings() {
        qstd::Log::GetInstance().AddSink(m_sink);
        qstd::Log::m_enabled = true;
    }
    Warnings(const Warnings&) = delete;
    Warnings& operator=(const Warnings&) = delete;
    ~Warnings() { qstd::Log::GetInstance().Close(); }

    std::vector<std::string> Take() { return m_sink->Take(); }

private:
    const std::shared_ptr<WarningSink> m_sink = std::make_shared<WarningSink>();
};

/// A board does not answer.
class Silent : public qstd::Exception {
    using Exception::Exception;
};

/// One board and what was read of it.
struct ImportedBoard {
    BoardOptions options;
    std::string label;  ///< for messages
    bmc::Board* board = nullptr;
    SensorTable table{};
    std::vector<std::string> remarks{};
    std::size_t withoutReading = 0;
};

std::string Label(const bmc::ipmi::Settings& settings, const bmc::ipmi::BoardSettings& board, const CommandLine& line,
                  std::size_t index) {
    const std::string controller = settings.controllers[board.controller].Name();
    return line.ipmb.empty() ? controller : controller + ", IPMB " + line.ipmb[index];
}

std::vector<bmc::SensorId> AskForIds(const ImportedBoard& imported) {
    try {
        return imported.board->GetSensorsIds();
    } catch (const qstd::Exception& error) {
        const std::string text = imported.label + ": " + error.what();
        if (imported.board->GetStatus() == bmc::BoardStatus_e::not_responding) {
            throw Silent(text);
        }
        throw qstd::Exception(text);
    }
}

std::optional<double> ValueOf(const bmc::SensorReading& reading) {
    return reading.IsValid() ? std::optional(reading.Converted()) : std::nullopt;
}

void AddSensor(ImportedBoard& imported, const bmc::Sensor& sensor, bmc::Sweep& sweep) {
    SensorRow row;
    row.id = sensor.GetId().GetValue();
    row.name = Printable(sensor.GetName());
    row.type = sensor.GetType();
    row.units = Printable(sensor.GetUnits());
    try {
        row.value = ValueOf(sweep.Read(sensor));
    } catch (const qstd::Exception& error) {
        if (imported.board->GetStatus() == bmc::BoardStatus_e::not_responding) {
            throw Silent(imported.label + ": " + error.what());
        }
        imported.remarks.push_back(std::string(error.what()) + "; taken as not available");
    }
    imported.withoutReading += row.value ? 0 : 1;
    row.thresholds = {ValueOf(sensor.GetLowerNonRecoverable()), ValueOf(sensor.GetLowerCritical()),
                      ValueOf(sensor.GetLowerNonCritical()),    ValueOf(sensor.GetUpperNonCritical()),
                      ValueOf(sensor.GetUpperCritical()),       ValueOf(sensor.GetUpperNonRecoverable())};
    row.nominal = ValueOf(sensor.GetNominal());
    imported.table.sensors.push_back(std::move(row));
}

/// Asks the boards, side by side where the way to them allows it.
std::vector<ImportedBoard> Ask(bmc::Backend& backend, const bmc::ipmi::Settings& settings, const CommandLine& line,
                               const BoardOptions& options) {
    std::vector<ImportedBoard> boards;
    bmc::SensorIds ids;
    for (std::size_t index = 0; index < settings.boards.size(); ++index) {
        const bmc::ipmi::BoardSettings& each = settings.boards[index];
        ImportedBoard imported{options, Label(settings, each, line, index), backend.GetBoard(each.uri)};
        imported.options.uri = each.uri.ToString();
        imported.options.name = each.name;
        ids[each.uri] = AskForIds(imported);
        boards.push_back(std::move(imported));
    }
    const std::unique_ptr<bmc::Sweep> sweep = backend.StartSweep(ids);
    for (ImportedBoard& imported : boards) {
        for (const bmc::SensorId& id : ids[imported.board->GetUri()]) {
            if (const bmc::Sensor* const sensor = imported.board->GetSensor(id)) {
                AddSensor(imported, *sensor, *sweep);
            }
        }
    }
    return boards;
}

void Print(const std::vector<ImportedBoard>& boards, Streams streams) {
    for (const ImportedBoard& imported : boards) {
        streams.out << WriteBoard(imported.table, imported.options);
        for (const std::string& remark : imported.remarks) {
            streams.err << imported.label << ": " << remark << '\n';
        }
        streams.err << imported.label << ": " << imported.table.sensors.size() << " sensors, "
                    << imported.withoutReading << " without a reading\n";
    }
}

}  // namespace

bool NamesController(const CommandLine& line) {
    return !line.controller.empty() || !line.ipmb.empty();
}

int ImportController(const CommandLine& line, const BoardOptions& options, Streams streams) {
    const bmc::ipmi::Settings settings = ReadControllerSettings(line, options);
    Warnings warnings;
    try {
        const auto backend = bmc::ipmi::LoadBackend(settings, bmc::ipmi::PluginPath());
        const std::vector<ImportedBoard> boards = Ask(*backend, settings, line, options);
        bool hasSensors = false;
        for (const ImportedBoard& imported : boards) {
            hasSensors = hasSensors || !imported.table.sensors.empty();
        }
        if (!hasSensors) {
            throw qstd::Exception(boards.front().label + ": no sensor found");
        }
        for (const std::string& warning : warnings.Take()) {
            streams.err << warning << '\n';
        }
        Print(boards, streams);
    } catch (const Silent& silence) {
        streams.err << "zelkor-chassisctl: " << silence.what() << '\n';
        return c_exitNoAnswer;
    }
    return c_exitDone;
}

}  // namespace chassisctl
