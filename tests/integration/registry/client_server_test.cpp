// The client and the tool against this project's server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <future>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "qreg/corba/client.h"
#include "tests/integration/registry/server_process.h"
#include "tests/support/expect_text.h"

namespace {

using qreg::ErrorCode_e;
using qreg::corba::Client;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::chrono::milliseconds c_timeout{20000};

class ClientServerTest : public testing::Test {
protected:
    void Start(const std::vector<std::string>& settings = {}) {
        std::vector<std::string> command{ZELKOR_BIN "/registry_server"};
        command.insert(command.end(), settings.begin(), settings.end());
        m_server = std::make_unique<test::ServerProcess>(command);
        m_client = Connect();
    }
    std::unique_ptr<Client> Connect() const {
        return std::make_unique<Client>("127.0.0.1", m_server->GetPort(), c_timeout);
    }
    test::Result RunTool(const std::vector<std::string>& words) const {
        std::vector<std::string> command{ZELKOR_BIN "/zelkor-regctl", "--server",
                                         "127.0.0.1:" + std::to_string(m_server->GetPort())};
        command.insert(command.end(), words.begin(), words.end());
        return test::RunProgram(command);
    }

    std::unique_ptr<test::ServerProcess> m_server;
    std::unique_ptr<Client> m_client;
};

ErrorCode_e CodeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const qreg::RegistryError& error) {
        return error.GetCode();
    }
    return ErrorCode_e::ok;
}

TEST_F(ClientServerTest, HelloAndInfo) {
    Start();
    const auto info = m_client->Hello();
    EXPECT_EQ(info.major, 1);
    EXPECT_EQ(info.minor, 1);
    EXPECT_EQ(info.product, "registry_server 1.0");
    EXPECT_FALSE(info.bootId.empty());
    const qreg::NodeInfo speed = m_client->Describe("knobs/speed");
    EXPECT_EQ(speed.name, "speed");
    EXPECT_EQ(speed.flags, 6U);
    EXPECT_EQ(speed.type, qnode::enums::ValueType_e::real);
    EXPECT_EQ(speed.size, 1U);
    EXPECT_EQ(m_client->Describe("").children, 4U);
}

TEST_F(ClientServerTest, ValuesAndRefusals) {
    Start();
    EXPECT_EQ(m_client->Get("values/number"), qnode::Value(1.5));
    EXPECT_EQ(m_client->Get("/values//whole/"), qnode::Value(7));
    EXPECT_EQ(m_client->Get("values/text"), qnode::Value("gr\xC3\xBCn"));
    EXPECT_EQ(CodeOf([&] { m_client->Get("values/nothing"); }), ErrorCode_e::no_value);
    EXPECT_EQ(CodeOf([&] { m_client->Get("values/none"); }), ErrorCode_e::no_such_node);
    EXPECT_EQ(CodeOf([&] { m_client->Get("values/hidden"); }), ErrorCode_e::not_readable);
    EXPECT_EQ(test::TextOf([&] { m_client->Get("values/broken"); }), "the bus is stuck");
    m_client->Set("knobs/speed", 4000.0);
    EXPECT_EQ(m_client->Get("knobs/speed"), qnode::Value(4000.0));
    EXPECT_EQ(test::TextOf([&] { m_client->Set("knobs/speed", 20000.0); }), "Too high value: 20000");
    EXPECT_EQ(CodeOf([&] { m_client->Set("values/number", 1.0); }), ErrorCode_e::not_writable);
    EXPECT_EQ(CodeOf([&] { m_client->Set("knobs/steps", 1.5); }), ErrorCode_e::wrong_type);
    EXPECT_EQ(m_client->SetMany({{"none", 1.0}, {"knobs/steps", 12}}).at(0).code, ErrorCode_e::no_such_node);
    EXPECT_EQ(m_client->Get("knobs/steps"), qnode::Value(12));
}

