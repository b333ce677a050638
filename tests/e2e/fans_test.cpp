// The fans in the registry, over the registers of the fan controller. The workers are disabled: clients alone drive the
// fans.

#include "single_worker_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class FansTest : public test::WorkerTest {
protected:
    FansTest() : WorkerTest("temperature_control", "Temperature Control") {}

    void Start(const std::string& chassis = c_threeBoards) {
        Run("<temperature_control enabled='false'/>\n", chassis);
        ASSERT_TRUE(AwaitLog("*Temperature Control process stopped"));
    }

    /// The fans' measured speeds as the registry has them, a line each, in the order of their registers.
    std::string Speeds() const {
        return Ask({"get", "fans/left_front", "fans/left_middle", "fans/left_rear", "fans/right_front",
                    "fans/right_middle", "fans/right_rear"});
    }

    /// Holds the tachometers, in the order of their registers, at raw values; "fail" makes one fail.
    void HoldTachometers(const std::vector<std::string>& raws) const {
        const std::vector<std::string> addresses{"0x42", "0x4a", "0x52", "0x5a", "0x62", "0x6a"};
        for (std::size_t fan = 0; fan < raws.size(); ++fan) {
            if (raws[fan] == "fail") {
                Do({"fpga", "fail", addresses[fan]});
            } else {
                Do({"fpga", "write", addresses[fan], raws[fan]});
            }
        }
    }

    /// @p words must fail with @p status and a text that holds @p error.
    void ExpectFailure(const std::vector<std::string>& words, int status, const std::string& error) const {
        const test::Result result = Registry(words);
        EXPECT_EQ(result.status, status) << result.output << result.error;
        EXPECT_THAT(result.error, HasSubstr(error));
        EXPECT_EQ(result.output, "");
    }

    /// What the log says of a client's write. What was measured before depends on how far the fans had come, and is
    /// unknown where a loaded machine takes more than two seconds to ask for it.
    static testing::Matcher<std::string> Written(const std::string& path, const std::string& value) {
        return testing::MatchesRegex("INFO     Registry: " + path + " set from (no value|unknown|[0-9.]+) to " + value +
                                     " by 127[.]0[.]0[.]1");
    }
    static testing::Matcher<std::string> NotWritten(const std::string& path, const std::string& value,
                                                    const std::string& reason) {
        return testing::MatchesRegex("WARNING  Registry: " + path + " not set from (no value|unknown|[0-9.]+) to " +
                                     value + " for 127[.]0[.]0[.]1: " + reason);
    }

    /// Stops the daemon, which must have had nothing to say but of the writes.
    void StopQuietly(const std::vector<testing::Matcher<std::string>>& writes = {}) {
        EXPECT_EQ(Stop(), 0);
        EXPECT_THAT(Told(), testing::ElementsAreArray(writes));
    }
};

TEST_F(FansTest, Nodes_AreOneWritableDoubleEach) {
    Start();
    EXPECT_EQ(Ask({"ls", "fans"}), "left_front\nleft_middle\nleft_rear\nright_front\nright_middle\nright_rear\n");
    EXPECT_EQ(Ask({"info", "fans"}),
              "name = fans\ntype = double\nsize = 1\nflags = 6 (readable, writable)\nchildren = 6\n");
    EXPECT_EQ(Ask({"info", "fans/left_front"}),
              "name = left_front\ntype = double\nsize = 1\nflags = 6 (readable, writable)\nchildren = 0\n");
    StopQuietly();
}

TEST_F(FansTest, RawValues_AreReadAsWholeRevolutions) {
    Start();
    HoldTachometers({"0", "1", "297", "483", "645", "774"});
    EXPECT_EQ(Speeds(), "0\n1935483\n6516\n4007\n3000\n2500\n");
    HoldTachometers({"967", "64516", "65535"});
    EXPECT_EQ(Speeds(), "2001\n30\n29\n4007\n3000\n2500\n");
    StopQuietly();
}

TEST_F(FansTest, Speeds_AreWrittenAsTruncatedRawValuesToTheFanAlone) {
    Start();
    const std::vector<std::pair<std::string, std::string>> cases{
        {"2000", "967"},     {"2500", "774"},   {"3000", "645"},    {"4000", "483"},  {"6500", "297"},
        {"30", "64516"},     {"29.6", "65387"}, {"29.54", "65520"}, {"1935483", "1"}, {"1935484", "0"},
        {"4294967295", "0"}, {"0", "0"},        {"0.0003", "0"},    {"-1935484", "0"}};
    std::vector<std::string> expected;
    std::vector<testing::Matcher<std::string>> told;
    for (const auto& [rpm, raw] : cases) {
        Ask({"set", "fans/right_front", rpm});
        expected.push_back("0x58 " + raw);
        told.push_back(Written("fans/right_front", rpm == "0.0003" ? "3e-04" : rpm));
    }
    EXPECT_EQ(FanWrites(), expected);
    StopQuietly(told);
}

