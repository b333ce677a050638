// Who may read and write, and TLS: the daemon and the tool, with certificates made as the documentation says.
#include <sys/stat.h>

#include <filesystem>

#include "registry_fixture.h"
#include "tests/support/tls/test_authority.h"

namespace {

using test::Result;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class RegistryTlsTest : public test::RegistryTest {
protected:
    void SetUp() override {
        const Result made = MakeCertificates();
        ASSERT_EQ(made.status, 0) << made.error;
        EXPECT_EQ(made.output, "subject=CN=operator,O=Lab\n");
    }

    /// What the example makes beside the configuration. @param clients "operator" when there is none
    Result MakeCertificates(const std::vector<std::string>& clients = {}) const {
        std::vector<std::string> words{"/bin/sh",
                                       "-c",
                                       "cd \"$1\" && shift && exec \"$@\"",
                                       "sh",
                                       m_folder.Path(),
                                       ZELKOR_EXAMPLES "/tls/make-certificates",
                                       "localhost",
                                       "127.0.0.1"};
        words.insert(words.end(), clients.begin(), clients.end());
        return test::RunProgram(words);
    }

    /// The port that the log names behind an announcement.
    int Port(const std::string& kind) const {
        const std::string line = c_announcement + std::string("[0-9]+") + kind + "\n";
        EXPECT_TRUE(AwaitLog(kind + "\n")) << test::ReadFile(m_folder.Path("err"));
        int port = 0;
        for (const std::string& each : test::Lines(Log())) {
            const std::size_t place = each.find(c_announcement);
            if (place != std::string::npos && each.ends_with(kind) && (!kind.empty() || !each.ends_with("TLS"))) {
                port = std::stoi(each.substr(place + std::string(c_announcement).size()));
            }
        }
        return port;
    }
    int TlsPort() const { return Port(" with TLS"); }

    /// The tool over TLS, with the operator's certificate. @param host as the server's certificate names it
    Result OverTls(const std::vector<std::string>& words, const std::string& host = "localhost") const {
        std::vector<std::string> command{Program("zelkor-regctl"),
                                         "--server",
                                         host + ":" + std::to_string(TlsPort()),
                                         "--tls",
                                         "--ca",
                                         m_folder.Path("ca.pem"),
                                         "--certificate",
                                         m_folder.Path("operator.pem"),
                                         "--key",
                                         m_folder.Path("operator.key")};
        command.insert(command.end(), words.begin(), words.end());
        return test::RunProgram(command);
    }
    Result InClear(const std::vector<std::string>& words) const {
        std::vector<std::string> command{Program("zelkor-regctl"), "--server", "127.0.0.1:" + std::to_string(Port(""))};
        command.insert(command.end(), words.begin(), words.end());
        return test::RunProgram(command);
    }

    Result Check() const {
        return test::RunProgram(
            {Program("zelkor-platformd"), "--config", m_folder.Path("config.xml"), "--check-config"});
    }

    static constexpr const char* c_files = "certificate='server.pem' key='server.key' ca='ca.pem'";
};

TEST_F(RegistryTlsTest, InPlaceOfTheOtherPort_NothingIsServedInClear) {
    Configure("<registry><tls " + std::string(c_files) + "/></registry>\n");
    StartAndAwait();
    EXPECT_EQ(OverTls({"ls"}).output, "boards\nfans\n");
    const Result clear =
        test::RunProgram({Program("zelkor-regctl"), "--server", "127.0.0.1:" + std::to_string(TlsPort()), "ls"});
    EXPECT_EQ(clear.status, 2);
    EXPECT_THAT(clear.error, HasSubstr("or it speaks TLS only"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Log(), HasSubstr("WARNING  Refused a TLS connection from 127.0.0.1: wrong version number\n"));
}

TEST_F(RegistryTlsTest, BesideTheOtherPort_RolesGoByCertificateAndAddress) {
    Configure("<registry>\n<tls " + std::string(c_files) +
              " port='0'/>\n<read from='127.0.0.0/8'/>\n<write subject='CN=operator, O=Lab'/>\n</registry>\n");
    StartAndAwait();
    ASSERT_TRUE(AwaitWorkers());
    EXPECT_EQ(InClear({"ls"}).output, "boards\nfans\n");
    const std::vector<std::string> before = FanRegisters();
    const Result refused = InClear({"set", "fans", "4000"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.error, "Clients at 127.0.0.1 may not write\n");
    EXPECT_EQ(FanRegisters(), before);
    EXPECT_EQ(OverTls({"set", "fans/left_front", "3000"}, "127.0.0.1").status, 0);
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Log(), HasSubstr("WARNING  Refused to write fans = 4000 for 127.0.0.1, which may not write\n"));
    EXPECT_THAT(Messages(),
                testing::Contains(MatchesRegex("INFO     Registry: fans/left_front set from (unknown|[0-9]+) to 3000 "
                                               "by 127[.]0[.]0[.]1 [(]CN=operator,O=Lab[)]")));
}

TEST_F(RegistryTlsTest, FilesReadAnewAtReload_HoldForConnectionsFromThenOn) {
    Configure("<registry>\n<tls " + std::string(c_files) + "/>\n</registry>\n");
    StartAndAwait();
    EXPECT_EQ(OverTls({"ls"}).output, "boards\nfans\n");
    const auto files = {"ca.pem", "server.pem", "server.key", "operator.pem", "operator.key"};
    const auto bring = [&](const char* name, const std::string& from, const std::string& to) {
        std::filesystem::copy_file(m_folder.Path(from + name), m_folder.Path(to + name),
                                   std::filesystem::copy_options::overwrite_existing);
    };
    std::filesystem::create_directory(m_folder.Path("old"));
    for (const char* name : files) {
        bring(name, "", "old/");
    }
    // All made anew, by another authority of the same name.
    for (const char* name : files) {
        std::filesystem::remove(m_folder.Path(name));
    }
    SetUp();
    const Result stranger = OverTls({"ls"});
    EXPECT_EQ(stranger.status, 2) << "the service knows nothing of them yet";

    const auto countRenewals = [this] {
        const std::string log = Log();
        std::size_t count = 0;
        for (std::size_t at = 0; (at = log.find("were read anew.", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    };
    EXPECT_EQ(countRenewals(), 0U);
    m_daemon->Signal(SIGHUP);
    ASSERT_TRUE(AwaitLog("INFO     TLS: certificates, key and revocation lists were read anew.\n"));
    const Result renewed = OverTls({"ls"});
    EXPECT_EQ(renewed.output, "boards\nfans\n") << renewed.error;

    // The new authority signs nobody of the old one: neither side takes the other.
    for (const char* name : {"operator.pem", "operator.key"}) {
        bring(name, "old/", "");
    }
    const Result old = OverTls({"ls"});
    EXPECT_EQ(old.status, 2);
    EXPECT_TRUE(AwaitLog("WARNING  Refused a TLS connection from 127.0.0.1")) << old.error;

    // A key that belongs to another certificate changes nothing.
    bring("server.key", "old/", "");
    m_daemon->Signal(SIGHUP);
    ASSERT_TRUE(AwaitLog("ERROR    TLS goes on with the files as they were read before - " +
                         m_folder.Path("config.xml") + ":4: certificate " + m_folder.Path("server.pem") +
                         ": does not belong to the key " + m_folder.Path("server.key") + "\n"));
    EXPECT_EQ(OverTls({"ls"}).status, 2) << "still the new ones";

    // And back, as often as one likes.
    for (const char* name : files) {
        bring(name, "old/", "");
    }
    m_daemon->Signal(SIGHUP);
    ASSERT_TRUE(Await([&] { return countRenewals() == 2; }));
    EXPECT_EQ(OverTls({"ls"}).output, "boards\nfans\n");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTlsTest, CertificatesMadeAgain_OnlyWhatIsMissingIsNewAndOfTheSameAuthority) {
    const auto read = [this](const char* name) { return test::ReadFile(m_folder.Path(name)); };
    const std::string authority = read("ca.pem");
    const std::string authorityKey = read("ca.key");
    const std::string server = read("server.pem");
    const std::string person = read("operator.pem");
    std::filesystem::remove(m_folder.Path("server.pem"));
    const Result made = MakeCertificates({"operator", "reader"});
    EXPECT_EQ(made.status, 0) << made.error;
    EXPECT_EQ(made.output, "subject=CN=operator,O=Lab\nsubject=CN=reader,O=Lab\n");
    EXPECT_EQ(read("ca.pem") + read("ca.key") + read("operator.pem"), authority + authorityKey + person);
    EXPECT_NE(read("server.pem"), server);
    Configure("<registry>\n<tls " + std::string(c_files) + "/>\n</registry>\n");
    StartAndAwait();
    const Result listed = OverTls({"ls"});
    EXPECT_EQ(listed.output, "boards\nfans\n") << listed.error;
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTlsTest, RevokedClient_IsRefusedAfterAReload) {
    std::filesystem::create_directory(m_folder.Path("own"));
    const test::TestAuthority authority(m_folder.Path("own"));
    authority.Issue("server", {.usage = "serverAuth"});
    authority.Issue("operator", {.subject = "/O=Lab/CN=operator", .names = "", .usage = "clientAuth"});
    authority.WriteRevocations("now");
    for (const char* name : {"ca.pem", "server.pem", "server.key", "operator.pem", "operator.key"}) {
        std::filesystem::copy_file(authority.Path(name), m_folder.Path(name),
                                   std::filesystem::copy_options::overwrite_existing);
    }
    Configure("<registry>\n<tls " + std::string(c_files) + " crl='own/now.crl'/>\n</registry>\n");
    StartAndAwait();
    const Result before = OverTls({"ls"});
    EXPECT_EQ(before.output, "boards\nfans\n") << before.error;
    authority.Revoke("operator");
    authority.WriteRevocations("now");
    m_daemon->Signal(SIGHUP);
    ASSERT_TRUE(AwaitLog("were read anew.\n"));
    EXPECT_EQ(OverTls({"ls"}).status, 2);
    EXPECT_TRUE(
        AwaitLog("WARNING  Refused a TLS connection from 127.0.0.1 (CN=operator,O=Lab): certificate revoked\n"));
    EXPECT_THAT(Log(), HasSubstr("WARNING  TLS: "));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTlsTest, CertificateThatHasExpired_DoesNotHinderTheStart) {
    std::filesystem::create_directory(m_folder.Path("own"));
    const test::TestAuthority authority(m_folder.Path("own"));
    authority.Issue("server", {.days = -1});
    for (const char* name : {"ca.pem", "server.pem", "server.key"}) {
        std::filesystem::copy_file(authority.Path(name), m_folder.Path(name),
                                   std::filesystem::copy_options::overwrite_existing);
    }
    Configure("<registry>\n<tls " + std::string(c_files) + " port='0'/>\n</registry>\n");
    const std::string said = "certificate " + m_folder.Path("server.pem") + ": expired at ";
    const Result check = Check();
    EXPECT_EQ(check.status, 1);
    EXPECT_THAT(check.output, HasSubstr(":4: error: " + said));
    StartAndAwait();
    EXPECT_TRUE(AwaitLog("WARNING  TLS: " + said)) << Log();
    EXPECT_EQ(InClear({"ls"}).output, "boards\nfans\n");
    const Result refused = OverTls({"ls"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTlsTest, WhoMayNotRead_IsTold) {
    Configure("<registry><read from='10.0.0.0/8'/></registry>\n");
    StartAndAwait();
    ExpectFailure({"tree"}, 1, "Clients at 127.0.0.1 may not read\n");
    ExpectFailure({"get", "fans"}, 1, "Clients at 127.0.0.1 may not read\n");
    ExpectFailure({"watch", "--timeout", "1"}, 1, "Clients at 127.0.0.1 may not read\n");
    ExpectFailure({"set", "fans", "4000"}, 1, "Clients at 127.0.0.1 may not write\n");
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Log(), HasSubstr("WARNING  Refused to read for 127.0.0.1, which may not read\n"));
}

TEST_F(RegistryTlsTest, TheExample_IsProvedAndRuns) {
    std::string text = test::ReadFile(ZELKOR_EXAMPLES "/config/tls.xml");
    // Several daemons run at a time, and the example's folder is another one.
    for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
             {"port=\"5679\"", "port=\"0\""}, {"../chassis", ZELKOR_EXAMPLES "/chassis"}}) {
        ASSERT_NE(text.find(from), std::string::npos);
        text.replace(text.find(from), from.size(), to);
    }
    test::WriteFile(m_folder.Path("config.xml"), text);
    const Result check = Check();
    EXPECT_EQ(check.status, 0);
    EXPECT_EQ(check.output, "");
    StartAndAwait();
    // The example listens on IPv4 only; the name may stand for the other kind first.
    const Result asked = OverTls({"ls"}, "127.0.0.1");
    EXPECT_EQ(asked.output, "boards\nfans\n") << asked.error;
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTlsTest, ShippedConfiguration_IsProvedAndLetsOnlyThisHostWrite) {
    const Result check =
        test::RunProgram({Program("zelkor-platformd"), "--config", ZELKOR_SHIPPED_CONFIGURATION, "--check-config"});
    EXPECT_EQ(check.status, 0);
    EXPECT_THAT(check.output, Not(HasSubstr(": error: ")));
    std::filesystem::copy_file(ZELKOR_SHIPPED_CONFIGURATION, m_folder.Path("config.xml"));
    StartAndAwait();
    EXPECT_EQ(Registry({"set", "fans", "3000"}).status, 0);
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTlsTest, FilesThatAreWrong_AreRefusedWithTheirLineAndFoundByTheCheck) {
    const std::string config = m_folder.Path("config.xml");
    const auto expect = [&](const std::string& files, const std::string& text) {
        Configure("<registry>\n<tls " + files + "/>\n</registry>\n");
        ExpectRefusal(Command(), config + ":4: " + text);
        const Result check = Check();
        EXPECT_EQ(check.status, 1);
        EXPECT_EQ(check.output, config + ":4: error: " + text + "\n");
    };
    expect("certificate='none.pem' key='server.key' ca='ca.pem'",
           "certificate " + m_folder.Path("none.pem") + ": cannot open: No such file or directory");
    expect(
        "certificate='server.pem' key='operator.key' ca='ca.pem'",
        "certificate " + m_folder.Path("server.pem") + ": does not belong to the key " + m_folder.Path("operator.key"));
    expect("certificate='operator.pem' key='operator.key' ca='ca.pem'",
           "certificate " + m_folder.Path("operator.pem") +
               ": is not for a server (its key usage or extended key usage forbids it)");
    expect("certificate='server.pem' key='server.key' ca='server.key'",
           "ca " + m_folder.Path("server.key") + ": holds no certificate in PEM form");
    ASSERT_EQ(::chmod(m_folder.Path("server.key").c_str(), 0640), 0);
    expect(c_files, "key " + m_folder.Path("server.key") +
                        ": has mode 0640, must not be readable or writable by its group or by others (chmod 600)");
}

TEST_F(RegistryTlsTest, RolesThatCannotBe_AreErrorsOfTheirLine) {
    const std::string config = m_folder.Path("config.xml");
    Configure("<registry>\n<write/>\n<read subject='operator'/>\n<write subject='CN=operator'/>\n</registry>\n");
    const Result check = Check();
    EXPECT_EQ(check.status, 1);
    const std::string noTls = ": clients show certificates over TLS only, and there is no <tls>\n";
    EXPECT_EQ(check.output,
              config + ":4: error: <write> names no clients: it needs the attribute \"from\" or \"subject\"\n" +
                  config +
                  ":5: error: attribute \"subject\" of <read>: \"operator\" is not the subject of a certificate: "
                  "\"operator\" does not begin with an attribute and \"=\" as \"CN=\"\n" +
                  config + ":5: error: attribute \"subject\" of <read>" + noTls + config +
                  ":6: error: attribute \"subject\" of <write>" + noTls);
    ExpectRefusal(Command(), config + ":4: ");
}

}  // namespace
