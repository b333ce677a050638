#include "tools/chassisctl/control_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "tests/unit/chassisctl/scripted_server.h"

namespace {

using chassisctl::ControlClient;
using chassisctl::Fields;
using chassisctl::Reply;
using testing::ElementsAre;
using testing::HasSubstr;
using Outcome_e = Reply::Outcome_e;

constexpr std::chrono::milliseconds c_short{50};

TEST(ControlClient, AnswerOfSeveralLines_RowsAndDone) {
    ScriptedServer server("+a\tb\t\n+\nok\n");
    const Reply reply = ControlClient(server.Path()).Ask({"list"});
    EXPECT_EQ(reply.outcome, Outcome_e::done);
    EXPECT_THAT(reply.rows, ElementsAre(ElementsAre("a", "b", ""), ElementsAre("")));
    EXPECT_EQ(server.Request(), "list\n");
}

TEST(ControlClient, EmptyArguments_KeepTheirPlaces) {
    ScriptedServer server("ok\n");
    ControlClient(server.Path()).Ask({"fail", "io/1", "", ""});
    EXPECT_EQ(server.Request(), "fail\tio/1\t\t\n");
}

TEST(ControlClient, ErrorLine_RefusedWithItsText) {
    ScriptedServer server("error\tno board io/9\n");
    const Reply reply = ControlClient(server.Path()).Ask({"power", "io/9"});
    EXPECT_EQ(reply.outcome, Outcome_e::refused);
    EXPECT_EQ(reply.text, "no board io/9");
}

TEST(ControlClient, NoSocket_NoAnswer) {
    const TemporaryFolder folder;
    const Reply reply = ControlClient(folder.Path() + "/none").Ask({"list"});
    EXPECT_EQ(reply.outcome, Outcome_e::noAnswer);
    EXPECT_EQ(reply.text, "no daemon answers at " + folder.Path() + "/none: No such file or directory");
}

TEST(ControlClient, SocketFileWithoutListener_NoAnswer) {
    const TemporaryFolder folder;
    const std::string path = folder.Path() + "/left";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), std::begin(address.sun_path));
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    close(fd);
    const Reply reply = ControlClient(path).Ask({"list"});
    EXPECT_EQ(reply.outcome, Outcome_e::noAnswer);
    EXPECT_THAT(reply.text, HasSubstr("Connection refused"));
}

TEST(ControlClient, OrdinaryFileInPlaceOfTheSocket_NoAnswer) {
    const TemporaryFolder folder;
    std::ofstream(folder.Path() + "/file") << "text";
    EXPECT_EQ(ControlClient(folder.Path() + "/file").Ask({"list"}).outcome, Outcome_e::noAnswer);
}

TEST(ControlClient, ClosedBeforeTheFinalLine_NoAnswer) {
    for (const char* answer : {"", "+board\n", "+board\nok", "o"}) {
        ScriptedServer server(answer);
        const Reply reply = ControlClient(server.Path()).Ask({"list"});
        EXPECT_EQ(reply.outcome, Outcome_e::noAnswer) << answer;
        EXPECT_THAT(reply.text, HasSubstr("closed the connection before the end of its answer")) << answer;
    }
}

TEST(ControlClient, NoFinalLineInTime_NoAnswer) {
    for (const char* answer : {"", "+board\n"}) {
        ScriptedServer server(answer, ScriptedServer::After_e::stay);
        const Reply reply = ControlClient(server.Path(), c_short).Ask({"list"});
        EXPECT_EQ(reply.outcome, Outcome_e::noAnswer) << answer;
        EXPECT_THAT(reply.text, HasSubstr("within 50 ms")) << answer;
    }
}

TEST(ControlClient, NobodyAcceptsAndTheQueueIsFull_NoAnswerInTime) {
    const TemporaryFolder folder;
    const std::string path = folder.Path() + "/stuck";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), std::begin(address.sun_path));
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(fd, 0), 0);
    const int waiting = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(connect(waiting, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    const Reply reply = ControlClient(path, c_short).Ask({"list"});
    EXPECT_EQ(reply.outcome, Outcome_e::noAnswer);
    EXPECT_THAT(reply.text, HasSubstr("within 50 ms"));
    close(waiting);
    close(fd);
}

TEST(ControlClient, AnswerThatIsNoneOfTheProtocol_NoAnswer) {
    for (const char* answer : {"HTTP/1.1 400 Bad Request\n", "\n", "okay\n", "error\n"}) {
        ScriptedServer server(answer);
        const Reply reply = ControlClient(server.Path()).Ask({"list"});
        EXPECT_EQ(reply.outcome, Outcome_e::noAnswer) << answer;
        EXPECT_THAT(reply.text, HasSubstr("not understood")) << answer;
    }
}

TEST(ControlClient, EndlessLine_NoAnswer) {
    ScriptedServer server(std::string(1024 * 1024, '+'));
    EXPECT_THAT(ControlClient(server.Path()).Ask({"list"}).text, HasSubstr("too long"));
}

TEST(ControlClient, FieldThatCannotBeSent_RefusedWithoutADaemon) {
    using std::string_literals::operator""s;
    for (const std::string& field : {"a\tb"s, "a\nb"s, "a\0b"s}) {
        const Reply reply = ControlClient("nowhere").Ask({"fail", "io/1", "", field});
        EXPECT_EQ(reply.outcome, Outcome_e::refused);
        EXPECT_EQ(reply.text, "A field may not hold a tab, newline or null byte: \"a?b\"");
    }
}

TEST(ControlClient, RequestOf4096Bytes_IsTheLongest) {
    ScriptedServer server("ok\n");
    const std::string fits(4096 - std::string("fail\t\n").size(), 'x');
    EXPECT_EQ(ControlClient(server.Path()).Ask({"fail", fits}).outcome, Outcome_e::done);
    EXPECT_EQ(server.Request().size(), 4096U);
    const Reply reply = ControlClient("nowhere").Ask({"fail", fits + "x"});
    EXPECT_EQ(reply.outcome, Outcome_e::refused);
    EXPECT_EQ(reply.text, "the request has 4097 bytes, at most 4096 are allowed");
}

TEST(ControlClient, SocketPathTooLong_RefusedWithTheLimit) {
    const Reply reply = ControlClient(std::string(108, 'p')).Ask({"list"});
    EXPECT_EQ(reply.outcome, Outcome_e::refused);
    EXPECT_THAT(reply.text, HasSubstr("has 108 bytes, 1 to 107 are allowed"));
    EXPECT_EQ(ControlClient("").Ask({"list"}).outcome, Outcome_e::refused);
}

TEST(ControlClient, Follow_HandsOnEachRowUntilToldToStop) {
    ScriptedServer server("+1\n+2\n+3\n", ScriptedServer::After_e::stay);
    std::vector<Fields> rows;
    const Reply reply = ControlClient(server.Path(), c_short).Follow({"journal-follow"}, [&](const Fields& row) {
        rows.push_back(row);
        return rows.size() < 2;
    });
    EXPECT_EQ(reply.outcome, Outcome_e::done);
    EXPECT_THAT(rows, ElementsAre(ElementsAre("1"), ElementsAre("2")));
    EXPECT_EQ(server.Request(), "journal-follow\n");
}

TEST(ControlClient, Follow_DaemonGoesAway_NoAnswer) {
    ScriptedServer server("+1\n");
    const Reply reply = ControlClient(server.Path()).Follow({"journal-follow"}, [](const Fields&) { return true; });
    EXPECT_EQ(reply.outcome, Outcome_e::noAnswer);
}

}  // namespace
