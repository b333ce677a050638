#include "tools/regctl/watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/support/time_zone.h"
#include "tests/unit/regctl/fake_registry.h"
#include "tools/regctl/interruption.h"

namespace {

using testing::ElementsAre;

class WatchTest : public testing::Test {
protected:
    int Watch(const regctl::WatchRequest& request) {
        regctl::Output output{m_out, m_err};
        output.isJson = m_isJson;
        output.hasColour = m_hasColour;
        return regctl::Watch(
            request, m_registry, output, [&] { return m_isInterrupted; }, [&](const std::string& id) { m_id = id; });
    }

    const test::TimeZone m_zone{"TST-1"};
    FakeRegistry m_registry;
    std::ostringstream m_out, m_err;
    bool m_isInterrupted = false, m_isJson = false, m_hasColour = false;
    std::string m_id;
};

TEST_F(WatchTest, PrintsTimePathTypeAndValue) {
    m_registry.polls = {[] { return MakeBatch(0, {1, 2}); }, [] { return MakeBatch(0, {3}); }};
    EXPECT_EQ(Watch({{"a/**"}, 3, {}}), 0);
    EXPECT_EQ(m_out.str(),
              "1970/01/01 01:00:01.000 a/b threshold 0.1\n"
              "1970/01/01 01:00:02.000 a/b value 0.2\n"
              "1970/01/01 01:00:03.000 a/b threshold 0.3\n");
    EXPECT_EQ(m_err.str(), "");
    EXPECT_THAT(m_registry.filter.patterns, ElementsAre("a/**"));
    EXPECT_FALSE(m_registry.filter.wantsPresent);
    EXPECT_THAT(m_registry.received, ElementsAre(0U, 2U)) << "each poll says what arrived";
    EXPECT_EQ(m_registry.unsubscribed, 1);
    EXPECT_EQ(m_id, "id");
}

TEST_F(WatchTest, Count_EndsInTheMiddleOfABatch) {
    m_registry.polls = {[] { return MakeBatch(0, {1, 2, 3}); }};
    EXPECT_EQ(Watch({{}, 1, {}}), 0);
    EXPECT_EQ(m_out.str(), "1970/01/01 01:00:01.000 a/b threshold 0.1\n");
}

TEST_F(WatchTest, Json_OneObjectALine) {
    m_isJson = true;
    m_registry.polls = {[] { return MakeBatch(0, {4}); }};
    Watch({{}, 1, {}});
    EXPECT_EQ(nlohmann::json::parse(m_out.str()), nlohmann::json({{"time", "1970/01/01 01:00:04.000"},
                                                                  {"sequence", 4},
                                                                  {"path", "a/b"},
                                                                  {"type", "value"},
                                                                  {"value", 0.4}}));
}

TEST_F(WatchTest, Colour_MarksThresholds) {
    m_hasColour = true;
    m_registry.polls = {[] { return MakeBatch(0, {1, 2}); }};
    Watch({{}, 2, {}});
    EXPECT_EQ(m_out.str(),
              "\x1b[33m1970/01/01 01:00:01.000 a/b threshold 0.1\x1b[0m\n1970/01/01 01:00:02.000 a/b value 0.2\n");
}

TEST_F(WatchTest, Losses_AreToldOnceEach) {
    m_registry.polls = {[] { return MakeBatch(2, {3}); }, [] { return MakeBatch(2, {4}); },
                        [] { return MakeBatch(3, {6}); }};
    Watch({{}, 3, {}});
    EXPECT_EQ(m_err.str(),
              "zelkor-regctl: 2 notifications were lost\n"
              "zelkor-regctl: 1 notification was lost\n");
}

TEST_F(WatchTest, Timeout_EndsWithZero) {
    EXPECT_EQ(Watch({{}, {}, std::chrono::milliseconds(0)}), 0);
    EXPECT_TRUE(m_registry.received.empty());
    EXPECT_EQ(Watch({{}, {}, std::chrono::milliseconds(200)}), 0);
    ASSERT_FALSE(m_registry.waits.empty());
    EXPECT_LE(m_registry.waits.front(), std::chrono::milliseconds(200));
    EXPECT_GT(m_registry.waits.back(), std::chrono::milliseconds(0));
}

TEST_F(WatchTest, Interrupted_PollThatFailsIsNoFailure) {
    m_registry.polls = {[&]() -> qreg::Batch {
        m_isInterrupted = true;
        throw qreg::RegistryError(qreg::ErrorCode_e::no_such_subscription, "", "ended");
    }};
    EXPECT_EQ(Watch({}), 0);
}

TEST_F(WatchTest, PollThatFails_IsPassedOn_AndTheSubscriptionEnded) {
    m_registry.polls = {[]() -> qreg::Batch { throw qreg::corba::NoServer("broken"); }};
    EXPECT_THROW(Watch({}), qreg::corba::NoServer);
    EXPECT_EQ(m_registry.unsubscribed, 1);
}

TEST_F(WatchTest, PathThatLeadsNowhere_IsRefusedBeforeItIsWatchedForEver) {
    m_registry.Add("").Add("fans", 1.0);
    EXPECT_THROW(Watch({{"fans", "fens"}, 1, {}}), qreg::RegistryError);
    m_registry.polls = {[] { return MakeBatch(0, {1}); }};
    EXPECT_EQ(Watch({{"fans", "fens*"}, 1, {}}), 0);
}

TEST_F(WatchTest, OutputThatCannotBeWritten_EndsIt) {
    m_registry.polls = {[] { return MakeBatch(0, {1}); }};
    m_out.setstate(std::ios::badbit);
    EXPECT_THROW(Watch({}), regctl::OutputFailure);
}

TEST(Interruption, SignalCallsTheActionOnce) {
    std::promise<void> called;
    {
        regctl::Interruption interruption;
        EXPECT_FALSE(interruption.Came());
        interruption.SetAction([&] { called.set_value(); });
        ::kill(::getpid(), SIGINT);
        EXPECT_EQ(called.get_future().wait_for(std::chrono::seconds(100)), std::future_status::ready);
        EXPECT_TRUE(interruption.Came());
    }
}

TEST(Interruption, EndsWithoutASignal) {
    const regctl::Interruption interruption;
    EXPECT_FALSE(interruption.Came());
}

}  // namespace
