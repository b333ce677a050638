#include "tools/chassisctl/controller_settings.h"

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "qstd/exception.h"
#include "tests/support/file.h"
#include "tests/support/temp_folder.h"
#include "tools/chassisctl/commands.h"

namespace {

using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using Words = std::vector<std::string>;

class ControllerSettings : public testing::Test {
protected:
    ControllerSettings() { WritePassword(S_IRUSR | S_IWUSR); }

    void WritePassword(mode_t mode) const {
        test::WriteFile(m_password, "secret\n");
        EXPECT_EQ(::chmod(m_password.c_str(), mode), 0);
    }

    /// The words of an import over the LAN and more.
    Words Lan(const Words& more = {}) const {
        Words words{"import", "--host", "10.0.0.11", "--user", "operator", "--password-file", m_password};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    static bmc::ipmi::Settings Read(const Words& words, const std::string& name = {}) {
        const chassisctl::CommandLine line = chassisctl::ParseCommandLine(words);
        chassisctl::BoardOptions options;
        options.uri = line.uri.value_or(options.uri);
        options.name = name;
        return chassisctl::ReadControllerSettings(line, options);
    }

    test::TempFolder m_folder;
    const std::string m_password = m_folder.Path("password");
};

TEST_F(ControllerSettings, Defaults_AreThoseOfAConfiguration) {
    const bmc::ipmi::Settings settings = Read(Lan());
    ASSERT_EQ(settings.controllers.size(), 1U);
    const bmc::ipmi::ControllerSettings& controller = settings.controllers[0];
    EXPECT_EQ(controller.Name(), "10.0.0.11:623");
    EXPECT_EQ(controller.user, "operator");
    EXPECT_EQ(controller.password.path, m_password);
    EXPECT_EQ(controller.privilege, bmc::ipmi::Privilege_e::operator_);
    EXPECT_EQ(controller.cipherSuite, 17);
    EXPECT_EQ(controller.timeout, std::chrono::milliseconds(1000));
    EXPECT_EQ(settings.cacheFolder, "");
    ASSERT_EQ(settings.boards.size(), 1U);
    EXPECT_EQ(settings.boards[0].name, "10.0.0.11");
    EXPECT_FALSE(settings.boards[0].target.IsBridged());
}

TEST_F(ControllerSettings, Options_AreTakenOver) {
    const auto settings = Read(Lan({"--port", "9300", "--privilege=user", "--cipher", "3", "--timeout", "250"}), "IO");
    const bmc::ipmi::ControllerSettings& controller = settings.controllers.at(0);
    EXPECT_EQ(controller.Name(), "10.0.0.11:9300");
    EXPECT_EQ(controller.privilege, bmc::ipmi::Privilege_e::user);
    EXPECT_EQ(controller.cipherSuite, 3);
    EXPECT_EQ(controller.timeout, std::chrono::milliseconds(250));
    EXPECT_EQ(settings.boards.at(0).name, "IO");
}

TEST_F(ControllerSettings, Device_NeedsNoAccountAndGivesTheName) {
    const auto settings = Read({"import", "--device", "/dev/ipmi0"});
    EXPECT_EQ(settings.controllers.at(0).Name(), "/dev/ipmi0");
    EXPECT_EQ(settings.boards.at(0).name, "ipmi0");
}

TEST_F(ControllerSettings, SeveralBoards_ShareTheSessionAndAreNumbered) {
    const auto settings = Read(Lan({"--uri", "io/9", "--ipmb", "0x20", "--ipmb", "0x82", "--ipmb", "132"}), "IO");
    EXPECT_EQ(settings.controllers.size(), 1U);
    using bmc::ipmi::BoardSettings;
    EXPECT_THAT(settings.boards,
                ElementsAre(Field(&BoardSettings::name, "IO-0x20"), Field(&BoardSettings::name, "IO-0x82"),
                            Field(&BoardSettings::name, "IO-132")));
    EXPECT_THAT(settings.boards, ElementsAre(Field(&BoardSettings::uri, bmc::Uri("io", "9")),
                                             Field(&BoardSettings::uri, bmc::Uri("io", "10")),
                                             Field(&BoardSettings::uri, bmc::Uri("io", "11"))));
    EXPECT_EQ(settings.boards[1].target.address, 0x82);
    EXPECT_EQ(settings.boards[2].target.address, 0x84);
}

TEST_F(ControllerSettings, WrongOptions_Status1AndALineThatNamesThem) {
    const std::string password = m_password;
    const std::vector<std::pair<Words, std::string>> cases{
        {{"import", "--port", "623"}, "the way to the controller is missing: give --host or --device"},
        {{"import", "--ipmb", "0x82"}, "the way to the controller is missing: give --host or --device"},
        {Lan({"--device", "/dev/ipmi0"}), "--host and --device are two ways to a controller; give one of them"},
        {{"import", "--device", "/dev/ipmi0", "--port", "1"}, "--port goes with --host, not with --device"},
        {{"import", "--device", "/dev/ipmi0", "--cipher", "3"}, "--cipher goes with --host, not with --device"},
        {{"import", "--device", "ipmi0"}, "--device: \"ipmi0\" is not an absolute path"},
        {{"import", "--device", ""}, "--device: the value is missing (path of a device)"},
        {{"import", "--host", "10.0.0.1", "--password-file", password}, "--host needs --user"},
        {{"import", "--host", "10.0.0.1", "--user", "u"}, "--host needs --password-file"},
        {{"import", "--host", "bmc.example", "--user", "u", "--password-file", password},
         "--host: \"bmc.example\" is not an IPv4 or IPv6 address; names are not looked up, because a name server that "
         "hangs would hang the board"},
        {{"import", "--host", "10.0.0.1", "--user", "a-name-of-17-byte", "--password-file", password},
         "--user: \"a-name-of-17-byte\" has 17 bytes, the limit is 16"},
        {Lan({"--port", "65536"}), "--port: \"65536\" is above the limit of 65535"},
        {Lan({"--port", "x"}), "--port: \"x\" is not a whole number"},
        {Lan({"--privilege", "root"}), "--privilege: \"root\" is not the name of a privilege level"},
        {Lan({"--cipher", "0"}), "--cipher: \"0\" has no authentication; taken are 17 and, weaker, 3"},
        {Lan({"--timeout", "1"}), "--timeout: \"1\" is below the limit of 10"},
        {Lan({"--ipmb", "0x83"}), "--ipmb: \"0x83\" is odd; slave addresses are even"},
        {Lan({"--ipmb", "bus"}), "--ipmb: \"bus\" is not a whole number"},
        {Lan({"--ipmb", "0x82", "--ipmb", "130"}), "--ipmb 130 is given twice"},
        {Lan({"--ipmb", "0x82", "--ipmb", "0x84", "--uri", "io/left"}),
         "--uri \"io/left\" with several boards must end in a number up to 1000000, which is counted up"},
        {Lan({"--host", "10.0.0.2"}), "option '--host' cannot be specified more than once"},
        {Lan({"--uri", "io"}), "--uri: Bad board uri \"io\": not of the form SUBSYSTEM/ID"},
        {Lan({"--name", "a\nb"}), "board name \"a?b\": holds a control character, give another with --name"},
        {{"list", "--host", "10.0.0.1"}, "--host is an option of import, not of list"},
        {{"list", "--ipmb", "0x20"}, "--ipmb is an option of import, not of list"},
    };
    for (const auto& [words, text] : cases) {
        std::istringstream in;
        std::ostringstream out, err;
        EXPECT_EQ(chassisctl::Run(words, {in, out, err}), 1) << text;
        EXPECT_EQ(err.str(), "zelkor-chassisctl: " + text + "\n");
        EXPECT_THAT(out.str(), IsEmpty());
    }
}

TEST_F(ControllerSettings, FileBesideTheController_IsWrongUsage) {
    std::istringstream in;
    std::ostringstream out, err;
    EXPECT_EQ(chassisctl::Run(Lan({"table.txt"}), {in, out, err}), 1);
    EXPECT_THAT(err.str(), testing::StartsWith("zelkor-chassisctl: usage: zelkor-chassisctl import "));
}

TEST_F(ControllerSettings, PasswordThatOthersCanRead_IsRefused) {
    WritePassword(S_IRUSR | S_IWUSR | S_IROTH);
    try {
        Read(Lan());
        FAIL() << "it was taken";
    } catch (const qstd::Exception& error) {
        EXPECT_EQ(std::string(error.what()), "password file " + m_password +
                                                 ": has mode 0604, must not be readable or writable by its group or by "
                                                 "others (chmod 600)");
    }
}

TEST_F(ControllerSettings, PasswordFileThatIsMissing_IsNamed) {
    const Words words{"import", "--host", "10.0.0.1", "--user", "u", "--password-file", m_folder.Path("none")};
    try {
        Read(words);
        FAIL() << "it was taken";
    } catch (const qstd::Exception& error) {
        EXPECT_EQ(std::string(error.what()),
                  "password file " + m_folder.Path("none") + ": cannot open: No such file or directory");
    }
}

}  // namespace
