// What an emission costs the thread that emits, and what finding a node costs.

#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "qnode/node.h"
#include "qreg/access.h"
#include "qreg/subscriptions.h"
#include "qstd/any.h"
#include "registry/bench_tree.h"

namespace {

constexpr std::size_t c_boards = 50;
constexpr std::size_t c_sensors = 100;

const std::shared_ptr<qnode::TreeNode>& Tree() {
    static const auto tree = bench::MakeTree(c_boards, c_sensors);
    return tree;
}

void FindByPath(benchmark::State& state) {
    const std::string path = bench::ValuePath(c_boards / 2, c_sensors / 2);
    for (auto _ : state) {
        benchmark::DoNotOptimize(Tree()->FindBelow(path));
    }
}
BENCHMARK(FindByPath);

/// The argument is the number of subscribers; every second one never asks for anything.
void Emit(benchmark::State& state) {
    const qreg::Access access(Tree());
    qreg::Subscriptions subscriptions(access, {});
    std::atomic<bool> isOver{false};
    std::vector<std::thread> readers;
    for (int index = 0; index < state.range(0); ++index) {
        qreg::Filter filter;
        filter.patterns = {"boards/*/sensors"};
        const std::string id = subscriptions.Subscribe(filter).id;
        if (index % 2 == 0) {
            readers.emplace_back([&subscriptions, &isOver, id] {
                std::uint64_t received = 0;
                while (!isOver) {
                    const qreg::Batch batch = subscriptions.Poll(id, received, 1000, std::chrono::milliseconds(100));
                    received = batch.events.empty() ? received : batch.events.back()->sequence;
                }
            });
        }
    }
    const qnode::Node node(Tree()->FindChild("boards")->FindChild("B1")->FindChild("sensors")->FindChild("ID_5"));
    const qnode::Node value = node.Find("value");
    for (auto _ : state) {
        value.Emit(qnode::NotificationType::value, qstd::Any(48.25));
        // As often as a monitor that passes over five thousand sensors a second.
        state.PauseTiming();
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        state.ResumeTiming();
    }
    isOver = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
}
BENCHMARK(Emit)->Arg(100)->Unit(benchmark::kMicrosecond)->Iterations(3000);

void EmitToNobody(benchmark::State& state) {
    const qreg::Access access(Tree());
    const qreg::Subscriptions subscriptions(access, {});
    const qnode::Node value(Tree()->FindChild("boards")->FindChild("B1"));
    for (auto _ : state) {
        value.Emit(qnode::NotificationType::value, qstd::Any(48.25));
    }
}
BENCHMARK(EmitToNobody);

}  // namespace

BENCHMARK_MAIN();
