// Settings of boards over IPMI that are refused, each with its place.

#include <sys/stat.h>

#include <string>
#include <vector>

#include "bmc/ipmi/settings.h"
#include "settings_fixture.h"

namespace {

using test::SettingsTest;

struct RefusedSettings {
    std::string attributes;
    std::string text;
};

constexpr const char* c_identity = "uri='io/1' type='io' name='IO1' ";
constexpr const char* c_account = "user='ops' password-file='a.pass' ";

class SettingsRefusal : public SettingsTest {
protected:
    void ExpectRefusals(const std::string& common, const std::vector<RefusedSettings>& cases) const {
        for (const RefusedSettings& each : cases) {
            EXPECT_EQ(ErrorOf(Section(Board(common + each.attributes))), At(3) + each.text) << each.attributes;
        }
    }
};

TEST_F(SettingsRefusal, AttributeOfTheSection) {
    const std::vector<RefusedSettings> cases = {
        {"timeout='9'", "attribute \"timeout\" of <boards>: \"9\" is below the limit of 10"},
        {"timeout='60001'", "attribute \"timeout\" of <boards>: \"60001\" is above the limit of 60000"},
        {"timeout='1s'", "attribute \"timeout\" of <boards>: \"1s\" is not a whole number"},
        {"retries='11'", "attribute \"retries\" of <boards>: \"11\" is above the limit of 10"},
        {"cache=''", "attribute \"cache\" of <boards>: the value is missing (path of a folder, or \"none\")"},
        {"timout='10'", "unknown attribute \"timout\" of <boards>; did you mean \"timeout\"?"},
        {"chassis='c.xml'", "unknown attribute \"chassis\" of <boards>"},
    };
    for (const RefusedSettings& each : cases) {
        EXPECT_EQ(ErrorOf("<boards backend='ipmi' " + each.attributes + ">\n" + LanBoard() + "</boards>"),
                  At(2) + each.text);
    }
    EXPECT_EQ(ErrorOf("<boards backend='ipmi' retries='1'/>"),
              At(2) + "<boards backend=\"ipmi\"> has no <board>; at least one must be there");
}

TEST_F(SettingsRefusal, BoardThatSaysNotWhatItIs) {
    ExpectRefusals(
        std::string("host='10.0.0.1' ") + c_account,
        {
            {"type='io' name='A'", "<board> lacks the attribute \"uri\" (SUBSYSTEM/ID)"},
            {"uri='io/1' name='A'", "<board> lacks the attribute \"type\" (name or number of a board type)"},
            {"uri='io/1' type='io'", "<board> lacks the attribute \"name\" (text)"},
            {"uri='io' type='io' name='A'",
             "attribute \"uri\" of <board>: \"io\" is not of the form SUBSYSTEM/ID, of letters, digits, "
             "\"_\", \"-\" and \".\""},
            {"uri='io/1' type='oi' name='A'",
             "attribute \"type\" of <board>: \"oi\" is not the name of a board type; did you mean \"io\"?"},
            {"uri='io/1' type='none' name='A'", "attribute \"type\" of <board>: no board is of type \"none\""},
            {"uri='io/1' type='io' name=''", "attribute \"name\" of <board>: the value is missing (text)"},
        });
}

TEST_F(SettingsRefusal, WayThatIsNoneOrTwo) {
    ExpectRefusals(
        c_identity,
        {
            {c_account, "<board> needs the attribute \"host\" or \"device\""},
            {"host='10.0.0.1' device='/dev/ipmi0'",
             "<board> has both \"host\" and \"device\"; one of them says the way to it"},
            {"device='/dev/ipmi0' port='623'", "attribute \"port\" of <board> goes with \"host\", not with \"device\""},
            {"device='/dev/ipmi0' user='a'", "attribute \"user\" of <board> goes with \"host\", not with \"device\""},
            {"device='/dev/ipmi0' password-file='a'",
             "attribute \"password-file\" of <board> goes with \"host\", not with \"device\""},
            {"device='/dev/ipmi0' password-credential='a'",
             "attribute \"password-credential\" of <board> goes with \"host\", not with \"device\""},
            {"device='/dev/ipmi0' privilege='user'",
             "attribute \"privilege\" of <board> goes with \"host\", not with \"device\""},
            {"device='/dev/ipmi0' cipher='17'",
             "attribute \"cipher\" of <board> goes with \"host\", not with \"device\""},
            {"device='ipmi0'", "attribute \"device\" of <board>: \"ipmi0\" is not an absolute path"},
        });
}

TEST_F(SettingsRefusal, HostThatIsNoAddress) {
    const std::string why =
        " is not an IPv4 or IPv6 address; names are not looked up, because a name server that hangs would hang the "
        "board";
    ExpectRefusals(
        std::string(c_identity) + c_account,
        {
            {"host='shelf.example'", "attribute \"host\" of <board>: \"shelf.example\"" + why},
            {"host='10.0.0'", "attribute \"host\" of <board>: \"10.0.0\"" + why},
            {"host='10.0.0.1:623'", "attribute \"host\" of <board>: \"10.0.0.1:623\"" + why},
            {"host='[::1]'", "attribute \"host\" of <board>: \"[::1]\"" + why},
            {"host='fe80::1'",
             "attribute \"host\" of <board>: \"fe80::1\" is a link-local address, which says nothing "
             "without a network interface"},
            {"host='10.0.0.1' port='0'", "attribute \"port\" of <board>: \"0\" is below the limit of 1"},
            {"host='10.0.0.1' port='65536'", "attribute \"port\" of <board>: \"65536\" is above the limit of 65535"},
        });
}

TEST_F(SettingsRefusal, AccountThatIsNone) {
    ExpectRefusals(
        std::string(c_identity) + "host='10.0.0.1' ",
        {
            {"password-file='a.pass'", "<board> with \"host\" needs the attribute \"user\""},
            {"user='' password-file='a.pass'", "attribute \"user\" of <board>: the value is missing (text)"},
            {"user='seventeen-bytes-x' password-file='a.pass'",
             "attribute \"user\" of <board>: \"seventeen-bytes-x\" has 17 bytes, the limit is 16"},
            {"user='ops'", "<board> with \"host\" needs the attribute \"password-file\" or \"password-credential\""},
            {"user='ops' password-file='a.pass' password-credential='a'",
             "<board> has both \"password-file\" and \"password-credential\""},
            {"user='ops' password-credential='a'",
             "attribute \"password-credential\" of <board>: the service manager has handed over no credentials "
             "(CREDENTIALS_DIRECTORY is not set)"},
            {"user='ops' password-credential='../a'",
             "attribute \"password-credential\" of <board>: \"../a\" is not the name of a credential"},
            {"user='ops' password-credential='..'",
             "attribute \"password-credential\" of <board>: \"..\" is not the name of a credential"},
            {"user='ops' password-file='none.pass'",
             "password file " + m_folder.Path("none.pass") + ": cannot open: No such file or directory"},
            {"user='ops' password-file='a.pass' privilege='root'",
             "attribute \"privilege\" of <board>: \"root\" is not the name of a privilege level"},
            {"user='ops' password-file='a.pass' privilege='admin'",
             "attribute \"privilege\" of <board>: \"admin\" is not the name of a privilege level"},
        });
    m_credentials.Set(m_folder.Path("credentials").c_str());
    ExpectRefusals(std::string(c_identity) + "host='10.0.0.1' ",
                   {{"user='ops' password-credential='a'",
                     "credential " + m_folder.Path("credentials/a") + ": cannot open: No such file or directory"}});
}

TEST_F(SettingsRefusal, CipherSuiteThatProtectsTooLittle) {
    const auto expect = [this](const std::string& suites, const std::string& reason) {
        std::istringstream words(suites);
        for (std::string suite; words >> suite;) {
            EXPECT_EQ(ErrorOf(Section(LanBoard("cipher='" + suite + "'"))),
                      At(3) + "attribute \"cipher\" of <board>: \"" + suite + "\" " + reason +
                          "; taken are 17 and, weaker, 3");
        }
    };
    expect("0", "has no authentication");
    expect("1 2 6 7 11 15 16", "has no encryption");
    expect("8 12", "authenticates with MD5");
    expect("4 5 9 10 13 14 18 19", "encrypts with RC4");
    expect("20 -1 017 best 0x11", "is no cipher suite");
}

TEST_F(SettingsRefusal, AddressBehindTheController) {
    const auto expect = [this](const std::string& attributes, const std::string& text) {
        EXPECT_EQ(ErrorOf(Section(LanBoard(attributes))), At(3) + text);
    };
    expect("ipmb='0x81'", "attribute \"ipmb\" of <board>: \"0x81\" is odd; slave addresses are even");
    expect("ipmb='0'", "attribute \"ipmb\" of <board>: \"0\" is below the limit of 2");
    expect("ipmb='0x100'", "attribute \"ipmb\" of <board>: \"0x100\" is above the limit of 254");
    expect("ipmb='82h'", "attribute \"ipmb\" of <board>: \"82h\" is not a whole number");
    expect("ipmb='0x82' channel='16'", "attribute \"channel\" of <board>: \"16\" is above the limit of 15");
    expect("channel='1'",
           "attribute \"channel\" of <board> is for a board behind the controller, with another \"ipmb\" than 0x20");
}

TEST_F(SettingsRefusal, BoardThatIsThereAlready) {
    const std::string first = "uri='a/b_c' type='io' name='A' device='/dev/ipmi0'";
    const auto expect = [&](const std::string& second, const std::string& text) {
        EXPECT_EQ(ErrorOf(Section(Board(first) + Board(second))), At(4) + text);
    };
    expect("uri='a/b_c' type='io' name='B' device='/dev/ipmi1'",
           "second board with the uri a/b_c, as the one in line 3");
    expect("uri='a_b/c' type='io' name='B' device='/dev/ipmi1'",
           "board a_b/c has the label a_b_c, as the one in line 3");
    expect("uri='io/2' type='io' name='A' device='/dev/ipmi1'", "board io/2 has the name \"A\", as the one in line 3");
    expect("uri='io/2' type='io' name='B' device='/dev/ipmi0'",
           "board io/2 is the same controller as the board in line 3: /dev/ipmi0 with the same \"ipmb\" and "
           "\"channel\"");
}

TEST_F(SettingsRefusal, SharedControllerWithTwoWays) {
    WriteSecret("c1", "x");
    WriteSecret("c2", "x");
    m_credentials.Set(m_folder.Path().c_str());
    const auto expect = [this](const std::string& first, const std::string& second, const std::string& attribute) {
        const std::string way = " type='io' host='10.0.0.1' ";
        EXPECT_EQ(ErrorOf(Section(Board("uri='io/1' name='A'" + way + first) +
                                  Board("uri='io/2' name='B' ipmb='0x82'" + way + second))),
                  At(4) + "attribute \"" + attribute +
                      "\" of <board> says something else than that of the board in line 3, with which it shares "
                      "10.0.0.1:623");
    };
    const std::string account = c_account;
    expect(account, "user='admin' password-file='a.pass'", "user");
    expect(account, "user='ops' password-file='b.pass'", "password-file");
    expect(account, "user='ops' password-credential='c1'", "password-credential");
    expect("user='ops' password-credential='c2'", "user='ops' password-credential='c1'", "password-credential");
    expect(account, account + "privilege='user'", "privilege");
    expect(account, account + "port='623' cipher='3'", "cipher");
}

TEST_F(SettingsRefusal, Fpga_WithTheLineOfItsElement) {
    const auto expect = [this](const std::string& children, const std::string& text) {
        EXPECT_EQ(ErrorOf(Section(LanBoard("", "\n" + children))), At(4) + text);
    };
    const std::string good =
        "<fpga read='6 1 {addr:hi} {addr:lo}' write='6 2 {addr:hi} {addr:lo} {value:hi} {value:lo}' "
        "reply='{value:hi} {value:lo}' ";
    expect(good + "/>" + good + "/>", "second <fpga> in <board>; one only may be there, the first is in line 4");
    expect(good + "revision='0x10000'/>", "attribute \"revision\" of <fpga>: \"0x10000\" is above the limit of 65535");
    expect("<fpga read='6 1' write='6 2'/>", "<fpga> lacks the attribute \"reply\" (bytes)");
    expect("<fpga read='6 1 {addr:hi}' write='6 2' reply='*'/>", "attribute \"read\" of <fpga>: {addr:lo} is missing");
    expect("<fpgas/>", "unknown element <fpgas> in <board>; did you mean <fpga>?");
}

TEST_F(SettingsRefusal, PasswordThatOthersCanRead_IsNotShown) {
    WriteSecret("open.pass", "hunter2\n", 0644);
    EXPECT_EQ(ErrorOf(Section(Board(std::string(c_identity) + "host='10.0.0.1' user='ops' password-file='open.pass'"))),
              At(3) + "password file " + m_folder.Path("open.pass") +
                  ": has mode 0644, must not be readable or writable by its group or by others (chmod 600)");
}

TEST_F(SettingsRefusal, ControlCharacterInAText) {
    EXPECT_EQ(ErrorOf(Section(Board("uri='io/1' type='io' name='a&#9;b' device='/dev/ipmi0'"))),
              At(3) + "control character in attribute \"name\": \"a?b\"");
}

}  // namespace
