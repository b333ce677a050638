// What one monitoring pass costs: 100 boards of 100 sensors, held at fixed readings inside their limits, in the
// registry tree, to which nobody listens. And what the emission of notifications alone costs in it.

#include <benchmark/benchmark.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "bench/worker_bench.h"
#include "bmc/board_pool.h"
#include "monitor.h"

namespace {

constexpr int c_boards = 100;
constexpr int c_sensorsPerBoard = 100;
constexpr int c_sensors = c_boards * c_sensorsPerBoard;

void WriteChassis(std::ostream& file) {
    file << "<chassis>\n";
    for (int board = 0; board < c_boards; ++board) {
        file << "<board uri='io/" << board << "' type='io' name='IO" << board << "'>\n";
        bench::WriteSensors(file, c_sensorsPerBoard);
        file << "</board>\n";
    }
    file << "</chassis>\n";
}

void CountSensors(benchmark::State& state) {
    state.counters["cpu_per_sensor"] = benchmark::Counter(
        static_cast<double>(c_sensors), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void RunPasses(benchmark::State& state, const std::string& filter) {
    const bench::Chassis chassis(WriteChassis);
    bench::SleepWatch clock;
    const bench::Daemon daemon("<monitor enabled='true'>" + filter + "</monitor>", chassis.Folder());
    Monitor monitor;
    clock.AwaitSleep();
    for ([[maybe_unused]] auto pass : state) {
        monitor.LogSensors();
    }
    monitor.StopThread();
    CountSensors(state);
}

/// Default filters: nothing crosses a threshold, nothing is recorded.
void MonitorPassQuiet(benchmark::State& state) {
    RunPasses(state, "");
}
BENCHMARK(MonitorPassQuiet)->Unit(benchmark::kMillisecond);

/// No filter: every reading is recorded, a line a board and pass.
void MonitorPassRecorded(benchmark::State& state) {
    RunPasses(state, "<filter><absolute enabled='false'/></filter>");
}
BENCHMARK(MonitorPassRecorded)->Unit(benchmark::kMillisecond);

/// What a pass does for the registry alone: the short name, the path lookup and the choice of what to emit, for every
/// sensor. @param previous the reading before; another one than the present makes every sensor emit.
void RunEmissions(benchmark::State& state, double previous) {
    const bench::Chassis chassis(WriteChassis);
    const bench::Daemon daemon("", chassis.Folder());
    constexpr double c_value = 40.0;
    std::vector<std::pair<bmc::Board*, std::vector<bmc::SensorId>>> boards;
    for (const bmc::Uri& uri : bmc::BoardPool::Instance().GetAllLocalBoardUris()) {
        bmc::Board* const board = bmc::BoardPool::Instance().GetBoard(uri);
        boards.emplace_back(board, board->GetSensorsIds());
    }
    for ([[maybe_unused]] auto pass : state) {
        for (const auto& [board, ids] : boards) {
            for (const bmc::SensorId& id : ids) {
                Monitor::EmitNotifications(board->GetSensor(id), board->GetShortName(), bmc::ToString(id), c_value,
                                           previous);
            }
        }
    }
    CountSensors(state);
}

void EmissionUnchanged(benchmark::State& state) {
    RunEmissions(state, 40.0);
}
BENCHMARK(EmissionUnchanged)->Unit(benchmark::kMillisecond);

void EmissionChanged(benchmark::State& state) {
    RunEmissions(state, 39.0);
}
BENCHMARK(EmissionChanged)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
