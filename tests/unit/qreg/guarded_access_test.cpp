#include "qreg/guarded_access.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "qstd/exception.h"
#include "tests/support/log_capture.h"
#include "tests/unit/qreg/value_node.h"

namespace {

using qnode::Value;
using qreg::Access;
using qreg::ClientList;
using qreg::ErrorCode_e;
using qreg::GuardedAccess;
using qreg::Outcome;
using qreg::Peer;
using qreg::RegNode;
using test::AddValue;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

const Peer c_local{"127.0.0.1"};
const Peer c_stranger{"10.0.0.7"};
const Peer c_writer{"10.0.0.7", "CN=operator,O=Lab"};

ClientList ListOf(const std::string& from, const std::string& subject = {}) {
    ClientList list;
    list.Add(from, subject);
    return list;
}

/// fans (double), label (text) and state (text that clients only read) under a root.
class GuardedAccessTest : public testing::Test {
protected:
    GuardedAccess Guard(ClientList mayRead = {}, ClientList mayWrite = {},
                        std::chrono::milliseconds patience = std::chrono::minutes(1)) const {
        return {m_access, std::move(mayRead), std::move(mayWrite), patience};
    }

    /// "code: text" of the refusal to read; empty when there is none.
    static std::string RefusalToRead(const GuardedAccess& guard, const Peer& peer, const std::string& path = "fans") {
        try {
            guard.RefuseToRead(peer, path);
        } catch (const qreg::RegistryError& error) {
            EXPECT_EQ(error.GetCode(), ErrorCode_e::denied);
            EXPECT_EQ(error.GetPath(), path);
            return error.what();
        }
        return {};
    }

    const std::shared_ptr<qnode::TreeNode> m_root = test::Container("root");
    const std::shared_ptr<test::ValueNode<double>> m_fans = AddValue<double>(m_root, "fans", 3000);
    const std::shared_ptr<test::ValueNode<std::string>> m_label = AddValue<std::string>(m_root, "label", "old");
    const std::shared_ptr<test::ValueNode<std::string>> m_state =
        AddValue<std::string>(m_root, "state", "ok", RegNode::c_readable);
    const Access m_access{m_root};
    test::LogCapture m_log;
};

TEST_F(GuardedAccessTest, WithoutLists_EveryClientReadsAndWrites) {
    const GuardedAccess guard = Guard();
    EXPECT_FALSE(guard.RestrictsReading());
    EXPECT_EQ(RefusalToRead(guard, c_stranger), "");
    EXPECT_EQ(guard.Write(c_stranger, "fans", 4000.0).code, ErrorCode_e::ok);
    EXPECT_EQ(m_fans->Held(), 4000.0);
}

TEST_F(GuardedAccessTest, Readers_ReadAndDoNotWriteUnlessTheyAreWriters) {
    const GuardedAccess guard = Guard(ListOf("10.0.0.0/8"), ListOf("", c_writer.subject));
    EXPECT_TRUE(guard.RestrictsReading());
    EXPECT_EQ(RefusalToRead(guard, c_stranger), "");
    EXPECT_EQ(guard.Write(c_stranger, "fans", 4000.0).code, ErrorCode_e::denied);
    EXPECT_EQ(m_fans->Held(), 3000.0);
    EXPECT_EQ(guard.Write(c_writer, "fans", 4000.0).code, ErrorCode_e::ok);
    EXPECT_EQ(m_fans->Held(), 4000.0);
}

TEST_F(GuardedAccessTest, Writers_ReadEvenWhenOthersAreNamedAsReaders) {
    const GuardedAccess guard = Guard(ListOf("192.168.0.0/16"), ListOf("127.0.0.1"));
    EXPECT_EQ(RefusalToRead(guard, c_local), "");
    EXPECT_EQ(RefusalToRead(guard, c_writer), "Clients at 10.0.0.7 (CN=operator,O=Lab) may not read");
}

TEST_F(GuardedAccessTest, WhoMayNotRead_DoesNotWriteEither) {
    const GuardedAccess guard = Guard(ListOf("127.0.0.1"));
    EXPECT_EQ(guard.Write(c_stranger, "fans", 4000.0).code, ErrorCode_e::denied);
    EXPECT_EQ(guard.Write(c_local, "fans", 4000.0).code, ErrorCode_e::ok);
}

TEST_F(GuardedAccessTest, RefusalToRead_IsLoggedWithWhoAndWhat) {
    const GuardedAccess guard = Guard(ListOf("127.0.0.1"));
    RefusalToRead(guard, c_writer, "fans");
    RefusalToRead(guard, c_stranger, "");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("W: Refused to read fans for 10.0.0.7 (CN=operator,O=Lab), which may not read",
                            "W: Refused to read for 10.0.0.7, which may not read"));
}

