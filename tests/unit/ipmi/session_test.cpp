// The rules by which a request is repeated and a lost session replaced, by a clock that moves only when somebody waits.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bmc/ipmi/session.h"
#include "fake_transport.h"
#include "tests/support/manual_clock.h"

namespace {

using bmc::ipmi::ExchangeResult;
using bmc::ipmi::Request;
using bmc::ipmi::Sending_e;
using bmc::ipmi::Session;
using bmc::ipmi::Target;
using bmc::ipmi::TransportFailure_e;
using bmc::ipmi::TryTimes;
using bmc::ipmi::Verdict_e;
using std::chrono::milliseconds;
using test::FakeController;
using testing::ElementsAre;
using testing::Field;

constexpr milliseconds c_timeout{1000};
constexpr TryTimes c_readTimes{2 * c_timeout, 3 * c_timeout};
constexpr TryTimes c_writeTimes{c_timeout, 2 * c_timeout};
const Request c_request(bmc::ipmi::NetFn_e::sensor, 0x2d, {16});
const Target c_board{0x86, 0};

class SessionRules : public testing::Test {
protected:
    SessionRules() : m_session(m_transport, milliseconds(100)) {}
    ~SessionRules() override { EXPECT_EQ(m_controller->Misuses(), 0); }

    /// With a session that is open.
    void Establish() {
        ASSERT_EQ(m_session.Establish(3 * c_timeout).verdict, Verdict_e::answered);
        m_controller->ForgetSeen();
        m_begin = m_clock.SteadyNow();
    }
    ExchangeResult Read(const Target& target = {}) { return m_session.Read(target, c_request, c_readTimes); }
    ExchangeResult Write(const Target& target = {}) { return m_session.Write(target, c_request, c_writeTimes); }
    milliseconds Passed() const { return std::chrono::round<milliseconds>(m_clock.SteadyNow() - m_begin); }
    std::vector<Sending_e> Sendings() const {
        std::vector<Sending_e> sendings;
        for (const test::SeenExchange& each : m_controller->Seen()) {
            sendings.push_back(each.sending);
        }
        return sendings;
    }

