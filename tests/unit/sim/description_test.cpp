#include "bmc/sim/description.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "qstd/exception.h"

namespace {

using bmc::sim::ReadChassisText;

std::string ErrorOf(const std::string& text) {
    try {
        ReadChassisText(text, "c.xml");
    } catch (const qstd::Exception& error) {
        return error.what();
    }
    return "taken";
}

std::string InSensor(const std::string& attributes, const std::string& content = {}) {
    return "<chassis>\n<board uri=\"io/1\" type=\"io\">\n<sensor " + attributes + ">" + content +
           "</sensor></board></chassis>";
}

std::string InBoard(const std::string& attributes, const std::string& content = {}) {
    return "<chassis>\n<board " + attributes + ">" + content + "</board></chassis>";
}

TEST(ChassisDescription, Defaults_AreFilledIn) {
    const auto chassis = ReadChassisText(InSensor("id='-7'"), "c.xml");
    EXPECT_EQ(chassis.ambient, 25);
    EXPECT_EQ(chassis.seed, 1U);
    EXPECT_EQ(chassis.speed, 1);
    ASSERT_EQ(chassis.boards.size(), 1U);
    const auto& board = chassis.boards[0];
    EXPECT_EQ(board.name, "io_1");
    EXPECT_EQ(board.status, bmc::BoardStatus_e::ok);
    EXPECT_EQ(board.power, bmc::BoardPowerStatus_e::on);
    EXPECT_EQ(board.redLight, bmc::RedLedStatus_e::off);
    EXPECT_EQ(board.firmwareType, bmc::FirmwareType_e::active);
    EXPECT_FALSE(board.fans);
    ASSERT_EQ(board.sensors.size(), 1U);
    EXPECT_EQ(board.sensors[0].id, -7);
    EXPECT_EQ(board.sensors[0].name, "Sensor -7");
    EXPECT_EQ(board.sensors[0].type, bmc::SensorType_e::other);
    EXPECT_EQ(board.sensors[0].units, "");
    for (const auto& limit : board.sensors[0].limits) {
        EXPECT_FALSE(limit);
    }
    EXPECT_TRUE(std::holds_alternative<std::monostate>(board.sensors[0].source)) << "nothing to read";
}

TEST(ChassisDescription, Everything_IsTaken) {
    const auto chassis = ReadChassisText(R"(<chassis ambient="-4.5" seed="9" speed="2.5">
      <board uri="icb/0" type="44" name="ICB" prefix="P" status="degraded" power="off" red_light="blinking"
             firmware_type="backup" fw_revision="12" fpga_revision="7" ipmi_version="1" clock="-2.5"><fans rpm="4000"/>
        <sensor id="1" name="T" type="temperature" units="C" nominal="1" lnr="2" lc="3" lnc="4" unc="5" uc="6" unr="7">
          <thermal power="40" resistance="0.6" tau="30"/></sensor>
        <sensor id="2"><wave mean="12" amplitude="0.1" period="20" noise="0.01"/></sensor>
        <sensor id="3"><tachometer fan="5"/></sensor>
        <sensor id="4" value="31" nominal="30"/>
        <sensor id="5" value="na" nominal="30"/>
        <sensor id="6" nominal="30"/>
      </board></chassis>)",
                                         "c.xml");
    EXPECT_EQ(chassis.ambient, -4.5);
    EXPECT_EQ(chassis.seed, 9U);
    EXPECT_EQ(chassis.speed, 2.5);
    const auto& board = chassis.boards.at(0);
    EXPECT_EQ(board.type, bmc::BoardType_e::icb);
    EXPECT_EQ(board.prefix, "P");
    EXPECT_EQ(board.status, bmc::BoardStatus_e::degraded);
    EXPECT_EQ(board.power, bmc::BoardPowerStatus_e::off);
    EXPECT_EQ(board.redLight, bmc::RedLedStatus_e::blinking);
    EXPECT_EQ(board.firmwareType, bmc::FirmwareType_e::backup);
    EXPECT_EQ(board.fwRevision, 12);
    EXPECT_EQ(board.fpgaRevision, 7);
    EXPECT_EQ(board.ipmiVersion, 1);
    EXPECT_EQ(board.clock, -2.5);
    EXPECT_EQ(board.fans, 4000);
    ASSERT_EQ(board.sensors.size(), 6U);
    const std::vector<double> limits = {1, 4, 3, 2, 5, 6, 7};
    for (std::size_t i = 0; i < limits.size(); ++i) {
        EXPECT_EQ(board.sensors[0].limits.at(i), limits[i]) << bmc::sim::c_limitNames.at(i);
    }
    EXPECT_EQ(std::get<bmc::sim::ThermalDescription>(board.sensors[0].source).resistance, 0.6);
    EXPECT_EQ(std::get<bmc::sim::WaveDescription>(board.sensors[1].source).noise, 0.01);
    EXPECT_EQ(std::get<bmc::sim::TachometerDescription>(board.sensors[2].source).fan, 5);
    EXPECT_EQ(std::get<double>(board.sensors[3].source), 31);
    EXPECT_TRUE(std::holds_alternative<std::monostate>(board.sensors[4].source));
    EXPECT_EQ(std::get<double>(board.sensors[5].source), 30) << "the nominal value";
}

