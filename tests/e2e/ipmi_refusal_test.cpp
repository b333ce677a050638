// Settings of boards over IPMI that are refused: by --check-config, and by a daemon that then starts nothing.

#include <sys/stat.h>

#include <string>

#include "daemon_fixture.h"

namespace {

using test::DaemonTest;
using testing::HasSubstr;
using testing::Not;

class IpmiRefusalTest : public DaemonTest {
protected:
    /// A board in line 3.
    void ConfigureBoard(const std::string& attributes, const std::string& children = "") {
        test::WriteFile(m_folder.Path("config.xml"),
                        "<zelkor>\n<boards backend='ipmi' cache='none'>\n<board uri='io/1' type='io' name='IO1' " +
                            attributes + ">" + children + "</board></boards></zelkor>");
    }

    void WritePassword(const std::string& text, ::mode_t mode) {
        test::WriteFile(m_folder.Path("p"), text);
        ::chmod(m_folder.Path("p").c_str(), mode);
    }

    /// By --check-config as an error in the board's line, and by the daemon.
    void ExpectRefused(const std::string& text) {
        const std::string place = m_folder.Path("config.xml") + ":3: ";
        const test::Result check = test::RunProgram(Command({"--check-config"}));
        EXPECT_EQ(check.status, 1);
        EXPECT_EQ(check.output, place + "error: " + text + "\n");
        ExpectRefusal(Command(), "zelkor-platformd: " + place + text + "\n");
        EXPECT_THAT(check.output + check.error, Not(HasSubstr("hunter2")));
    }

    static constexpr const char* c_account = "host='127.0.0.1' user='ops' password-file='p' ";
};

TEST_F(IpmiRefusalTest, PasswordFileThatIsNotThere) {
    ConfigureBoard(c_account);
    ExpectRefused("password file " + m_folder.Path("p") + ": cannot open: No such file or directory");
}

TEST_F(IpmiRefusalTest, PasswordThatOthersCanRead) {
    WritePassword("hunter2\n", 0644);
    ConfigureBoard(c_account);
    ExpectRefused("password file " + m_folder.Path("p") +
                  ": has mode 0644, must not be readable or writable by its group or by others (chmod 600)");
}

TEST_F(IpmiRefusalTest, CredentialWithoutAServiceManager) {
    ConfigureBoard("host='127.0.0.1' user='ops' password-credential='io1'");
    ExpectRefused(
        "attribute \"password-credential\" of <board>: the service manager has handed over no credentials "
        "(CREDENTIALS_DIRECTORY is not set)");
}

TEST_F(IpmiRefusalTest, HostByName) {
    WritePassword("hunter2\n", 0600);
    ConfigureBoard("host='localhost' user='ops' password-file='p'");
    const std::string text =
        "attribute \"host\" of <board>: \"localhost\" is not an IPv4 or IPv6 address; names are not looked up, because "
        "a name server that hangs would hang the board";
    ExpectRefused(text);
}

TEST_F(IpmiRefusalTest, CipherSuiteWithoutEncryption) {
    WritePassword("hunter2\n", 0600);
    ConfigureBoard(std::string(c_account) + "cipher='2'");
    const std::string text = "attribute \"cipher\" of <board>: \"2\" has no encryption; taken are 17 and, weaker, 3";
    ExpectRefused(text);
}

TEST_F(IpmiRefusalTest, AttributeWrittenWrong) {
    ConfigureBoard("hots='127.0.0.1'");
    const std::string text = "unknown attribute \"hots\" of <board>; did you mean \"host\"?";
    ExpectRefused(text);
}

TEST_F(IpmiRefusalTest, TemplateThatMakesNoSense) {
    WritePassword("hunter2\n", 0600);
    ConfigureBoard(c_account, "<fpga read='0x30 0x10 {addr}' write='' reply=''/>");
    const std::string text = "attribute \"write\" of <fpga>: the value is missing (bytes)";
    const std::string place = m_folder.Path("config.xml") + ":3: ";
    const test::Result check = test::RunProgram(Command({"--check-config"}));
    EXPECT_EQ(check.output, place + "error: " + text + "\n" + place +
                                "error: attribute \"reply\" of <fpga>: the value is missing (bytes)\n");
    ConfigureBoard(c_account, "<fpga read='0x30 0x10 {addr}' write='6 1' reply='*'/>");
    ExpectRefused(
        "attribute \"read\" of <fpga>: \"{addr}\" is neither a byte (0..255, 0x00..0xff) nor {addr:hi}, {addr:lo}, "
        "{value:hi}, {value:lo} or *");
}

}  // namespace
