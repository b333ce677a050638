#include "qapp/registry_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <map>

#include "qstd/exception.h"
#include "tests/support/expect_text.h"
#include "tests/support/temp_folder.h"
#include "tests/support/tls/test_authority.h"

namespace {

using qapp::Options;
using qreg::ServerSettings;

ServerSettings Read(const std::string& sections, const Options& options = {}) {
    qcfg::Configuration configuration;
    configuration.LoadText("<zelkor>\n" + sections + "</zelkor>\n", "c.xml");
    ServerSettings defaults;
    defaults.port = 5678;
    return qapp::ReadRegistrySettings(configuration, options, defaults);
}

TEST(RegistrySettings, WithoutSection_AreTheDefaults) {
    for (const char* sections : {"", "<registry/>\n"}) {
        const ServerSettings settings = Read(sections);
        EXPECT_EQ(settings.port, 5678);
        EXPECT_EQ(settings.listen, "");
        EXPECT_FALSE(settings.push);
        EXPECT_TRUE(settings.mayWrite.IsEmpty());
        EXPECT_EQ(settings.connections, ServerSettings().connections);
    }
}

TEST(RegistrySettings, DefaultsAreThoseThatTheRulesName) {
    std::map<std::string, std::string> named;
    for (const qcfg::AttributeRule& attribute : qapp::RegistryRule().attributes) {
        named[attribute.name] = attribute.defaultValue;
    }
    const ServerSettings settings = Read("");
    EXPECT_EQ(named["port"], std::to_string(settings.port));
    EXPECT_EQ(named["push"], settings.push ? "true" : "false");
    EXPECT_EQ(named["connections"], std::to_string(settings.connections));
    EXPECT_EQ(named["max_message"], std::to_string(settings.maxMessage));
    EXPECT_EQ(named["idle_time"], std::to_string(settings.idleTime.count()));
    EXPECT_EQ(named["subscriptions"], std::to_string(settings.subscriptions.subscriptions));
    EXPECT_EQ(named["queue"], std::to_string(settings.subscriptions.queue));
}

TEST(RegistrySettings, ManySubscriptions_MayHaveMorePatterns) {
    EXPECT_EQ(Read("<registry subscriptions='10000'/>").subscriptions.allPatterns, 80000U);
}

TEST(RegistrySettings, AreThoseOfTheSection) {
    const ServerSettings settings = Read(
        "<registry port='1234' listen='127.0.0.1' push='yes' connections='7' max_message='100000' idle_time='5'\n"
        "          subscriptions='9' queue='11'>\n"
        "  <write from='127.0.0.0/8'/>\n"
        "  <write from='::1'/>\n"
        "</registry>\n");
    EXPECT_EQ(settings.port, 1234);
    EXPECT_EQ(settings.listen, "127.0.0.1");
    EXPECT_TRUE(settings.push);
    EXPECT_EQ(settings.connections, 7U);
    EXPECT_EQ(settings.maxMessage, 100000U);
    EXPECT_EQ(settings.idleTime, std::chrono::seconds(5));
    EXPECT_EQ(settings.subscriptions.subscriptions, 9U);
    EXPECT_EQ(settings.subscriptions.allPatterns, 2048U);
    EXPECT_EQ(settings.subscriptions.queue, 11U);
    EXPECT_EQ(settings.subscriptions.defaultQueue, 11U) << "never beyond the most that there may be";
    EXPECT_TRUE(settings.mayWrite.Contains({"127.1.2.3"}));
    EXPECT_TRUE(settings.mayWrite.Contains({"::1"}));
    EXPECT_FALSE(settings.mayWrite.Contains({"10.0.0.1"}));
}

TEST(RegistrySettings, CommandLineWins) {
    Options options;
    options.port = 0;
    options.isPortGiven = true;
    options.listen = "::1";
    const ServerSettings settings = Read("<registry port='1234' listen='127.0.0.1'/>\n", options);
    EXPECT_EQ(settings.port, 0);
    EXPECT_EQ(settings.listen, "::1");
    EXPECT_EQ(Read("<registry port='1234'/>\n", Options{}).port, 1234) << "the option's default does not win";
}

TEST(RegistrySettings, WhatTheRulesDoNotAllow_IsRefusedWithItsLine) {
    const std::map<std::string, std::string> cases{
        {"<registry port='65536'/>", "port"},
        {"<registry port='x'/>", "port"},
        {"<registry listen='somewhere'/>", "listen"},
        {"<registry push='perhaps'/>", "push"},
        {"<registry connections='0'/>", "connections"},
        {"<registry max_message='100'/>", "max_message"},
        {"<registry idle_time='0'/>", "idle_time"},
        {"<registry queue='-1'/>", "queue"},
        {"<registry ports='1'/>", "ports"},
        {"<registry><write/></registry>", "<write> names no clients: it needs the attribute \"from\" or \"subject\""},
        {"<registry><read/></registry>", "<read> names no clients: it needs the attribute \"from\" or \"subject\""},
        {"<registry><read from='1.2.3'/></registry>", "1.2.3"},
        {"<registry><write subject='CN=a'/></registry>",
         "attribute \"subject\" of <write>: clients show certificates over TLS only, and there is no <tls>"},
        {"<registry><read subject='a'/><tls certificate='a' key='b' ca='c'/></registry>",
         "attribute \"subject\" of <read>: \"a\" is not the subject of a certificate: "},
        {"<registry><tls key='b' ca='c'/></registry>", "certificate"},
        {"<registry><tls certificate='a' key='b'/></registry>", "\"ca\""},
        {"<registry><tls certificate='a' ca='c'/></registry>",
         "<tls> needs the attribute \"key\" or \"key-credential\""},
        {"<registry><tls certificate='a' key='b' key-credential='b' ca='c'/></registry>",
         "<tls> has both \"key\" and \"key-credential\""},
        {"<registry><tls certificate='a' key='b' ca='c' port='65536'/></registry>", "port"},
        {"<registry><tls certificate='a' key='b' ca='c' listen='::'/></registry>",
         "attribute \"listen\" of <tls> goes with \"port\""},
        {"<registry push='yes'><tls certificate='a' key='b' ca='c'/></registry>",
         "attribute \"push\" of <registry>: callback objects are called in clear"},
        {"<registry><tls certificate='a' key='b' ca='c'/><tls certificate='a' key='b' ca='c'/></registry>", "tls"},
        {"<registry><write from='1.2.3'/></registry>", "1.2.3"},
        {"<registry><see/></registry>", "see"},
    };
    for (const auto& [section, subject] : cases) {
        const std::string text = test::TextOf([&, text = section] { Read("\n" + text + "\n"); });
        EXPECT_THAT(text, testing::AllOf(testing::StartsWith("c.xml:3: "), testing::HasSubstr(subject))) << section;
    }
}

/// A configuration beside certificates.
class TlsSettingsTest : public testing::Test {
protected:
    qcfg::Configuration Configuration(const std::string& registry) const {
        qcfg::Configuration configuration;
        configuration.LoadText("<zelkor>\n\n" + registry + "\n</zelkor>\n", m_folder.Path("c.xml"));
        return configuration;
    }
    std::string Refusal(const std::string& registry) const {
        return test::TextOf([&] { qapp::ReadRegistrySettings(Configuration(registry), {}, {}); });
    }
    static constexpr const char* c_tls = "<tls certificate='server.pem' key='server.key' ca='ca.pem'/>";

