// The loop of the temperature control: from the hottest sensor to the registers of the fan controller.

#include "single_worker_fixture.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class FanControlTest : public test::WorkerTest {
protected:
    FanControlTest() : WorkerTest("temperature_control", "Temperature Control") {}

    static constexpr const char* c_threeBands =
        "<temperature_control><frequency>1</frequency><fans><set lower='40' upper='50' rpm='3000'/>"
        "<set lower='45' upper='60' rpm='4000'/><set lower='55' upper='70' rpm='6500'/></fans></temperature_control>\n";
    static std::string ThreeBandsWithoutPause() { return With(c_threeBands, "<frequency>1<", "<frequency>0<"); }
    static constexpr const char* c_noTable = "<temperature_control><frequency>1</frequency></temperature_control>\n";

    static std::string Changed(const std::string& from, const std::string& to, const std::string& temperature) {
        return "INFO     Fans changed from " + from + " RPM to " + to + " RPM. (Max temperature is " + temperature +
               ")";
    }

    /// Sets the intake, which alone is warm.
    void SetIntake(const std::string& temperature) const { Do({"set", "icb/0", "12", temperature}); }

    /// The intake takes a temperature, and a cycle must change the fans for it.
    void Change(const std::string& temperature, const std::string& from, const std::string& to) {
        SetIntake(temperature);
        EXPECT_TRUE(AwaitMessage(Changed(from, to, temperature))) << Log();
    }

    /// What the log says of a client's write to all fans. What was measured before depends on how far they had come.
    static testing::Matcher<std::string> Written(const std::string& value) {
        return testing::MatchesRegex("INFO     Registry: fans set from (unknown|[0-9.]+) to " + value +
                                     " by 127[.]0[.]0[.]1");
    }

    static constexpr const char* c_unreadable = "WARNING  Can not read value from any temperature sensor.";
    static constexpr const char* c_noRanges = "WARNING  User did not specify valid temperature ranges.";
};

const std::string c_first = "INFO     Fans changed from 0 RPM to 4000 RPM. (Max temperature is 48)";

TEST_F(FanControlTest, Temperature_MovesTheFansByOneBandACycleAndBeyondTheEnds) {
    RunUntilAnswered(c_threeBands);
    ASSERT_TRUE(AwaitMessage(c_first));
    Change("42", "4007", "3000");
    Change("30", "3000", "2500");
    const std::string below = "WARNING  Temperature: 30 is below min fan speed range: 3000.";
    EXPECT_TRUE(AwaitMessages(below, 2)) << "in every cycle";
    SetIntake("80");
    const std::string above =
        "WARNING  Temperature: 80 is above max fan speed range: 6500. Will be set to max speed: 6500";
    EXPECT_TRUE(AwaitMessages(above, 2)) << "in every cycle";
    EXPECT_EQ(FanWrites(), (std::vector<std::string>{"483", "645", "774", "483", "297"}));
    FollowJournal();
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre(c_first, Changed("4007", "3000", "42"), below, Changed("3000", "2500", "30"), below,
                                    Changed("2500", "4000", "80"), Changed("4007", "6500", "80"), above));
    EXPECT_THAT(ToldAtStop(), ElementsAre("INFO     *Temperature Control process stopped"));
    EXPECT_THAT(FanWrites(AllActions()), ElementsAre("483", "645", "774", "483", "297")) << "they are at maximum";
}

TEST_F(FanControlTest, Start_BeginsFastAndComesDownByOneBandACycle) {
    Run(c_threeBands, With(c_threeBoards, "value=\"48\"", "value=\"42\""));
    BeginHeartbeats();
    ASSERT_TRUE(AwaitMessage(Changed("4007", "3000", "42")));
    EXPECT_TRUE(AwaitPasses(2));
    EXPECT_THAT(FanWrites(), ElementsAre("483", "645"));
    FollowJournal();
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre(Changed("0", "4000", "42"), Changed("4007", "3000", "42")));
    EXPECT_THAT(ToldAtStop(), UnorderedElementsAre("INFO     *Temperature Control process stopped", LeftFast()));
    EXPECT_THAT(FanWrites(AllActions()), ElementsAre("483", "645", "297"));
}

TEST_F(FanControlTest, TemperatureInAnOverlap_KeepsTheBandItIsIn) {
    Run(ThreeBandsWithoutPause());
    Pace("icb/0", 7);  // six registers and the intake
    BeginHeartbeats();
    const auto expectUnchanged = [this](const std::string& temperature) {
        const auto before = FanWrites();
        SetIntake(temperature);
        EXPECT_TRUE(AwaitPasses(2));  // the second begins when the first has written what it wanted
        EXPECT_EQ(FanWrites(), before) << temperature;
    };
    expectUnchanged("60");  // the limits themselves belong to the band
    Change("60.5", "4007", "6500");
    expectUnchanged("55");
    Change("54.9", "6516", "4000");
    expectUnchanged("45");
    Change("44.75", "4007", "3000");
    expectUnchanged("50");
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre(c_first, Changed("4007", "6500", "60.5"), Changed("6516", "4000", "54.9"),
                                    Changed("4007", "3000", "44.75")));
}

