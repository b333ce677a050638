#include "tools/regctl/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/expect_text.h"

namespace {

using regctl::CommandLine;
using regctl::ParseCommandLine;
using regctl::ParseServer;
using testing::ElementsAre;

TEST(CommandLine, NothingGiven_HasTheDefaults) {
    const CommandLine line = ParseCommandLine({});
    EXPECT_EQ(line.server.host, "127.0.0.1");
    EXPECT_EQ(line.server.port, 5678);
    EXPECT_TRUE(line.words.empty());
    EXPECT_FALSE(line.json || line.help || line.version || line.count || line.timeout);
}

TEST(CommandLine, OptionsMayStandAnywhere) {
    const CommandLine line =
        ParseCommandLine({"watch", "--json", "fans", "--count", "3", "--server=box:7", "a/**", "--timeout", "1.5"});
    EXPECT_THAT(line.words, ElementsAre("watch", "fans", "a/**"));
    EXPECT_TRUE(line.json);
    EXPECT_EQ(line.count, 3U);
    EXPECT_EQ(line.timeout, std::chrono::milliseconds(1500));
    EXPECT_EQ(line.server.host, "box");
    EXPECT_EQ(line.server.port, 7);
}

TEST(CommandLine, Tls_HasItsFiles) {
    EXPECT_FALSE(ParseCommandLine({"ls"}).server.tls);
    CommandLine line = ParseCommandLine({"--tls", "--ca", "ca.pem", "ls"});
    ASSERT_TRUE(line.server.tls);
    EXPECT_EQ(line.server.tls->ca, "ca.pem");
    EXPECT_EQ(line.server.tls->certificate + line.server.tls->key + line.server.tls->serverName, "");
    line = ParseCommandLine({"ls", "--key=a.key", "--server=box:7", "--certificate", "a.pem", "--tls", "--ca", "ca.pem",
                             "--server-name", "chassis"});
    ASSERT_TRUE(line.server.tls);
    EXPECT_EQ(line.server.tls->certificate, "a.pem");
    EXPECT_EQ(line.server.tls->key, "a.key");
    EXPECT_EQ(line.server.tls->serverName, "chassis");
    EXPECT_EQ(line.server.host, "box");
}

TEST(CommandLine, TlsInParts_IsRefused) {
    const auto refusal = [](const std::vector<std::string>& words) {
        return test::TextOf([&] { ParseCommandLine(words); });
    };
    EXPECT_EQ(refusal({"ls", "--tls"}), "--tls needs --ca: the certificates that the server's must lead to");
    EXPECT_EQ(refusal({"ls", "--ca", "ca.pem"}), "--ca goes with --tls");
    EXPECT_EQ(refusal({"ls", "--server-name", "box"}), "--server-name goes with --tls");
    EXPECT_EQ(refusal({"ls", "--tls", "--ca", "c", "--key", "k"}), "--certificate and --key go together");
    EXPECT_EQ(refusal({"ls", "--tls", "--ca", "c", "--certificate", "k"}), "--certificate and --key go together");
}

TEST(CommandLine, NegativeNumbersAndWordsBehindTwoDashes_AreNoOptions) {
    EXPECT_THAT(ParseCommandLine({"set", "fans", "-100"}).words, ElementsAre("set", "fans", "-100"));
    EXPECT_THAT(ParseCommandLine({"set", "fans", "-1e-3"}).words, ElementsAre("set", "fans", "-1e-3"));
    EXPECT_THAT(ParseCommandLine({"set", "fans", "-inf"}).words, ElementsAre("set", "fans", "-inf"));
    EXPECT_THAT(ParseCommandLine({"set", "--", "name", "--json"}).words, ElementsAre("set", "name", "--json"));
    EXPECT_THAT(ParseCommandLine({"set", "name", ""}).words, ElementsAre("set", "name", ""));
}

TEST(CommandLine, WhatIsWrong_IsSaid) {
    const auto text = [](const std::vector<std::string>& words) {
        return test::TextOf([&] { ParseCommandLine(words); });
    };
    EXPECT_EQ(text({"ls", "--fast"}), "unrecognised option '--fast'");
    EXPECT_EQ(text({"watch", "--count", "0"}), "--count \"0\" is not a number from 1 up");
    EXPECT_EQ(text({"watch", "--count", "x"}), "--count \"x\" is not a number from 1 up");
    EXPECT_EQ(text({"watch", "--timeout", "-1"}), "--timeout \"-1\" is not a number of seconds from 0 to 1000000000");
    EXPECT_EQ(text({"watch", "--timeout", "nan"}), "--timeout \"nan\" is not a number of seconds from 0 to 1000000000");
    EXPECT_EQ(text({"ls", "--server"}), "the required argument for option '--server' is missing");
}

TEST(ServerName, HostAndPort) {
    const auto expect = [](const std::string& text, const std::string& host, int port) {
        const regctl::ServerName server = ParseServer(text);
        EXPECT_EQ(server.host, host) << text;
        EXPECT_EQ(server.port, port) << text;
    };
    expect("box", "box", 5678);
    expect("10.0.0.7:1", "10.0.0.7", 1);
    expect("box.lab:65535", "box.lab", 65535);
    expect("::1", "::1", 5678);
    expect("fe80::1:2", "fe80::1:2", 5678);
    expect("[::1]", "::1", 5678);
    expect("[::1]:99", "::1", 99);
}

TEST(ServerName, WhatIsWrong_IsSaid) {
    const auto text = [](const std::string& server) { return test::TextOf([&] { ParseServer(server); }); };
    EXPECT_EQ(text(""), "server \"\" has no host");
    EXPECT_EQ(text(":5678"), "server \":5678\" has no host");
    EXPECT_EQ(text("box:"), "port \"\" of server \"box:\" is not a number from 1 to 65535");
    EXPECT_EQ(text("box:0"), "port \"0\" of server \"box:0\" is not a number from 1 to 65535");
    EXPECT_EQ(text("box:65536"), "port \"65536\" of server \"box:65536\" is not a number from 1 to 65535");
    EXPECT_EQ(text("box:1x"), "port \"1x\" of server \"box:1x\" is not a number from 1 to 65535");
    EXPECT_EQ(text("[::1"), "server \"[::1\" has no \"]\"");
    EXPECT_EQ(text("[::1]5"), "server \"[::1]5\" is not HOST[:PORT]");
}

TEST(HelpText, NamesEveryCommandAndOption) {
    for (const char* const word :
         {"ls [PATH]", "tree [PATH]", "get PATH...", "set PATH VALUE", "info PATH", "watch [PATH...]",
          "--server HOST[:PORT]", "--json", "--count N", "--timeout S", "--help", "--version", "Exit status"}) {
        EXPECT_THAT(regctl::HelpText(), testing::HasSubstr(word));
    }
}

}  // namespace