    const test::TempFolder m_folder;
    const test::TestAuthority m_authority{m_folder.Path()};
};

TEST_F(TlsSettingsTest, Files_AreBesideTheConfiguration) {
    m_authority.Issue("server", {.days = 365});
    ServerSettings settings = qapp::ReadRegistrySettings(
        Configuration("<registry listen='127.0.0.1'>" + std::string(c_tls) + "</registry>"), {}, {});
    ASSERT_TRUE(settings.tls);
    EXPECT_NE(settings.tls->identity, nullptr);
    EXPECT_FALSE(settings.tls->port);
    EXPECT_EQ(settings.tls->listen, "127.0.0.1");
    m_authority.WriteRevocations("ca");
    settings = qapp::ReadRegistrySettings(
        Configuration("<registry listen='127.0.0.1' push='yes'><tls port='0' listen='::1' certificate='" +
                      m_folder.Path("server.pem") + "' key='./server.key' ca='ca.pem' crl='ca.crl'/></registry>"),
        {}, {});
    ASSERT_TRUE(settings.tls);
    EXPECT_EQ(settings.tls->port, 0);
    EXPECT_EQ(settings.tls->listen, "::1");
}

TEST_F(TlsSettingsTest, Subjects_AreTakenInOneForm) {
    m_authority.Issue("server");
    const ServerSettings settings = qapp::ReadRegistrySettings(
        Configuration("<registry><read subject='CN=reader'/><write subject='CN=operator, O=Lab' from='10.0.0.0/8'/>" +
                      std::string(c_tls) + "</registry>"),
        {}, {});
    EXPECT_TRUE(settings.mayRead.Contains({"1.2.3.4", "CN=reader"}));
    EXPECT_TRUE(settings.mayWrite.Contains({"10.0.0.1", "CN=operator,O=Lab"}));
    EXPECT_FALSE(settings.mayWrite.Contains({"11.0.0.1", "CN=operator,O=Lab"}));
    EXPECT_FALSE(settings.mayWrite.Contains({"10.0.0.1", "CN=reader"}));
}

TEST_F(TlsSettingsTest, FileThatIsWrong_IsAnErrorOfItsLineAtStartAndInTheCheck) {
    m_authority.Issue("server");
    ASSERT_EQ(::chmod(m_folder.Path("server.key").c_str(), 0644), 0);
    const std::string registry = "<registry>\n" + std::string(c_tls) + "</registry>";
    const std::string text = "key " + m_folder.Path("server.key") +
                             ": has mode 0644, must not be readable or writable by its group or by others (chmod 600)";
    EXPECT_EQ(Refusal(registry), m_folder.Path("c.xml") + ":4: " + text);
    const qcfg::Findings findings = qapp::CheckTlsSection(Configuration(registry), {});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].severity, qcfg::Severity_e::error);
    EXPECT_EQ(findings[0].line, 4);
    EXPECT_EQ(findings[0].text, text);
}

