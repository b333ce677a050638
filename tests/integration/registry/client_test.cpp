#include "qreg/corba/client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstring>
#include <future>
#include <memory>

#include "tests/integration/registry/server_process.h"
#include "tests/support/expect_text.h"

namespace {

using qreg::ErrorCode_e;
using qreg::RegistryError;
using qreg::corba::Client;
using qreg::corba::NoServer;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::chrono::milliseconds c_clientTimeout{20000};

/// A client of a server of the protocol's first version.
class ClientTest : public testing::Test {
protected:
    std::unique_ptr<Client> Connect(std::chrono::milliseconds timeout = c_clientTimeout) const {
        return std::make_unique<Client>("127.0.0.1", m_server.GetPort(), timeout);
    }
    std::string Where() const { return "127.0.0.1:" + std::to_string(m_server.GetPort()); }

    test::ServerProcess m_server{{std::string(ZELKOR_BIN) + "/old_registry_server"}};
    std::unique_ptr<Client> m_client = Connect();
};

/// The code of the RegistryError that @p action raises, and its path; ok when it raises none.
std::pair<ErrorCode_e, std::string> RefusalOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const RegistryError& error) {
        return {error.GetCode(), error.GetPath()};
    }
    return {ErrorCode_e::ok, ""};
}

/// The text of the NoServer that @p action raises.
std::string LossOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const NoServer& error) {
        return error.what();
    }
    return "(no loss)";
}

TEST_F(ClientTest, Hello_TellsWhatTheServerIs) {
    const qreg::corba::ServerInfo info = m_client->Hello();
    EXPECT_EQ(info.major, 1);
    EXPECT_EQ(info.minor, 0);
    EXPECT_EQ(info.product, "old server for registry_client_test");
    EXPECT_EQ(info.bootId, "boot-1");
}

TEST_F(ClientTest, Get_GivesEveryType) {
    EXPECT_EQ(m_client->Get("box/reading"), qnode::Value(48.1));
    EXPECT_EQ(m_client->Get("box/count"), qnode::Value(-7));
    EXPECT_EQ(m_client->Get("box/label"), qnode::Value("Gr\xC3\xBC\xC3\x9F"
                                                       "e \xE2\x84\xA6"));
}

TEST_F(ClientTest, Get_WholeNumberTooLargeForAnInt_IsExactAllTheSame) {
    EXPECT_EQ(m_client->Get("box/large"), qnode::Value(1099511627776.0));
    EXPECT_EQ(m_client->Get("box/larger"), qnode::Value("4611686018427387905"));
}

TEST_F(ClientTest, Get_TypeThatIsNotKnown_IsAText) {
    EXPECT_EQ(m_client->Get("box/strange"), qnode::Value("(unknown type 99)"));
    EXPECT_EQ(m_client->Describe("box/strange").type, static_cast<qnode::enums::ValueType_e>(99));
}

TEST_F(ClientTest, Get_RefusalsHaveCodePathAndText) {
    EXPECT_EQ(RefusalOf([&] { m_client->Get("box/none"); }),
              std::pair(ErrorCode_e::no_such_node, std::string("box/none")));
    EXPECT_EQ(RefusalOf([&] { m_client->Get("box/absent"); }),
              std::pair(ErrorCode_e::no_value, std::string("box/absent")));
    EXPECT_EQ(RefusalOf([&] { m_client->Get("box"); }).first, ErrorCode_e::not_readable);
    EXPECT_EQ(test::TextOf([&] { m_client->Get("box/broken"); }), "bus");
}

TEST_F(ClientTest, PathThatCannotBeSent_IsRefusedHere) {
    EXPECT_EQ(test::TextOf([&] { m_client->Get(std::string(512, 'x')); }),
              "a path of 512 bytes cannot be sent, the most is 511");
    EXPECT_EQ(RefusalOf([&] { m_client->Get(std::string("box\0x", 5)); }).first, ErrorCode_e::limit);
    EXPECT_EQ(RefusalOf([&] { m_client->Get(std::string(511, 'x')); }).first, ErrorCode_e::no_such_node);
}

