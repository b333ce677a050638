#include "tests/integration/ipmi/lan_fixture.h"
#include "tests/integration/ipmi/seen_by_library.h"

namespace {

using namespace test;
using testing::HasSubstr;

/// What the library sees of the calendar clock and of the network is in the hand of these tests.
class LanClock : public LanTest {
protected:
    LanClock() { SeenByLibrary::Reset(); }
    ~LanClock() override { SeenByLibrary::Reset(); }
};

TEST_F(LanClock, ClockThatIsSet_DisturbsNoSession) {
    const auto transport = MakeOpen();
    for (const auto offset : {0h, 1h, -1h, 24h * 30, -24h * 365}) {
        SeenByLibrary::SetClockOffset(offset);
        const long looks = SeenByLibrary::CountLooks();
        EXPECT_EQ(Failure([&] { Ask(*transport); }), std::nullopt) << m_text;
        EXPECT_GT(SeenByLibrary::CountLooks(), looks) << "the library does not look at the clock of this test";
    }
}

TEST_F(LanClock, ClockThatIsSetForwardByYears_CostsOneSession) {
    m_timeout = 200ms;
    const auto transport = MakeOpen();
    SeenByLibrary::SetClockOffset(24h * 365 * 3);
    EXPECT_EQ(Failure([&] { Ask(*transport); }), TransportFailure_e::noAnswer);
    EXPECT_EQ(Failure([&] { transport->Open(In(1min)); }), std::nullopt) << m_text;
    EXPECT_EQ(Failure([&] { Ask(*transport); }), std::nullopt) << m_text;
}

TEST_F(LanClock, ClockThatIsSetDuringEveryCall_DisturbsNoSession) {
    for (const auto step : {1h, -1h}) {
        SeenByLibrary::Reset();
        SeenByLibrary::SetStepAtEachLook(step);
        const auto transport = MakeOpen();
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(Failure([&] { Ask(*transport); }), std::nullopt) << m_text;
        }
        EXPECT_EQ(Failure([&] {
                      Ask(*transport, c_askDeviceId, 1min, Sending_e::repeated, {0x82, 0});
                  }),
                  std::nullopt)
            << m_text;
        Failure([&] { transport->Close(In(1min)); });
        EXPECT_LT(m_duration, c_tolerance);
    }
}

TEST_F(LanClock, ClockThatIsSetWhileTheControllerIsSilent_DeadlineHolds) {
    const auto transport = MakeOpen();
    m_simulator->Freeze();
    for (const auto step : {1h, -1h}) {
        SeenByLibrary::Reset();
        SeenByLibrary::SetStepAtEachLook(step);
        EXPECT_EQ(Failure([&] { Ask(*transport, c_askDeviceId, 250ms); }), TransportFailure_e::noAnswer);
        EXPECT_GE(m_duration, 250ms);
        EXPECT_LT(m_duration, 250ms + c_tolerance);
    }
    m_simulator->Thaw();
}

TEST_F(LanClock, RequestThatMustNotBeRepeated_IsSentOnce_WhateverTheClockDoes) {
    m_timeout = 200ms;
    const auto transport = MakeOpen();
    m_simulator->Freeze();
    for (const auto step : {0h, 1h, -1h, 24h, -24h}) {
        SeenByLibrary::Reset();
        SeenByLibrary::SetStepAtEachLook(step);
        // Longer than all tries together.
        EXPECT_EQ(Failure([&] { Ask(*transport, c_setClock, 800ms, Sending_e::once); }), TransportFailure_e::noAnswer);
        EXPECT_EQ(SeenByLibrary::TakeSentPackets(), 1);
    }
    m_simulator->Thaw();
}

TEST_F(LanClock, RequestThatMayBeRepeated_IsSentAsOftenAsConfigured) {
    m_timeout = 200ms;
    const auto transport = MakeOpen();
    m_simulator->Freeze();
    SeenByLibrary::TakeSentPackets();
    EXPECT_EQ(Failure([&] { Ask(*transport, c_askDeviceId, 3s); }), TransportFailure_e::noAnswer);
    EXPECT_EQ(SeenByLibrary::TakeSentPackets(), 3);
    m_simulator->Thaw();
}

TEST_F(LanClock, RequestThatGotLost_IsSentAgain) {
    const auto transport = MakeOpen();
    SeenByLibrary::LosePackets(2);
    EXPECT_EQ(Failure([&] { Ask(*transport, {NetFn_e::sensor, 0x2d, {1}}); }), std::nullopt) << m_text;
    EXPECT_GE(m_duration, 2 * m_timeout);
    EXPECT_LT(m_duration, 2 * m_timeout + c_tolerance);
}

TEST_F(LanClock, RequestThatGotLost_AndMustNotBeRepeated_IsLost) {
    const auto transport = MakeOpen();
    SeenByLibrary::LosePackets(1);
    EXPECT_EQ(Failure([&] { Ask(*transport, c_setClock, 300ms, Sending_e::once); }), TransportFailure_e::noAnswer);
}

TEST_F(LanClock, MessageOfAnOpeningThatGotLost_CostsAnAttempt) {
    const auto transport = Make();
    SeenByLibrary::LosePackets(1);
    EXPECT_EQ(Failure([&] { transport->Open(In(1min)); }), std::nullopt) << m_text;
    EXPECT_GE(m_duration, m_timeout / 2);
    EXPECT_LT(m_duration, m_timeout / 2 + c_tolerance);
}

TEST_F(LanClock, DeadlineThatHasPassed_SendsNothing) {
    const auto transport = MakeOpen();
    SeenByLibrary::TakeSentPackets();
    EXPECT_EQ(Failure([&] { Ask(*transport, c_setClock, 0ms, Sending_e::once); }), TransportFailure_e::noAnswer);
    EXPECT_EQ(SeenByLibrary::TakeSentPackets(), 0);
}

TEST_F(LanClock, InterruptionBeforeARequest_SendsNothing) {
    const auto transport = MakeOpen();
    SeenByLibrary::TakeSentPackets();
    transport->Interrupt();
    EXPECT_EQ(Failure([&] { Ask(*transport, c_setClock, 1s, Sending_e::once); }), TransportFailure_e::interrupted);
    EXPECT_EQ(SeenByLibrary::TakeSentPackets(), 0);
}

TEST_F(LanClock, HostThatCannotSend_SaysWhy) {
    struct Case {
        int error;
        const char* text;
    };
    const auto transport = MakeOpen();
    for (const auto& [error, text] :
         {Case{EHOSTUNREACH, "no route to 127.0.0.1"}, Case{ENETUNREACH, "no route to 127.0.0.1"},
          Case{EPERM, "this host does not let packets to 127.0.0.1 out"},
          Case{ENOBUFS, "cannot send to 127.0.0.1: No buffer space available"}}) {
        SeenByLibrary::SetSendError(error);
        EXPECT_EQ(FailureToOpen(Settings()), TransportFailure_e::system);
        EXPECT_THAT(m_text, HasSubstr(text));
        EXPECT_EQ(Failure([&] { Ask(*transport); }), TransportFailure_e::system);
        EXPECT_THAT(m_text, HasSubstr(text));
    }
    SeenByLibrary::SetSendError(0);
}

}  // namespace
