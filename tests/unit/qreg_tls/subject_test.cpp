#include "qreg/tls/subject.h"

#include <gmock/gmock.h>
#include <openssl/pem.h>

#include "tests/support/expect_text.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"
#include "tests/support/tls/test_authority.h"

namespace {

using qreg::tls::CanonicalSubject;
using qreg::tls::SubjectOf;

TEST(CanonicalSubject, TextAsOpensslPrintsIt_StaysAsItIs) {
    for (const char* text : {
             "CN=operator",
             "CN=operator,O=Lab",
             "emailAddress=a@b,CN=operator,OU=x,O=Lab,L=Here,ST=There,C=DE",
             "CN=two,CN=J\\C3\\B6rg\\, b\\+c,O=Lab",
             "CN=a\\\\b\\\"c\\<d\\>e\\;f",
             "CN=\\ blank at both ends\\ ",
             "CN=\\#hash",
             "CN=zero\\00inside",
             "CN=a=b",
             "1.2.3.4=#0C03616263",
             "O=b+CN=a,C=DE",
         }) {
        EXPECT_EQ(CanonicalSubject(text), text);
        EXPECT_EQ(CanonicalSubject(CanonicalSubject(text)), CanonicalSubject(text));
    }
}

TEST(CanonicalSubject, WhatPeopleWriteOtherwise_MeansTheSame) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"CN=operator, O=Lab", "CN=operator,O=Lab"},
        {"  CN = operator ,  O = Lab ", "CN=operator,O=Lab"},
        {"commonName=operator,organizationName=Lab", "CN=operator,O=Lab"},
        {"2.5.4.3=operator", "CN=operator"},
        {"CN=J\xC3\xB6rg", "CN=J\\C3\\B6rg"},
        {"CN=\\6fperator", "CN=operator"},
        {"CN=a\\=b\\ c", "CN=a=b c"},
        {"O=b + CN=a,C=DE", "O=b+CN=a,C=DE"},
        {"CN=a+O=b,C=DE", "O=b+CN=a,C=DE"},
        {"CN=#0C086F70657261746F72", "CN=operator"},
    };
    for (const auto& [written, meant] : cases) {
        EXPECT_EQ(CanonicalSubject(written), meant) << written;
    }
}

TEST(CanonicalSubject, NamesThatLookAlike_StayApart) {
    const std::vector<std::string> names = {
        "CN=operator,O=Lab",     "CN=operator\\,O=Lab",  "O=Lab,CN=operator",
        "CN=operator+O=Lab",     "CN=operator\\+O=Lab",  "CN=operator,O=lab",
        "CN=operator\\00,O=Lab", "CN=operator\\ ,O=Lab", "CN=operator,CN=operator,O=Lab",
        "CN=operator,O=Lab,C=DE"};
    for (std::size_t i = 0; i < names.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            EXPECT_NE(CanonicalSubject(names[i]), CanonicalSubject(names[j])) << names[i] << " and " << names[j];
        }
    }
}

TEST(CanonicalSubject, WhatIsNoSubject_IsRefusedWithTheReason) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "\"\" does not begin with an attribute and \"=\" as \"CN=\""},
        {"operator", "\"operator\" does not begin with an attribute and \"=\" as \"CN=\""},
        {"CN=operator,", "\"\" does not begin with an attribute and \"=\" as \"CN=\""},
        {"CN=operator,Lab", "\"Lab\" does not begin with an attribute and \"=\" as \"CN=\""},
        {"=operator", "\"=operator\" does not begin with an attribute and \"=\" as \"CN=\""},
        {"subject=CN=operator", "there is no attribute \"subject\" (as CN, O, OU, C, emailAddress, or a number)"},
        {"CN=", "the value of CN cannot be one: it is empty"},
        {"C=Germany", "the value of C cannot be one: string too long"},
        {"CN=\"operator\"", "\" stands without a \"\\\" before it"},
        {"CN=a;O=b", "; stands without a \"\\\" before it"},
        {"CN=a\\z", "behind \"\\\" stands neither a letter that needs it nor two hexadecimal digits"},
        {"CN=a\\", "behind \"\\\" stands neither a letter that needs it nor two hexadecimal digits"},
        {"CN=#0C0", "\"0\" stands where \",\" or the end is expected"},
        {"CN=#0C05616263", "the value of CN does not decode"},
        {"CN=#0500", "the value of CN does not decode"},
        {"CN=\\C3\\28", "the value of CN cannot be one: invalid utf8string"},
    };
    for (const auto& [text, reason] : cases) {
        EXPECT_EQ(test::TextOf([&] { CanonicalSubject(text); }),
                  "\"" + text + "\" is not the subject of a certificate: " + reason);
    }
}

TEST(SubjectOf, IsWhatACanonicalTextSays) {
    const test::TempFolder folder;
    const test::TestAuthority authority(folder.Path());
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"/O=Lab/CN=operator", "CN=operator, O=Lab"},
        {"/O=Lab/CN=J\xC3\xB6rg, b\\+c/CN=two", "CN=two,CN=J\xC3\xB6rg\\, b\\+c,O=Lab"},
        {"/C=DE/O=b+CN=a", "CN=a+O=b,C=DE"},
        {"/O=Lab\\/CN=operator", "O=Lab/CN\\=operator"},
    };
    for (const auto& [subject, text] : cases) {
        authority.Issue("peer", {.subject = subject});
        const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(folder.Path("peer.pem").c_str(), "r"), std::fclose);
        const std::unique_ptr<X509, void (*)(X509*)> certificate(PEM_read_X509(file.get(), nullptr, nullptr, nullptr),
                                                                 X509_free);
        ASSERT_NE(certificate, nullptr);
        EXPECT_EQ(SubjectOf(*certificate), CanonicalSubject(text));
        EXPECT_EQ(SubjectOf(*certificate), CanonicalSubject(SubjectOf(*certificate)));
        const test::Result printed = test::RunProgram(
            {"/usr/bin/openssl", "x509", "-noout", "-subject", "-nameopt", "RFC2253", "-in", folder.Path("peer.pem")});
        EXPECT_EQ(printed.output, "subject=" + SubjectOf(*certificate) + "\n");
    }
}

}  // namespace
