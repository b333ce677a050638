#include <thread>

#include "tests/integration/ipmi/lan_fixture.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

using LanExchange = LanTest;

TEST_F(LanExchange, Answer_IsCompletionCodeAndData) {
    const auto transport = MakeOpen();
    const Response response = Ask(*transport, {NetFn_e::sensor, 0x2d, {37}});
    EXPECT_EQ(response.completionCode, c_completed);
    ASSERT_THAT(response.data, SizeIs(testing::Ge(2U)));
    EXPECT_EQ(response.data[0], 37);
}

TEST_F(LanExchange, CommandThatIsRefused_IsAnAnswer) {
    const auto transport = MakeOpen();
    EXPECT_EQ(Ask(*transport, {0x30, 0x77}).completionCode, c_invalidCommand);
    EXPECT_EQ(Ask(*transport, {NetFn_e::sensor, 0x2d, {200}}).completionCode, 0xcc);
    EXPECT_EQ(Ask(*transport).completionCode, c_completed) << "the session is of use no more";
}

TEST_F(LanExchange, BoardBehindTheController_Answers) {
    const auto transport = MakeOpen();
    const Response response = Ask(*transport, c_askDeviceId, 1min, Sending_e::repeated, {0x82, 0});
    EXPECT_EQ(response.completionCode, c_completed);
    ASSERT_THAT(response.data, SizeIs(testing::Ge(1U)));
    EXPECT_EQ(response.data[0], 0x21) << "not the board's device id";
}

TEST_F(LanExchange, NobodyBehindTheController_IsAnAnswerWithTheBridgesCode) {
    const auto transport = MakeOpen();
    const auto start = steady_clock::now();
    const Response response = Ask(*transport, c_askDeviceId, 1min, Sending_e::repeated, {0x84, 0});
    EXPECT_EQ(response.completionCode, c_noAcknowledge);
    EXPECT_LT(steady_clock::now() - start, c_tolerance);
    EXPECT_EQ(Ask(*transport).completionCode, c_completed) << "the session is of use no more";
}

TEST_F(LanExchange, NoSuchBus_IsAnAnswerWithTheBridgesOwnCode) {
    const auto transport = MakeOpen();
    const Response response = Ask(*transport, c_askDeviceId, 1min, Sending_e::repeated, {0x82, 5});
    EXPECT_EQ(response.completionCode, 0xcc) << CompletionText(response.completionCode);
}

TEST_F(LanExchange, FrozenController_FailsAtTheDeadline) {
    const auto transport = MakeOpen();
    m_simulator->Freeze();
    for (const auto limit : {1ms, 100ms, 350ms}) {
        EXPECT_EQ(Failure([&] { Ask(*transport, c_askDeviceId, limit); }), TransportFailure_e::noAnswer);
        EXPECT_GE(m_duration, limit);
        EXPECT_LT(m_duration, limit + c_tolerance);
        EXPECT_THAT(m_text, HasSubstr("no answer within "));
    }
    EXPECT_EQ(Failure([&] {
                  Ask(*transport, c_askDeviceId, 100ms, Sending_e::once, {0x82, 0});
              }),
              TransportFailure_e::noAnswer);
    EXPECT_LT(m_duration, 100ms + c_tolerance);
    m_simulator->Thaw();
}

TEST_F(LanExchange, ControllerThatWasAway_SessionIsOpenedAnew) {
    const auto transport = MakeOpen();
    m_simulator->Restart();
    EXPECT_EQ(Failure([&] { Ask(*transport, c_askDeviceId, 300ms); }), TransportFailure_e::noAnswer);
    EXPECT_EQ(Failure([&] { transport->Open(In(1min)); }), std::nullopt) << m_text;
    EXPECT_EQ(Ask(*transport).completionCode, c_completed);
}

TEST_F(LanExchange, ControllerThatIsGone_FailsAtTheDeadline) {
    const auto transport = MakeOpen();
    m_simulator->Stop();
    EXPECT_EQ(Failure([&] { Ask(*transport, c_askDeviceId, 200ms); }), TransportFailure_e::noAnswer);
    EXPECT_LT(m_duration, 200ms + c_tolerance);
}

TEST_F(LanExchange, Closing_FrozenController_LastsUntilTheDeadline) {
    const auto transport = MakeOpen();
    m_simulator->Freeze();
    Failure([&] { transport->Close(In(100ms)); });
    EXPECT_GE(m_duration, 100ms);
    EXPECT_LT(m_duration, 100ms + c_tolerance);
    m_simulator->Thaw();
}

TEST_F(LanExchange, End_FrozenController_WaitsForNothing) {
    auto transport = MakeOpen();
    m_simulator->Freeze();
    Failure([&] { transport.reset(); });
    EXPECT_LT(m_duration, c_tolerance);
    m_simulator->Thaw();
}

TEST_F(LanExchange, Interruption_EndsARequest) {
    const auto transport = MakeOpen();
    m_simulator->Freeze();
    std::thread other([&] { transport->Interrupt(); });
    EXPECT_EQ(Failure([&] { Ask(*transport, c_askDeviceId, 1min); }), TransportFailure_e::interrupted);
    EXPECT_LT(m_duration, c_tolerance);
    other.join();
    m_simulator->Thaw();
}

TEST_F(LanExchange, Interruption_EndsAnOpening) {
    const auto transport = Make();
    m_simulator->Freeze();
    std::thread other([&] { transport->Interrupt(); });
    EXPECT_EQ(Failure([&] { transport->Open(In(1min)); }), TransportFailure_e::interrupted);
    EXPECT_LT(m_duration, c_tolerance);
    other.join();
    m_simulator->Thaw();
}

TEST_F(LanExchange, Interruption_EndsAClosing) {
    const auto transport = MakeOpen();
    m_simulator->Freeze();
    std::thread other([&] { transport->Interrupt(); });
    Failure([&] { transport->Close(In(1min)); });
    EXPECT_LT(m_duration, c_tolerance);
    other.join();
    m_simulator->Thaw();
}

TEST_F(LanExchange, InterruptionBetweenRequests_EndsTheNextAlone) {
    const auto transport = MakeOpen();
    transport->Interrupt();
    EXPECT_EQ(Failure([&] { Ask(*transport); }), TransportFailure_e::interrupted);
    EXPECT_EQ(Ask(*transport).completionCode, c_completed);
}

TEST_F(LanExchange, SeveralThreads_EachHaveTheirSession) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 5; ++i) {
        threads.emplace_back([this] {
            const auto transport = MakeOpen();
            for (std::uint8_t sensor = 1; sensor <= 60; ++sensor) {
                const Response response = Ask(*transport, {NetFn_e::sensor, 0x2d, {sensor}});
                ASSERT_EQ(response.completionCode, c_completed);
                ASSERT_EQ(response.data.at(0), sensor);
            }
            transport->Close(In(1s));
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

}  // namespace
