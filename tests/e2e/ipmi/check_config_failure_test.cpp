// --check-config on boards over IPMI: it reads what answers, warns of what does not, and ends in time.

#include "failing_boards_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class IpmiCheckConfigTest : public test::FailingBoardsTest {
protected:
    /// @param took how long it took
    test::Result Check(std::chrono::milliseconds& took) const {
        const auto begin = Clock::now();
        test::Result result = test::RunProgram(Command({"--check-config"}));
        took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
        return result;
    }

    /// Also where the machine has much else to do.
    static constexpr std::chrono::seconds c_limit{60};

    /// Two good entries and two that are not, in lines that follow those of the boards.
    static constexpr const char* c_lists =
        "<monitor><sensors>\n<include board='io/1'>1,0xA</include>\n<include board='io/1'>11</include>\n"
        "<include board='io/2'>11</include></sensors></monitor>\n"
        "<temperature_control><fans>\n<set lower='30' upper='81' rpm='6500'/></fans></temperature_control>\n";
};

TEST_F(IpmiCheckConfigTest, BoardsThatAnswer_AreProved_ADeadOneIsWarnedOf) {
    StartControllers(3);
    ConfigureBoards(c_lists, "timeout='1000' retries='1'");
    const std::vector<int> registers = FanRegisters();
    std::chrono::milliseconds took{};
    const test::Result all = Check(took);
    const std::string file = m_folder.Path("config.xml");
    EXPECT_EQ(all.status, 1);
    EXPECT_EQ(all.error, "");
    // Of 10 sensors a board, all with the same limit.
    const auto wrongLimit = [&file](int more) {
        std::string text =
            file + ":12: error: Upper temperature limit is invalid: 81 > 80, the upper non-critical limit of ";
        text += "sensor 1 of icb/0 (T1); also below: ";
        for (const char* id : {"2", "3", "4", "5", "6"}) {
            text += std::string(*id == '2' ? "" : ", ") + "sensor " + id + " of icb/0 (T" + id + "): 80";
        }
        return text + " and " + std::to_string(more) + " more\n";
    };
    const std::string noEleven = ":9: error: <include>: board \"io/1\" has no sensor 11\n";
    EXPECT_EQ(all.output,
              file + noEleven + file + ":10: error: <include>: board \"io/2\" has no sensor 11\n" + wrongLimit(24));

    Kill(m_sites[2], Death_e::frozen);
    const test::Result some = Check(took);
    EXPECT_EQ(some.status, 1);
    EXPECT_EQ(some.error, "");
    EXPECT_THAT(some.output, testing::StartsWith(
                                 file + ":5: warning: board io/2 does not answer, nothing is proved of its sensors: " +
                                 "io/2 (127.0.0.1:" + std::to_string(m_sites[2].relay->GetPort()) + "): no answer"));
    EXPECT_THAT(some.output, testing::EndsWith("\n" + file + noEleven + file +
                                               ":10: warning: <include>: whether there is a sensor 11 cannot be "
                                               "proved: no answer from io/2\n" +
                                               wrongLimit(14)));
    EXPECT_LT(took, c_limit);

    EXPECT_EQ(FanRegisters(), registers);
    for (const Site& site : m_sites) {
        EXPECT_EQ(site.simulator->CountWrites(c_bmc, test::c_chassisControl), 0U);
        EXPECT_EQ(site.simulator->CountWrites(c_bmc, test::c_setSelTime), 0U);
    }
    EXPECT_FALSE(test::Exists(m_folder.Path("log")));
}

TEST_F(IpmiCheckConfigTest, HoweverPatientTheConfigurationIs_ItEndsAfterSomeFifteenSeconds) {
    StartControllers(3);
    ConfigureBoards(c_lists, "timeout='60000' retries='10'");
    for (const Site& site : m_sites) {
        Kill(site, Death_e::black_hole);
    }
    std::chrono::milliseconds took{};
    const test::Result result = Check(took);
    EXPECT_EQ(result.status, 0) << result.output;
    for (const Site& site : m_sites) {
        EXPECT_THAT(result.output,
                    HasSubstr("warning: board " + site.uri +
                              " does not answer, nothing is proved of its sensors: it takes too long\n"));
    }
    EXPECT_THAT(result.output, Not(HasSubstr("error: ")));
    EXPECT_GT(took, std::chrono::seconds(14));
    EXPECT_LT(took, c_limit) << "a board is waited for for minutes";
}

}  // namespace
