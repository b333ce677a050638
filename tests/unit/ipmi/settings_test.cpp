// Settings of boards over IPMI that are fine.

#include "bmc/ipmi/settings.h"

#include <chrono>
#include <vector>

#include "settings_fixture.h"

namespace {

using bmc::ipmi::Privilege_e;
using bmc::ipmi::Settings;
using test::SettingsTest;

TEST_F(SettingsTest, BoardOnTheLan_HasTheDefaults) {
    const Settings settings = Read(Section(LanBoard()));
    ASSERT_EQ(settings.controllers.size(), 1U);
    const bmc::ipmi::ControllerSettings& controller = settings.controllers[0];
    EXPECT_EQ(controller.host, "10.0.0.1");
    EXPECT_EQ(controller.port, 623);
    EXPECT_EQ(controller.user, "ops");
    EXPECT_EQ(controller.password.path, m_folder.Path("a.pass"));
    EXPECT_FALSE(controller.password.isCredential);
    EXPECT_EQ(controller.privilege, Privilege_e::operator_);
    EXPECT_EQ(controller.cipherSuite, 17);
    EXPECT_EQ(controller.device, "");
    EXPECT_EQ(controller.timeout, std::chrono::milliseconds(1000));
    EXPECT_EQ(controller.retries, 2U);
    EXPECT_EQ(controller.Name(), "10.0.0.1:623");

    ASSERT_EQ(settings.boards.size(), 1U);
    const bmc::ipmi::BoardSettings& board = settings.boards[0];
    EXPECT_EQ(board.uri.ToString(), "io/1");
    EXPECT_EQ(board.type, bmc::BoardType_e::io);
    EXPECT_EQ(board.name, "IO1");
    EXPECT_EQ(board.prefix, "");
    EXPECT_EQ(board.controller, 0U);
    EXPECT_EQ(board.target, (bmc::ipmi::Target{0x20, 0}));
    EXPECT_FALSE(board.fpga);
    EXPECT_EQ(settings.cacheFolder, "/var/cache/zelkor");
}

TEST_F(SettingsTest, WhatIsWritten_IsTaken) {
    const Settings settings = Read(
        "<boards backend='ipmi' timeout='250' retries='0' cache='cache'>\n"
        "<board uri='psu/a' type='10' name='PSU' prefix='P' host='fd00:0::1' port='6230' user='sixteen-bytes-xx' "
        "password-file='b.pass' privilege='administrator' cipher='3' ipmb='0x82' channel='7'/></boards>");
    const bmc::ipmi::ControllerSettings& controller = settings.controllers.at(0);
    EXPECT_EQ(controller.host, "fd00::1") << "one form for an address";
    EXPECT_EQ(controller.Name(), "[fd00::1]:6230");
    EXPECT_EQ(controller.user, "sixteen-bytes-xx");
    EXPECT_EQ(controller.privilege, Privilege_e::administrator);
    EXPECT_EQ(controller.cipherSuite, 3);
    EXPECT_EQ(controller.timeout, std::chrono::milliseconds(250));
    EXPECT_EQ(controller.retries, 0U);
    EXPECT_EQ(settings.boards.at(0).type, bmc::BoardType_e::power_supply);
    EXPECT_EQ(settings.boards.at(0).prefix, "P");
    EXPECT_EQ(settings.boards.at(0).target, (bmc::ipmi::Target{0x82, 7}));
    EXPECT_EQ(settings.cacheFolder, m_folder.Path("cache"));
}

TEST_F(SettingsTest, BoardOfTheHostItself_IsReachedByTheDevice) {
    const Settings settings = Read(Section(Board("uri='os/0' type='os' name='HOST' device='/dev//ipmi0' ipmb='32'")));
    const bmc::ipmi::ControllerSettings& controller = settings.controllers.at(0);
    EXPECT_EQ(controller.device, "/dev/ipmi0");
    EXPECT_EQ(controller.host, "");
    EXPECT_EQ(controller.password.path, "");
    EXPECT_EQ(controller.Name(), "/dev/ipmi0");
    EXPECT_EQ(settings.boards.at(0).target, (bmc::ipmi::Target{0x20, 0}));
}

TEST_F(SettingsTest, SameHostAndPort_ShareOneController) {
    const std::string account = " type='io' user='ops' password-file='a.pass' ";
    const Settings settings = Read(Section(Board("uri='io/1' name='A' host='10.0.0.1'" + account) +
                                           Board("uri='io/2' name='B' host='10.0.0.1' port='624'" + account) +
                                           Board("uri='io/3' name='C' host='10.0.0.1' ipmb='0x82'" + account) +
                                           Board("uri='io/4' name='D' type='os' device='/dev/ipmi0'") +
                                           Board("uri='io/5' name='E' type='io' device='/dev/ipmi0' ipmb='0x84'")));
    ASSERT_EQ(settings.controllers.size(), 3U);
    std::vector<std::size_t> controllers;
    for (const bmc::ipmi::BoardSettings& board : settings.boards) {
        controllers.push_back(board.controller);
    }
    EXPECT_EQ(controllers, (std::vector<std::size_t>{0, 1, 0, 2, 2}));
}

TEST_F(SettingsTest, SameAddressOnTwoChannels_AreTwoBoards) {
    const std::string way = " type='io' device='/dev/ipmi0' ipmb='0x82' ";
    EXPECT_EQ(Read(Section(Board("uri='io/1' name='A'" + way) + Board("uri='io/2' name='B' channel='1'" + way)))
                  .boards.size(),
              2U);
}

TEST_F(SettingsTest, Credential_IsReadFromTheServiceManagersFolder) {
    WriteSecret("io1", "third", 0440);
    m_credentials.Set(m_folder.Path().c_str());
    const Settings settings =
        Read(Section(Board("uri='io/1' type='io' name='IO1' host='10.0.0.1' user='ops' password-credential='io1'")));
    EXPECT_TRUE(settings.controllers.at(0).password.isCredential);
    EXPECT_STREQ(ReadPassword(settings.controllers.at(0).password).Reveal(), "third");
}

TEST_F(SettingsTest, CacheFolder_IsTheServiceManagersFirstOne) {
    m_cache.Set("/var/cache/one:/var/cache/two");
    EXPECT_EQ(Read(Section(LanBoard())).cacheFolder, "/var/cache/one");
    EXPECT_EQ(Read("<boards backend='ipmi' cache='/srv/c'>" + LanBoard() + "</boards>").cacheFolder, "/srv/c");
    EXPECT_EQ(Read("<boards backend='ipmi' cache='none'>" + LanBoard() + "</boards>").cacheFolder, "");
    m_cache.Set("");
    EXPECT_EQ(Read(Section(LanBoard())).cacheFolder, "/var/cache/zelkor");
}

TEST_F(SettingsTest, Fpga_IsReadWithItsRevision) {
    const Settings settings =
        Read(Section(LanBoard("",
                              "<fpga read='0x30 0x10 {addr:hi} {addr:lo}' reply='{value:hi} {value:lo}'\n"
                              "write='0x30 0x11 {addr:hi} {addr:lo} {value:hi} {value:lo}' revision='0x1F0'/>")));
    const auto& fpga = settings.boards.at(0).fpga;
    ASSERT_TRUE(fpga);
    EXPECT_EQ(fpga->GetRevisionRegister(), 0x1f0);
    EXPECT_EQ(fpga->MakeRead(0x1234).data, (std::vector<std::uint8_t>{0x12, 0x34}));
}

TEST_F(SettingsTest, RelativeConfigurationFile_GivesAbsolutePaths) {
    const auto folder = std::filesystem::current_path();
    std::filesystem::current_path(m_folder.Path());
    const auto section = qcfg::ReadXmlText(Section(LanBoard()), "z.xml");
    const Settings settings = bmc::ipmi::ReadSettings(*section, "z.xml");
    std::filesystem::current_path(folder);
    EXPECT_EQ(settings.controllers.at(0).password.path, std::filesystem::canonical(m_folder.Path("a.pass")).string());
}

TEST_F(SettingsTest, Example_IsFineOnceItsPasswordsAreThere) {
    const std::string example = std::string(ZELKOR_SOURCE_DIR) + "/examples/config/ipmi.xml";
    std::filesystem::copy_file(example, ConfigFile());
    WriteSecret("io1.pass", "io1\n");
    WriteSecret("icb.pass", "icb\n");
    WriteSecret("io3", "io3");
    m_credentials.Set(m_folder.Path().c_str());
    const auto root = qcfg::ReadXmlFile(ConfigFile());
    const Settings settings = bmc::ipmi::ReadSettings(*root->FindChild("boards"), ConfigFile());
    EXPECT_EQ(settings.boards.size(), 5U);
    EXPECT_EQ(settings.controllers.size(), 4U);
}

}  // namespace