TEST_F(FanControlTest, Temperature_IsTheHottestOfAllBoards) {
    Run(c_threeBands);
    ASSERT_TRUE(AwaitMessage(c_first));
    Do({"set", "io/2", "5", "62.125"});
    EXPECT_TRUE(AwaitMessage(Changed("4007", "6500", "62.125")));
    Do({"set", "os/0", "7", "71.25"});
    EXPECT_TRUE(AwaitLog("Temperature: 71.25 is above max fan speed range: 6500."));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(FanControlTest, OneReadableSensor_IsEnough) {
    Run(c_threeBands, With(c_threeBoards, "value=\"48\"", "value=\"na\""));
    ASSERT_TRUE(AwaitMessage(Changed("0", "4000", "20")));
    ASSERT_TRUE(AwaitMessage(Changed("4007", "3000", "20"))) << "the intake that cannot be read is passed over";
    EXPECT_EQ(Stop(), 0);
}

TEST_F(FanControlTest, NoReadableSensor_FansGoToMaximumAndBackToTheBand) {
    Run(c_threeBands);
    ASSERT_TRUE(AwaitMessage(c_first));
    Do({"invalid", "os/0", "7"});
    Do({"set", "io/2", "5", "nan"});
    SetIntake("-0.5");  // below zero is no temperature of a chassis at work
    EXPECT_TRUE(AwaitMessages(c_unreadable, 2)) << "in every cycle";
    EXPECT_THAT(FanWrites(), ElementsAre("483", "297"));
    Change("48", "6516", "4000");
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre(c_first, c_unreadable, Changed("4007", "6500", "-0.5"), c_unreadable,
                                    Changed("6516", "4000", "48")));
}