TEST_F(ClientServerTest, LargeTree_ManyPages) {
    Start({"leaves=5000"});
    std::size_t count = 0;
    double sum = 0;
    m_client->Subtree("many", 10, [&](const qreg::corba::TreeItem& item) {
        if (item.depth == 1) {
            EXPECT_EQ(item.path, "many/leaf_" + std::to_string(count++));
            sum += std::get<double>(item.outcome.value);
        }
    });
    EXPECT_EQ(count, 5000U);
    EXPECT_EQ(sum, 4999.0 * 5000 / 2);
    EXPECT_EQ(m_client->Children("many").size(), 5000U);
    std::vector<std::string> paths;
    for (int i = 0; i < 4500; ++i) {
        paths.push_back("many/leaf_" + std::to_string(i));
    }
    EXPECT_EQ(m_client->GetMany(paths).at(4499).value, qnode::Value(4499.0));
}

TEST_F(ClientServerTest, TreeOfLongTexts_IsWholeThoughAMessageCannotHoldIt) {
    Start();
    std::size_t bytes = 0;
    std::vector<ErrorCode_e> codes;
    m_client->Subtree("", 10, [&](const qreg::corba::TreeItem& item) {
        bytes += item.path.starts_with("texts/") ? std::get<std::string>(item.outcome.value).size() : 0;
        if (item.path == "values/long" || item.path == "values/broken" || item.path == "values") {
            codes.push_back(item.outcome.code);
        }
    });
    EXPECT_EQ(bytes, 100U * 60000U);
    EXPECT_THAT(codes, ElementsAre(ErrorCode_e::not_readable, ErrorCode_e::failed, ErrorCode_e::limit));
}

TEST_F(ClientServerTest, View_IsTheServersOwn) {
    Start();
    const std::string id = m_client->OpenView({"values/number", "values/nothing", "values/text", "values/whole"});
    EXPECT_THAT(id, testing::Not(testing::StartsWith("local-")));
    const Client::Readings readings = m_client->ReadView(id);
    ASSERT_EQ(readings.values.size(), 4U);
    EXPECT_EQ(readings.values[0], 1.5);
    EXPECT_TRUE(std::isnan(readings.values[1]));
    EXPECT_TRUE(std::isnan(readings.values[2]));
    EXPECT_EQ(readings.values[3], 7.0);
    EXPECT_THAT(readings.states,
                ElementsAre(ErrorCode_e::ok, ErrorCode_e::no_value, ErrorCode_e::wrong_type, ErrorCode_e::ok));
    m_client->CloseView(id);
    EXPECT_EQ(CodeOf([&] { m_client->ReadView(id); }), ErrorCode_e::no_such_view);
}

TEST_F(ClientServerTest, Notifications_PresentValuesFirst) {
    Start();
    qreg::Filter filter;
    filter.patterns = {"knobs/s*"};
    filter.wantsPresent = true;
    const qreg::Lease lease = m_client->Subscribe(filter);
    m_client->Set("knobs/speed", 55.5);
    std::vector<std::string> lines;
    std::uint64_t received = 0;
    while (lines.size() < 4) {
        for (const auto& event : m_client->Poll(lease.id, received, 100, c_timeout).events) {
            received = event->sequence;
            lines.push_back(std::to_string(event->type) + " " + event->path + " " + qnode::ToText(event->value));
            EXPECT_LT(std::chrono::abs(event->time - std::chrono::system_clock::now()), std::chrono::minutes(1));
        }
    }
    EXPECT_THAT(lines, testing::Contains("0 knobs/speed 55.5"));
    EXPECT_THAT(lines, testing::Contains("65535 knobs/steps 3"));
    EXPECT_GT(m_client->Renew(lease.id), std::chrono::seconds(0));
    m_client->Unsubscribe(lease.id);
    EXPECT_EQ(CodeOf([&] { m_client->Poll(lease.id, received, 1, c_timeout); }), ErrorCode_e::no_such_subscription);
}

