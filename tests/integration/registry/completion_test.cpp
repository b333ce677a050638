#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/integration/registry/server_process.h"
#include "tests/support/bash_completion.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// What bash offers behind @p line; {} in it is the server's host and port.
std::vector<std::string> Completions(std::string line, const std::string& server) {
    const std::size_t place = line.find("{}");
    if (place != std::string::npos) {
        line.replace(place, 2, server);
    }
    return test::BashCompletions(ZELKOR_COMPLETION, "_zelkor_regctl", ZELKOR_BIN "/zelkor-regctl", line);
}

class CompletionTest : public testing::Test {
protected:
    std::vector<std::string> Complete(const std::string& line) const {
        return Completions(line, "127.0.0.1:" + std::to_string(m_server.GetPort()));
    }

    test::ServerProcess m_server{{ZELKOR_BIN "/old_registry_server"}};
};

TEST_F(CompletionTest, CommandsAndOptions) {
    EXPECT_THAT(Complete("zelkor-regctl "), ElementsAre("ls", "tree", "get", "set", "info", "watch"));
    EXPECT_THAT(Complete("zelkor-regctl t"), ElementsAre("tree"));
    EXPECT_THAT(Complete("zelkor-regctl --"), ElementsAre("--json", "--server", "--help", "--version", "--tls", "--ca",
                                                          "--certificate", "--key", "--server-name"));
    EXPECT_THAT(Complete("zelkor-regctl watch --c"), ElementsAre("--count", "--ca", "--certificate"));
    EXPECT_THAT(Complete("zelkor-regctl get --co"), IsEmpty());
}

TEST_F(CompletionTest, PathsComeFromTheServer) {
    EXPECT_THAT(Complete("zelkor-regctl --server {} get "), ElementsAre("box", "speed", "many"));
    EXPECT_THAT(Complete("zelkor-regctl --server={} get sp"), ElementsAre("speed"));
    EXPECT_THAT(Complete("zelkor-regctl --server {} ls b"), ElementsAre("box/"));
    EXPECT_THAT(Complete("zelkor-regctl --server {} info box/la"), ElementsAre("box/label", "box/large", "box/larger"));
    EXPECT_THAT(Complete("zelkor-regctl --server {} get speed box/c"), ElementsAre("box/count"));
    EXPECT_THAT(Complete("zelkor-regctl --server {} get none/"), IsEmpty());
}

TEST_F(CompletionTest, OnlyWhereAPathStands) {
    EXPECT_THAT(Complete("zelkor-regctl --server {} set "), ElementsAre("box", "speed", "many"));
    EXPECT_THAT(Complete("zelkor-regctl --server {} set speed "), IsEmpty());
    EXPECT_THAT(Complete("zelkor-regctl --server {} watch --count "), IsEmpty());
}

TEST(CompletionWithoutServer, IsSilent) {
    EXPECT_THAT(Completions("zelkor-regctl --server 127.0.0.1:1 get ", ""), IsEmpty());
}

}  // namespace