TEST_F(TlsSettingsTest, CertificateThatEndsSoon_IsAWarningOfTheCheckOnly) {
    m_authority.Issue("server", {.days = 10});
    const std::string registry = "<registry>\n" + std::string(c_tls) + "</registry>";
    EXPECT_EQ(Refusal(registry), "(no exception)");
    const qcfg::Findings findings = qapp::CheckTlsSection(Configuration(registry), {});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].severity, qcfg::Severity_e::warning);
    EXPECT_THAT(findings[0].text, testing::HasSubstr("server.pem: expires at "));
    EXPECT_TRUE(qapp::CheckTlsSection(Configuration("<registry port='1'/>"), {}).empty());
    EXPECT_TRUE(qapp::CheckTlsSection(Configuration(""), {}).empty());
}

TEST_F(TlsSettingsTest, PortThatIsTheOtherOneToo_IsAnErrorAtStartAndInTheCheck) {
    m_authority.Issue("server");
    const auto text = [](const std::string& attributes, const std::string& own) {
        return "<registry " + attributes + ">\n<tls certificate='server.pem' key='server.key' ca='ca.pem' " + own +
               "/></registry>";
    };
    const std::string problem =
        "attribute \"port\" of <tls>: the registry's own port is 5678 as well; without the attribute that port is for "
        "TLS only";
    Options options;
    options.port = 5678;  // by default
    for (const auto& [registry, isProblem] : {std::pair(text("", "port='5678'"), true),
                                              {text("port='5678' listen='::1'", "port='5678'"), true},
                                              {text("listen='127.0.0.1'", "port='5678' listen='127.0.0.2'"), false},
                                              {text("port='0'", "port='0'"), false},
                                              {text("port='5679'", "port='5678'"), false},
                                              {text("", ""), false}}) {
        ServerSettings defaults;
        defaults.port = options.port;
        EXPECT_EQ(test::TextOf([&] { qapp::ReadRegistrySettings(Configuration(registry), options, defaults); }),
                  isProblem ? m_folder.Path("c.xml") + ":4: " + problem : "(no exception)")
            << registry;
        const qcfg::Findings findings = qapp::CheckTlsSection(Configuration(registry), options);
        EXPECT_EQ(qcfg::HasError(findings), isProblem) << registry;
        EXPECT_EQ(std::count_if(findings.begin(), findings.end(), [&](const auto& one) { return one.text == problem; }),
                  isProblem ? 1 : 0);
    }
    options.isPortGiven = true;
    options.port = 5679;
    EXPECT_FALSE(qcfg::HasError(qapp::CheckTlsSection(Configuration(text("port='5678'", "port='5678'")), options)));
}

TEST_F(TlsSettingsTest, KeyCredential_IsReadFromTheFolderOfTheServiceManager) {
    m_authority.Issue("server");
    const std::string registry =
        "<registry>\n<tls certificate='server.pem' key-credential='server.key' ca='ca.pem'/></registry>";
    ::unsetenv("CREDENTIALS_DIRECTORY");
    EXPECT_THAT(Refusal(registry),
                testing::EndsWith("c.xml:4: attribute \"key-credential\" of <tls>: the service manager "
                                  "has handed over no credentials (CREDENTIALS_DIRECTORY is not set)"));
    ::setenv("CREDENTIALS_DIRECTORY", m_folder.Path().c_str(), 1);
    ASSERT_EQ(::chmod(m_folder.Path("server.key").c_str(), 0440), 0);
    EXPECT_EQ(Refusal(registry), "(no exception)");
    EXPECT_THAT(Refusal("<registry><tls certificate='server.pem' key-credential='../x' ca='ca.pem'/></registry>"),
                testing::HasSubstr("\"../x\" is not the name of a credential"));
    ::unsetenv("CREDENTIALS_DIRECTORY");
}

TEST(RegistrySettings, SecondSection_IsRefusedWithItsLine) {
    EXPECT_EQ(test::TextOf([] { Read("<registry port='1'/>\n<registry port='2'/>\n"); }),
              "c.xml:3: second <registry> section; there may be one only");
}

}  // namespace