    test::ManualClock m_clock;
    const std::shared_ptr<FakeController> m_controller = std::make_shared<FakeController>(&m_clock);
    test::FakeTransport m_transport{m_controller};
    Session m_session;
    std::chrono::steady_clock::time_point m_begin = m_clock.SteadyNow();
};

TEST_F(SessionRules, Establish_OpensAndAsksTheController) {
    EXPECT_EQ(m_session.Establish(3 * c_timeout).verdict, Verdict_e::answered);
    EXPECT_THAT(m_controller->Seen(), ElementsAre(Field(&test::SeenExchange::what, "20:06/01")));
    EXPECT_TRUE(m_session.IsOpen());
}

TEST_F(SessionRules, Establish_NoAnswer_ControllerIsSilentWithinTheTime) {
    m_controller->SetDead(true);
    const ExchangeResult result = m_session.Establish(3 * c_timeout);
    EXPECT_EQ(result.verdict, Verdict_e::controllerSilent);
    EXPECT_EQ(result.failure, TransportFailure_e::noAnswer);
    EXPECT_FALSE(m_session.IsOpen());
    EXPECT_LE(Passed(), 3 * c_timeout);
}

TEST_F(SessionRules, Establish_SessionButNoAnswer_ControllerIsSilent) {
    m_controller->SetMute(true);
    EXPECT_EQ(m_session.Establish(3 * c_timeout).verdict, Verdict_e::controllerSilent);
    EXPECT_EQ(Passed(), 3 * c_timeout);
    EXPECT_FALSE(m_session.IsOpen());
}

TEST_F(SessionRules, Establish_Refused_SaysSo) {
    m_controller->SetOpening(FakeController::Opening_e::refuses);
    const ExchangeResult result = m_session.Establish(3 * c_timeout);
    EXPECT_EQ(result.verdict, Verdict_e::controllerSilent);
    EXPECT_EQ(result.failure, TransportFailure_e::refused);
    EXPECT_EQ(result.text, "wrong password");
}

TEST_F(SessionRules, Read_Answered_IsOneExchangeThatMayBeRepeated) {
    Establish();
    const ExchangeResult result = Read();
    EXPECT_EQ(result.verdict, Verdict_e::answered);
    EXPECT_THAT(result.response.data, ElementsAre(0x04, 0x2d));
    EXPECT_THAT(m_controller->Seen(), ElementsAre(test::SeenExchange{"20:04/2d", Sending_e::repeated, 2 * c_timeout}));
}

TEST_F(SessionRules, Read_SessionDropped_CostsTimeAndNoError) {
    Establish();
    m_controller->DropSession();
    EXPECT_EQ(Read().verdict, Verdict_e::answered);
    EXPECT_EQ(Passed(), 2 * c_timeout);
    EXPECT_EQ(m_controller->Openings(), 2);
    EXPECT_THAT(m_controller->Seen(), ElementsAre(test::SeenExchange{"20:04/2d", Sending_e::repeated, 2 * c_timeout},
                                                  test::SeenExchange{"20:06/01", Sending_e::repeated, c_timeout / 2},
                                                  test::SeenExchange{"20:04/2d", Sending_e::repeated, c_timeout}));
}

TEST_F(SessionRules, Read_ControllerDead_IsSilentWithinItsTime) {
    Establish();
    m_controller->SetDead(true);
    const ExchangeResult result = Read();
    EXPECT_EQ(result.verdict, Verdict_e::controllerSilent);
    EXPECT_LE(Passed(), 3 * c_timeout);
}

TEST_F(SessionRules, Read_SessionsButNoAnswers_IsSilentWhenItsTimeIsOver) {
    Establish();
    m_controller->SetMute(true);
    EXPECT_EQ(Read().verdict, Verdict_e::controllerSilent);
    EXPECT_LE(Passed(), 3 * c_timeout);
    EXPECT_FALSE(m_session.IsOpen());
}

TEST_F(SessionRules, Read_WrongAnswer_IsRepeatedInANewSession) {
    Establish();
    m_controller->BreakAnswers(1);
    EXPECT_EQ(Read().verdict, Verdict_e::answered);
    EXPECT_EQ(m_controller->Openings(), 2);
    EXPECT_EQ(Passed(), milliseconds(0));
}

TEST_F(SessionRules, Read_TwoWrongAnswers_IsAnErrorThatSaysNothingOfTheController) {
    Establish();
    m_controller->BreakAnswers(2);
    const ExchangeResult result = Read();
    EXPECT_EQ(result.verdict, Verdict_e::undecided);
    EXPECT_EQ(result.failure, TransportFailure_e::broken);
    EXPECT_EQ(result.text, "the reply is of another session");
    EXPECT_FALSE(m_session.IsOpen());
}

TEST_F(SessionRules, Read_RefusedWhenReopening_SaysSo) {
    Establish();
    m_controller->DropSession();
    m_controller->SetOpening(FakeController::Opening_e::refuses);
    const ExchangeResult result = Read();
    EXPECT_EQ(result.verdict, Verdict_e::controllerSilent);
    EXPECT_EQ(result.failure, TransportFailure_e::refused);
}

TEST_F(SessionRules, Read_CompletionCodeOfTheController_IsAnAnswer) {
    Establish();
    m_controller->SetCompletionCode(bmc::ipmi::c_noAcknowledge, 1);
    const ExchangeResult result = Read();
    EXPECT_EQ(result.verdict, Verdict_e::answered);
    EXPECT_EQ(result.response.completionCode, bmc::ipmi::c_noAcknowledge);
}

TEST_F(SessionRules, ReadOfBoard_CodeOfItsOwnThatABridgeUsesToo_IsAnAnswer) {
    Establish();
    m_controller->SetCodesOfBridge(false);
    m_controller->SetCompletionCode(bmc::ipmi::c_noAcknowledge, 1);
    const ExchangeResult result = Read(c_board);
    EXPECT_EQ(result.verdict, Verdict_e::answered);
    EXPECT_EQ(result.response.completionCode, bmc::ipmi::c_noAcknowledge);
}

TEST_F(SessionRules, ReadOfBoard_NobodyAcknowledges_BoardIsSilentAtOnceAndGotNothing) {
    Establish();
    m_controller->SetCompletionCode(bmc::ipmi::c_noAcknowledge, 1);
    const ExchangeResult result = Read(c_board);
    EXPECT_EQ(result.verdict, Verdict_e::boardSilent);
    EXPECT_EQ(result.text, "0x83 (nobody acknowledges that address on the bus)");
    EXPECT_FALSE(result.wasSent);
    EXPECT_TRUE(m_session.IsOpen());
    EXPECT_EQ(m_controller->Seen().size(), 1U);
}

TEST_F(SessionRules, ReadOfBoard_BusError_IsRepeatedOnce) {
    Establish();
    m_controller->SetCompletionCode(bmc::ipmi::c_busError, 1);
    EXPECT_EQ(Read(c_board).verdict, Verdict_e::answered);

    m_controller->SetCompletionCode(bmc::ipmi::c_lostArbitration, 2);
    const ExchangeResult result = Read(c_board);
    EXPECT_EQ(result.verdict, Verdict_e::boardSilent);
    EXPECT_EQ(result.text, "0x81 (lost arbitration on the bus)");
    EXPECT_TRUE(result.wasSent);
    EXPECT_EQ(m_controller->Openings(), 1);
}

TEST_F(SessionRules, ReadOfBoard_BoardDead_IsSilentAlone_AndEverySessionIsClosedWithAWord) {
    Establish();
    m_controller->SetBoardDead(c_board.address, true);
    EXPECT_EQ(Read(c_board).verdict, Verdict_e::boardSilent);
    EXPECT_LE(Passed(), 3 * c_timeout);
    EXPECT_EQ(m_controller->Openings(), 2);
    EXPECT_EQ(m_controller->Farewells(), 2);
}

TEST_F(SessionRules, ReadOfBoard_ControllerDead_ControllerIsSilent) {
    Establish();
    m_controller->SetDead(true);
    EXPECT_EQ(Read(c_board).verdict, Verdict_e::controllerSilent);
    EXPECT_LE(Passed(), 3 * c_timeout);
}

TEST_F(SessionRules, Write_NoAnswer_IsNeverRepeated_AndTheSessionIsNewForAsking) {
    Establish();
    m_controller->LoseAnswers(1);
    const ExchangeResult result = Write();
    EXPECT_EQ(result.verdict, Verdict_e::undecided);
    EXPECT_TRUE(result.wasSent);
    EXPECT_THAT(Sendings(), ElementsAre(Sending_e::once));
    EXPECT_EQ(m_controller->Openings(), 2);
    EXPECT_TRUE(m_session.IsOpen());
    EXPECT_EQ(Passed(), c_timeout);
}

TEST_F(SessionRules, Write_ControllerDead_IsSilentAfterTwoTimeouts) {
    Establish();
    m_controller->SetDead(true);
    const ExchangeResult result = Write();
    EXPECT_EQ(result.verdict, Verdict_e::controllerSilent);
    EXPECT_TRUE(result.wasSent);
    EXPECT_EQ(Passed(), 2 * c_timeout);
    EXPECT_THAT(Sendings(), ElementsAre(Sending_e::once));
}

TEST_F(SessionRules, Write_WrongAnswer_IsNotRepeatedEither) {
    Establish();
    m_controller->BreakAnswers(1);
    const ExchangeResult result = Write();
    EXPECT_EQ(result.verdict, Verdict_e::undecided);
    EXPECT_TRUE(result.wasSent);
    EXPECT_THAT(Sendings(), ElementsAre(Sending_e::once));
    EXPECT_TRUE(m_session.IsOpen());
}

TEST_F(SessionRules, WriteToBoard_NobodyAcknowledges_WasNotSent) {
    Establish();
    m_controller->SetCompletionCode(bmc::ipmi::c_noAcknowledge, 1);
    const ExchangeResult result = Write(c_board);
    EXPECT_EQ(result.verdict, Verdict_e::boardSilent);
    EXPECT_FALSE(result.wasSent);
}

TEST_F(SessionRules, WriteToBoard_BusError_LeavesOpenWhetherItWasExecuted) {
    Establish();
    m_controller->SetCompletionCode(bmc::ipmi::c_busError, 1);
    const ExchangeResult result = Write(c_board);
    EXPECT_EQ(result.verdict, Verdict_e::undecided);
    EXPECT_TRUE(result.wasSent);
    EXPECT_EQ(m_controller->Seen().size(), 1U);
}

TEST_F(SessionRules, Probe_DeadBoard_IsAskedOnce) {
    Establish();
    m_controller->SetBoardDead(c_board.address, true);
    EXPECT_EQ(m_session.Probe(c_board, c_timeout).verdict, Verdict_e::boardSilent);
    EXPECT_THAT(m_controller->Seen(), ElementsAre(test::SeenExchange{"86:06/01", Sending_e::once, c_timeout}));
    EXPECT_EQ(Passed(), c_timeout);
}

TEST_F(SessionRules, Interrupted_NothingMoreIsTried) {
    Establish();
    m_transport.Interrupt();
    const ExchangeResult read = Read();
    EXPECT_TRUE(read.IsInterrupted());
    EXPECT_EQ(read.verdict, Verdict_e::undecided);
    EXPECT_EQ(m_controller->Openings(), 1);

    Establish();
    m_transport.Interrupt();
    EXPECT_TRUE(Write().IsInterrupted());
    m_transport.Interrupt();
    EXPECT_TRUE(m_session.Establish(c_timeout).IsInterrupted());
}

TEST_F(SessionRules, StrayInterrupt_CostsNothingButANewSession) {
    Establish();
    m_transport.Interrupt();
    m_session.ExpectStrayInterrupt();
    EXPECT_FALSE(m_session.IsOpen());
    EXPECT_EQ(m_session.Establish(c_timeout).verdict, Verdict_e::answered);
    EXPECT_EQ(Read().verdict, Verdict_e::answered);
}

TEST_F(SessionRules, UnknownException_IsAWrongAnswer) {
    Establish();
    m_controller->SetHook([](const std::string&) { throw std::length_error("a length of -1"); });
    const ExchangeResult result = Read();
    EXPECT_EQ(result.verdict, Verdict_e::undecided);
    EXPECT_EQ(result.failure, TransportFailure_e::broken);
    EXPECT_EQ(result.text, "a length of -1");
}

TEST_F(SessionRules, Close_TellsTheController_OnlyWhenTheSessionIsOpen) {
    m_session.Close(m_clock.SteadyNow());
    EXPECT_EQ(m_controller->Farewells(), 0);
    Establish();
    m_session.Close(m_clock.SteadyNow());
    EXPECT_EQ(m_controller->Farewells(), 1);
    EXPECT_EQ(m_controller->OpenSessions(), 0);
}

}  // namespace
