#include <malloc.h>

#include <filesystem>
#include <vector>

#include "bmc/ipmi/make_transport.h"
#include "tests/integration/ipmi/lan_fixture.h"
#include "tests/integration/ipmi/refusing_controller.h"
#include "tests/support/count_entries.h"
#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace {

using namespace test;
using testing::HasSubstr;
using testing::Not;

using LanOpening = LanTest;

TEST_F(LanOpening, RightAccount_SessionIsUsable) {
    const auto transport = MakeOpen();
    EXPECT_EQ(Ask(*transport).completionCode, c_completed);
    transport->Close(In(1s));
}

TEST_F(LanOpening, AccountOfLeastPrivilege_SessionIsUsable) {
    auto settings = Settings();
    settings.user = "guest";
    settings.privilege = Privilege_e::user;
    const auto transport = Make(settings, "guest-secret");
    transport->Open(In(1min));
    EXPECT_EQ(Ask(*transport).completionCode, c_completed);
}

TEST_F(LanOpening, WrongPassword_SaysSo_AndNotThePassword) {
    EXPECT_EQ(FailureToOpen(Settings(), "not-the-secret"), TransportFailure_e::refused);
    EXPECT_EQ(m_text, "wrong password for user \"ops\"");
    EXPECT_LT(m_duration, c_tolerance);
}

TEST_F(LanOpening, UnknownUser_SaysSo) {
    auto settings = Settings();
    settings.user = "nobody";
    EXPECT_EQ(FailureToOpen(settings), TransportFailure_e::refused);
    EXPECT_EQ(m_text, "the controller knows no user \"nobody\"");
}

TEST_F(LanOpening, RefusalWithAReason_SaysIt) {
    struct Case {
        std::uint8_t status;
        const char* text;
    };
    for (const auto& [status, text] :
         {Case{0x01, "no session slot is free, or the controller is busy"},
          Case{0x04, "the controller refused to open a session; probably cipher suite 3 is not offered"},
          Case{0x09, "user \"ops\" is not allowed privilege level administrator"},
          Case{0x11, "cipher suite 3 is not offered"}}) {
        const RefusingController controller(status);
        auto settings = Settings();
        settings.port = controller.GetPort();
        settings.cipherSuite = 3;
        EXPECT_EQ(FailureToOpen(settings), TransportFailure_e::refused);
        EXPECT_EQ(m_text, text);
    }
}

TEST_F(LanOpening, CipherSuiteThatIsNotOffered_SaysSo) {
    auto settings = Settings();
    settings.cipherSuite = 16;
    EXPECT_EQ(FailureToOpen(settings), TransportFailure_e::broken);
    EXPECT_THAT(m_text, HasSubstr("cipher suite 16 is not offered"));
    EXPECT_LT(m_duration, c_tolerance);
}

TEST_F(LanOpening, AllSessionSlotsTaken_SaysSo) {
    std::vector<std::unique_ptr<FreeIpmiTransport>> transports;
    std::optional<TransportFailure_e> failure;
    while (!failure && transports.size() < 100) {
        transports.push_back(Make());
        failure = Failure([&] { transports.back()->Open(In(1min)); });
    }
    EXPECT_TRUE(failure);
    EXPECT_THAT(m_text, HasSubstr("no session slot is free"));
}

TEST_F(LanOpening, NoPassword_SaysWhy) {
    FreeIpmiTransport transport(Settings(), [](const auto&) { throw qstd::Exception("io1.pass: no such file"); });
    EXPECT_EQ(Failure([&] { transport.Open(In(1min)); }), TransportFailure_e::system);
    EXPECT_EQ(m_text, "io1.pass: no such file");
}

TEST_F(LanOpening, PasswordLongerThanAnAccountHas_SaysSo_AndNotThePassword) {
    EXPECT_EQ(FailureToOpen(Settings(), "abcdefghijklmnopqrstu"), TransportFailure_e::system);
    EXPECT_THAT(m_text, HasSubstr("passwords up to 20"));
    EXPECT_THAT(m_text, Not(HasSubstr("abc")));
}

TEST_F(LanOpening, PortWhereNobodyListens_FailsAtTheDeadline) {
    auto settings = Settings();
    settings.port = UdpSocket().GetPort();
    EXPECT_EQ(FailureToOpen(settings, "ops-secret", 300ms), TransportFailure_e::noAnswer);
    EXPECT_GE(m_duration, 300ms);
    EXPECT_LT(m_duration, 300ms + c_tolerance);
    EXPECT_THAT(m_text, HasSubstr("no answer within "));
}

