#include <fstream>
#include <vector>

#include "tests/integration/registry/raw_giop.h"
#include "tests/integration/registry/registry_fixture.h"

namespace {

using test::ErrorOf;
using test::RawConnection;
using test::RawMessage;
using testing::HasSubstr;
using testing::StartsWith;

const std::string c_key = "Registry";

class RegistryHardening : public test::RegistryServerTest {
protected:
    std::string Answer(const RawMessage& message) const {
        const RawConnection connection(m_port);
        connection.Send(message.Bytes());
        return connection.Receive();
    }

    void ExpectAlive() const {
        const reg::Registry_1_1_var registry = Connect();
        const reg::Reading_var reading = registry->get("values/number");
        EXPECT_EQ(reading->val.number(), 1.5);
    }

    /// Processor time of the server so far, in clock ticks.
    long Ticks() const {
        std::ifstream file("/proc/" + std::to_string(m_server->GetPid()) + "/stat");
        std::string word;
        for (int i = 0; i < 13; ++i) {
            file >> word;
        }
        long user = 0;
        long system = 0;
        file >> user >> system;
        return user + system;
    }
};

TEST_F(RegistryHardening, HandMadeRequest_IsAnswered) {
    Start();
    // The counter-check of the tests below: a message is refused for what is wrong with it, not for its making.
    const std::string answer = Answer(RawMessage(1, c_key, "get").Text("values/number"));
    ASSERT_EQ(answer.size(), 48U);
    EXPECT_EQ(answer.substr(24, 2), std::string("\x06\0", 2));
    EXPECT_EQ(answer.substr(32, 8), std::string("\0\0\0\0\0\0\xf8\x3f", 8)) << "1.5";
    EXPECT_THAT(Answer(RawMessage(1, c_key, "get").Text("nowhere")), HasSubstr("IDL:zelkor/reg/Error:1.0"));
}

TEST_F(RegistryHardening, OtherKeys_ArriveNowhereAndCostNothing) {
    Start();
    for (const std::string& key : {std::string("\0", 1), std::string("\xff", 1), std::string("Registri"),
                                   std::string("Registry2"), std::string("omniINSPOA"), std::string(4000, 'a')}) {
        EXPECT_THAT(Answer(RawMessage(1, key, "get").Text("values/number")),
                    HasSubstr("IDL:omg.org/CORBA/OBJECT_NOT_EXIST:1.0"));
        const std::string located = Answer(RawMessage(1, key, "", 3));
        ASSERT_GE(located.size(), 20U);
        EXPECT_EQ(located[16], 0) << "an unknown object";
    }
    const long before = Ticks();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_LE(Ticks() - before, 5);
    ExpectAlive();
}

TEST_F(RegistryHardening, OverlongTextsAndSequences_AreBrokenMessages) {
    Start();
    const std::string marshal = "IDL:omg.org/CORBA/MARSHAL:1.0";
    EXPECT_THAT(Answer(RawMessage(1, c_key, "get").Text(std::string(512, 'a'))), HasSubstr(marshal));
    EXPECT_THAT(Answer(RawMessage(1, c_key, "get").Text(std::string(511, 'a'))), HasSubstr("reg/Error"));
    EXPECT_THAT(Answer(RawMessage(1, c_key, "get_many").Long(4097)), HasSubstr(marshal));
    EXPECT_THAT(Answer(RawMessage(1, c_key, "get_many").Long(0xFFFFFFFF)), HasSubstr(marshal));
    EXPECT_THAT(Answer(RawMessage(1, c_key, "set_many").Long(1025)), HasSubstr(marshal));
    EXPECT_THAT(Answer(RawMessage(1, c_key, "hello").Text(std::string(65536, 'a'))), HasSubstr(marshal));
    EXPECT_THAT(Answer(RawMessage(1, c_key, "renew").Text(std::string(64, 'a'))), HasSubstr(marshal));
    EXPECT_THAT(Answer(RawMessage(1, c_key, "get").Long(0)), HasSubstr(marshal));
    EXPECT_THAT(Answer(RawMessage(1, c_key, "nonsense")), HasSubstr("BAD_OPERATION"));
    ExpectAlive();
}

TEST_F(RegistryHardening, TwoRequestsWithOneIdTheSecondInFragments_HarmNobody) {
    Start();
    std::string second = RawMessage(2, c_key, "get").Text("values/slow").Bytes();
    second[6] = 3;
    const std::string first = RawMessage(2, c_key, "get").Text("values/slow").Bytes();
    for (int i = 0; i < 20; ++i) {
        const RawConnection connection(m_port);
        connection.Send(first + second);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    ExpectAlive();
}

TEST_F(RegistryHardening, ConnectionsBeyondTheLimit_AreClosedAtOnce) {
    Start({"connections=5"});
    // The fixture holds one.
    std::vector<std::unique_ptr<RawConnection>> connections;
    for (int i = 0; i < 4; ++i) {
        connections.push_back(std::make_unique<RawConnection>(m_port));
        connections.back()->Send(RawMessage(1, c_key, "get").Text("values/number").Bytes());
        EXPECT_GE(connections.back()->Receive().size(), 40U);
    }
    const RawConnection oneTooMany(m_port);
    EXPECT_TRUE(oneTooMany.IsClosed());
    EXPECT_TRUE(AwaitErrors("Refused a connection from 127.0.0.1"));
    const reg::Reading_var reading = m_registry->get("values/number");
    EXPECT_EQ(reading->val.number(), 1.5);
    connections.pop_back();
    std::string answer;
    for (int i = 0; i < 20000 && answer.empty(); ++i) {
        try {
            answer = Answer(RawMessage(1, c_key, "get").Text("values/number"));
        } catch (const std::runtime_error&) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    EXPECT_GE(answer.size(), 40U) << "the place of a connection that ended is free again";
}

TEST_F(RegistryHardening, ConnectionWithoutRequests_IsClosedAfterAWhile) {
    Start({"idle=1"});
    const RawConnection idle(m_port);
    EXPECT_TRUE(idle.IsClosed());
}

TEST_F(RegistryHardening, EnvironmentOfTheOrb_HasNoSay) {
    Start({}, {{"ORBendPoint", "giop:tcp:127.0.0.1:25691"}, {"ORBmaxServerThreadPerConnection", "100"}});
    EXPECT_TRUE(AwaitErrors("Variable ORBendPoint of the environment is ignored"));
    EXPECT_THROW(RawConnection(25691), std::runtime_error);
    ExpectAlive();
}

TEST_F(RegistryHardening, Garbage_IsToldToTheLogAFewTimesOnly) {
    Start();
    for (int i = 0; i < 50; ++i) {
        const RawConnection connection(m_port);
        connection.Send("GET / HTTP/1.1\r\nHost: nowhere\r\n\r\n");
        EXPECT_TRUE(connection.IsClosed());
    }
    ExpectAlive();
    ASSERT_EQ(Stop(), 0);
    EXPECT_LE(test::ReadLines(m_folder.Path("err")).size(), 6U);
}

}  // namespace
