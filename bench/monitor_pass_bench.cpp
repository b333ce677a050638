// What one monitoring pass costs: 100 boards of 100 sensors, held at fixed readings inside their limits.

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>

#include "bmc/board_pool.h"
#include "bmc/sim/sim_backend.h"
#include "monitor.h"
#include "qapp/zelkor_application.h"
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

class BenchApplication : public qapp::ZelkorApplication {
public:
    BenchApplication(const std::string& section, const std::string& logFileDir)
        : ZelkorApplication("bench", false, true) {
        Prepare("<zelkor>" + section + "</zelkor>", logFileDir);
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

void RunPasses(benchmark::State& state, const std::string& filter) {
    const auto folder = std::filesystem::temp_directory_path() / "zelkor-bench";
    std::filesystem::create_directories(folder);
    WriteChassis((folder / "chassis.xml").string());
    qcfg::Element section("boards");
    section.AddAttr(std::make_shared<qcfg::Attribute>("chassis", "chassis.xml"));
    bmc::BoardPool::Instance().Open(bmc::sim::Create(section, (folder / "config.xml").string()));
    {
        SleepWatch clock;
        const BenchApplication application("<monitor enabled='true'>" + filter + "</monitor>", folder.string());
        Monitor monitor;
        clock.AwaitSleep();
        for ([[maybe_unused]] auto pass : state) {
            monitor.LogSensors();
        }
        monitor.StopThread();
    }
    bmc::BoardPool::Instance().Open(nullptr);
    std::filesystem::remove_all(folder);
    state.counters["cpu_per_sensor"] = benchmark::Counter(
        static_cast<double>(c_sensors), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
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

}  // namespace

BENCHMARK_MAIN();
