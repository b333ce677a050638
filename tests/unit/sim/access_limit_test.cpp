// What becomes of accesses to slow boards when the service stops.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "bmc/broken_off.h"
#include "bmc/sim/access_gate.h"
#include "sim_fixture.h"

namespace {

using bmc::sim::Access_e;
using bmc::sim::AccessGate;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::SimChassis;
using testing::Each;
using testing::HasSubstr;

constexpr std::chrono::seconds c_patience{100};
constexpr const char* c_brokenOff = "BrokenOff: Access to board icb/0 was broken off: the service stops";
constexpr std::uint16_t c_addresses[] = {0x40, 0x48, 0x50, 0x58, 0x60, 0x68};

/// The error that @p action raises, "BrokenOff: " before the text of one of these, "" when it raises none.
std::string KindOfError(const std::function<void()>& action) {
    try {
        action();
    } catch (const bmc::BrokenOff& error) {
        return std::string("BrokenOff: ") + error.what();
    } catch (const qstd::Exception& error) {
        return error.what();
    }
    return {};
}

/// The same, on a thread of its own.
std::future<std::string> Elsewhere(std::function<void()> action) {
    return std::async(std::launch::async, [action = std::move(action)] { return KindOfError(action); });
}

/// What a thread's access gave, once it has come to an end.
std::string EndOf(std::future<std::string>& access) {
    return access.wait_for(c_patience) == std::future_status::ready ? access.get() : "still waiting";
}

std::vector<bmc::FpgaRegisterValue> AllFans(std::uint16_t value) {
    std::vector<bmc::FpgaRegisterValue> values;
    for (const std::uint16_t address : c_addresses) {
        values.push_back({address, value});
    }
    return values;
}

TEST(AccessLimit, Batch_IsOneAccessWhateverItsSize) {
    SimChassis chassis;
    chassis.Do({"slow", "icb/0", "1000"});
    const auto begin = steady_clock::now();
    const auto results = chassis.Board("icb/0").FpgaSpiWriteAll(AllFans(483));
    const auto duration = steady_clock::now() - begin;
    EXPECT_GE(duration, milliseconds(1000));
    EXPECT_LT(duration, milliseconds(6000)) << "six delays take longer";
    ASSERT_EQ(results.size(), 6U);
    chassis.Do({"heal", "icb/0", ""});
    for (const std::uint16_t address : c_addresses) {
        EXPECT_EQ(chassis.Board("icb/0").FpgaSpiRead(address).value, 483);
    }
}

TEST(AccessLimit, Batch_IsWrittenInItsOrderAndARegisterThatFailsCostsItselfOnly) {
    SimChassis chassis;
    chassis.Do({"fpga-fail", "0x48"});
    const auto results = chassis.Board("icb/0").FpgaSpiWriteAll({{0x68, 483}, {0x48, 484}, {0x40, 485}, {0x41, 486}});
    ASSERT_EQ(results.size(), 4U);
    EXPECT_EQ(results[0].failed, 0);
    EXPECT_NE(results[1].failed, 0);
    EXPECT_EQ(results[2].failed, 0);
    EXPECT_NE(results[3].failed, 0) << "there is no such register";
    const std::string journal = chassis.Do({"journal"});
    EXPECT_LT(journal.find("0x68"), journal.find("0x40")) << journal;
    EXPECT_EQ(journal.find("484"), std::string::npos) << journal;
    EXPECT_TRUE(chassis.Board("icb/0").FpgaSpiWriteAll({}).empty());
    EXPECT_NE(chassis.Board("io/1").FpgaSpiWriteAll({{0x40, 1}}).front().failed, 0) << "it carries no fans";
}

TEST(AccessLimit, BeforeTheDeadline_AccessesAreAsAlways) {
    SimChassis chassis;
    chassis.backend.LimitAccesses(steady_clock::now() + std::chrono::hours(1));
    auto write = Elsewhere([&] { chassis.Board("icb/0").FpgaSpiWrite(0x40, 483); });
    EXPECT_EQ(EndOf(write), "");
    EXPECT_EQ(chassis.Board("icb/0").FpgaSpiRead(0x40).value, 483);
    EXPECT_EQ(chassis.Sensor("icb/0", 12).Read().Converted(), 48);
}

TEST(AccessLimit, AfterTheDeadline_AccessesOfOtherThreadsAreBrokenOffOnQuickBoardsToo) {
    SimChassis chassis;
    bmc::Board& board = chassis.Board("icb/0");
    chassis.backend.LimitAccesses(steady_clock::now());
    for (const std::function<void()>& action : std::vector<std::function<void()>>{
             [&] { board.GetSensorsIds(); }, [&] { chassis.Sensor("icb/0", 12).Read(); }, [&] { board.GetTime(); },
             [&] { board.SetTime(qstd::Time(100, 0)); }, [&] { board.GetPowerStatus(); },
             [&] { board.FpgaSpiRead(0x40); }, [&] { board.FpgaSpiWrite(0x40, 483); },
             [&] { board.FpgaSpiWriteAll(AllFans(483)); }}) {
        auto access = Elsewhere(action);
        EXPECT_EQ(EndOf(access), c_brokenOff);
    }
    auto other = Elsewhere([&] { chassis.Board("io/1").GetTime(); });
    EXPECT_EQ(EndOf(other), "BrokenOff: Access to board io/1 was broken off: the service stops");
    EXPECT_EQ(chassis.Do({"journal"}), "") << "nothing took effect";
}

TEST(AccessLimit, AfterTheDeadline_WritesOfTheStoppingThreadPassAndItsReadsAreBrokenOff) {
    SimChassis chassis;
    bmc::Board& board = chassis.Board("icb/0");
    chassis.backend.LimitAccesses(steady_clock::now());
    EXPECT_EQ(KindOfError([&] { board.FpgaSpiRead(0x40); }), c_brokenOff);
    EXPECT_EQ(KindOfError([&] { chassis.Sensor("icb/0", 12).Read(); }), c_brokenOff);
    EXPECT_EQ(board.FpgaSpiWrite(0x40, 483).failed, 0);
    EXPECT_EQ(board.FpgaSpiWriteAll(AllFans(297)).size(), 6U);
    EXPECT_EQ(KindOfError([&] { board.SetTime(qstd::Time(100, 0)); }), "");
    EXPECT_THAT(chassis.Do({"journal"}), HasSubstr("SetTime"));
    EXPECT_THAT(chassis.Do({"fpga-read", "0x40"}), HasSubstr("297"));
}

TEST(AccessLimit, ThreadsThatWaitAtTheDeadline_AreAllBrokenOffBeforeTheyHadAnEffect) {
    SimChassis chassis;
    chassis.Do({"slow", "icb/0", "3600000"});
    std::vector<std::future<std::string>> waiting;
    for (int i = 0; i < 4; ++i) {
        waiting.push_back(Elsewhere([&] { chassis.Sensor("icb/0", 12).Read(); }));
        waiting.push_back(Elsewhere([&] { chassis.Board("icb/0").FpgaSpiWriteAll(AllFans(483)); }));
    }
    EXPECT_EQ(waiting.front().wait_for(milliseconds(20)), std::future_status::timeout);
    chassis.backend.LimitAccesses(steady_clock::now() + milliseconds(20));
    std::vector<std::string> ends;
    for (auto& access : waiting) {
        ends.push_back(EndOf(access));
    }
    EXPECT_THAT(ends, Each(c_brokenOff));
    EXPECT_EQ(chassis.Do({"journal"}), "");
}

TEST(AccessLimit, ReadOfTheStoppingThreadThatWaitsAtTheDeadline_IsBrokenOff) {
    SimChassis chassis;
    chassis.Do({"slow", "icb/0", "3600000"});
    auto inItsDelay = Elsewhere([&] { chassis.Board("icb/0").GetTime(); });
    chassis.backend.LimitAccesses(steady_clock::now() + milliseconds(20));
    EXPECT_EQ(KindOfError([&] { chassis.Board("icb/0").FpgaSpiRead(0x40); }), c_brokenOff);
    EXPECT_EQ(EndOf(inItsDelay), c_brokenOff);
}

TEST(AccessLimit, PowerActionsOfOtherThreads_AreLetThrough) {
    SimChassis chassis;
    chassis.Do({"slow", "io/1", "30"});
    auto powerDown = Elsewhere([&] { chassis.Board("io/1").PowerDown(); });
    auto shutDown = Elsewhere([&] { chassis.Board("io/1").ShutDown(); });
    chassis.backend.LimitAccesses(steady_clock::now());
    EXPECT_EQ(EndOf(powerDown), "");
    EXPECT_EQ(EndOf(shutDown), "");
    EXPECT_EQ(chassis.Do({"power", "io/1"}), "+off\n");
    EXPECT_EQ(chassis.Do({"shutdown-count", "io/1"}), "+1\n");
}

TEST(AccessLimit, WriteOfTheStoppingThread_TakesItsTurnAfterAPowerAction) {
    SimChassis chassis;
    chassis.Do({"slow", "icb/0", "30"});
    chassis.backend.LimitAccesses(steady_clock::now());
    auto powerDown = Elsewhere([&] { chassis.Board("icb/0").PowerDown(); });
    EXPECT_EQ(chassis.Board("icb/0").FpgaSpiWrite(0x40, 297).failed, 0);
    EXPECT_EQ(EndOf(powerDown), "");
    EXPECT_THAT(chassis.Do({"journal"}), HasSubstr("FpgaSpiWrite"));
    EXPECT_THAT(chassis.Do({"journal"}), HasSubstr("PowerDown"));
}

TEST(AccessLimit, WhatIsLetThrough_IsGivenUpAfterItsTime) {
    AccessGate gate("icb/0");
    gate.SetDelay(std::chrono::hours(1));
    const std::string text = "Board icb/0 did not answer within 500 ms: the access was given up";
    gate.LimitAccesses(steady_clock::now() + milliseconds(5), milliseconds(500));
    const auto begin = steady_clock::now();
    auto switching = Elsewhere([&] { const auto access = gate.Enter(Access_e::switching); });
    EXPECT_EQ(KindOfError([&] { const auto access = gate.Enter(Access_e::writing); }), text);
    EXPECT_GE(steady_clock::now() - begin, milliseconds(500));
    EXPECT_EQ(EndOf(switching), text) << "a problem, not the quiet end of a pass";
    EXPECT_EQ(KindOfError([&] { const auto access = gate.Enter(Access_e::writing); }), text);
    gate.SetDelay(milliseconds(0));
    EXPECT_EQ(KindOfError([&] { const auto access = gate.Enter(Access_e::writing); }), "");
}

TEST(AccessLimit, InjectedFailure_IsRaisedAsAlways) {
    SimChassis chassis;
    chassis.Do({"fail", "icb/0", "", "cable out"});
    chassis.backend.LimitAccesses(steady_clock::now() + std::chrono::hours(1));
    EXPECT_EQ(KindOfError([&] { chassis.Board("icb/0").FpgaSpiRead(0x40); }), "cable out");
    chassis.backend.LimitAccesses(steady_clock::now());
    EXPECT_EQ(KindOfError([&] { chassis.Board("icb/0").FpgaSpiWrite(0x40, 297); }), "cable out");
}

TEST(AccessLimit, ManyWriters_NoneWritesAfterTheStoppingThread) {
    for (const char* delay : {"0", "1"}) {
        SimChassis chassis;
        chassis.Do({"slow", "icb/0", delay});
        std::vector<std::future<std::string>> writers;
        std::atomic<int> writes{0};
        for (std::uint16_t i = 0; i < 6; ++i) {
            writers.push_back(Elsewhere([&, i] {
                for (;;) {
                    chassis.Board("icb/0").FpgaSpiWriteAll(AllFans(static_cast<std::uint16_t>(400 + i)));
                    ++writes;
                }
            }));
        }
        while (writes < 20) {
            std::this_thread::yield();
        }
        chassis.backend.LimitAccesses(steady_clock::now());
        chassis.Board("icb/0").FpgaSpiWriteAll(AllFans(297));
        for (auto& writer : writers) {
            EXPECT_EQ(EndOf(writer), c_brokenOff);
        }
        for (const bmc::FpgaRegisterValue& each : AllFans(0)) {
            EXPECT_THAT(chassis.Do({"fpga-read", std::to_string(each.address)}), HasSubstr("297"));
        }
    }
}

}  // namespace