TEST_F(FansTest, SpeedThatHasNoRawValue_IsRefusedAndNothingIsWritten) {
    Start();
    std::vector<testing::Matcher<std::string>> told;
    const std::string tooHigh = "Too high rpm value: ";
    for (const std::string rpm : {"29.5", "20", "0.0005", "-100", "nan"}) {
        ExpectFailure({"set", "fans/left_front", rpm}, 1, "Too high rpm value: " + rpm + "\n");
        ExpectFailure({"set", "fans", rpm}, 1, "Too high rpm value: " + rpm + "\n");
        const std::string shown = rpm == "0.0005" ? "5e-04" : rpm;
        told.push_back(NotWritten("fans/left_front", shown, tooHigh + rpm));
        told.push_back(NotWritten("fans", shown, tooHigh + rpm));
    }
    ExpectFailure({"set", "fans/left_front", "abc"}, 1, "bad lexical cast");
    ExpectFailure({"set", "fans", "fast"}, 1, "bad lexical cast");
    EXPECT_THAT(Actions(), IsEmpty());
    told.push_back(NotWritten("fans/left_front", R"("abc")", "bad lexical cast: .*"));
    told.push_back(NotWritten("fans", R"("fast")", "bad lexical cast: .*"));
    StopQuietly(told);
}

TEST_F(FansTest, AllFans_AreSetInTheirOrderAndReadAsTheMeanOfWhatTurns) {
    Start();
    Ask({"set", "fans", "3000"});
    EXPECT_THAT(FanWrites(), ElementsAre("645"));
    HoldTachometers({"967", "967", "fail", "fail", "645", "645"});
    EXPECT_EQ(Ask({"get", "fans"}), "2500.5\n") << "the two that cannot be read do not count";
    HoldTachometers({"fail", "fail", "fail", "fail", "fail", "fail"});
    EXPECT_EQ(Ask({"get", "fans"}), "0\n");
    StopQuietly({Written("fans", "3000")});
}

TEST_F(FansTest, Fan_ReadsWhatItMeasuresNotWhatItWasToldAndHasNoValueWhenThatFails) {
    Start();
    Ask({"set", "fans/left_front", "3000"});
    HoldTachometers({"967"});
    EXPECT_EQ(Ask({"get", "fans/left_front"}), "2001\n");
    Do({"fpga", "fail", "0x40"});
    EXPECT_EQ(Ask({"get", "fans/left_front"}), "2001\n") << "the reference is another register";
    Do({"fpga", "fail", "0x42"});
    ExpectFailure({"get", "fans/left_front"}, 3, "no value");
    StopQuietly({Written("fans/left_front", "3000")});
}

TEST_F(FansTest, WriteThatFails_RaisesNothing) {
    Start();
    Do({"fpga", "fail", "0x40"});
    Ask({"set", "fans/left_front", "3000"});
    EXPECT_THAT(Actions(), IsEmpty());
    Ask({"set", "fans", "4000"});
    EXPECT_THAT(FanWrites(), ElementsAre("0x48 483", "0x50 483", "0x58 483", "0x60 483", "0x68 483"));
    StopQuietly({Written("fans/left_front", "3000"), Written("fans", "4000")});
}

TEST_F(FansTest, ControllerThatRaises_RaisesToTheClient) {
    Start();
    Do({"fail", "icb/0", "bus is stuck"});
    ExpectFailure({"get", "fans"}, 1, "bus is stuck");
    ExpectFailure({"get", "fans/left_front"}, 1, "bus is stuck");
    ExpectFailure({"set", "fans", "3000"}, 1, "bus is stuck");
    Do({"heal", "icb/0"});
    EXPECT_THAT(Actions(), IsEmpty());
    StopQuietly({NotWritten("fans", "3000", "bus is stuck")});
}

TEST_F(FansTest, TwoControllerBoards_TheFirstInTheOrderOfTheChassisHasTheFans) {
    const std::string with = "<board uri='icb/1' type='icb' name='ICB1'><fans rpm='4000'/></board>";
    const std::string without = "<board uri='icb/0' type='icb' name='ICB0'/>";
    Start("<chassis>" + with + without + "</chassis>");
    EXPECT_EQ(Ask({"get", "fans"}), "3998\n");
    StopQuietly();
    Start("<chassis>" + without + with + "</chassis>");
    EXPECT_EQ(Ask({"get", "fans"}), "0\n") << "its registers cannot be read";
    Ask({"set", "fans", "3000"});
    EXPECT_THAT(Actions(), IsEmpty());
    StopQuietly({Written("fans", "3000")});
}

TEST_F(FansTest, ControllerThatVanishes_KeepsItsFans) {
    Start();
    Do({"missing", "icb/0"});
    Ask({"set", "fans", "3000"});
    EXPECT_THAT(FanWrites(), ElementsAre("645"));
    EXPECT_EQ(Stop(), 0);
}

}  // namespace
