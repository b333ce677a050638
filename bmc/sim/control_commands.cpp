#include "bmc/sim/control_commands.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "bmc/sim/control_protocol.h"
#include "qstd/enum_map.h"
#include "qstd/exception.h"
#include "qstd/strings.h"

// One function for each command, with what they share in front: the file is long because the list of commands is.

namespace bmc::sim {

namespace {

constexpr long long c_longestDelay = 3600000;  // milliseconds
constexpr double c_largestClockOffset = 1e9;   // seconds

std::string Quoted(const std::string& text) {
    return "\"" + qstd::OneLine(text) + "\"";
}

std::string BodyLine(const std::vector<std::string>& fields) {
    return "+" + JoinFields(fields) + "\n";
}

std::string ReadingText(const SensorReading& reading) {
    return reading.IsValid() ? RealText(reading.Converted()) : c_notAvailableText;
}

std::string LimitText(const std::optional<double>& limit) {
    return limit ? RealText(*limit) : c_notAvailableText;
}

template <class E>
std::string NameOf(E value) {
    return qstd::EnumMap<E>::items.GetName(value);
}

/// With three decimals.
std::string SecondsText(double seconds) {
    constexpr std::size_t c_size = 32;
    constexpr double c_largest = 1e12;
    constexpr int c_decimals = 3;
    std::array<char, c_size> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), std::min(seconds, c_largest),
                                      std::chars_format::fixed, c_decimals);
    return {buffer.data(), result.ptr};
}

double RealOf(const std::string& text) {
    const auto value = ParseReal(text);
    if (!value) {
        throw qstd::Exception("not a number: " + Quoted(text));
    }
    return *value;
}

std::uint16_t RegisterOf(const std::string& text) {
    const auto value = ParseRegister(text);
    if (!value) {
        throw qstd::Exception("not a number from 0 to 0xFFFF: " + Quoted(text));
    }
    return static_cast<std::uint16_t>(*value);
}

/// What is injected, or "ok". The failure's text may hold anything, so it is the last.
std::string StateText(std::vector<std::string> injected, const InjectedFailure& failure) {
    if (const auto text = failure.GetText()) {
        injected.push_back("fail: " + *text);
    }
    std::string state;
    for (const std::string& each : injected) {
        state += (state.empty() ? "" : ",") + each;
    }
    return state.empty() ? "ok" : state;
}

std::string BoardLine(const SimBoard& board) {
    std::vector<std::string> injected;
    if (board.IsMissing()) {
        injected.emplace_back("missing");
    }
    if (const auto delay = board.Gate().GetDelay().count(); delay > 0) {
        injected.push_back("slow " + std::to_string(delay));
    }
    return BodyLine({"board", board.GetUri().ToString(), board.GetShortName(), NameOf(board.GetType()),
                     NameOf(board.PeekPower()), StateText(std::move(injected), board.Gate().Failure())});
}

std::string SensorLine(const SimBoard& board, const SimSensor& sensor) {
    std::vector<std::string> injected;
    if (sensor.GetMode() == SimSensor::Mode_e::held) {
        injected.emplace_back("set");
    } else if (sensor.GetMode() == SimSensor::Mode_e::invalid) {
        injected.emplace_back("invalid");
    }
    if (sensor.IsMissing()) {
        injected.emplace_back("missing");
    }
    std::vector<std::string> fields = {
        "sensor",         board.GetUri().ToString(), std::to_string(sensor.GetId().GetValue()),
        sensor.GetName(), NameOf(sensor.GetType()),  ReadingText(sensor.Peek()),
        sensor.GetUnits()};
    for (const Limit_e limit :
         {Limit_e::nominal, Limit_e::lowerNonRecoverable, Limit_e::lowerCritical, Limit_e::lowerNonCritical,
          Limit_e::upperNonCritical, Limit_e::upperCritical, Limit_e::upperNonRecoverable}) {
        fields.push_back(LimitText(sensor.PeekLimit(limit)));
    }
    fields.push_back(StateText(std::move(injected), sensor.Failure()));
    return BodyLine(fields);
}

}  // namespace

