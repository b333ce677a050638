// Sessions that the controller does not know any more, or does not give.

#include <malloc.h>

#include <filesystem>

#include "bmc/ipmi/freeipmi_transport.h"
#include "tests/integration/ipmi/failure_fixture.h"
#include "tests/support/count_entries.h"

namespace test {

namespace {

using testing::HasSubstr;

class LostSessionTest : public IpmiFailureTest {
protected:
    static constexpr const char* c_newPassword = "rotated";
};

TEST_F(LostSessionTest, ControllerRestarted_CallersSeeNoError) {
    StartControllers();
    OpenBackend();
    for (int round = 1; round <= 3; ++round) {
        Simulator().Restart();
        EXPECT_EQ(Read(0, 2), 16);
        EXPECT_EQ(m_openings.opened, 1 + round) << "one new session each time";
    }
    Simulator().Restart();
    EXPECT_EQ(Board().FpgaSpiWrite(0x40, 297).failed, 0) << "nor do those who write";
    Simulator().Restart();
    EXPECT_NO_THROW(Board().PowerDown());
    EXPECT_EQ(Simulator().GetWrites().size(), 2U);
    EXPECT_EQ(CountMessages("answer"), 1) << "the controller's first answer: " << testing::PrintToString(Messages());
}

TEST_F(LostSessionTest, SweepInTheMiddleOfARestart_HasAllReadings) {
    StartControllers();
    OpenBackend();
    Simulator().Restart();
    const auto sweep = m_backend->StartSweep({{m_sites[0].uri, Board().GetSensorsIds()}});
    for (int id = 1; id <= 20; ++id) {
        EXPECT_EQ(sweep->Read(*Board().GetSensor(bmc::SensorId(id))).Converted(), id * 8);
    }
    EXPECT_EQ(m_openings.opened, 2);
}

TEST_F(LostSessionTest, PasswordRotatedOnBothSides_IsTakenWithTheNextSessionWithoutAnError) {
    StartControllers();
    OpenBackend();
    Simulator().SetPassword(c_bmc, c_newPassword);
    WritePassword(c_newPassword);
    EXPECT_EQ(Read(0, 1), 8) << "the old session lives on";
    Simulator().Restart();
    EXPECT_EQ(Read(0, 2), 16);
    EXPECT_EQ(CountMessages("answer"), 1) << testing::PrintToString(Messages());
}

TEST_F(LostSessionTest, PasswordWrongAfterARestart_IsToldOnceAndFoundRightByAProbe) {
    StartControllers();
    OpenBackend();
    Simulator().SetPassword(c_bmc, c_newPassword);
    Simulator().Restart();
    EXPECT_THAT(ReadError(0, 1), HasSubstr("wrong password for user \"operator\""));
    EXPECT_THAT(ReadError(0, 1), HasSubstr("refused since "));
    EXPECT_EQ(CountMessages("refuses the session: wrong password for user \"operator\""), 1);
    WritePassword(c_newPassword);
    EXPECT_TRUE(AwaitAnswer(0));
    EXPECT_EQ(CountMessages(" answers again after "), 1);
    for (const std::string& message : Messages()) {
        EXPECT_THAT(message, testing::Not(HasSubstr(c_newPassword)));
        EXPECT_THAT(message, testing::Not(HasSubstr(SimulatedUser{}.password)));
    }
}

TEST_F(LostSessionTest, PasswordFileThatVanished_IsToldAndItsReturnIsFound) {
    StartControllers();
    OpenBackend();
    std::filesystem::remove(m_folder.Path("password"));
    Simulator().Restart();
    EXPECT_THAT(ReadError(0, 1), HasSubstr("/password"));
    EXPECT_EQ(CountMessages(" cannot be reached: "), 1);
    WritePassword(SimulatedUser{}.password);
    EXPECT_TRUE(AwaitAnswer(0));
}

/// Sessions of somebody else.
class Crowd {
public:
    Crowd(std::uint16_t port, const std::string& user) {
        m_way.host = "127.0.0.1";
        m_way.port = port;
        m_way.user = user;
        m_way.privilege = bmc::ipmi::Privilege_e::administrator;
    }
    /// @return whether there was a slot for one more
    bool Enter() {
        auto session = std::make_unique<bmc::ipmi::FreeIpmiTransport>(
            m_way, [](const auto& use) { use(SimulatedUser{}.password.c_str()); });
        try {
            session->Open(std::chrono::steady_clock::now() + std::chrono::seconds(60));
        } catch (const bmc::ipmi::TransportError& error) {
            m_error = error.what();
            return false;
        }
        m_sessions.push_back(std::move(session));
        return true;
    }
    void Leave() {
        for (const auto& session : m_sessions) {
            session->Close(std::chrono::steady_clock::now() + std::chrono::seconds(60));
        }
        m_sessions.clear();
    }
    std::size_t GetSize() const { return m_sessions.size(); }
    const std::string& GetError() const { return m_error; }

private:
    bmc::ipmi::ControllerSettings m_way;
    std::vector<std::unique_ptr<bmc::ipmi::FreeIpmiTransport>> m_sessions;
    std::string m_error;
};

TEST_F(LostSessionTest, NoFreeSlot_IsToldAndTheNextFreeOneIsTaken) {
    StartControllers();
    Crowd crowd(Simulator().GetPort(), "operator");
    while (crowd.GetSize() < 100 && crowd.Enter()) {
    }
    ASSERT_LT(crowd.GetSize(), 100U) << "the controller has an end of its slots";
    OpenBackend(false);
    ASSERT_TRUE(Await([&] { return CountMessages("Controller 127.0.0.1") > 0; }));
    EXPECT_THAT(Messages().front(), HasSubstr("no session slot is free")) << crowd.GetError();
    EXPECT_THAT(ErrorOf([&] { Board().GetStatus(); }), testing::AnyOf("", HasSubstr("no session slot is free")));
    crowd.Leave();
    EXPECT_TRUE(AwaitAnswer(0));
    EXPECT_EQ(Read(0, 1), 8);
    EXPECT_EQ(CountMessages(" answers again after "), 1);
}

TEST_F(LostSessionTest, SessionsThatAreGivenUp_DoNotUseUpTheControllersSlots) {
    constexpr int c_moreThanThereAreSlots = 80;
    // What is lost here is lost on purpose. An answer that a loaded machine gives too late would take a slot, too.
    m_ways.timeout = Milliseconds(250);
    m_ways.retries = 1;
    StartControllers(1, 1);
    OpenBackend();
    for (int lost = 0; lost < c_moreThanThereAreSlots; ++lost) {
        Relay().SetFaults(RelayDirection_e::to_client, {.dropped = {1}});
        ErrorOf([&] { Board().FpgaSpiWrite(0x40, 1); });
        ASSERT_TRUE(AwaitAnswer(0)) << lost << '\n' << testing::PrintToString(Messages());
    }
    EXPECT_GE(m_openings.opened, c_moreThanThereAreSlots);
    EXPECT_EQ(CountMessages("slot"), 0) << testing::PrintToString(Messages());
}

/// What a process has of the things that can be left behind.
struct Belongings {
    std::ptrdiff_t files;
    std::ptrdiff_t threads;
    std::size_t heap;

