#include "tools/regctl/commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/unit/regctl/fake_registry.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Json = nlohmann::json;

struct Result {
    int status = -1;
    std::string out, err;
};

/// Commands on a small tree.
class CommandsTest : public testing::Test {
protected:
    CommandsTest() {
        m_registry->Add("")
            .Add("box")
            .Add("box/a", 0.1)
            .Add("box/b", "two words")
            .AddFailing("box/gone", qreg::ErrorCode_e::no_value, "no value at present")
            .AddFailing("box/broken", qreg::ErrorCode_e::failed, "Too high rpm value: 20")
            .Add("fans", 4007.0, 6);
    }

    Result Run(const std::vector<std::string>& words, bool isTerminal = false) {
        std::ostringstream out, err;
        Result result;
        result.status = regctl::Run(words, {out, err, isTerminal}, [&](const regctl::ServerName& server) {
            m_server = server;
            return std::move(m_registry);
        });
        result.out = out.str();
        result.err = err.str();
        return result;
    }

    std::unique_ptr<FakeRegistry> m_registry = std::make_unique<FakeRegistry>();
    regctl::ServerName m_server;
};

TEST_F(CommandsTest, Ls_NamesInOrder) {
    const Result result = Run({"--server", "lab:99", "ls", "box"});
    EXPECT_EQ(result.out, "a\nb\ngone\nbroken\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(m_server.host, "lab");
    EXPECT_EQ(m_server.port, 99);
}

TEST_F(CommandsTest, Ls_Json) {
    EXPECT_EQ(Json::parse(Run({"ls", "--json"}).out), Json({"box", "fans"}));
}

TEST_F(CommandsTest, Ls_LeafHasNoChildren) {
    EXPECT_EQ(Run({"ls", "--json", "fans"}).out, "[]\n");
}

TEST_F(CommandsTest, Get_ValuesInTheOrderAsked_FailuresOnStandardError) {
    const Result result = Run({"get", "fans", "box/gone", "none", "box/a"});
    EXPECT_EQ(result.out, "4007\n0.1\n");
    EXPECT_EQ(result.err, "box/gone: no value\nnone: no such node: none\n");
    EXPECT_EQ(result.status, 3) << "that of the first failure";
}

TEST_F(CommandsTest, Get_OnePath_TextLetterByLetter) {
    const Result result = Run({"get", "box/broken"});
    EXPECT_EQ(result.err, "Too high rpm value: 20\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 1);
}

TEST_F(CommandsTest, Get_Json_HasFailuresToo) {
    const Result result = Run({"get", "--json", "box/b", "none", "box/a"});
    const Json json = Json::parse(result.out);
    ASSERT_EQ(json.size(), 3U);
    EXPECT_EQ(json[0], Json({{"path", "box/b"}, {"type", "string"}, {"value", "two words"}}));
    EXPECT_EQ(json[1], Json({{"path", "none"}, {"error", "no such node: none"}, {"code", "no such node"}}));
    EXPECT_EQ(json[2]["value"], 0.1);
    EXPECT_EQ(result.status, 4);
}

TEST_F(CommandsTest, Set_NumberIsADouble) {
    std::vector<std::pair<std::string, qnode::Value>> sets;
    m_registry->sets = &sets;
    const Result result = Run({"set", "fans", "-100", "--json"});
    EXPECT_EQ(Json::parse(result.out), Json({{"path", "fans"}, {"type", "double"}, {"value", -100.0}}));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(sets, ElementsAre(testing::Pair("fans", qnode::Value(-100.0))));
}

TEST_F(CommandsTest, Set_IsSilent) {
    std::vector<std::pair<std::string, qnode::Value>> sets;
    m_registry->sets = &sets;
    const Result result = Run({"set", "fans", "fast"});
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(sets, ElementsAre(testing::Pair("fans", qnode::Value("fast"))));
}

TEST_F(CommandsTest, Set_Refused) {
    const Result result = Run({"set", "box/a", "1"});
    EXPECT_EQ(result.err, "cannot be written: box/a\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(CommandsTest, Info) {
    EXPECT_EQ(Run({"info", "fans"}).out,
              "name = fans\ntype = double\nsize = 1\nflags = 6 (readable, writable)\nchildren = 0\n");
}

TEST_F(CommandsTest, Info_Json) {
    EXPECT_EQ(Json::parse(Run({"info", "--json", "box"}).out), Json({{"path", "box"},
                                                                     {"name", "box"},
                                                                     {"type", "empty"},
                                                                     {"size", 0},
                                                                     {"flags", 0},
                                                                     {"readable", false},
                                                                     {"writable", false},
                                                                     {"children", 4}}));
}

TEST_F(CommandsTest, Tree_LeafThatFails_DoesNotSpoilTheRest) {
    const Result result = Run({"tree"});
    EXPECT_EQ(result.out,
              "box\n  a = 0.1\n  b = two words\n  gone (no value)\n  broken (Too high rpm value: 20)\nfans = 4007\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(CommandsTest, Tree_OnATerminal_IsAligned) {
    EXPECT_THAT(Run({"tree", "box"}, true).out, HasSubstr("  gone    (no value)\n"));
}

TEST_F(CommandsTest, Tree_Json) {
    const Json json = Json::parse(Run({"tree", "--json"}).out);
    ASSERT_EQ(json.size(), 7U);
    EXPECT_EQ(json[1], Json({{"path", "box"}, {"type", "empty"}, {"flags", 0}}));
    EXPECT_EQ(json[2], Json({{"path", "box/a"}, {"type", "double"}, {"flags", 2}, {"value", 0.1}}));
    EXPECT_EQ(json[5]["error"], "Too high rpm value: 20");
    EXPECT_EQ(json[5]["code"], "failed");
}

TEST_F(CommandsTest, NodeThatIsNotThere) {
    EXPECT_EQ(Run({"tree", "none"}).status, 4);
}

TEST_F(CommandsTest, WrongUsage_IsOneLineAndOne) {
    const auto expect = [&](const std::vector<std::string>& words, const std::string& error) {
        const Result result = Run(words);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "zelkor-regctl: " + error + "\n");
        EXPECT_EQ(result.out, "");
    };
    expect({}, "no command given, see zelkor-regctl --help");
    expect({"fly"}, "unknown command \"fly\", see zelkor-regctl --help");
    expect({"get"}, "usage: zelkor-regctl get PATH...");
    expect({"ls", "a", "b"}, "usage: zelkor-regctl ls [PATH]");
    expect({"set", "fans"}, "usage: zelkor-regctl set PATH VALUE");
    expect({"info"}, "usage: zelkor-regctl info PATH");
    expect({"tree", "--count", "1"}, "--count is an option of watch, not of tree");
    expect({"get", "a", "--timeout", "1"}, "--timeout is an option of watch, not of get");
    EXPECT_NE(m_registry, nullptr) << "nothing was asked of a server";
}

TEST_F(CommandsTest, ServerThatIsNotThere_IsTwo) {
    std::ostringstream out, err;
    const auto connect = [](const regctl::ServerName&) -> std::unique_ptr<regctl::Registry> {
        throw qreg::corba::NoServer("no registry server at box:1: gone");
    };
    EXPECT_EQ(regctl::Run({"ls"}, {out, err}, connect), 2);
    EXPECT_EQ(err.str(), "zelkor-regctl: no registry server at box:1: gone\n");
}

TEST_F(CommandsTest, ServerThatStops_IsTwo) {
    std::ostringstream out, err;
    const auto connect = [](const regctl::ServerName&) -> std::unique_ptr<regctl::Registry> {
        throw qreg::RegistryError(qreg::ErrorCode_e::stopping, "", "the server is about to end");
    };
    EXPECT_EQ(regctl::Run({"ls"}, {out, err}, connect), 2);
    EXPECT_EQ(err.str(), "the server is about to end\n");
}

TEST_F(CommandsTest, HelpAndVersion_NeedNoServer) {
    EXPECT_THAT(Run({"--help"}).out, HasSubstr("usage: zelkor-regctl"));
    EXPECT_THAT(Run({"--version"}).out, testing::MatchesRegex("zelkor-regctl [0-9.]+\n"));
    EXPECT_NE(m_registry, nullptr);
}

TEST_F(CommandsTest, OutputThatCannotBeWritten_IsRaised) {
    std::ostringstream out, err;
    out.setstate(std::ios::badbit);
    EXPECT_THROW(regctl::Run({"--help"}, {out, err}, nullptr), regctl::OutputFailure);
}

}  // namespace