TEST_F(FanControlTest, NoReadingAtAll_IsSaidBeforeAMissingTable) {
    std::string chassis = With(c_threeBoards, "value=\"48\"", "value=\"na\"");
    chassis = With(chassis, "name=\"CPU\" type=\"temperature\" units=\"C\" value=\"20\"",
                   "name=\"CPU\" type=\"temperature\" units=\"C\" value=\"na\"");
    chassis = With(chassis, "name=\"Core\" type=\"temperature\" units=\"C\" value=\"20\"",
                   "name=\"Core\" type=\"temperature\" units=\"C\" value=\"na\"");
    Run(c_noTable, chassis);
    EXPECT_TRUE(AwaitMessages(c_unreadable, 2));
    EXPECT_THAT(FanWrites(), ElementsAre("297"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre(c_unreadable, Changed("0", "6500", "-1"), c_unreadable));
}

TEST_F(FanControlTest, NoTable_FansStayAtMaximumAndEveryCycleSaysWhy) {
    Run(c_noTable);
    EXPECT_TRUE(AwaitMessages(c_noRanges, 3));
    EXPECT_THAT(FanWrites(), ElementsAre("297"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre(c_noRanges, Changed("0", "6500", "48"), c_noRanges));
}

TEST_F(FanControlTest, RejectedTable_IsAsNone) {
    Run("<temperature_control><frequency>1</frequency><fans><set lower='40' upper='76' rpm='3000'/></fans>"
        "</temperature_control>\n");
    EXPECT_TRUE(AwaitMessages(c_noRanges, 2));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre("WARNING  Upper temperature limit is invalid: 76 > 75",
                                    "ERROR    Errors in temperature to fans conversion table!", c_noRanges,
                                    Changed("0", "6500", "48"), c_noRanges));
}

TEST_F(FanControlTest, ClientThatSetsOneFan_IsOverruledInTheNextCycle) {
    Run(c_threeBands);
    ASSERT_TRUE(AwaitMessage(c_first));
    Ask({"set", "fans/right_rear", "2000"});
    EXPECT_TRUE(AwaitMessages(c_first, 2)) << "fans that disagree count as 0 RPM";
    EXPECT_THAT(FanWrites(), ElementsAre("483", "0x68 967", "483"));
    Ask({"set", "fans", "5000"});
    EXPECT_TRUE(AwaitMessage(Changed("5001", "4000", "48")));
    EXPECT_THAT(FanWrites(), ElementsAre("483", "0x68 967", "483", "387", "483"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(FanControlTest, ClientThatSetsASpeedOfTheSameRegisterValue_IsLeftAlone) {
    Run(ThreeBandsWithoutPause());
    Pace("icb/0", 7);
    ASSERT_TRUE(AwaitMessage(c_first));
    BeginHeartbeats();
    Ask({"set", "fans", "4005"});
    EXPECT_TRUE(AwaitPasses(2));
    EXPECT_THAT(FanWrites(), ElementsAre("483", "483"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre(c_first, Written("4005")));
}

TEST_F(FanControlTest, ClientThatStopsTheFans_IsOverruled) {
    Run(ThreeBandsWithoutPause());
    Pace("icb/0", 7);
    ASSERT_TRUE(AwaitMessage(c_first));
    Ask({"set", "fans/left_front", "0"});
    Ask({"set", "fans/left_middle", "0"});
    BeginHeartbeats();
    EXPECT_TRUE(AwaitPasses(1));
    EXPECT_THAT(FanWrites(), ElementsAre("483", "0x40 0", "0x48 0")) << "zeros before a common speed pass";
    Ask({"set", "fans/right_front", "0"});
    EXPECT_TRUE(AwaitMessages(c_first, 2)) << "one after it does not";
    Ask({"set", "fans", "0"});
    EXPECT_TRUE(AwaitMessages(c_first, 3));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(FanControlTest, OneReferenceThatFails_IsLeftOutUntilItIsBack) {
    Run(c_threeBands);
    ASSERT_TRUE(AwaitMessage(c_first));
    Do({"fpga", "fail", "0x48"});
    Change("42", "4007", "3000");
    EXPECT_THAT(FanWrites(), ElementsAre("483", "0x40 645", "0x50 645", "0x58 645", "0x60 645", "0x68 645"));
    Do({"fpga", "heal", "0x48"});  // it still holds the speed before
    EXPECT_TRUE(AwaitMessage(Changed("0", "3000", "42")));
    EXPECT_EQ(FanWrites().back(), "645");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(FanControlTest, AllReferencesFail_EveryCycleTriesAgain) {
    Run(c_threeBands);
    ASSERT_TRUE(AwaitMessage(c_first));
    for (const char* address : c_registers) {
        Do({"fpga", "fail", address});
    }
    EXPECT_TRUE(AwaitMessages(c_first, 3));
    EXPECT_THAT(FanWrites(), ElementsAre("483")) << "what fails does not reach the registers";
    for (const char* address : c_registers) {
        Do({"fpga", "heal", address});
    }
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre(c_first));
}

TEST_F(FanControlTest, FaultsOfBoardsAndSensors_AreSaidInEveryCycleAndCostThemselvesOnly) {
    Run(ThreeBandsWithoutPause());
    Pace("icb/0", 7);  // six registers and the intake
    ASSERT_TRUE(AwaitMessage(c_first));
    const std::vector<std::pair<std::vector<std::string>, std::string>> faults{
        {{"missing", "io/2"}, "ERROR    Problem accessing board: io/2"},
        {{"missing", "io/2", "5"}, "ERROR    Problem accessing sensor id: 5 on board io/2"},
        {{"fail", "io/2", "bus is stuck"}, "ERROR    Problem accessing board io/2. Exception: bus is stuck"},
        {{"fail", "io/2", "5", "no answer"}, "ERROR    Problem accessing board io/2. Exception: no answer"}};
    std::vector<std::string> expected{c_first};
    for (const auto& [fault, error] : faults) {
        Do(fault);
        EXPECT_TRUE(AwaitMessages(error, 2)) << error;
        Do({"heal", "io/2"});
        expected.push_back(error);
    }
    Change("42", "4007", "3000");
    EXPECT_EQ(Stop(), 0);
    expected.push_back(Changed("4007", "3000", "42"));
    EXPECT_EQ(Told(), expected);
}

TEST_F(FanControlTest, ControllerBoardThatVanishes_KeepsItsFansButNotItsSensors) {
    Run(c_threeBands);
    ASSERT_TRUE(AwaitMessage(c_first));
    Do({"missing", "icb/0"});
    EXPECT_TRUE(AwaitMessage(Changed("4007", "3000", "20")));
    EXPECT_TRUE(AwaitMessage(Changed("3000", "2500", "20")));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), AllOf(Contains("ERROR    Problem accessing board: icb/0"),
                              Contains("WARNING  Temperature: 20 is below min fan speed range: 3000.")));
}

TEST_F(FanControlTest, SlowBoard_DelaysTheCycleAndNothingElse) {
    Run(c_threeBands);
    ASSERT_TRUE(AwaitMessage(c_first));
    Do({"slow", "io/2", "300"});
    Change("42", "4007", "3000");
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre(c_first, Changed("4007", "3000", "42")));
}

TEST_F(FanControlTest, ControllerThatRaises_EndsTheWorkerAndTheFansKeepTheirSpeedUntilTheStop) {
    Run(c_threeBands);
    ASSERT_TRUE(AwaitMessage(c_first));
    Do({"fail", "icb/0", "bus is stuck"});
    EXPECT_TRUE(AwaitMessage("INFO     *Temperature Control process stopped"));
    Do({"heal", "icb/0"});
    EXPECT_THAT(FanWrites(), ElementsAre("483"));
    FollowJournal();
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre(c_first, "ERROR    Problem in Temperature Control process - bus is stuck"));
    EXPECT_THAT(ToldAtStop(), ElementsAre(LeftFast()));
    EXPECT_THAT(FanWrites(AllActions()), ElementsAre("483", "297"));
}

TEST_F(FanControlTest, ControllerThatStillRaisesAtTheStop_MakesTheExitStatus1) {
    Run(c_threeBands);
    ASSERT_TRUE(AwaitMessage(c_first));
    Do({"fail", "icb/0", "bus is stuck"});
    EXPECT_TRUE(AwaitMessage("INFO     *Temperature Control process stopped"));
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(m_daemon->Wait(), 1);
    EXPECT_THAT(ToldAtStop(), ElementsAre("ERROR    Problem at stop - bus is stuck"));
}

TEST_F(FanControlTest, NoControllerBoard_EndsTheWorkerAtItsFirstCycle) {
    Run(c_threeBands,
        "<chassis><board uri='io/2' type='io' name='slot2'><sensor id='5' name='Core' type='temperature' "
        "units='C' value='20' unc='80'/></board></chassis>");
    EXPECT_TRUE(AwaitMessage("INFO     *Temperature Control process stopped"));
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(m_daemon->Wait(), 1) << "nobody knows how fast the fans are";
    EXPECT_THAT(Told(), ElementsAre("INFO     Fans node: ICB board was not found.",
                                    "ERROR    Problem in Temperature Control process - bad_weak_ptr"));
    EXPECT_THAT(ToldAtStop(), ElementsAre("ERROR    Problem at stop - bad_weak_ptr"));
}

TEST_F(FanControlTest, ClientThatSetsLessThanTheRegistersHold_EndsTheWorkerAndTheStopStillSpeedsUp) {
    Run(c_threeBands);
    ASSERT_TRUE(AwaitMessage(c_first));
    Ask({"set", "fans", "29.6"});
    EXPECT_TRUE(AwaitMessage("ERROR    Problem in Temperature Control process - Too high rpm value: 29"));
    EXPECT_TRUE(AwaitMessage("INFO     *Temperature Control process stopped"));
    Ask({"set", "fans", "3000"});
    FollowJournal();
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(ToldAtStop(), ElementsAre(LeftFast()));
    EXPECT_THAT(FanWrites(AllActions()), ElementsAre("483", "65387", "645", "297"));
}

TEST_F(FanControlTest, Disabled_DoesNothingButLeavesTheFansFast) {
    Run("<temperature_control enabled='false'><fans><set lower='40' upper='76' rpm='3000'/></fans>"
        "</temperature_control>\n");
    EXPECT_TRUE(AwaitMessage("INFO     *Temperature Control process stopped"));
    EXPECT_THAT(Actions(), IsEmpty());
    Ask({"set", "fans", "3000"});
    FollowJournal();
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre("WARNING  Upper temperature limit is invalid: 76 > 75",
                                    "ERROR    Errors in temperature to fans conversion table!", Written("3000")));
    EXPECT_THAT(Settings(), Contains("enabled   = false"));
    EXPECT_THAT(ToldAtStop(), ElementsAre(LeftFast()));
    EXPECT_THAT(FanWrites(AllActions()), ElementsAre("645", "297"));
}

TEST_F(FanControlTest, NoSensors_EndsTheWorkerBeforeItsFirstCycle) {
    Run("<temperature_control><sensors><exclude>all</exclude></sensors></temperature_control>\n");
    EXPECT_TRUE(AwaitMessage("INFO     *Temperature Control process stopped"));
    EXPECT_THAT(Actions(), IsEmpty());
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), IsEmpty());
    EXPECT_THAT(Settings(), AllOf(Contains("enabled   = true"), Contains("  No sensors found!")));
}

TEST_F(FanControlTest, PeriodOfZero_CyclesWithoutPauseAndStillStops) {
    Run(ThreeBandsWithoutPause());
    ASSERT_TRUE(AwaitMessage(c_first));
    Change("42", "4007", "3000");
    Change("61", "3000", "4000");
    EXPECT_TRUE(AwaitMessage(Changed("4007", "6500", "61")));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    EXPECT_THAT(Told(), Each(StartsWith("INFO     Fans changed from ")));
}

}  // namespace
