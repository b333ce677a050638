// What one cycle of the temperature control and one pass of the damage protection cost: 500 temperature sensors on ten
// boards, held at fixed readings that keep the fans' speed, and the six fan registers.

#include <benchmark/benchmark.h>

#include <ostream>

#include "bench/worker_bench.h"
#include "damage_protection.h"
#include "qnode/local_node_structure.h"
#include "temperature_control.h"

namespace {

constexpr int c_boards = 10;
constexpr int c_sensorsPerBoard = 50;

constexpr const char* c_sections = R"(<temperature_control><fans>
<set lower="40" upper="50" rpm="3000"/><set lower="45" upper="60" rpm="4000"/><set lower="55" upper="70" rpm="6500"/>
</fans></temperature_control><damage_protection enabled="true"/>)";

void WriteChassis(std::ostream& file) {
    file << "<chassis>\n";
    for (int board = 0; board < c_boards; ++board) {
        if (board == 0) {
            file << "<board uri='icb/0' type='icb' name='ICB'><fans/>\n";
        } else {
            file << "<board uri='io/" << board << "' type='io' name='IO" << board << "'>\n";
        }
        bench::WriteSensors(file, c_sensorsPerBoard);
        file << "</board>\n";
    }
    file << "</chassis>\n";
}

/// The daemon's tree has been made: its node of the fans.
std::shared_ptr<qnode::TreeNode> FansNode(const bench::Daemon& daemon) {
    const qnode::LocalNodeStructure& root = *daemon.GetRegistry()->GetStructure();
    return root.GetChild(root.FindChild("fans"));
}

/// Reading six registers and 500 sensors, and the step through the table; nothing is written.
void ControlCycle(benchmark::State& state) {
    const bench::Chassis chassis(WriteChassis);
    bench::SleepWatch clock;
    const bench::Daemon daemon(c_sections, chassis.Folder());
    auto fans = FansNode(daemon);
    TemperatureControl control(fans);
    clock.AwaitSleep();
    control.Control();  // to the band of the readings, where it then stays
    for ([[maybe_unused]] auto cycle : state) {
        control.Control();
    }
    control.StopThread();
}
BENCHMARK(ControlCycle)->Unit(benchmark::kMillisecond);

void ProtectionPass(benchmark::State& state) {
    const bench::Chassis chassis(WriteChassis);
    bench::SleepWatch clock;
    const bench::Daemon daemon(c_sections, chassis.Folder());
    DamageProtection protection;
    clock.AwaitSleep();
    for ([[maybe_unused]] auto pass : state) {
        protection.Protect();
    }
    protection.StopThread();
}
BENCHMARK(ProtectionPass)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