TEST_F(ClientTest, GetMany_OneOutcomeAPathInTheirOrder) {
    const auto outcomes = m_client->GetMany({"box/count", std::string(600, 'x'), "none", "box/absent", "box/reading"});
    ASSERT_EQ(outcomes.size(), 5U);
    EXPECT_EQ(outcomes[0].value, qnode::Value(-7));
    EXPECT_EQ(outcomes[1].code, ErrorCode_e::limit);
    EXPECT_EQ(outcomes[2].code, ErrorCode_e::no_such_node);
    EXPECT_EQ(outcomes[2].text, "no such node: none");
    EXPECT_EQ(outcomes[3].code, ErrorCode_e::no_value);
    EXPECT_EQ(outcomes[4].value, qnode::Value(48.1));
    EXPECT_TRUE(m_client->GetMany({}).empty());
    EXPECT_EQ(m_client->GetMany({std::string(600, 'x')}).at(0).code, ErrorCode_e::limit);
}

TEST_F(ClientTest, GetMany_MoreThanOneRequestTakes) {
    std::vector<std::string> paths;
    for (int i = 0; i < 301; ++i) {
        paths.push_back("many/n" + std::to_string(i % 25));
    }
    const auto outcomes = m_client->GetMany(paths);
    ASSERT_EQ(outcomes.size(), paths.size());
    for (int i = 0; i < 301; ++i) {
        EXPECT_EQ(outcomes[static_cast<std::size_t>(i)].value, qnode::Value(i % 25));
    }
}

TEST_F(ClientTest, Children_AllPagesInOrder) {
    const auto children = m_client->Children("many");
    ASSERT_EQ(children.size(), 25U);
    for (std::size_t i = 0; i < children.size(); ++i) {
        EXPECT_EQ(children[i].name, "n" + std::to_string(i));
        EXPECT_EQ(children[i].flags, 2U);
    }
    EXPECT_EQ(RefusalOf([&] { m_client->Children("none"); }).first, ErrorCode_e::no_such_node);
    EXPECT_TRUE(m_client->Children("speed").empty());
}

TEST_F(ClientTest, Subtree_PathsAreRebuiltAcrossPages) {
    std::vector<std::string> lines;
    m_client->Subtree("", 100, [&](const qreg::corba::TreeItem& item) {
        lines.push_back(std::to_string(item.depth) + " " + item.path + " " + qnode::ToText(item.outcome.value));
    });
    ASSERT_EQ(lines.size(), 37U);
    EXPECT_EQ(lines[0], "0  ");
    EXPECT_EQ(lines[1], "1 box ");
    EXPECT_EQ(lines[2], "2 box/reading 48.1");
    EXPECT_EQ(lines[10], "1 speed 4000");
    EXPECT_EQ(lines[11], "1 many ");
    EXPECT_EQ(lines[12], "2 many/n0 0");
    EXPECT_EQ(lines[36], "2 many/n24 24");
}

TEST_F(ClientTest, Subtree_BelowANode_PathsAreFromTheRoot) {
    std::vector<std::string> lines;
    m_client->Subtree("box", 1, [&](const qreg::corba::TreeItem& item) {
        lines.push_back(std::to_string(item.depth) + " " + item.path);
    });
    ASSERT_EQ(lines.size(), 9U);
    EXPECT_EQ(lines[0], "0 box");
    EXPECT_EQ(lines[8], "1 box/broken");
    lines.clear();
    m_client->Subtree("", 1, [&](const qreg::corba::TreeItem& item) { lines.push_back(item.path); });
    EXPECT_THAT(lines, ElementsAre("", "box", "speed", "many"));
}

