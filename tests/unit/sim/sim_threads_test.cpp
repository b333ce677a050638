#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "bmc/sim/access_gate.h"
#include "sim_fixture.h"

namespace {

using bmc::sim::AccessGate;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::SimChassis;

constexpr std::chrono::seconds c_longEnough{30};

TEST(AccessGate, ManyThreads_OneAccessAtATime) {
    AccessGate gate("io/1");
    int inside = 0;  // guarded by the gate: the thread sanitizer sees when it is not
    int total = 0;
    bool overlapped = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < 1000; ++j) {
                const auto access = gate.Enter();
                overlapped = overlapped || inside != 0;
                ++inside;
                ++total;
                --inside;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(total, 8000);
}

TEST(AccessGate, SlowAccesses_ComeOneAfterAnother) {
    SimChassis chassis;
    chassis.Do({"slow", "icb/0", "10"});
    const auto begin = steady_clock::now();
    std::vector<std::thread> threads;
    for (int i = 0; i < 5; ++i) {
        threads.emplace_back([&] { chassis.Sensor("icb/0", 12).Read(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GE(steady_clock::now() - begin, milliseconds(50));
}

TEST(AccessGate, SlowBoard_DoesNotDelayAnotherNorLimitsNorTheOperator) {
    SimChassis chassis;
    chassis.Do({"slow", "icb/0", "3600000"});
    auto slow = std::async(std::launch::async, [&] { return chassis.Sensor("icb/0", 12).Read().Converted(); });
    EXPECT_EQ(chassis.Board("io/1").GetStatus(), bmc::BoardStatus_e::degraded);
    EXPECT_TRUE(chassis.Sensor("io/1", 16).Read().IsValid());
    EXPECT_EQ(chassis.Sensor("icb/0", 12).GetUpperCritical().Converted(), 85);
    EXPECT_EQ(chassis.Do({"set", "icb/0", "12", "50"}), "");
    EXPECT_NE(chassis.Do({"list"}).find("slow 3600000"), std::string::npos);
    EXPECT_EQ(slow.wait_for(milliseconds(0)), std::future_status::timeout) << "still in its delay";
    EXPECT_EQ(chassis.Do({"heal", "icb/0", ""}), "");
    ASSERT_EQ(slow.wait_for(c_longEnough), std::future_status::ready) << "healing ends the delay";
    EXPECT_EQ(slow.get(), 48);
}

TEST(AccessGate, DelayShortened_RunningAccessTakesTheNewOne) {
    SimChassis chassis;
    chassis.Do({"slow", "icb/0", "3600000"});
    auto slow = std::async(std::launch::async, [&] { chassis.Board("icb/0").GetStatus(); });
    chassis.Do({"slow", "icb/0", "1"});
    EXPECT_EQ(slow.wait_for(c_longEnough), std::future_status::ready);
}

TEST(AccessGate, FailureDuringADelay_RaisesAtItsEnd) {
    SimChassis chassis;
    chassis.Do({"slow", "icb/0", "3600000"});
    auto slow =
        std::async(std::launch::async, [&] { return test::ErrorOf([&] { chassis.Board("icb/0").GetTime(); }); });
    chassis.Do({"fail", "icb/0", "", "cable out"});
    chassis.Do({"slow", "icb/0", "0"});
    ASSERT_EQ(slow.wait_for(c_longEnough), std::future_status::ready);
    EXPECT_EQ(slow.get(), "cable out");
}

TEST(SimBackend, UsedAndDisturbedByManyThreads_StaysWhole) {
    SimChassis chassis;
    std::atomic<bool> stop{false};
    std::atomic<int> readings{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            do {
                for (const bmc::Uri& uri : chassis.backend.GetAllLocalBoardUris()) {
                    bmc::Board* const board = chassis.backend.GetBoard(uri);
                    if (board == nullptr) {
                        continue;
                    }
                    test::ErrorOf([&] {
                        for (const bmc::SensorId& id : board->GetSensorsIds()) {
                            bmc::Sensor* const sensor = board->GetSensor(id);
                            readings += sensor != nullptr && sensor->ReadingLimit(sensor->Read()) >= -1 ? 1 : 0;
                        }
                        board->FpgaSpiWrite(0x40, static_cast<std::uint16_t>(600 + readings % 50));
                        board->SetTime(board->GetTime());
                        board->PowerDown();
                    });
                }
            } while (!stop);
        });
    }
    for (int i = 0; i < 200; ++i) {
        for (const std::vector<std::string>& request :
             std::vector<std::vector<std::string>>{{"fail", "icb/0", "", "x"},
                                                   {"missing", "io/1", ""},
                                                   {"set", "io/1", "16", "7"},
                                                   {"list"},
                                                   {"invalid", "icb/0", "12"},
                                                   {"fail", "io/1", "16", "y"},
                                                   {"heal", "icb/0", ""},
                                                   {"heal", "io/1", ""},
                                                   {"limit", "icb/0", "12", "uc", "80"},
                                                   {"clock", "icb/0", "3"},
                                                   {"fpga-write", "0x48", "600"}}) {
            EXPECT_NE(chassis.Do(request).rfind("error", 0), 0U);
        }
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(readings, 0);
    EXPECT_EQ(chassis.Sensor("icb/0", 12).Read().Converted(), 48);
}

}  // namespace