std::span<const ControlCommands::Command> ControlCommands::Commands() {
    // Constant, so that it is there to the very end of the process: the control thread outlives later statics.
    static constexpr std::array<Command, 18> c_commands{{
        {"list", 0, &ControlCommands::List},
        {"set", 3, &ControlCommands::Set},
        {"auto", 2, &ControlCommands::Auto},
        {"invalid", 2, &ControlCommands::Invalid},
        {"fail", 3, &ControlCommands::Fail},
        {"missing", 2, &ControlCommands::Missing},
        {"slow", 2, &ControlCommands::Slow},
        {"heal", 2, &ControlCommands::Heal},
        {"limit", 4, &ControlCommands::Limit},
        {"clock", 2, &ControlCommands::Clock},
        {"fpga-read", 1, &ControlCommands::FpgaRead},
        {"fpga-write", 2, &ControlCommands::FpgaWrite},
        {"fpga-fail", 1, &ControlCommands::FpgaFail},
        {"fpga-heal", 1, &ControlCommands::FpgaHeal},
        {"journal", 0, &ControlCommands::ShowJournal},
        {"journal-follow", 0, &ControlCommands::ShowJournal},
        {"shutdown-count", 1, &ControlCommands::ShutDownCount},
        {"power", 1, &ControlCommands::Power},
    }};
    return c_commands;
}

std::string ControlCommands::Execute(const Request& request) {
    const std::string name = request.empty() ? std::string() : request.front();
    const auto commands = Commands();
    const auto found =
        std::find_if(commands.begin(), commands.end(), [&name](const Command& each) { return name == each.name; });
    if (found == commands.end()) {
        throw qstd::Exception("unknown command " + Quoted(name));
    }
    if (request.size() != found->arguments + 1) {
        throw qstd::Exception("command \"" + name + "\" takes " + std::to_string(found->arguments) +
                              " arguments, given " + std::to_string(request.size() - 1));
    }
    return (this->*found->execute)(request);
}

SimBoard& ControlCommands::BoardOf(const std::string& uri) const {
    SimBoard* const board = m_chassis.FindBoard(uri);
    if (board == nullptr) {
        throw qstd::Exception("unknown board " + Quoted(uri));
    }
    return *board;
}

