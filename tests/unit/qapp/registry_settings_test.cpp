#include "qapp/registry_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "qstd/exception.h"
#include "tests/support/expect_text.h"

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
        {"<registry><write/></registry>", "from"},
        {"<registry><write from='1.2.3'/></registry>", "1.2.3"},
        {"<registry><read/></registry>", "read"},
    };
    for (const auto& [section, subject] : cases) {
        const std::string text = test::TextOf([&, text = section] { Read("\n" + text + "\n"); });
        EXPECT_THAT(text, testing::AllOf(testing::StartsWith("c.xml:3: "), testing::HasSubstr(subject))) << section;
    }
}

TEST(RegistrySettings, SecondSection_IsRefusedWithItsLine) {
    EXPECT_EQ(test::TextOf([] { Read("<registry port='1'/>\n<registry port='2'/>\n"); }),
              "c.xml:3: second <registry> section; there may be one only");
}

}  // namespace