TEST_F(GuardedAccessTest, Write_IsLoggedWithWhoWhatAndBothValues) {
    const GuardedAccess guard = Guard();
    guard.Write(c_writer, "fans", 4000.0);
    guard.Write(c_stranger, "//label/", std::string("new"));
    m_fans->Put(std::nullopt);
    guard.Write(c_local, "fans", 2500.5);
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: Registry: fans set from 3000 to 4000 by 10.0.0.7 (CN=operator,O=Lab)",
                                              R"(I: Registry: label set from "old" to "new" by 10.0.0.7)",
                                              "I: Registry: fans set from no value to 2500.5 by 127.0.0.1"));
}

TEST_F(GuardedAccessTest, WriteThatTheNodeRefuses_IsLoggedWithItsReason) {
    m_fans->onSet = [] { throw qstd::Exception("Too high rpm value: 20\nor too low"); };
    EXPECT_EQ(Guard().Write(c_stranger, "fans", 20.0).text, "Too high rpm value: 20\nor too low");
    EXPECT_THAT(m_log.Messages(), ElementsAre("W: Registry: fans not set from 3000 to 20 for 10.0.0.7: Too high rpm "
                                              "value: 20?or too low"));
}

TEST_F(GuardedAccessTest, NodeThatCannotBeReadBefore_IsWrittenAllTheSameAndItsValueIsUnknown) {
    m_fans->onGet = [] { throw qstd::Exception("no answer"); };
    EXPECT_EQ(Guard().Write(c_local, "fans", 4000.0).code, ErrorCode_e::ok);
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: Registry: fans set from unknown to 4000 by 127.0.0.1"));
}

TEST_F(GuardedAccessTest, NodeThatIsSlowToTell_IsWrittenInTimeAndItsValueIsUnknown) {
    std::promise<void> boardAnswers;
    m_fans->onGet = [answers = boardAnswers.get_future().share()] { answers.wait(); };
    const GuardedAccess guard = Guard({}, {}, std::chrono::milliseconds(10));
    EXPECT_EQ(guard.Write(c_local, "fans", 4000.0).code, ErrorCode_e::ok);
    EXPECT_EQ(m_fans->Held(), 4000.0);
    boardAnswers.set_value();
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: Registry: fans set from unknown to 4000 by 127.0.0.1"));
}

TEST_F(GuardedAccessTest, ManyWritesOfASlowNode_AskItOnlyAFewTimesAtOnce) {
    std::promise<void> boardAnswers;
    std::atomic<std::size_t> asked{0};
    m_fans->onGet = [&asked, answers = boardAnswers.get_future().share()] {
        ++asked;
        answers.wait();
    };
    const GuardedAccess guard = Guard({}, {}, std::chrono::milliseconds(10));
    for (std::size_t i = 0; i < 3 * qreg::ValueBefore::c_mostLate; ++i) {
        EXPECT_EQ(guard.Write(c_local, "fans", 4000.0).code, ErrorCode_e::ok);
    }
    EXPECT_EQ(m_log.Messages().size(), 3 * qreg::ValueBefore::c_mostLate) << "every write has its line";
    EXPECT_THAT(m_log.Messages(), Each("I: Registry: fans set from unknown to 4000 by 127.0.0.1"));
    boardAnswers.set_value();
    while (asked < qreg::ValueBefore::c_mostLate) {
        std::this_thread::yield();
    }
    EXPECT_EQ(asked, qreg::ValueBefore::c_mostLate);
    m_log.Clear();
    // As soon as the late ones have ended there is room again.
    const auto isKnown = [&] {
        guard.Write(c_local, "fans", 5000.0);
        return m_log.Messages().back().find("unknown") == std::string::npos;
    };
    while (!isKnown()) {
        std::this_thread::yield();
    }
    EXPECT_THAT(m_log.Messages().back(), testing::MatchesRegex("I: Registry: fans set from [45]000 to 5000 by .*"));
}

TEST_F(GuardedAccessTest, WritesAtTheSameMoment_EachLineBeginsWithWhatTheLastOneLeft) {
    const GuardedAccess guard = Guard();
    m_fans->onSet = [] { std::this_thread::yield(); };
    std::vector<std::future<void>> clients;
    for (int client = 0; client < 4; ++client) {
        clients.push_back(std::async(std::launch::async, [&guard, client] {
            for (int i = 0; i < 50; ++i) {
                guard.Write(c_local, i % 2 == 0 ? "fans" : "/fans", 1000 * client + i);
            }
        }));
    }
    clients.clear();
    std::string last = "3000";
    const std::vector<std::string> messages = m_log.Messages();
    ASSERT_EQ(messages.size(), 200U);
    for (const std::string& message : messages) {
        const std::string begin = "I: Registry: fans set from " + last + " to ";
        ASSERT_THAT(message, testing::StartsWith(begin));
        last = message.substr(begin.size(), message.find(" by ") - begin.size());
    }
    EXPECT_EQ(last, qnode::ToText(*m_fans->Held()));
}