TEST_F(LanOpening, HostThatIsSilent_FailsAtTheDeadline) {
    const UdpSocket silent;
    auto settings = Settings();
    settings.port = silent.GetPort();
    settings.timeout = 2s;
    EXPECT_EQ(FailureToOpen(settings, "ops-secret", 2500ms), TransportFailure_e::noAnswer);
    EXPECT_LT(m_duration, 2500ms + c_tolerance);
    // One attempt for half of the time-out, one for all of it; the deadline cuts the last.
    EXPECT_EQ(silent.TakePackets(), 2);
}

TEST_F(LanOpening, SilentHostOverIpV6_FailsAtTheDeadline) {
    auto settings = Settings();
    settings.host = "::1";
    EXPECT_EQ(FailureToOpen(settings, "ops-secret", 100ms), TransportFailure_e::noAnswer);
    EXPECT_LT(m_duration, 100ms + c_tolerance);
}

TEST_F(LanOpening, AddressThatNobodyMayHave_IsAFailureOfThisHost) {
    auto settings = Settings();
    settings.host = "255.255.255.255";
    EXPECT_EQ(FailureToOpen(settings), TransportFailure_e::system);
    EXPECT_THAT(m_text, HasSubstr("255.255.255.255"));
}

TEST_F(LanOpening, FrozenController_FailsAtTheDeadline_AndWorksAfterThaw) {
    const auto transport = Make();
    m_simulator->Freeze();
    EXPECT_EQ(Failure([&] { transport->Open(In(150ms)); }), TransportFailure_e::noAnswer);
    EXPECT_LT(m_duration, 150ms + c_tolerance);
    m_simulator->Thaw();
    EXPECT_EQ(Failure([&] { transport->Open(In(1min)); }), std::nullopt);
}

TEST_F(LanOpening, OpenedAgain_FreesTheSlotOfTheFormerSession) {
    const auto transport = Make();
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(Failure([&] { transport->Open(In(1min)); }), std::nullopt) << "session " << i << ": " << m_text;
    }
}

TEST_F(LanOpening, SettingsDecideOnTheWay) {
    const test::TempFolder folder;
    ControllerSettings settings = Settings();
    settings.password.path = folder.Path() + "/ops.pass";
    test::WriteFile(settings.password.path, "ops-secret\n");
    std::filesystem::permissions(settings.password.path, std::filesystem::perms::owner_read);
    const auto transport = MakeTransport(settings);
    transport->Open(In(1min));
    EXPECT_EQ(Ask(*transport).completionCode, c_completed);

    ControllerSettings local;
    local.device = "/dev/no-such-device";
    const auto other = MakeTransport(local);
    EXPECT_EQ(Failure([&] { other->Open(In(1s)); }), TransportFailure_e::system);
    EXPECT_THAT(m_text, HasSubstr("/dev/no-such-device"));
}

TEST_F(LanOpening, ThousandSessions_LeaveNothingBehind) {
    const auto transport = Make();
    const auto openAndClose = [&](int count) {
        for (int i = 0; i < count; ++i) {
            transport->Open(In(1min));
            Ask(*transport);
            transport->Close(In(1s));
        }
    };
    openAndClose(20);
    const auto descriptors = CountEntries("/proc/self/fd");
    const auto threads = CountEntries("/proc/self/task");
    const auto memory = ::mallinfo2().uordblks;
    openAndClose(1000);
    EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
    EXPECT_EQ(CountEntries("/proc/self/task"), threads);
    EXPECT_LE(::mallinfo2().uordblks, memory + 20'000);
}

TEST_F(LanOpening, HundredsOfLostSessionsAndFailedOpenings_LeaveNothingBehind) {
    const auto transport = Make();
    const auto loseSessions = [&](int count) {
        for (int i = 0; i < count; ++i) {
            m_simulator->Thaw();
            transport->Open(In(1min));
            m_simulator->Freeze();
            ASSERT_EQ(Failure([&] { Ask(*transport, c_askDeviceId, 1ms); }), TransportFailure_e::noAnswer);
            ASSERT_EQ(Failure([&] { transport->Open(In(1ms)); }), TransportFailure_e::noAnswer);
        }
    };
    loseSessions(10);
    const auto descriptors = CountEntries("/proc/self/fd");
    const auto memory = ::mallinfo2().uordblks;
    loseSessions(200);
    EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
    EXPECT_LE(::mallinfo2().uordblks, memory + 20'000);
    m_simulator->Thaw();
}

}  // namespace
