#include "qreg/tls/identity.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/support/expect_text.h"
#include "tests/support/file.h"
#include "tests/support/manual_clock.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"
#include "tests/support/tls/test_authority.h"

namespace {

using qreg::tls::Identity;
using qreg::tls::IdentityFiles;
using qreg::tls::Outdated_e;
using qreg::tls::Side_e;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// server.pem and server.key of the authority ca.pem, once for all tests, which copy what they spoil.
class IdentityTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = new test::TempFolder;
        s_authority = new test::TestAuthority(s_folder->Path());
        s_authority->Issue("server", {.days = 365});
    }
    static void TearDownTestSuite() {
        delete s_authority;
        delete s_folder;
    }

    static std::string Path(const std::string& name) { return s_folder->Path(name); }
    static IdentityFiles Files(const std::string& name = "server") {
        return {.certificate = Path(name + ".pem"), .key = Path(name + ".key"), .ca = Path("ca.pem")};
    }
    static std::string Refusal(const IdentityFiles& files, Side_e side = Side_e::server) {
        return test::TextOf([&] { const Identity identity(side, files); });
    }

    static test::TempFolder* s_folder;
    static test::TestAuthority* s_authority;
};

test::TempFolder* IdentityTest::s_folder = nullptr;
test::TestAuthority* IdentityTest::s_authority = nullptr;

TEST_F(IdentityTest, GoodFiles_AreTakenWithoutConcerns) {
    EXPECT_THAT(Identity(Side_e::server, Files()).FindConcerns(), IsEmpty());
    EXPECT_THAT(Identity(Side_e::client, Files()).FindConcerns(), IsEmpty());
}

TEST_F(IdentityTest, Client_MayHaveNoCertificate) {
    EXPECT_NO_THROW(Identity(Side_e::client, {.certificate = "", .key = "", .ca = Path("ca.pem")}));
}

TEST_F(IdentityTest, FileThatIsNotThere_IsNamed) {
    IdentityFiles files = Files();
    files.certificate = Path("none.pem");
    EXPECT_EQ(Refusal(files), "certificate " + Path("none.pem") + ": cannot open: No such file or directory");
    files = Files();
    files.key = Path("none.key");
    EXPECT_EQ(Refusal(files), "key " + Path("none.key") + ": cannot open: No such file or directory");
    files = Files();
    files.ca = Path("none.pem");
    EXPECT_EQ(Refusal(files), "ca " + Path("none.pem") + ": cannot open: No such file or directory");
    files = Files();
    files.crl = Path("none.crl");
    EXPECT_EQ(Refusal(files), "crl " + Path("none.crl") + ": cannot open: No such file or directory");
}

TEST_F(IdentityTest, WhatIsNoFile_IsRefusedWithoutWaiting) {
    ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
    for (const char* name : {"pipe", ""}) {
        IdentityFiles files = Files();
        files.certificate = Path(name);
        EXPECT_EQ(Refusal(files), "certificate " + Path(name) + ": is not a regular file");
        files = Files();
        files.key = Path(name);
        EXPECT_EQ(Refusal(files), "key " + Path(name) + ": is not a regular file");
    }
}

TEST_F(IdentityTest, FileWithoutWhatItShouldHold_IsRefused) {
    test::WriteFile(Path("empty"), "");
    test::WriteFile(Path("noise"), std::string("\0\1\2 noise", 9));
    const std::string pem = test::ReadFile(Path("server.pem"));
    test::WriteFile(Path("half"), pem + pem.substr(0, pem.size() / 2));
    for (const char* name : {"empty", "noise", "server.key"}) {
        IdentityFiles files = Files();
        files.certificate = Path(name);
        EXPECT_EQ(Refusal(files), "certificate " + Path(name) + ": holds no certificate in PEM form");
        files = Files();
        files.ca = Path(name);
        EXPECT_EQ(Refusal(files), "ca " + Path(name) + ": holds no certificate in PEM form");
    }
    IdentityFiles files = Files();
    files.certificate = Path("half");
    EXPECT_THAT(Refusal(files), StartsWith("certificate " + Path("half") + ": certificate 2 does not parse: "));
    files = Files();
    files.key = Path("empty");
    ASSERT_EQ(::chmod(files.key.c_str(), 0600), 0);
    EXPECT_THAT(Refusal(files), StartsWith("key " + files.key + ": holds no private key in PEM form"));
}

TEST_F(IdentityTest, KeyThatOthersCanRead_IsRefused) {
    test::WriteFile(Path("open.key"), test::ReadFile(Path("server.key")));
    IdentityFiles files = Files();
    files.key = Path("open.key");
    for (const mode_t mode : {0640, 0604, 0660, 0602}) {
        ASSERT_EQ(::chmod(files.key.c_str(), mode), 0);
        EXPECT_THAT(Refusal(files), HasSubstr(", must not be readable or writable by its group or by others (chmod "
                                              "600)"));
    }
    files.isKeyCredential = true;
    ASSERT_EQ(::chmod(files.key.c_str(), 0440), 0);
    EXPECT_EQ(Refusal(files), "(no exception)");
    ASSERT_EQ(::chmod(files.key.c_str(), 0444), 0);
    EXPECT_THAT(Refusal(files), StartsWith("credential " + files.key + ": has mode 0444, must not be "));
}