TEST_F(GuardedAccessTest, WriteThatHangs_KeepsNoOtherNodeWaiting) {
    const GuardedAccess guard = Guard();
    std::promise<void> isWriting;
    std::promise<void> boardAnswers;
    m_fans->onSet = [&] {
        isWriting.set_value();
        boardAnswers.get_future().wait();
    };
    auto hangs = std::async(std::launch::async, [&] { guard.Write(c_local, "fans", 4000.0); });
    isWriting.get_future().wait();
    EXPECT_EQ(guard.Write(c_local, "label", std::string("new")).code, ErrorCode_e::ok);
    boardAnswers.set_value();
}

TEST_F(GuardedAccessTest, WriteThatReachesNoNode_CountsAsRefused) {
    const GuardedAccess guard = Guard();
    m_state->onGet = [] { FAIL() << "read without need"; };
    EXPECT_EQ(guard.Write(c_local, "nowhere", 1.0).code, ErrorCode_e::no_such_node);
    EXPECT_EQ(guard.Write(c_local, "state", std::string("x")).code, ErrorCode_e::not_writable);
    EXPECT_EQ(guard.Write(c_local, "fans", Value()).code, ErrorCode_e::wrong_type);
    EXPECT_THAT(
        m_log.Messages(),
        ElementsAre("W: Refused to write nowhere = 1 for 127.0.0.1: No node \"nowhere\" under \"root\" (path "
                    "\"nowhere\")",
                    "W: Refused to write state = \"x\" for 127.0.0.1: Node \"state\" cannot be written by clients",
                    "W: Refused to write fans = no value for 127.0.0.1: Node \"fans\" takes numbers, not an empty "
                    "value"));
}

TEST_F(GuardedAccessTest, Refusals_AreLimitedAndCounted_WritesAreNot) {
    const GuardedAccess guard = Guard({}, ListOf("127.0.0.1"));
    for (int i = 0; i < 100; ++i) {
        guard.Write(c_stranger, "fans", i);
    }
    EXPECT_EQ(m_log.Messages().size(), 10U);
    guard.Flush();
    EXPECT_THAT(m_log.Messages().back(), testing::HasSubstr("(90 more were not logged)"));
    m_log.Clear();
    for (int i = 0; i < 100; ++i) {
        guard.Write(c_local, "fans", i);
    }
    EXPECT_EQ(m_log.Messages().size(), 100U);
}

TEST_F(GuardedAccessTest, TextsOfClients_DoNotReadAsWordsOfTheLog) {
    const GuardedAccess guard = Guard();
    m_label->onSet = [] { throw qstd::Exception("bad"); };
    guard.Write(c_stranger, "label", std::string("x by 10.0.0.1 (CN=boss)"));
    guard.Write(c_stranger, "label", std::string("x\" by \\\""));
    guard.Write(c_stranger, "fans = 1 for 10.0.0.1, which may not write", 2);
    guard.Write(c_stranger, "", std::string());
    EXPECT_THAT(
        m_log.Messages(),
        ElementsAre(R"-(W: Registry: label not set from "old" to "x by 10.0.0.1 (CN=boss)" for 10.0.0.7: bad)-",
                    R"-(W: Registry: label not set from "old" to "x\" by \\\"" for 10.0.0.7: bad)-",
                    testing::StartsWith(R"-(W: Refused to write "fans = 1 for 10.0.0.1, which may not write" = 2 for )-"
                                        "10.0.0.7: No node"),
                    testing::StartsWith(R"-(W: Refused to write "" = "" for 10.0.0.7: )-")));
}

TEST_F(GuardedAccessTest, SlashesMoreThanNeeded_DoNotHideTheNode) {
    EXPECT_EQ(Guard().Write(c_local, std::string(400, '/') + "fans" + std::string(100, '/'), 4000.0).code,
              ErrorCode_e::ok);
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: Registry: fans set from 3000 to 4000 by 127.0.0.1"));
}

TEST_F(GuardedAccessTest, HostileTexts_StayOneLineOfLimitedLength) {
    const GuardedAccess guard = Guard();
    guard.Write({"10.0.0.7", std::string(5000, 'x')}, "label", "two\nlines\x1b[2J" + std::string(60000, 'y'));
    guard.Write(c_local, std::string(60000, '\r'), 1.0);
    for (const std::string& message : m_log.Messages()) {
        EXPECT_LT(message.size(), 1000U);
        EXPECT_EQ(message.find_first_of("\n\r\x1b"), std::string::npos);
    }
    EXPECT_THAT(m_log.Messages().front(), testing::HasSubstr("label set from \"old\" to \"two?lines?[2Jyyy"));
}

}  // namespace
