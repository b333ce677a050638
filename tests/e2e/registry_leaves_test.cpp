// The leaves of the registry: what they tell of boards and sensors, and what is absent from the tree.

#include "registry_fixture.h"

namespace {

using test::Lines;
using testing::AllOf;
using testing::HasSubstr;

class RegistryLeavesTest : public test::RegistryTest {};

TEST_F(RegistryLeavesTest, Host_EveryStateHasNoValueAndEveryRevisionIsZero) {
    Configure("");
    StartAndAwait();
    const std::string info = "boards/host/board_info/";
    for (const char* state : {"firmware_type", "status", "power_status", "red_light"}) {
        ExpectFailure({"get", info + state}, 3, "no value");
    }
    EXPECT_EQ(Ask({"get", info + "fpga_revision", info + "fw_revision", info + "ipmi_version", info + "type"}),
              "0\n0\n0\nos\n");
    EXPECT_EQ(Registry({"get", info + "device"}).status, 0);
    for (const char* reserved : {"fw_version", "fw_flash_id"}) {
        ExpectFailure({"get", info + reserved}, 1, std::string("Unsupported type: ") + reserved + " in method ");
    }
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryLeavesTest, BoardInformation_IsThatOfTheBoardAndFollowsIt) {
    Configure("",
              "<chassis><board uri='icb/0' type='icb' name='ICB'><fans/></board><board uri='io/1' type='io' "
              "name='IO1' prefix='IO' status='ok' power='on' red_light='off' firmware_type='active' "
              "fw_revision='12' fpga_revision='7' ipmi_version='2'>"
              "<sensor id='1' type='temperature' value='100' unr='90'/></board></chassis>");
    StartAndAwait("Sensor source board will be powered off now.");
    const std::string info = "boards/IO1/board_info/";
    EXPECT_EQ(Ask({"get", info + "device", info + "type", info + "firmware_type", info + "status",
                   info + "fpga_revision", info + "red_light", info + "fw_revision", info + "ipmi_version"}),
              "IO\nio\nactive\nok\n7\noff\n12\n2\n");
    EXPECT_TRUE(Await([&] {
        return Ask({"get", info + "power_status"}) == "off\n";
    })) << "each read asks the board, which was switched off";
    EXPECT_EQ(Ask({"ls", "boards/ICB/sensors"}), "") << "a board without sensors has an empty folder";
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryLeavesTest, Leaves_HaveTheirTypeOneValueAndTheFlagsOfWhatMayBeDone) {
    Configure("");
    StartAndAwait();
    const auto expectInfo = [this](const std::string& path, const std::string& type, const std::string& flags) {
        EXPECT_THAT(Ask({"info", path}),
                    AllOf(HasSubstr("type = " + type + "\nsize = " + (type == "empty" ? "0" : "1") + "\n"),
                          HasSubstr("\nflags = " + flags)))
            << path;
    };
    for (const char* leaf : {"value", "hnc", "hc", "hnr", "lnc", "lc", "lnr", "nom"}) {
        expectInfo(std::string("boards/ICB/sensors/ID_12/") + leaf, "double", "2 ");
    }
    for (const char* leaf : {"name", "type", "units"}) {
        expectInfo(std::string("boards/ICB/sensors/ID_12/") + leaf, "string", "2 ");
    }
    for (const char* leaf : {"device", "type", "firmware_type", "status", "power_status", "red_light"}) {
        expectInfo(std::string("boards/host/board_info/") + leaf, "string", "2 ");
    }
    for (const char* leaf : {"fpga_revision", "fw_version", "fw_revision", "fw_flash_id", "ipmi_version"}) {
        expectInfo(std::string("boards/host/board_info/") + leaf, "integer", "2 ");
    }
    for (const char* folder :
         {"boards", "boards/ICB", "boards/ICB/board_info", "boards/ICB/sensors", "boards/ICB/sensors/ID_12"}) {
        expectInfo(folder, "empty", "0\n");
    }
    expectInfo("fans", "double", "6 ");
    expectInfo("fans/right_rear", "double", "6 ");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryLeavesTest, ThresholdThatIsNotThere_HasNoValueAndTheOtherLeavesAnswer) {
    Configure("");
    StartAndAwait();
    Do({"limit", "icb/0", "12", "uc", "none"});
    const std::string sensor = "boards/ICB/sensors/ID_12/";
    ExpectFailure({"get", sensor + "hc"}, 3, "no value");
    EXPECT_EQ(Ask({"get", sensor + "value", sensor + "hnc", sensor + "hnr", sensor + "lnc", sensor + "lc",
                   sensor + "lnr", sensor + "nom", sensor + "name", sensor + "type", sensor + "units"}),
              "48\n75\n95\n0\n-5\n-10\n30\nIntake\ntemperature\nC\n");
    Do({"limit", "icb/0", "12", "uc", "86.5"});
    EXPECT_EQ(Ask({"get", sensor + "hc"}), "86.5\n");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryLeavesTest, BoardThatCannotBeReachedAtTheStart_IsToldAndAbsentForGood) {
    StartHeld("", R"(<chassis>
  <board uri="slot/2" type="power_supply" name="slot2"><sensor id="5" value="1"/></board>
  <board uri="os/0" type="os" name="host"><sensor id="7" value="1"/></board>
  <board uri="icb/0" type="icb" name="ICB"><fans/><sensor id="3" value="12"/></board>
</chassis>
)");
    Do({"missing", "slot/2"});
    Do({"fail", "os/0", "bus is stuck"});
    Release();
    EXPECT_EQ(Ask({"ls", "boards"}), "ICB\n");
    EXPECT_THAT(Ask({"tree", "boards/ICB"}), AllOf(HasSubstr("ipmi_version"), HasSubstr("value = 12\n")));
    EXPECT_THAT(Lines(Ask({"ls", "fans"})), testing::SizeIs(6));
    Do({"heal", "slot/2"});
    Do({"heal", "os/0"});
    EXPECT_EQ(Ask({"ls", "boards"}), "ICB\n");
    EXPECT_EQ(Stop(), 0);
    const std::vector<std::string> messages = MessagesOfWhoLogged("***Platform daemon started");
    ASSERT_GE(messages.size(), 4U);
    EXPECT_EQ(messages[2], "E: Problem accessing board: slot_2");
    EXPECT_EQ(messages[3], "E: Problem accessing board os_0. Exception: bus is stuck");
}

TEST_F(RegistryLeavesTest, SensorMissingAtTheStart_HasLeavesWithoutValue) {
    StartHeld("");
    Do({"missing", "icb/0", "12"});
    Release();
    const std::string sensor = "boards/ICB/sensors/ID_12";
    EXPECT_THAT(Lines(Ask({"ls", sensor})), testing::SizeIs(11));
    Do({"heal", "icb/0"});
    for (const char* leaf : {"/value", "/name", "/hc", "/type", "/units"}) {
        ExpectFailure({"get", sensor + leaf}, 3, "no value");
    }
    EXPECT_EQ(Ask({"get", "boards/ICB/sensors/ID_3/name"}), "V12\n");
    EXPECT_EQ(Stop(), 0);
}

}  // namespace
