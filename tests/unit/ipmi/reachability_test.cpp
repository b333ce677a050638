// Who answers, and what is logged about it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "bmc/ipmi/reachability.h"

namespace {

using bmc::ipmi::ExchangeResult;
using bmc::ipmi::Reachability;
using bmc::ipmi::SteadyTime;
using bmc::ipmi::Target;
using bmc::ipmi::TransportFailure_e;
using bmc::ipmi::Verdict_e;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

const SteadyTime c_begin{std::chrono::hours(1)};
const qstd::Time c_timeOfDay(1795269787, 512000);
constexpr std::size_t c_bridged = 1;  // the port of io/3

class ReachabilityOfThree : public testing::Test {
protected:
    ReachabilityOfThree()
        : m_reachability("10.0.0.11:623", "session with cipher suite 17",
                         {{"io/1", Target{}}, {"io/3", Target{0x86, 0}}, {"io/4", Target{0x88, 7}}}, milliseconds(500),
                         milliseconds(30'000)) {}

    void Take(std::size_t port, Verdict_e verdict, TransportFailure_e failure = TransportFailure_e::noAnswer,
              const std::string& text = "no answer within 3000 ms") {
        m_reachability.Take(port, ExchangeResult{verdict, {}, failure, text}, m_now, c_timeOfDay);
    }

    /// What was logged, "warning: " before warnings.
    std::vector<std::string> Log() {
        std::vector<std::string> lines;
        for (const auto& [level, text] : m_reachability.TakeMessages()) {
            lines.push_back((level == qstd::LogLevel_e::warning ? "warning: " : "") + text);
        }
        return lines;
    }

    Reachability m_reachability;
    SteadyTime m_now = c_begin;
};

TEST_F(ReachabilityOfThree, Ports_AreTheTargets) {
    EXPECT_EQ(m_reachability.PortOf(Target{}), 0U);
    EXPECT_EQ(m_reachability.PortOf(Target{0x86, 0}), c_bridged);
    EXPECT_EQ(m_reachability.AddressOf(0), "10.0.0.11:623");
    EXPECT_EQ(m_reachability.AddressOf(c_bridged), "10.0.0.11:623, IPMB 0x86");
    EXPECT_EQ(m_reachability.AddressOf(2), "10.0.0.11:623, IPMB 7/0x88");
}

TEST_F(ReachabilityOfThree, FirstAnswer_IsLoggedForTheControllerOnce) {
    EXPECT_EQ(m_reachability.IsAnswering(0), std::nullopt);
    Take(c_bridged, Verdict_e::answered);
    Take(0, Verdict_e::answered);
    EXPECT_THAT(Log(), ElementsAre("Controller 10.0.0.11:623 answers: session with cipher suite 17 (boards io/1, io/3, "
                                   "io/4)"));
    EXPECT_EQ(m_reachability.IsAnswering(0), true);
    EXPECT_EQ(m_reachability.IsAnswering(c_bridged), true);
    EXPECT_EQ(m_reachability.IsAnswering(2), std::nullopt);
}

TEST_F(ReachabilityOfThree, SilentController_MakesAllSilent_LoggedOnceEachWay) {
    Take(c_bridged, Verdict_e::answered);
    Log();
    Take(0, Verdict_e::controllerSilent);
    Take(0, Verdict_e::controllerSilent);
    EXPECT_THAT(Log(),
                ElementsAre("warning: Controller 10.0.0.11:623 does not answer: no answer within 3000 ms (boards "
                            "io/1, io/3, io/4)"));
    EXPECT_EQ(m_reachability.IsAnswering(c_bridged), false);
    EXPECT_EQ(m_reachability.IsAnswering(2), false);
    EXPECT_EQ(m_reachability.WhySilent(0).text,
              "no answer since " + c_timeOfDay.ToString() + ": no answer within 3000 ms");
    EXPECT_EQ(m_reachability.WhySilent(c_bridged).text,
              "the controller: no answer since " + c_timeOfDay.ToString() + ": no answer within 3000 ms");

    m_now += milliseconds(12'340);
    Take(0, Verdict_e::answered);
    EXPECT_THAT(Log(), ElementsAre("Controller 10.0.0.11:623 answers again after 12.3 s (boards io/1, io/3, io/4)"));
    EXPECT_EQ(m_reachability.IsAnswering(c_bridged), true);
    EXPECT_EQ(m_reachability.GetReturns(0), 1U);
    EXPECT_EQ(m_reachability.GetReturns(c_bridged), 1U);
}

TEST_F(ReachabilityOfThree, SilentBoard_IsSilentAlone) {
    Take(0, Verdict_e::answered);
    Log();
    Take(c_bridged, Verdict_e::boardSilent, TransportFailure_e::noAnswer, "0x82 (bus error)");
    EXPECT_THAT(Log(), ElementsAre("warning: Board io/3 (10.0.0.11:623, IPMB 0x86) does not answer: 0x82 (bus error)"));
    EXPECT_EQ(m_reachability.IsAnswering(0), true);
    EXPECT_EQ(m_reachability.IsAnswering(c_bridged), false);
    EXPECT_FALSE(m_reachability.IsSilent(2));

    m_now += milliseconds(500);
    Take(c_bridged, Verdict_e::answered);
    EXPECT_THAT(Log(), ElementsAre("Board io/3 (10.0.0.11:623, IPMB 0x86) answers again after 0.5 s"));
    EXPECT_EQ(m_reachability.GetReturns(c_bridged), 1U);
    EXPECT_EQ(m_reachability.GetReturns(0), 0U);
}

TEST_F(ReachabilityOfThree, Undecided_ChangesNothing) {
    Take(0, Verdict_e::undecided, TransportFailure_e::broken);
    EXPECT_EQ(m_reachability.IsAnswering(0), std::nullopt);
    Take(0, Verdict_e::answered);
    Log();
    Take(0, Verdict_e::undecided, TransportFailure_e::broken);
    EXPECT_EQ(m_reachability.IsAnswering(0), true);
    EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(ReachabilityOfThree, NextProbe_IsTheControllersWhenItIsSilent_ElseTheFirstBoards) {
    Take(0, Verdict_e::answered);
    EXPECT_FALSE(m_reachability.NextProbe());
    Take(c_bridged, Verdict_e::boardSilent);
    Take(c_bridged, Verdict_e::boardSilent);
    Take(2, Verdict_e::boardSilent);
    EXPECT_EQ(m_reachability.NextProbe()->port, 2U);
    Take(0, Verdict_e::controllerSilent);
    EXPECT_EQ(m_reachability.NextProbe()->port, 0U);
}

struct Reason {
    TransportFailure_e failure;
    const char* words;
};
class ReachabilityReasons : public testing::TestWithParam<Reason> {};

TEST_P(ReachabilityReasons, SilentController_IsLoggedInItsWords) {
    Reachability reachability("/dev/ipmi0", "system interface", {{"os/0", Target{}}}, milliseconds(500),
                              milliseconds(30'000));
    reachability.Take(0, {Verdict_e::controllerSilent, {}, GetParam().failure, "REASON"}, c_begin, c_timeOfDay);
    const auto messages = reachability.TakeMessages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].second, std::string("Controller /dev/ipmi0 ") + GetParam().words + ": REASON (board os/0)");
}

INSTANTIATE_TEST_SUITE_P(All, ReachabilityReasons,
                         testing::Values(Reason{TransportFailure_e::noAnswer, "does not answer"},
                                         Reason{TransportFailure_e::refused, "refuses the session"},
                                         Reason{TransportFailure_e::broken, "gives wrong answers"},
                                         Reason{TransportFailure_e::system, "cannot be reached"}));

}  // namespace