TEST(ChassisDescription, Examples_AreTaken) {
    const auto chassis = bmc::sim::ReadChassisFile(std::string(ZELKOR_EXAMPLES) + "/chassis/small.xml");
    ASSERT_EQ(chassis.boards.size(), 3U);
    for (const auto& board : chassis.boards) {
        EXPECT_FALSE(board.sensors.empty());
        for (const auto& sensor : board.sensors) {
            for (const auto& limit : sensor.limits) {
                EXPECT_TRUE(limit) << sensor.name;
            }
        }
    }
}

TEST(ChassisDescription, FileThatCannotBeRead_IsNamed) {
    try {
        bmc::sim::ReadChassisFile("/nonexistent/c.xml");
        FAIL();
    } catch (const qstd::Exception& error) {
        EXPECT_STREQ(error.what(), "/nonexistent/c.xml: cannot read: No such file or directory");
    }
}

TEST(ChassisDescription, WrongStructure_IsRefusedWithItsLine) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"<zelkor/>", "c.xml:1: the root element is <zelkor>, must be <chassis>"},
        {"<chassis/>", "c.xml:1: the chassis has no <board>"},
        {"<chassis>\n<bord/></chassis>", "c.xml:2: unknown element <bord> in <chassis>, did you mean <board>?"},
        {"<chassis>\n<fans/></chassis>", "c.xml:2: unknown element <fans> in <chassis>; known: board"},
        {"<chassis speeds='1'/>", "c.xml:1: unknown attribute \"speeds\" of <chassis>, did you mean \"speed\"?"},
        {"<chassis colour='1'/>", "c.xml:1: unknown attribute \"colour\" of <chassis>; known: ambient, seed, speed"},
        {"<chassis>\n text</chassis>", "c.xml:1: text in <chassis>, which has attributes and elements only"},
        {InBoard("type='io'"), "c.xml:2: <board> needs the attribute \"uri\""},
        {InBoard("uri='io/1'"), "c.xml:2: <board> needs the attribute \"type\""},
        {InBoard("uri='io' type='io'"), "c.xml:2: Bad board uri \"io\": not of the form SUBSYSTEM/ID"},
        {"<chassis><board uri='io/1' type='io'/>\n<board uri='io/1' type='io'/></chassis>",
         "c.xml:2: there is a board io/1 already, in line 1"},
        {"<chassis><board uri='a_b/c' type='io'/>\n<board uri='a/b_c' type='io'/></chassis>",
         "c.xml:2: board a/b_c has the label a_b_c, as the one in line 1"},
        {InBoard("uri='io/1' type='io'", "\n<fans/>\n<fans/>"), "c.xml:4: there is a <fans> already, in line 3"},
        {InBoard("uri='io/1' type='io'", "<fans><x/></fans>"), "c.xml:2: unknown element <x> in <fans>"},
        {"<chassis><board uri='a/1' type='io'><fans/></board>\n<board uri='b/1' type='io'><fans/></board></chassis>",
         "c.xml:2: there is a <fans> already, in line 1"},
        {InBoard("uri='io/1' type='io'", "<sensor id='1'/>\n<sensor id='1'/>"),
         "c.xml:3: board io/1 has a sensor 1 already, in line 2"},
        {InBoard("uri='io/1' type='io'", "<senser id='1'/>"),
         "c.xml:2: unknown element <senser> in <board>, did you mean <sensor>?"},
        {InSensor("name='x'"), "c.xml:3: <sensor> needs the attribute \"id\""},
        {InSensor("id='1' lncc='1'"), "c.xml:3: unknown attribute \"lncc\" of <sensor>, did you mean \"lnc\"?"},
        {InSensor("id='1'", "12"), "c.xml:3: text in <sensor>, which has attributes and elements only"},
        {InSensor("id='1'", "<thermol/>"), "c.xml:3: unknown element <thermol> in <sensor>, did you mean <thermal>?"},
        {InSensor("id='1' value='1'", "<wave mean='1' period='1'/>"),
         "c.xml:3: sensor 1 has more than one of value, <thermal>, <wave> and <tachometer>"},
        {InSensor("id='1'", "<wave mean='1' period='1'/><wave mean='1' period='1'/>"),
         "c.xml:3: sensor 1 has more than one of value, <thermal>, <wave> and <tachometer>"},
        {InSensor("id='1'", "<thermal power='1' resistance='1'/>"), "c.xml:3: <thermal> needs the attribute \"tau\""},
        {InSensor("id='1'", "<wave mean='1'/>"), "c.xml:3: <wave> needs the attribute \"period\""},
        {InSensor("id='1'", "<tachometer/>"), "c.xml:3: <tachometer> needs the attribute \"fan\""},
        {InSensor("id='1'", "<tachometer fan='0'/>"), "c.xml:3: <tachometer> in a chassis without <fans/>"},
    };
    for (const auto& [text, message] : cases) {
        EXPECT_EQ(ErrorOf(text), message) << text;
    }
}

