// What changes a board is executed once, whatever is lost on the way.

#include <algorithm>
#include <map>

#include "tests/integration/ipmi/failure_fixture.h"

namespace test {

namespace {

constexpr IpmiCommand c_writeRegister{0x30, 0x11};
constexpr unsigned long c_someTime = 1'700'000'000;

/// Which packet is lost: the controller's answer, or the request to it.
class LostWriteTest : public IpmiFailureTest, public testing::WithParamInterface<RelayDirection_e> {
protected:
    void SetUp() override {
        IpmiFailureTest::SetUp();
        if (!IsSkipped()) {
            StartControllers();
            OpenBackend();
            m_openingsBefore = m_openings.opened;
        }
    }
    /// The next packet of that direction does not come.
    void LoseNext() { Relay().SetFaults(GetParam(), {.dropped = {1}}); }

    void ExpectOneLossAndOneNewSession() {
        EXPECT_EQ(Relay().GetCounts(GetParam()).dropped, 1U);
        EXPECT_EQ(m_openings.opened, m_openingsBefore + 1);
        EXPECT_EQ(CountMessages("does not answer"), 0);
    }

    int m_openingsBefore = 0;
};

TEST_P(LostWriteTest, PowerDown_IsExecutedOnce) {
    LoseNext();
    EXPECT_NO_THROW(Board().PowerDown());
    EXPECT_EQ(Simulator().CountWrites(c_bmc, c_chassisControl), 1U);
    EXPECT_FALSE(Simulator().IsPowerOn());
    ExpectOneLossAndOneNewSession();
}

TEST_P(LostWriteTest, SetTime_IsExecutedOnce) {
    LoseNext();
    EXPECT_NO_THROW(Board().SetTime(qstd::Time(c_someTime, 0UL)));
    EXPECT_EQ(Simulator().CountWrites(c_bmc, c_setSelTime), 1U);
    EXPECT_NEAR(static_cast<double>(Board().GetTime().GetSeconds()), static_cast<double>(c_someTime), 100);
    ExpectOneLossAndOneNewSession();
}

TEST_P(LostWriteTest, FpgaRegister_IsExecutedOnce) {
    LoseNext();
    EXPECT_EQ(Board().FpgaSpiWrite(0x40, 297).failed, 0);
    EXPECT_EQ(Simulator().CountWrites(c_bmc, c_writeRegister), 1U);
    EXPECT_EQ(Simulator().GetRegister(c_bmc, 0x40), 297);
    ExpectOneLossAndOneNewSession();
}

TEST_P(LostWriteTest, SoftShutdown_IsSentOnceAndSaysThatNobodyAnswered) {
    LoseNext();
    EXPECT_THAT(ErrorOf([&] { Board().ShutDown(); }), testing::HasSubstr("Chassis Control: no answer within "));
    EXPECT_EQ(Simulator().CountWrites(c_bmc, c_chassisControl), GetParam() == RelayDirection_e::to_client ? 1U : 0U);
    ExpectOneLossAndOneNewSession();
}

INSTANTIATE_TEST_SUITE_P(Lost, LostWriteTest, testing::Values(RelayDirection_e::to_client, RelayDirection_e::to_server),
                         [](const auto& lost) {
                             return lost.param == RelayDirection_e::to_client ? "Answer" : "Request";
                         });

class LossyLineTest : public IpmiFailureTest {};

TEST_F(LossyLineTest, HundredRegisters_NoneIsWrittenTwiceAndNoneMissesThatWasAcknowledged) {
    constexpr std::uint16_t c_writes = 100;
    constexpr double c_loss = 0.15;
    constexpr std::uint16_t c_restartPeriod = 10;
    m_ways.timeout = Milliseconds(40);
    m_ways.retries = 8;  // to open a session takes five packets each way, without any loss
    m_timing.leastBackOff = m_timing.mostBackOff = Milliseconds(10);
    StartControllers();
    OpenBackend();
    Relay().SetFaults({.drop = c_loss});
    std::map<std::uint16_t, bool> acknowledged;
    for (std::uint16_t value = 1; value <= c_writes; ++value) {
        if (value % c_restartPeriod == 0) {
            Simulator().Restart();  // openings that were lost half-way take up its slots for half a minute
        }
        const std::string error = ErrorOf([&] { acknowledged[value] = Board().FpgaSpiWrite(0x40, value).failed == 0; });
        if (!error.empty()) {
            EXPECT_THAT(error, testing::HasSubstr("no answer"));
            acknowledged[value] = false;
            // Nothing is sent while the board is known to be silent: the next one shall be.
            Relay().SetFaults({});
            ASSERT_TRUE(AwaitAnswer(0)) << testing::PrintToString(Messages());
            Relay().SetFaults({.drop = c_loss});
        }
    }
    Relay().SetFaults({});
    std::map<std::uint16_t, int> executed;
    for (const ExecutedWrite& write : Simulator().GetWrites()) {
        ASSERT_EQ(write.data.size(), 4U);
        ++executed[static_cast<std::uint16_t>(write.data[2] << 8 | write.data[3])];
    }
    SCOPED_TRACE(Relay().Describe());
    int count = 0;
    for (std::uint16_t value = 1; value <= c_writes; ++value) {
        EXPECT_LE(executed[value], 1) << "value " << value << " was written twice";
        EXPECT_GE(executed[value], acknowledged[value] ? 1 : 0) << "value " << value << " was never written";
        count += acknowledged[value] ? 1 : 0;
    }
    RecordProperty("acknowledged", count);
    EXPECT_GE(count, 50) << "most get through";
    EXPECT_GE(Relay().GetCounts(RelayDirection_e::to_client).dropped, 10U);
}

}  // namespace

}  // namespace test