TEST_F(ClientServerTest, WriterThatMayNot_IsDenied) {
    Start({"write=10.0.0.0/8"});
    EXPECT_EQ(CodeOf([&] { m_client->Set("knobs/speed", 1.0); }), ErrorCode_e::denied);
    EXPECT_EQ(RunTool({"set", "knobs/speed", "1"}).status, 1);
}

TEST_F(ClientServerTest, ServerThatRefuses_SaysThatItStops) {
    Start();
    m_client->Hello();
    const std::string id = m_client->Subscribe({}).id;
    auto code = std::async(std::launch::async, [&] { return CodeOf([&] { m_client->Poll(id, 0, 1, c_timeout); }); });
    m_server->Get().Signal(SIGUSR1);
    EXPECT_EQ(code.get(), ErrorCode_e::stopping);
    EXPECT_EQ(RunTool({"ls"}).status, 2);
}

TEST_F(ClientServerTest, Tool_ReadsWritesAndTellsFailures) {
    Start({"leaves=3"});
    EXPECT_EQ(RunTool({"ls"}).output, "values\nknobs\nmany\ntexts\n");
    EXPECT_EQ(RunTool({"tree", "many"}).output, "many\n  leaf_0 = 0\n  leaf_1 = 1\n  leaf_2 = 2\n");
    EXPECT_EQ(RunTool({"set", "knobs/speed", "4000"}).status, 0);
    EXPECT_EQ(RunTool({"set", "knobs/steps", "5"}).status, 0);
    EXPECT_EQ(RunTool({"get", "knobs/speed", "knobs/steps"}).output, "4000\n5\n");
    EXPECT_EQ(RunTool({"get", "values/broken"}).error, "the bus is stuck\n");
    EXPECT_EQ(RunTool({"get", "values/broken"}).status, 1);
    EXPECT_EQ(RunTool({"get", "values/nothing"}).status, 3);
    EXPECT_EQ(RunTool({"get", "values/nothing"}).error, "no value\n");
    EXPECT_EQ(RunTool({"info", "values/none"}).status, 4);
    const auto tree = nlohmann::json::parse(RunTool({"--json", "tree"}).output);
    EXPECT_EQ(tree.size(), 1U + 1 + 8 + 1 + 4 + 1 + 3 + 1 + 100);
}

TEST_F(ClientServerTest, Tool_WatchesUntilItIsInterrupted) {
    Start();
    const test::TempFolder folder;
    test::Process watch(
        {ZELKOR_BIN "/zelkor-regctl", "--server", "127.0.0.1:" + std::to_string(m_server->GetPort()), "watch", "knobs"},
        folder.Path("out"), folder.Path("err"));
    // Until the tool has subscribed nobody hears.
    while (test::ReadLines(folder.Path("out")).empty()) {
        m_client->Set("knobs/speed", 77.25);
        ASSERT_EQ(watch.Wait(std::chrono::milliseconds(5)), std::nullopt) << test::ReadFile(folder.Path("err"));
    }
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.Wait(), 0);
    EXPECT_THAT(test::ReadLines(folder.Path("out")).front(),
                testing::MatchesRegex("[0-9/]{10} [0-9:.]{12} knobs/speed value 77.25"));
}

TEST_F(ClientServerTest, Tool_ServerThatEndsWhileItWatches_IsTwo) {
    Start();
    const test::TempFolder folder;
    test::Process watch(
        {ZELKOR_BIN "/zelkor-regctl", "--server", "127.0.0.1:" + std::to_string(m_server->GetPort()), "watch"},
        folder.Path("out"), folder.Path("err"));
    while (test::ReadLines(folder.Path("out")).empty()) {
        m_client->Set("knobs/speed", 1.0);
        ASSERT_EQ(watch.Wait(std::chrono::milliseconds(5)), std::nullopt) << test::ReadFile(folder.Path("err"));
    }
    m_server->Get().Signal(SIGTERM);
    EXPECT_EQ(watch.Wait(), 2);
    EXPECT_NE(test::ReadFile(folder.Path("err")), "");
}

}  // namespace