TEST_F(IdentityTest, KeyWithAPassPhrase_IsRefusedWithoutAsking) {
    const test::Result result = test::RunProgram({"/usr/bin/openssl", "pkcs8", "-topk8", "-in", Path("server.key"),
                                                  "-out", Path("locked.key"), "-passout", "pass:secret"});
    ASSERT_EQ(result.status, 0) << result.error;
    ASSERT_EQ(::chmod(Path("locked.key").c_str(), 0600), 0);
    IdentityFiles files = Files();
    files.key = Path("locked.key");
    EXPECT_EQ(Refusal(files), "key " + files.key + ": has a pass phrase, which nobody is there to give");
}

TEST_F(IdentityTest, KeyOfAnotherCertificate_IsRefused) {
    s_authority->Issue("other");
    IdentityFiles files = Files();
    files.key = Path("other.key");
    EXPECT_EQ(Refusal(files), "certificate " + files.certificate + ": does not belong to the key " + files.key);
}

TEST_F(IdentityTest, CertificateForTheOtherSide_IsRefused) {
    s_authority->Issue("person", {.usage = "clientAuth"});
    EXPECT_EQ(Refusal(Files("person")), "certificate " + Path("person.pem") +
                                            ": is not for a server (its key usage or extended key usage forbids it)");
    EXPECT_EQ(Refusal(Files("person"), Side_e::client), "(no exception)");
    s_authority->Issue("machine", {.usage = "serverAuth"});
    EXPECT_THAT(Refusal(Files("machine"), Side_e::client), HasSubstr(": is not for a client "));
}

TEST_F(IdentityTest, CertificateOutsideItsTime_IsRefused) {
    s_authority->Issue("old", {.days = -1});
    EXPECT_THAT(Refusal(Files("old")), testing::AllOf(StartsWith("certificate " + Path("old.pem") + ": expired at 20"),
                                                      testing::EndsWith(" UTC (CN=server,O=Lab)")));
    test::ManualClock clock;  // some time that is not today
    clock.SetCalendarBy(-std::chrono::hours(24) * 365 * 30);
    EXPECT_THAT(Refusal(Files()), StartsWith("certificate " + Path("server.pem") + ": holds only from 20"));
}

TEST_F(IdentityTest, WhatDoesNotHoldToday_IsAConcernWhereItIsTaken) {
    s_authority->Issue("past", {.subject = "/CN=past", .days = -1});
    const Identity past(Side_e::server, Files("past"), Outdated_e::taken);
    EXPECT_THAT(past.FindConcerns(),
                ElementsAre(testing::AllOf(StartsWith("certificate " + Path("past.pem") + ": expired at 20"),
                                           testing::EndsWith(" UTC (CN=past)"))));
    s_authority->WriteRevocations("list");
    IdentityFiles files = Files();
    files.crl = Path("list.crl");
    test::ManualClock clock;
    clock.SetCalendarBy(std::chrono::hours(24) * 365 * 60);
    EXPECT_THAT(Identity(Side_e::server, files, Outdated_e::taken).FindConcerns(),
                testing::Contains(StartsWith("crl " + files.crl + ": expired at 20")));
    clock.SetCalendarBy(-std::chrono::hours(24) * 365 * 90);
    EXPECT_THAT(Identity(Side_e::server, Files(), Outdated_e::taken).FindConcerns(),
                ElementsAre(StartsWith("certificate " + Path("server.pem") + ": holds only from 20")));
}

TEST_F(IdentityTest, CertificateThatEndsSoon_IsAConcern) {
    s_authority->Issue("short", {.subject = "/CN=short", .days = 29});
    const Identity identity(Side_e::server, Files("short"));
    const std::vector<std::string> concerns = identity.FindConcerns();
    ASSERT_EQ(concerns.size(), 1U);
    EXPECT_THAT(concerns[0], StartsWith("certificate " + Path("short.pem") + ": expires at 20"));
    EXPECT_THAT(concerns[0], testing::EndsWith(" UTC (CN=short)"));
}

TEST_F(IdentityTest, WeakKey_IsRefused) {
    s_authority->Issue("weak", {.key = "rsa:1024"});
    EXPECT_EQ(Refusal(Files("weak")), "certificate " + Path("weak.pem") + ": ee key too small");
}

TEST_F(IdentityTest, RevocationList_IsReadAndMustBeOfToday) {
    s_authority->WriteRevocations("ca");
    IdentityFiles files = Files();
    files.crl = Path("ca.crl");
    const Identity identity(Side_e::server, files);
    // The list of the test holds for thirty days, which is soon.
    EXPECT_THAT(identity.FindConcerns(), ElementsAre(testing::AllOf(StartsWith("crl " + files.crl + ": expires at "),
                                                                    HasSubstr("; no peer is taken from then on"))));
    files.crl = Path("ca.pem");
    EXPECT_EQ(Refusal(files), "crl " + files.crl + ": holds no revocation list in PEM form");
}

}  // namespace
