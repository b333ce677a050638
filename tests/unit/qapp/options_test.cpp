#include "qapp/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "qstd/exception.h"

namespace {

qapp::Options Parse(std::vector<const char*> words) {
    qapp::Options defaults;
    defaults.configFile = "/etc/zelkor/x.xml";
    defaults.logDir = "/var/log/zelkor";
    defaults.port = 5678;
    words.insert(words.begin(), "x");
    boost::program_options::variables_map values;
    return qapp::ParseOptions(static_cast<int>(words.size()), words.data(), qapp::DescribeOptions(defaults), values);
}

std::string ErrorOf(const std::vector<const char*>& words) {
    try {
        Parse(words);
    } catch (const qstd::Exception& error) {
        return error.what();
    }
    return "accepted";
}

TEST(Options, NothingGiven_DefaultsHold) {
    const qapp::Options options = Parse({});
    EXPECT_EQ(options.configFile, "/etc/zelkor/x.xml");
    EXPECT_EQ(options.logDir, "/var/log/zelkor");
    EXPECT_EQ(options.port, 5678);
    EXPECT_FALSE(options.isPortGiven);
    EXPECT_EQ(options.traceLevel, 0);
    EXPECT_FALSE(options.daemon);
    EXPECT_EQ(options.listen, "");
}

TEST(Options, ShortAndLongForms_AreTheSame) {
    EXPECT_EQ(Parse({"-c", "a.xml"}).configFile, "a.xml");
    EXPECT_EQ(Parse({"--config=a.xml"}).configFile, "a.xml");
    EXPECT_EQ(Parse({"-l", "logs"}).logDir, "logs");
    EXPECT_EQ(Parse({"-p", "0"}).port, 0);
    EXPECT_TRUE(Parse({"-p", "5678"}).isPortGiven);
}

TEST(Options, Addresses_AreIpv4OrIpv6) {
    EXPECT_EQ(Parse({"--listen", "127.0.0.1"}).listen, "127.0.0.1");
    EXPECT_EQ(Parse({"--listen", "::1"}).listen, "::1");
    EXPECT_EQ(ErrorOf({"--listen", "localhost"}), "--listen: \"localhost\" is not an IPv4 or IPv6 address");
}

TEST(Options, BadOnes_AreNamed) {
    EXPECT_EQ(ErrorOf({"--trace-level", "-1"}), "--trace-level: -1 is not in the range 0..4");
    EXPECT_EQ(ErrorOf({"--port", "70000"}), "--port: 70000 is not in the range 0..65535");
    EXPECT_THAT(ErrorOf({"--port", "x"}), testing::HasSubstr("--port"));
    EXPECT_THAT(ErrorOf({"--config"}), testing::HasSubstr("--config"));
    EXPECT_THAT(ErrorOf({"--check"}), testing::HasSubstr("--check"));
    EXPECT_THAT(ErrorOf({"-c", "a", "-c", "b"}), testing::HasSubstr("--config"));
}

}  // namespace