TEST_F(ClientTest, Set_TextsArriveAndAnErrorsTextComesBack) {
    m_client->Set("speed", 5000.5);
    EXPECT_EQ(m_client->Get("speed"), qnode::Value(5000.5));
    EXPECT_EQ(test::TextOf([&] { m_client->Set("speed", std::string("fast")); }), "Bad cast from fast to double");
    EXPECT_EQ(RefusalOf([&] { m_client->Set("box/reading", 1.0); }).first, ErrorCode_e::not_writable);
    EXPECT_EQ(test::TextOf([&] { m_client->Set("speed", std::string(65536, 'x')); }),
              "a text of 65536 bytes cannot be sent, the most is 65535");
}

TEST_F(ClientTest, SetMany_OneBadItemDoesNotSpoilTheOthers) {
    const auto outcomes = m_client->SetMany({{"none", 1.0}, {std::string(600, 'x'), 1.0}, {"speed", 7.0}});
    ASSERT_EQ(outcomes.size(), 3U);
    EXPECT_EQ(outcomes[0].code, ErrorCode_e::no_such_node);
    EXPECT_EQ(outcomes[1].code, ErrorCode_e::limit);
    EXPECT_EQ(outcomes[2].code, ErrorCode_e::ok);
    EXPECT_EQ(m_client->Get("speed"), qnode::Value(7.0));
}

TEST_F(ClientTest, View_OfAServerWithoutViews_IsReadValueByValue) {
    const std::string id = m_client->OpenView({"box/reading", "box/absent", "box/label", "box/count"});
    const std::string other = m_client->OpenView({"speed"});
    const Client::Readings readings = m_client->ReadView(id);
    EXPECT_THAT(readings.states,
                ElementsAre(ErrorCode_e::ok, ErrorCode_e::no_value, ErrorCode_e::wrong_type, ErrorCode_e::ok));
    ASSERT_EQ(readings.values.size(), 4U);
    EXPECT_EQ(readings.values[0], 48.1);
    EXPECT_TRUE(std::isnan(readings.values[1]));
    EXPECT_TRUE(std::isnan(readings.values[2]));
    EXPECT_EQ(readings.values[3], -7.0);
    m_client->Set("speed", 1.0);
    EXPECT_THAT(m_client->ReadView(other).values, ElementsAre(1.0));
    m_client->CloseView(id);
    EXPECT_EQ(RefusalOf([&] { m_client->ReadView(id); }).first, ErrorCode_e::no_such_view);
    EXPECT_EQ(RefusalOf([&] { m_client->CloseView(id); }).first, ErrorCode_e::no_such_view);
    EXPECT_THAT(m_client->ReadView(other).values, ElementsAre(1.0));
}

TEST_F(ClientTest, Subscription_EventsLossesAndLease) {
    qreg::Filter filter;
    filter.patterns = {"box/**", "speed"};
    filter.queueLimit = 10;
    filter.lease = std::chrono::seconds(30);
    const qreg::Lease lease = m_client->Subscribe(filter);
    EXPECT_EQ(lease.id, "s:box/**:speed");
    EXPECT_EQ(lease.lease, std::chrono::seconds(31));
    EXPECT_EQ(lease.queueLimit, 12U);
    const qreg::Batch batch = m_client->Poll(lease.id, 0, 2, c_clientTimeout);
    EXPECT_EQ(batch.lost, 2U);
    ASSERT_EQ(batch.events.size(), 2U);
    EXPECT_EQ(batch.events[0]->sequence, 3U);
    EXPECT_EQ(batch.events[0]->type, 0);
    EXPECT_EQ(batch.events[0]->path, "box/reading");
    EXPECT_EQ(batch.events[0]->value, qnode::Value(0.3));
    EXPECT_EQ(batch.events[0]->time, std::chrono::system_clock::time_point(std::chrono::seconds(3)));
    EXPECT_EQ(m_client->Poll(lease.id, 4, 2, c_clientTimeout).events.at(0)->type, 7);
    EXPECT_EQ(m_client->Renew(lease.id), std::chrono::seconds(60));
    m_client->Unsubscribe(lease.id);
    EXPECT_EQ(RefusalOf([&] { m_client->Renew(lease.id); }).first, ErrorCode_e::no_such_subscription);
}