    static Belongings Now() {
        return {CountEntries("/proc/self/fd"), CountEntries("/proc/self/task"), ::mallinfo2().uordblks};
    }
};

/// Loses sessions in every way there is, so many of each. More with ZELKOR_LOST_SESSIONS=10000 in the environment.
TEST_F(LostSessionTest, ManyLostSessions_LeaveNoFileThreadOrMemory) {
    const char* const wanted = std::getenv("ZELKOR_LOST_SESSIONS");
    const int rounds = wanted == nullptr ? 100 : std::stoi(wanted);
    constexpr int c_slots = 10;           // of a restarted controller, before it would have none left
    constexpr int c_clientsOfRelay = 64;  // each has a socket
    m_ways.timeout = Milliseconds(30);
    m_ways.retries = 0;
    m_timing.leastBackOff = m_timing.mostBackOff = Milliseconds(1);
    StartControllers(1, 1);
    OpenBackend(false);
    ASSERT_TRUE(AwaitAnswer(0));  // that takes some tries where the machine has much else to do

    const auto loseSessions = [&](int count) {
        const int begin = m_openings.opened;
        for (int lost = 0; lost < count; ++lost) {
            if (lost % c_slots == 0) {
                Simulator().Restart();
                ClearMessages();
            }
            // Lost while it is used; the session after it comes with the next reading, or with a probe.
            Relay().SetFaults(RelayDirection_e::to_client, {.dropped = {1}});
            ErrorOf([&] { Read(0, 1); });
            // And one that does not come about.
            Relay().SetFaults(RelayDirection_e::to_client, {.dropped = {static_cast<std::uint64_t>(2 + lost % 4)}});
            ErrorOf([&] { Board().FpgaSpiWrite(0x40, 1); });
            Relay().SetFaults({});
            ASSERT_TRUE(Await([&] { return ReadError(0, 1).empty(); }));
        }
        EXPECT_GE(m_openings.opened - begin, count);
    };
    loseSessions(c_clientsOfRelay + 1);  // whatever is made once is there now
    ClearMessages();
    const Belongings before = Belongings::Now();
    loseSessions(rounds);
    ClearMessages();
    const Belongings after = Belongings::Now();
    EXPECT_EQ(after.files, before.files);
    EXPECT_EQ(after.threads, before.threads);
    std::printf("%d sessions opened, %d tried; heap %zu bytes before, %zu after\n", m_openings.opened.load(),
                m_openings.tried.load(), before.heap, after.heap);
    // A session takes tens of kilobytes: one that is left behind in ten would show.
    EXPECT_LT(after.heap, before.heap + std::size_t{200} * 1024);
}

}  // namespace

}  // namespace test