SimSensor& ControlCommands::SensorOf(const std::string& uri, const std::string& id) const {
    const SimBoard& board = BoardOf(uri);
    const auto number = ParseInteger(id, std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
    if (!number) {
        throw qstd::Exception("not a sensor id: " + Quoted(id));
    }
    SimSensor* const sensor = board.FindSensor(static_cast<int>(*number));
    if (sensor == nullptr) {
        throw qstd::Exception("board " + uri + " has no sensor " + id);
    }
    return *sensor;
}

SimBoard& ControlCommands::FanBoard() const {
    if (m_chassis.FanBoard() == nullptr) {
        throw qstd::Exception("no board of the chassis carries the fan controller");
    }
    return *m_chassis.FanBoard();
}

std::string ControlCommands::List(const Request& /*request*/) {
    std::string lines;
    for (const auto& board : m_chassis.Boards()) {
        lines += BoardLine(*board);
        for (const auto& sensor : board->Sensors()) {
            lines += SensorLine(*board, *sensor);
        }
    }
    return lines;
}

std::string ControlCommands::Set(const Request& request) {
    SimSensor& sensor = SensorOf(request[1], request[2]);
    sensor.SetReading(RealOf(request[3]));
    return {};
}

std::string ControlCommands::Auto(const Request& request) {
    SensorOf(request[1], request[2]).SetAutomatic();
    return {};
}

std::string ControlCommands::Invalid(const Request& request) {
    SensorOf(request[1], request[2]).SetInvalid();
    return {};
}

std::string ControlCommands::Fail(const Request& request) {
    SimBoard& board = BoardOf(request[1]);
    InjectedFailure& failure = request[2].empty() ? board.Gate().Failure() : SensorOf(request[1], request[2]).Failure();
    failure.Set(request[3].empty() ? "simulated failure" : qstd::OneLine(request[3]));
    return {};
}

std::string ControlCommands::Missing(const Request& request) {
    if (request[2].empty()) {
        BoardOf(request[1]).SetMissing(true);
    } else {
        SensorOf(request[1], request[2]).SetMissing(true);
    }
    return {};
}

std::string ControlCommands::Slow(const Request& request) {
    SimBoard& board = BoardOf(request[1]);
    const auto delay = ParseInteger(request[2], 0, c_longestDelay);
    if (!delay) {
        throw qstd::Exception("not a number of milliseconds from 0 to " + std::to_string(c_longestDelay) + ": " +
                              Quoted(request[2]));
    }
    board.Gate().SetDelay(std::chrono::milliseconds(*delay));
    return {};
}

std::string ControlCommands::Heal(const Request& request) {
    if (request[2].empty()) {
        BoardOf(request[1]).Heal();
    } else {
        SensorOf(request[1], request[2]).Heal();
    }
    return {};
}

std::string ControlCommands::Limit(const Request& request) {
    SimSensor& sensor = SensorOf(request[1], request[2]);
    const auto name = std::find(c_limitNames.begin(), c_limitNames.end(), request[3]);
    if (name == c_limitNames.end()) {
        throw qstd::Exception("unknown limit " + Quoted(request[3]) + "; known: lnr, lc, lnc, unc, uc, unr, nominal");
    }
    std::optional<double> value;
    if (request[4] != "none") {
        value = RealOf(request[4]);
        if (!std::isfinite(*value)) {
            throw qstd::Exception("a limit is a finite number or \"none\", given " + Quoted(request[4]));
        }
    }
    sensor.SetLimit(static_cast<Limit_e>(name - c_limitNames.begin()), value);
    return {};
}

std::string ControlCommands::Clock(const Request& request) {
    SimBoard& board = BoardOf(request[1]);
    const double seconds = RealOf(request[2]);
    if (!(std::fabs(seconds) <= c_largestClockOffset)) {
        throw qstd::Exception("clock offset " + request[2] + " is beyond 1e9 seconds");
    }
    board.SetClockOffset(seconds);
    return {};
}

std::string ControlCommands::FpgaRead(const Request& request) {
    const SimBoard& board = FanBoard();
    const std::uint16_t address = RegisterOf(request[1]);
    const auto value = board.Fans()->Read(address, m_chassis.GetModelClock().ModelSeconds());
    if (!value) {
        throw qstd::Exception("cannot read register " + AddressText(address) +
                              ": there is none, or it is made to fail");
    }
    return BodyLine({AddressText(address), std::to_string(*value)});
}

std::string ControlCommands::FpgaWrite(const Request& request) {
    const SimBoard& board = FanBoard();
    const std::uint16_t address = RegisterOf(request[1]);
    const std::uint16_t value = RegisterOf(request[2]);
    if (!board.WriteFanRegister(address, value) && !board.Fans()->Hold(address, value)) {
        throw qstd::Exception("cannot write register " + AddressText(address) +
                              ": there is none, or it is made to fail");
    }
    return {};
}

std::string ControlCommands::FpgaFail(const Request& request) {
    FanBoard().Fans()->Fail(RegisterOf(request[1]));
    return {};
}

std::string ControlCommands::FpgaHeal(const Request& request) {
    FanBoard().Fans()->Heal(RegisterOf(request[1]));
    return {};
}

std::string ControlCommands::JournalLines(const Journal::Extract& extract) {
    std::string lines;
    if (extract.dropped > 0) {
        lines += BodyLine({"dropped", std::to_string(extract.dropped)});
    }
    for (const Journal::Entry& entry : extract.entries) {
        std::vector<std::string> fields = {SecondsText(entry.seconds), entry.uri};
        fields.insert(fields.end(), entry.action.begin(), entry.action.end());
        lines += BodyLine(fields);
    }
    return lines;
}

std::string ControlCommands::ShowJournal(const Request& /*request*/) {
    return JournalLines(m_chassis.GetJournal().Get(0, Journal::c_maxEntries));
}

std::string ControlCommands::ShutDownCount(const Request& request) {
    return BodyLine({std::to_string(BoardOf(request[1]).GetShutDownCount())});
}

std::string ControlCommands::Power(const Request& request) {
    return BodyLine({NameOf(BoardOf(request[1]).PeekPower())});
}

}  // namespace bmc::sim