TEST_F(ClientTest, Poll_WaitsBeyondTheTimeoutOfOtherRequests) {
    const auto client = Connect(std::chrono::milliseconds(1000));
    const std::string id = client->Subscribe({}).id;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(client->Poll(id, 5, 10, std::chrono::milliseconds(1100)).events.empty());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1100));
}

TEST_F(ClientTest, Poll_EndsWhenAnotherClientEndsTheSubscription) {
    const std::string id = m_client->Subscribe({}).id;
    auto refusal = std::async(std::launch::async,
                              [&] { return RefusalOf([&] { m_client->Poll(id, 5, 10, c_clientTimeout); }).first; });
    Connect()->Unsubscribe(id);
    EXPECT_EQ(refusal.get(), ErrorCode_e::no_such_subscription);
}

TEST_F(ClientTest, ServerThatDoesNotAnswer_IsNoServerAfterTheTimeout) {
    const auto client = Connect(std::chrono::milliseconds(500));
    EXPECT_EQ(LossOf([&] { client->Get("hang"); }),
              "the registry server at " + Where() + " did not answer within 0.5 s");
    EXPECT_EQ(client->Get("box/count"), qnode::Value(-7)) << "the next request has a connection of its own";
}

TEST_F(ClientTest, StoppedProcess_IsNoServerAfterTheTimeout) {
    m_server.Get().Signal(SIGSTOP);
    const auto client = Connect(std::chrono::milliseconds(500));
    EXPECT_THAT(LossOf([&] { client->Hello(); }), HasSubstr("did not answer within 0.5 s"));
}

TEST_F(ClientTest, ServerThatEndsInTheMiddle_IsNoServer) {
    m_client->Hello();
    EXPECT_THAT(LossOf([&] { m_client->Get("exit"); }),
                AllOf(HasSubstr(Where() + " closed the connection without an answer"), HasSubstr("beyond its limit")));
    m_server.Get().Wait();
    EXPECT_EQ(LossOf([&] { m_client->Get("box"); }), "no registry server at " + Where() + ": Connection refused");
}

TEST_F(ClientTest, RequestThatEndedTheServer_IsNotRepeated) {
    m_client->Hello();
    EXPECT_THAT(LossOf([&] { m_client->Set("exit", 1.0); }), HasSubstr("closed the connection"));
}

TEST_F(ClientTest, MessageBeyondTheServersLimit_IsNoServerAndSaysSo) {
    EXPECT_THAT(LossOf([&] { m_client->Set("speed", std::string(60000, 'x')); }),
                HasSubstr("a message was beyond its limit"));
    EXPECT_THAT(LossOf([&] { m_client->Get("oversize"); }), StartsWith("the registry server at "));
    EXPECT_EQ(m_client->Get("box/count"), qnode::Value(-7));
}

TEST_F(ClientTest, ServerThatFails_IsNoServerWithTheReason) {
    EXPECT_EQ(LossOf([&] { m_client->Get("throw"); }),
              "the registry server at " + Where() + " failed: UNKNOWN (UNKNOWN_UserException)");
}

/// Waits until the peer closes every connection that this process has to @p port.
void AwaitClosedConnections(int port) {
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0 && peer.sin_family == AF_INET &&
            ntohs(peer.sin_port) == port) {
            pollfd source{descriptor, POLLRDHUP, 0};
            EXPECT_EQ(::poll(&source, 1, 30000), 1);
        }
    }
}

