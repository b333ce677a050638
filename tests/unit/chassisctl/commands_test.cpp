#include "tools/chassisctl/commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/unit/chassisctl/scripted_server.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Words = std::vector<std::string>;

constexpr std::chrono::milliseconds c_limit{2000};

struct Result {
    int status = -1;
    std::string out, err;
};

Result RunWords(const Words& words, const std::string& input = {}) {
    std::istringstream in(input);
    std::ostringstream out, err;
    Result result;
    result.status = chassisctl::Run(words, {in, out, err}, c_limit);
    result.out = out.str();
    result.err = err.str();
    return result;
}

/// Against a server that gives @p answer.
Result RunAgainst(ScriptedServer& server, Words words) {
    words.insert(words.begin(), {"--socket", server.Path()});
    return RunWords(words);
}

/// The request that the words become, its tabs shown as "|".
std::string RequestOf(const Words& words) {
    ScriptedServer server("ok\n");
    const Result result = RunAgainst(server, words);
    EXPECT_EQ(result.status, 0) << result.err;
    std::string request = server.Request();
    EXPECT_THAT(request, testing::EndsWith("\n"));
    request.pop_back();
    std::replace(request.begin(), request.end(), '\t', '|');
    return request;
}

TEST(Commands, Words_BecomeTheFieldsOfTheRequest) {
    EXPECT_EQ(RequestOf({"set", "io/1", "16", "95"}), "set|io/1|16|95");
    EXPECT_EQ(RequestOf({"set", "io/1", "16", "nan"}), "set|io/1|16|nan");
    EXPECT_EQ(RequestOf({"auto", "io/1", "16"}), "auto|io/1|16");
    EXPECT_EQ(RequestOf({"invalid", "io/1", "16"}), "invalid|io/1|16");
    EXPECT_EQ(RequestOf({"missing", "io/1"}), "missing|io/1|");
    EXPECT_EQ(RequestOf({"missing", "io/1", "16"}), "missing|io/1|16");
    EXPECT_EQ(RequestOf({"slow", "io/1", "250"}), "slow|io/1|250");
    EXPECT_EQ(RequestOf({"heal", "io/1"}), "heal|io/1|");
    EXPECT_EQ(RequestOf({"heal", "io/1", "16"}), "heal|io/1|16");
    EXPECT_EQ(RequestOf({"limit", "io/1", "16", "unr", "none"}), "limit|io/1|16|unr|none");
    EXPECT_EQ(RequestOf({"list"}), "list");
    EXPECT_EQ(RequestOf({"journal"}), "journal");
    EXPECT_EQ(RequestOf({"shutdown-count", "icb/0"}), "shutdown-count|icb/0");
    EXPECT_EQ(RequestOf({"power", "io/1"}), "power|io/1");
}

TEST(Commands, NegativeNumbers_AreNoOptions) {
    EXPECT_EQ(RequestOf({"clock", "io/1", "-5"}), "clock|io/1|-5");
    EXPECT_EQ(RequestOf({"clock", "io/1", "-0.25"}), "clock|io/1|-0.25");
    EXPECT_EQ(RequestOf({"set", "io/1", "16", "-3"}), "set|io/1|16|-3");
    EXPECT_EQ(RequestOf({"set", "io/1", "16", "-inf"}), "set|io/1|16|-inf");
    EXPECT_EQ(RequestOf({"limit", "io/1", "-1", "lnr", "-20"}), "limit|io/1|-1|lnr|-20");
}

TEST(Commands, Fail_SensorIdMayBeNegative) {
    EXPECT_EQ(RequestOf({"fail", "io/1", "-5", "dead"}), "fail|io/1|-5|dead");
    EXPECT_EQ(RequestOf({"fail", "io/1", "-"}), "fail|io/1||-");
}

TEST(Commands, Fail_SensorAndTextMayBeLeftOut) {
    EXPECT_EQ(RequestOf({"fail", "io/1"}), "fail|io/1||");
    EXPECT_EQ(RequestOf({"fail", "io/1", "16"}), "fail|io/1|16|");
    EXPECT_EQ(RequestOf({"fail", "io/1", "16", "no answer"}), "fail|io/1|16|no answer");
    EXPECT_EQ(RequestOf({"fail", "io/1", "no answer"}), "fail|io/1||no answer");
    EXPECT_EQ(RequestOf({"fail", "io/1", "bus", "error", "7"}), "fail|io/1||bus error 7");
    EXPECT_EQ(RequestOf({"fail", "io/1", "--", "--text"}), "fail|io/1||--text");
}