TEST(ChassisDescription, WrongValue_IsRefusedWithItsLine) {
    const std::string board = "uri='io/1' type='io' ";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"<chassis ambient='warm'/>", "c.xml:1: attribute \"ambient\" is not a number: \"warm\""},
        {"<chassis ambient='nan'/>", "c.xml:1: attribute \"ambient\" is nan, must be finite"},
        {"<chassis seed='-1'/>",
         "c.xml:1: attribute \"seed\" is not a whole number from 0 to 9223372036854775807: \"-1\""},
        {"<chassis speed='0'/>", "c.xml:1: attribute \"speed\" is 0, must be from 0.001 to 1e6"},
        {InBoard("uri='io/1' type='ioo'"), "c.xml:2: \"ioo\" is no type, did you mean \"io\"?"},
        {InBoard(board + "status='okay'"),
         "c.xml:2: \"okay\" is no status; known: unknown, ok, degraded, failed, not_responding, updating"},
        {InBoard("uri='io/1' type='none'"), "c.xml:2: no board is of type \"none\""},
        {InBoard(board + "power='standby'"), "c.xml:2: \"standby\" is no power; known: off, on, unknown, fault"},
        {InBoard(board + "red_light='7'"), "c.xml:2: \"7\" is no red_light; known: off, on, blinking, unknown"},
        {InBoard(board + "firmware_type='main'"),
         "c.xml:2: \"main\" is no firmware_type; known: unknown, active, backup, boot_loader"},
        {InBoard(board + "fw_revision='1.2'"),
         "c.xml:2: attribute \"fw_revision\" is not a whole number from 0 to 2147483647: \"1.2\""},
        {InBoard(board + "clock='1e10'"), "c.xml:2: attribute \"clock\" is 1e10, must be from -1e9 to 1e9 seconds"},
        {InBoard(board + "name='a&#9;b'"), "c.xml:2: control character in attribute \"name\": \"a?b\""},
        {InBoard(board, "<fans rpm='29'/>"), "c.xml:2: attribute \"rpm\" is 29, must be 0, or from 30 to 1935483"},
        {InBoard(board, "<fans rpm='-1'/>"), "c.xml:2: attribute \"rpm\" is -1, must be 0, or from 30 to 1935483"},
        {InSensor("id='x'"), "c.xml:3: attribute \"id\" is not a whole number from -2147483648 to 2147483647: \"x\""},
        {InSensor("id='2147483648'"),
         "c.xml:3: attribute \"id\" is not a whole number from -2147483648 to 2147483647: \"2147483648\""},
        {InSensor("id='1' type='Temperature'"), "c.xml:3: \"Temperature\" is no type, did you mean \"temperature\"?"},
        {InSensor("id='1' value='NA'"), "c.xml:3: attribute \"value\" is not a number: \"NA\""},
        {InSensor("id='1' unc='inf'"), "c.xml:3: attribute \"unc\" is inf, must be finite"},
        {InSensor("id='1' units='&#10;'"), "c.xml:3: control character in attribute \"units\": \"?\""},
        {InSensor("id='1'", "<thermal power='-1' resistance='1' tau='1'/>"),
         "c.xml:3: attribute \"power\" is -1, must be 0 or greater"},
        {InSensor("id='1'", "<thermal power='1' resistance='-1' tau='1'/>"),
         "c.xml:3: attribute \"resistance\" is -1, must be 0 or greater"},
        {InSensor("id='1'", "<thermal power='1' resistance='1' tau='0'/>"),
         "c.xml:3: attribute \"tau\" is 0, must be from 0.001 to 1e9 seconds"},
        {InSensor("id='1'", "<wave mean='1' period='0'/>"),
         "c.xml:3: attribute \"period\" is 0, must be from 0.001 to 1e9 seconds"},
        {InSensor("id='1'", "<wave mean='1' period='1' noise='-1'/>"),
         "c.xml:3: attribute \"noise\" is -1, must be 0 or greater"},
        {InSensor("id='1'", "<tachometer fan='6'/>"),
         "c.xml:3: attribute \"fan\" is not a whole number from 0 to 5: \"6\""},
    };
    for (const auto& [text, message] : cases) {
        EXPECT_EQ(ErrorOf(text), message) << text;
    }
}

TEST(ChassisDescription, MalformedXml_IsRefusedWithItsLine) {
    EXPECT_EQ(ErrorOf("<chassis>\n<board></chassis>").rfind("c.xml:2: ", 0), 0U);
    EXPECT_EQ(ErrorOf("").rfind("c.xml:1: ", 0), 0U);
}

}  // namespace