TEST_F(ClientTest, ConnectionThatTheServerClosedForIdleness_IsMadeAnew) {
    EXPECT_EQ(m_client->Get("box/count"), qnode::Value(-7));
    AwaitClosedConnections(m_server.GetPort());
    EXPECT_EQ(m_client->Get("box/count"), qnode::Value(-7));
}

TEST(ClientWithoutServer, NobodyListens_ConnectionRefused) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size), 0);
    const int port = ntohs(address.sin_port);  // bound by us, so nobody else listens there
    Client client("127.0.0.1", port, c_clientTimeout);
    EXPECT_EQ(LossOf([&] { client.Hello(); }),
              "no registry server at 127.0.0.1:" + std::to_string(port) + ": Connection refused");
    Client byIpv6("::1", port, c_clientTimeout);
    EXPECT_THAT(LossOf([&] { byIpv6.Hello(); }), StartsWith("no registry server at [::1]:" + std::to_string(port)));
    ::close(socket);
}

TEST(ClientWithoutServer, PeerThatNeverSpeaks_TimesOut) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(::listen(socket, 1), 0);
    ASSERT_EQ(::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size), 0);
    Client client("127.0.0.1", ntohs(address.sin_port), std::chrono::milliseconds(500));
    EXPECT_THAT(LossOf([&] { client.Hello(); }), HasSubstr("did not answer within 0.5 s"));
    ::close(socket);
}

TEST(ClientWithoutServer, HostThatCannotBeOne_IsRefusedAtOnce) {
    EXPECT_EQ(test::TextOf([] { Client("a/b", 1, c_clientTimeout); }),
              "server \"a/b\" is neither a host's name nor an address");
    EXPECT_EQ(test::TextOf([] { Client("", 1, c_clientTimeout); }),
              "server \"\" is neither a host's name nor an address");
    EXPECT_EQ(test::TextOf([] { Client("box", 0, c_clientTimeout); }), "port 0 of server box is not within 1..65535");
    EXPECT_EQ(test::TextOf([] { Client("box", 65536, c_clientTimeout); }),
              "port 65536 of server box is not within 1..65535");
}

TEST(ClientWithoutServer, HostNameThatIsNotKnown_IsSaid) {
    Client client("no-such-host.invalid", 5678, c_clientTimeout);
    EXPECT_THAT(LossOf([&] { client.Hello(); }), AllOf(StartsWith("no registry server at no-such-host.invalid:5678: "),
                                                       testing::Not(HasSubstr("could not be made"))));
}

TEST_F(ClientTest, EnvironmentOfTheOrb_ChangesNothing) {
    m_client.reset();  // the next one makes the ORB anew
    const std::map<std::string, std::string> settings{{"ORBInitRef", "nonsense"},
                                                      {"ORBclientTransportRule", "* none"},
                                                      {"ORBnativeCharCodeSet", "UTF-8"},
                                                      {"ORBmaxGIOPVersion", "1.0"},
                                                      {"OMNIORB_CONFIG", "/proc/self/cmdline"}};
    for (const auto& [name, value] : settings) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    EXPECT_EQ(Connect()->Get("box/label"), qnode::Value("Gr\xC3\xBC\xC3\x9F"
                                                        "e \xE2\x84\xA6"));
    for (const auto& [name, value] : settings) {
        ::unsetenv(name.c_str());
    }
}

TEST_F(ClientTest, ClientsOfSeveralThreads_ComeAndGo) {
    std::vector<std::future<void>> threads;
    for (int i = 0; i < 4; ++i) {
        threads.push_back(std::async(std::launch::async, [&] {
            for (int k = 0; k < 20; ++k) {
                const auto client = Connect();
                EXPECT_EQ(client->Get("box/count"), qnode::Value(-7));
                EXPECT_EQ(client->GetMany({"many/n1", "many/n2"}).size(), 2U);
            }
        }));
    }
    for (auto& thread : threads) {
        thread.get();
    }
}

}  // namespace