TEST(Commands, Fpga_AddressesGoInHexAndValuesInDecimal) {
    EXPECT_EQ(RequestOf({"fpga", "read", "64"}), "fpga-read|0x40");
    EXPECT_EQ(RequestOf({"fpga", "read", "0x40"}), "fpga-read|0x40");
    EXPECT_EQ(RequestOf({"fpga", "write", "0X4a", "0x1f4"}), "fpga-write|0x4a|500");
    EXPECT_EQ(RequestOf({"fpga", "fail", "0"}), "fpga-fail|0x0");
    EXPECT_EQ(RequestOf({"fpga", "heal", "65"}), "fpga-heal|0x41");
}

TEST(Commands, FpgaRead_PrintsTheValueInDecimal) {
    ScriptedServer server("+0x40\t483\nok\n");
    const Result result = RunAgainst(server, {"fpga", "read", "0x40"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "483\n");
    EXPECT_THAT(result.err, IsEmpty());
}

TEST(Commands, PowerAndShutdownCount_PrintTheirWord) {
    ScriptedServer power("+off\nok\n");
    EXPECT_EQ(RunAgainst(power, {"power", "io/1"}).out, "off\n");
    ScriptedServer count("+2\nok\n");
    EXPECT_EQ(RunAgainst(count, {"shutdown-count", "icb/0"}).out, "2\n");
}

TEST(Commands, Refused_Status1AndTheTextOnStandardError) {
    ScriptedServer server("error\tunknown board \"io/9\"\n");
    const Result result = RunAgainst(server, {"power", "io/9"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_EQ(result.err, "zelkor-chassisctl: unknown board \"io/9\"\n");
}

TEST(Commands, NoDaemon_Status2AndALineForEveryCommand) {
    const TemporaryFolder folder;
    const std::string path = folder.Path() + "/none";
    for (const Words& command :
         {Words{"list"}, Words{"journal"}, Words{"journal", "--follow"}, Words{"power", "io/1"}}) {
        Words words = command;
        words.insert(words.begin(), "--socket=" + path);
        const Result result = RunWords(words);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.err, "zelkor-chassisctl: no daemon answers at " + path + ": No such file or directory\n");
    }
}

TEST(Commands, ConnectionClosedEarly_Status2AndNothingPrinted) {
    ScriptedServer server("+board\tio/1\tIO1\tio\ton\tok\n");
    const Result result = RunAgainst(server, {"list"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.out, IsEmpty());
}

TEST(Commands, BadUsage_Status1AndALineThatSaysWhatAndHow) {
    const std::vector<std::pair<Words, std::string>> cases{
        {{}, "no command given, see zelkor-chassisctl --help"},
        {{"sett"}, "unknown command \"sett\", see zelkor-chassisctl --help"},
        {{"-x"}, "unknown command \"-x\", see zelkor-chassisctl --help"},
        {{"--nope"}, "unrecognised option '--nope'"},
        {{"--sock", "x", "list"}, "unrecognised option '--sock'"},
        {{"list", "more"}, "usage: zelkor-chassisctl list [--json]"},
        {{"set", "io/1", "16"}, "usage: zelkor-chassisctl set BOARD SENSOR VALUE"},
        {{"set", "io/1", "16", "1", "2"}, "usage: zelkor-chassisctl set BOARD SENSOR VALUE"},
        {{"fail"}, "usage: zelkor-chassisctl fail BOARD [SENSOR] [TEXT]"},
        {{"fpga", "peek", "1"}, "usage: zelkor-chassisctl fpga read|fail|heal ADDRESS, or fpga write ADDRESS VALUE"},
        {{"fpga", "write", "1"}, "usage: zelkor-chassisctl fpga read|fail|heal ADDRESS, or fpga write ADDRESS VALUE"},
        {{"fpga", "read", "1x"}, "register address \"1x\" is not a number from 0 to 0xFFFF"},
        {{"fpga", "read", "0x"}, "register address \"0x\" is not a number from 0 to 0xFFFF"},
        {{"fpga", "write", "1", "-1"}, "register value \"-1\" is not a number from 0 to 0xFFFF"},
        {{"fpga", "read", "65536"}, "register address \"65536\" is not a number from 0 to 0xFFFF"},
        {{"missing", "io/1", ""}, "argument 2 of missing is empty"},
        {{"heal", "io/1", ""}, "argument 2 of heal is empty"},
        {{"journal", "now"}, "usage: zelkor-chassisctl journal [--follow] [--json]"},
        {{"power", "io/1", "--json"}, "--json is an option of list and journal, not of power"},
        {{"list", "--follow"}, "--follow is an option of journal, not of list"},
        {{"list", "--live", "2"}, "--live is an option of import, not of list"},
        {{"power", "io\t1"}, "A field may not hold a tab, newline or null byte: \"io?1\""},
    };
    for (const auto& [words, text] : cases) {
        const Result result = RunWords(words);
        EXPECT_EQ(result.status, 1) << text;
        EXPECT_EQ(result.err, "zelkor-chassisctl: " + text + "\n");
        EXPECT_THAT(result.out, IsEmpty());
    }
}

TEST(Commands, HelpAndVersion_NeedNoDaemon) {
    const Result help = RunWords({"--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* command : {"list", "set", "auto", "invalid", "fail", "missing", "slow", "heal", "limit", "clock",
                                "fpga read", "journal", "shutdown-count", "power", "import"}) {
        EXPECT_THAT(help.out, HasSubstr(std::string("  ") + command + " "));
    }
    const Result version = RunWords({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "zelkor-chassisctl 2.8.167.20437\n");
}

TEST(Commands, StandardOutputThatCannotBeWritten_Status1) {
    std::istringstream in;
    std::ostringstream out, err;
    out.setstate(std::ios::badbit);
    EXPECT_EQ(chassisctl::Run({"--help"}, {in, out, err}), 1);
    EXPECT_EQ(err.str(), "zelkor-chassisctl: standard output cannot be written\n");
}

const std::string c_listing =
    "+board\ticb/0\tICB\ticb\ton\tok\n"
    "+sensor\ticb/0\t1\tInlet\ttemperature\t31.123456789\tdegrees C\t30\t-20\t-10\t0\t60\t70\t80\tok\n"
    "+board\tio/1\tIO1\tio\toff\tslow 200,fail: bus, again\n"
    "+sensor\tio/1\t16\tZul\u00fcfter\tfan\tna\tRPM\tna\tna\t1500\tna\tna\tna\tna\tset\n"
    "+sensor\tio/1\t17\tVCC\tvoltage\tinf\tVolts\tnan\tna\tna\tna\tna\tna\tna\tset,missing\n"
    "+board\tos/0\tHOST\tos\ton\tmissing\n"
    "ok\n";

TEST(Commands, List_BoardsAsHeadingsAndSensorsInColumns) {
    ScriptedServer server(c_listing);
    const Result result = RunAgainst(server, {"list"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "icb/0  ICB  (icb, power on)\n"
              "  ID  NAME      TYPE         READING  UNITS      NOMINAL  LNR    LC  LNC  UNC  UC  UNR  INJECTED\n"
              "   1  Inlet     temperature  31.1235  degrees C       30  -20   -10    0   60  70   80\n"
              "\n"
              "io/1  IO1  (io, power off)  injected: slow 200, fail: bus, again\n"
              "  ID  NAME      TYPE         READING  UNITS      NOMINAL  LNR    LC  LNC  UNC  UC  UNR  INJECTED\n"
              "  16  Zul\u00fcfter  fan               na  RPM              -    -  1500    -    -   -    -  set\n"
              "  17  VCC       voltage          inf  Volts          nan    -     -    -    -   -    -  set, missing\n"
              "\n"
              "os/0  HOST  (os, power on)  injected: missing\n");
}

TEST(Commands, ListJson_NumbersReadBackAndMissingOnesAreNull) {
    ScriptedServer server(c_listing);
    const Result result = RunAgainst(server, {"list", "--json"});
    EXPECT_EQ(result.status, 0);
    const auto boards = nlohmann::json::parse(result.out).at("boards");
    ASSERT_EQ(boards.size(), 3U);
    EXPECT_EQ(boards[0]["uri"], "icb/0");
    EXPECT_EQ(boards[0]["name"], "ICB");
    EXPECT_EQ(boards[0]["type"], "icb");
    EXPECT_EQ(boards[0]["power"], "on");
    EXPECT_TRUE(boards[0]["injected"].empty());
    const auto& inlet = boards[0]["sensors"][0];
    EXPECT_EQ(inlet["id"], 1);
    EXPECT_EQ(inlet["reading"].get<double>(), 31.123456789);
    EXPECT_EQ(inlet["units"], "degrees C");
    EXPECT_EQ(inlet["lnr"].get<double>(), -20.0);
    EXPECT_EQ(inlet["unr"].get<double>(), 80.0);
    EXPECT_EQ(boards[1]["injected"], (std::vector<std::string>{"slow 200", "fail: bus, again"}));
    const auto& fan = boards[1]["sensors"][0];
    EXPECT_TRUE(fan["reading"].is_null());
    EXPECT_TRUE(fan["nominal"].is_null());
    EXPECT_EQ(fan["lc"].get<double>(), 1500.0);
    EXPECT_TRUE(fan["unr"].is_null());
    EXPECT_EQ(boards[1]["sensors"][1]["reading"], "inf");
    EXPECT_EQ(boards[1]["sensors"][1]["nominal"], "nan");
    EXPECT_TRUE(boards[2]["sensors"].empty());
}

TEST(Commands, ListThatIsNotUnderstood_Status1) {
    ScriptedServer server("+sensor\tio/1\t16\nok\n");
    const Result result = RunAgainst(server, {"list"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("listing is not understood: sensor io/1 16"));
}

const std::string c_journal =
    "+dropped\t7\n"
    "+0.512\ticb/0\tFpgaSpiWrite\t0x40\t483\n"
    "+2.000\tio/1\tSetTime\t1795000000\n"
    "+3.250\tio/1\tPowerDown\n";

TEST(Commands, Journal_OneLineForEachAction) {
    ScriptedServer server(c_journal + "ok\n");
    const Result result = RunAgainst(server, {"journal"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "(7 older entries were dropped)\n"
              "0.512 icb/0 FpgaSpiWrite 0x40 483\n"
              "2.000 io/1 SetTime 1795000000\n"
              "3.250 io/1 PowerDown\n");
}

TEST(Commands, JournalJson_OneObjectALine) {
    ScriptedServer server(c_journal + "ok\n");
    const Result result = RunAgainst(server, {"journal", "--json"});
    EXPECT_EQ(result.out,
              "{\"dropped\":7}\n"
              "{\"seconds\":0.512,\"uri\":\"icb/0\",\"action\":\"FpgaSpiWrite\",\"arguments\":[\"0x40\",\"483\"]}\n"
              "{\"seconds\":2.0,\"uri\":\"io/1\",\"action\":\"SetTime\",\"arguments\":[\"1795000000\"]}\n"
              "{\"seconds\":3.25,\"uri\":\"io/1\",\"action\":\"PowerDown\",\"arguments\":[]}\n");
}

TEST(Commands, JournalFollow_PrintsWhatCameUntilTheDaemonGoes) {
    ScriptedServer server(c_journal);
    const Result result = RunAgainst(server, {"journal", "--follow"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.out, HasSubstr("3.250 io/1 PowerDown\n"));
    EXPECT_EQ(server.Request(), "journal-follow\n");
}

const std::string c_table =
    "IANA PEN registry open failed\n"
    "CPU Status       | 0x0        | discrete   | 0x0080| na        | na        | na        | na        | na        | "
    "na\n"
    "CPU Temp         | 49,000     | degrees C  | ok    | 0,000     | 0,000     | 0,000     | 95,000    | 98,000    | "
    "100,000\n";

TEST(Import, StandardInput_BoardOnOutputAndRemarksOnError) {
    const Result result = RunWords({"import", "-"}, c_table);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "  <board uri=\"io/1\" type=\"io\" name=\"stdin\">\n"
              "    <sensor id=\"1\" name=\"CPU Temp\" type=\"temperature\" units=\"degrees C\" value=\"49\" lnr=\"0\" "
              "lc=\"0\" "
              "lnc=\"0\" unc=\"95\" uc=\"98\" unr=\"100\"/>\n"
              "  </board>\n");
    EXPECT_EQ(result.err,
              "<stdin>:1: left out: no table row: IANA PEN registry open failed\n"
              "<stdin>:2: left out: discrete: CPU Status\n"
              "<stdin>: 1 sensors, 2 rows left out\n");
}

TEST(Import, File_NameIsTheStemAndRemarksNameTheFile) {
    const TemporaryFolder folder;
    const std::string path = folder.Path() + "/my machine.txt";
    std::ofstream(path) << c_table;
    const Result result = RunWords({"import", path});
    EXPECT_THAT(result.out, StartsWith("  <board uri=\"io/1\" type=\"io\" name=\"my machine\">\n"));
    EXPECT_THAT(result.err, HasSubstr(path + ":2: left out: discrete: CPU Status\n"));
}

TEST(Import, Options_GiveUriTypeNameAndMovement) {
    const Result result =
        RunWords({"import", "--uri", "psu/2", "--type=power_supply", "--name", "PSU 2", "--live", "2.5", "-"}, c_table);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, StartsWith("  <board uri=\"psu/2\" type=\"power_supply\" name=\"PSU 2\">\n"));
    EXPECT_THAT(result.out, HasSubstr("<thermal power=\"48\" resistance=\"0.5\" tau="));
    EXPECT_THAT(RunWords({"import", "--type", "44", "-"}, c_table).out, HasSubstr("type=\"44\""));
}

TEST(Import, CsvBoardColumn_IsTheName) {
    const Result result = RunWords({"import", "-"}, "board,sensor_id,name,value\nmachine,5,Temp,31\n");
    EXPECT_THAT(result.out, StartsWith("  <board uri=\"io/1\" type=\"io\" name=\"machine\">\n    <sensor id=\"5\""));
}

TEST(Import, NoSensor_Status1AndNothingOnOutput) {
    for (const char* text : {"", "hello\n", "a,b,c\n1,2,3\n"}) {
        const Result result = RunWords({"import", "-"}, text);
        EXPECT_EQ(result.status, 1) << text;
        EXPECT_THAT(result.out, IsEmpty());
        EXPECT_THAT(result.err, HasSubstr("zelkor-chassisctl: <stdin>: no sensor found"));
    }
}

TEST(Import, BadOptionsAndFiles_Status1WithTheReason) {
    const TemporaryFolder folder;
    const std::vector<std::pair<Words, std::string>> cases{
        {{"import"}, "usage: zelkor-chassisctl import [--type NAME]"},
        {{"import", "a", "b"}, "usage: zelkor-chassisctl import [--type NAME]"},
        {{"import", folder.Path() + "/none"}, folder.Path() + "/none: No such file or directory"},
        {{"import", folder.Path()}, folder.Path() + ": is a folder"},
        {{"import", "--uri", "io", "-"}, "io"},
        {{"import", "--type", "fridge", "-"}, "--type \"fridge\" is no board type"},
        {{"import", "--type", "none", "-"}, "--type \"none\" is no board type"},
        {{"import", "--type", "54", "-"}, "--type \"54\" is no board type"},
        {{"import", "--live", "much", "-"}, "--live \"much\" is not a number above 0 and up to 100"},
        {{"import", "--live", "0", "-"}, "--live \"0\" is not a number above 0 and up to 100"},
        {{"import", "--live", "-1", "-"}, "--live \"-1\" is not a number above 0 and up to 100"},
        {{"import", "--live", "101", "-"}, "--live \"101\" is not a number above 0 and up to 100"},
        {{"import", "--name", "a\nb", "-"}, "board name \"a?b\": holds a control character, give another with --name"},
    };
    for (const auto& [words, text] : cases) {
        const Result result = RunWords(words, c_table);
        EXPECT_EQ(result.status, 1) << text;
        EXPECT_THAT(result.err, HasSubstr(text));
        EXPECT_THAT(result.out, IsEmpty()) << text;
    }
}

TEST(Import, FileThatIsFarTooLarge_Status1) {
    const Result result = RunWords({"import", "-"}, std::string(16 * 1024 * 1024 + 1, '\n'));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("larger than a sensor table may be, 16777216 bytes"));
}

TEST(Import, UriThatIsNone_NamesTheOption) {
    const Result result = RunWords({"import", "--uri", "io", "-"}, c_table);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "zelkor-chassisctl: --uri: Bad board uri \"io\": not of the form SUBSYSTEM/ID\n");
}

}  // namespace
