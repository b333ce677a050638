#include "bmc/sim/journal.h"

#include <gtest/gtest.h>

#include "tests/support/manual_clock.h"

namespace {

using bmc::sim::Journal;

TEST(Journal, Entries_AreOldestFirstWithTheirTime) {
    test::ManualClock clock;
    const bmc::sim::ModelClock model(100);
    Journal journal(model);
    journal.Add("io/1", {"PowerDown"});
    clock.Advance(std::chrono::milliseconds(1500));
    journal.Add("icb/0", {"FpgaSpiWrite", "0x40", "645"});
    const auto extract = journal.Get(0, 10);
    EXPECT_EQ(extract.dropped, 0U);
    EXPECT_EQ(extract.next, 2U);
    ASSERT_EQ(extract.entries.size(), 2U);
    EXPECT_EQ(extract.entries[0].uri, "io/1");
    EXPECT_EQ(extract.entries[0].seconds, 0);
    EXPECT_EQ(extract.entries[1].action, (std::vector<std::string>{"FpgaSpiWrite", "0x40", "645"}));
    EXPECT_EQ(extract.entries[1].seconds, 1.5) << "host seconds, whatever the model's speed";
    EXPECT_TRUE(journal.Get(2, 10).entries.empty());
    EXPECT_EQ(journal.Get(0, 1).next, 1U);
}

TEST(Journal, Full_DropsTheOldestAndCountsThem) {
    const bmc::sim::ModelClock model(1);
    Journal journal(model);
    for (std::size_t i = 0; i < Journal::c_maxEntries + 3; ++i) {
        journal.Add("io/1", {"SetTime", std::to_string(i)});
    }
    const auto extract = journal.Get(0, Journal::c_maxEntries + 100);
    EXPECT_EQ(extract.dropped, 3U);
    ASSERT_EQ(extract.entries.size(), Journal::c_maxEntries);
    EXPECT_EQ(extract.entries.front().action.at(1), "3");
    EXPECT_EQ(extract.next, Journal::c_maxEntries + 3);
}

TEST(Journal, Listener_IsCalledForEachEntryUntilReplaced) {
    const bmc::sim::ModelClock model(1);
    Journal journal(model);
    int calls = 0;
    journal.SetListener([&calls] { ++calls; });
    journal.Add("io/1", {"PowerDown"});
    journal.Add("io/1", {"PowerDown"});
    journal.SetListener(nullptr);
    journal.Add("io/1", {"PowerDown"});
    EXPECT_EQ(calls, 2);
}

}  // namespace
