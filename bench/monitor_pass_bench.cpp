// What one monitoring pass costs: 100 boards of 100 sensors, held at fixed readings inside their limits, in the
// registry tree, to which nobody listens. And what the emission of notifications alone costs in it.

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "bmc/board_pool.h"
#include "bmc/sim/sim_backend.h"
#include "monitor.h"
#include "platform_daemon.h"
#include "qcfg/element.h"
#include "qstd/clock.h"

namespace {

constexpr int c_boards = 100;
constexpr int c_sensorsPerBoard = 100;
constexpr int c_sensors = c_boards * c_sensorsPerBoard;

/// Tells when the monitor's own thread has gone to sleep for good.
class SleepWatch : public qstd::Clock {
public:
    SleepWatch() { Replace(this); }
    ~SleepWatch() override { Replace(nullptr); }

    void Sleep(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               std::chrono::seconds /*period*/) override {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_isAsleep = true;
            m_changed.notify_all();
        }
        condition.wait(lock);
    }

    void AwaitSleep() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_isAsleep; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isAsleep = false;
};

class BenchDaemon : public PlatformDaemon {
public:
    BenchDaemon(const std::string& section, const std::string& logFileDir) {
        Prepare("<zelkor>" + section + "</zelkor>", logFileDir);
        AddRegistryNodes();
    }
};

void WriteChassis(const std::string& fileName) {
    std::ofstream file(fileName);
    file << "<chassis>\n";
    for (int board = 0; board < c_boards; ++board) {
        file << "<board uri='io/" << board << "' type='io' name='IO" << board << "'>\n";
        for (int sensor = 1; sensor <= c_sensorsPerBoard; ++sensor) {
            file << "<sensor id='" << sensor << "' name='Temp " << sensor
                 << "' type='temperature' units='degrees C' value='" << 30 + sensor * 0.37
                 << "' nominal='40' lnr='-20' lc='-10' lnc='0' unc='80' uc='90' unr='100'/>\n";
        }
        file << "</board>\n";
    }
    file << "</chassis>\n";
}

/// The chassis behind the pool while it lives.
class Chassis {
public:
    Chassis() : m_folder(std::filesystem::temp_directory_path() / "zelkor-bench") {
        std::filesystem::create_directories(m_folder);
        WriteChassis((m_folder / "chassis.xml").string());
        qcfg::Element section("boards");
        section.AddAttr(std::make_shared<qcfg::Attribute>("chassis", "chassis.xml"));
        bmc::BoardPool::Instance().Open(bmc::sim::Create(section, (m_folder / "config.xml").string()));
    }
    Chassis(const Chassis&) = delete;
    Chassis& operator=(const Chassis&) = delete;
    ~Chassis() {
        bmc::BoardPool::Instance().Open(nullptr);
        std::filesystem::remove_all(m_folder);
    }

    std::string Folder() const { return m_folder.string(); }

private:
    std::filesystem::path m_folder;
};

void CountSensors(benchmark::State& state) {
    state.counters["cpu_per_sensor"] = benchmark::Counter(
        static_cast<double>(c_sensors), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void RunPasses(benchmark::State& state, const std::string& filter) {
    const Chassis chassis;
    SleepWatch clock;
    const BenchDaemon daemon("<monitor enabled='true'>" + filter + "</monitor>", chassis.Folder());
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
    const Chassis chassis;
    const BenchDaemon daemon("", chassis.Folder());
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
