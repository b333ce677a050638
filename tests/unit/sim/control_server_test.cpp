#include "bmc/sim/control_server.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <list>
#include <memory>

#include "bmc/sim/control_protocol.h"
#include "sim_fixture.h"
#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace {

using bmc::sim::ControlServer;
using std::chrono::milliseconds;
using test::SimChassis;

/// A raw client of the control socket.
class Client {
public:
    explicit Client(const std::string& path) : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        Connect(path);
        SetPatience(std::chrono::seconds(30));
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { ::close(m_socket); }

    void Connect(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        m_isConnected = ::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    }
    void SetPatience(milliseconds patience) {
        const timeval limit{patience.count() / 1000, patience.count() % 1000 * 1000};
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    }

    bool IsConnected() const { return m_isConnected; }
    void Send(const std::string& text) { ::send(m_socket, text.data(), text.size(), MSG_NOSIGNAL); }
    void EndSending() { ::shutdown(m_socket, SHUT_WR); }

    /// The next line with its newline; "" when the server has closed.
    std::string ReadLine() {
        std::string line;
        char letter = 0;
        while (::recv(m_socket, &letter, 1, 0) == 1) {
            line += letter;
            if (letter == '\n') {
                break;
            }
        }
        return line;
    }

    std::string ReadAll() {
        std::string all;
        for (std::string line = ReadLine(); !line.empty(); line = ReadLine()) {
            all += line;
        }
        return all;
    }

private:
    int m_socket;
    bool m_isConnected = false;
};

class ControlServerTest : public testing::Test {
protected:
    void Start(const ControlServer::Limits& limits = {}) {
        m_server = std::make_unique<ControlServer>(m_chassis.backend, Path(), limits);
    }
    std::string Path() const { return m_folder.Path("s"); }
    std::string Ask(const std::string& request) const {
        Client client(Path());
        client.Send(request);
        return client.ReadAll();
    }
    std::string StartError(const std::string& path) {
        return test::ErrorOf([&] { const ControlServer server(m_chassis.backend, path, {}); });
    }

    test::TempFolder m_folder;
    SimChassis m_chassis;
    std::unique_ptr<ControlServer> m_server;
};

TEST_F(ControlServerTest, EveryCommand_IsServed) {
    Start();
    EXPECT_EQ(Ask("set\ticb/0\t12\t50\n"), "ok\n");
    EXPECT_EQ(m_chassis.Sensor("icb/0", 12).Read().Converted(), 50);
    for (const char* const request :
         {"auto\ticb/0\t12\n", "invalid\ticb/0\t12\n", "fail\ticb/0\t\tbus\n", "missing\ticb/0\t12\n",
          "slow\ticb/0\t5\n", "heal\ticb/0\t\n", "limit\ticb/0\t12\tunc\tnone\n", "clock\ticb/0\t2\n",
          "fpga-write\t0x40\t645\n", "fpga-fail\t0x40\n", "fpga-heal\t0x40\n"}) {
        EXPECT_EQ(Ask(request), "ok\n") << request;
    }
    EXPECT_EQ(Ask("fpga-read\t0x40\n"), "+0x40\t645\nok\n");
    EXPECT_EQ(Ask("power\tio/1\n"), "+on\nok\n");
    EXPECT_EQ(Ask("shutdown-count\tio/1\n"), "+0\nok\n");
    m_chassis.Board("io/1").ShutDown();
    EXPECT_NE(Ask("journal\n").find("\tio/1\tShutDown\nok\n"), std::string::npos);
    EXPECT_NE(Ask("list\n").find("+sensor\ticb/0\t12\tIntake\ttemperature\t48\t"), std::string::npos);
}

TEST_F(ControlServerTest, BadRequests_AreRefusedAndTheServerGoesOn) {
    Start();
    EXPECT_EQ(Ask("\n"), "error\tunknown command \"\"\n");
    EXPECT_EQ(Ask("nonsense\tx\n"), "error\tunknown command \"nonsense\"\n");
    EXPECT_EQ(Ask("set\ticb/0\n"), "error\tcommand \"set\" takes 3 arguments, given 1\n");
    EXPECT_EQ(Ask(std::string("set\ticb/0\t12\t\0\n", 16)), "error\tnot a number: \"?\"\n");
    EXPECT_EQ(Ask(std::string(bmc::sim::c_maxRequestSize, 'x')), "error\trequest too long, the limit is 4096 bytes\n");
    Client half(Path());
    half.Send("list");
    half.EndSending();
    EXPECT_EQ(half.ReadAll(), "error\tincomplete request: no newline at its end\n");
    {
        Client gone(Path());
        gone.Send("list\n");
    }
    { const Client silent(Path()); }
    EXPECT_EQ(Ask("power\tio/1\n"), "+on\nok\n");
}

TEST_F(ControlServerTest, RequestInPieces_IsServed) {
    Start();
    Client client(Path());
    for (const char letter : std::string("power\tio/1\n")) {
        client.Send(std::string(1, letter));
    }
    EXPECT_EQ(client.ReadAll(), "+on\nok\n");
}

TEST_F(ControlServerTest, SilentClient_IsClosedAndDelaysNobody) {
    Start({16, milliseconds(1000)});
    Client silent(Path());
    Client half(Path());
    half.Send("lis");
    EXPECT_EQ(Ask("power\tio/1\n"), "+on\nok\n");
    EXPECT_EQ(silent.ReadAll(), "");
    EXPECT_EQ(half.ReadAll(), "");
}

TEST_F(ControlServerTest, MoreClientsThanTheLimit_AreToldSo) {
    Start({2, milliseconds(60000)});
    Client first(Path());
    Client second(Path());
    EXPECT_EQ(Client(Path()).ReadAll(), "error\ttoo many clients, the limit is 2\n");
    first.Send("power\tio/1\n");
    EXPECT_EQ(first.ReadAll(), "+on\nok\n");
    EXPECT_EQ(Ask("power\tio/1\n"), "+on\nok\n") << "there is room again";
}

TEST_F(ControlServerTest, Follower_GetsWhatWasAndWhatComes) {
    Start({16, milliseconds(1000)});
    m_chassis.Board("io/1").ShutDown();
    Client follower(Path());
    follower.Send("journal-follow\n");
    EXPECT_NE(follower.ReadLine().find("\tio/1\tShutDown\n"), std::string::npos);
    Client silent(Path());
    EXPECT_EQ(silent.ReadAll(), "") << "its patience is over: a follower's has none";
    m_chassis.Board("icb/0").PowerDown();
    EXPECT_NE(follower.ReadLine().find("\ticb/0\tPowerDown\n"), std::string::npos);
    m_server.reset();
    EXPECT_EQ(follower.ReadAll(), "") << "no last line";
}

TEST_F(ControlServerTest, Followers_GetWhatIsDoneRightBeforeTheEnd) {
    m_chassis.Board("io/1").ShutDown();
    for (int stop = 0; stop < 100; ++stop) {
        Start({16, milliseconds(60000)});
        std::list<Client> followers;  // many, so that the end comes while the server is busy with some
        for (int i = 0; i < 12; ++i) {
            followers.emplace_back(Path()).Send("journal-follow\n");
            ASSERT_FALSE(followers.back().ReadLine().empty());
        }
        m_chassis.Board("io/1").ShutDown();
        ASSERT_FALSE(followers.front().ReadLine().empty());
        m_chassis.Board("icb/0").PowerDown();
        m_server.reset();
        for (Client& follower : followers) {
            ASSERT_THAT(follower.ReadAll(), testing::EndsWith("\ticb/0\tPowerDown\n")) << "stop " << stop;
        }
    }
}

TEST_F(ControlServerTest, FollowerThatDoesNotRead_IsClosedAndDelaysNobody) {
    Start({16, milliseconds(1000)});
    Client follower(Path());
    follower.Send("journal-follow\n");
    m_chassis.Board("io/1").ShutDown();
    ASSERT_FALSE(follower.ReadLine().empty());
    for (int i = 0; i < 30000; ++i) {
        m_chassis.Board("icb/0").FpgaSpiWrite(0x40, static_cast<std::uint16_t>(500 + i % 100));
    }
    Client silent(Path());
    EXPECT_EQ(silent.ReadAll(), "");
    Client later(Path());
    EXPECT_EQ(later.ReadAll(), "") << "longer than the patience";
    int lines = 0;
    while (!follower.ReadLine().empty()) {
        ++lines;
    }
    EXPECT_LT(lines, 30000) << "cut off";
}

TEST_F(ControlServerTest, JournalThatOverflowed_SaysHowManyAreLost) {
    Start();
    for (std::size_t i = 0; i < bmc::sim::Journal::c_maxEntries + 2; ++i) {
        m_chassis.Board("io/1").ShutDown();
    }
    const std::string journal = Ask("journal\n");
    EXPECT_EQ(journal.substr(0, journal.find('\n')), "+dropped\t2");
    EXPECT_EQ(journal.substr(journal.size() - 3), "ok\n");
    Client follower(Path());
    follower.Send("journal-follow\n");
    EXPECT_EQ(follower.ReadLine(), "+dropped\t2\n");
}

TEST_F(ControlServerTest, SocketFile_HasItsModeAndIsRemovedAtTheEnd) {
    Start();
    struct stat status {};
    ASSERT_EQ(::stat(Path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0660U);
    m_server.reset();
    EXPECT_FALSE(test::Exists(Path()));
}

TEST_F(ControlServerTest, StaleSocketFile_IsReplaced) {
    {
        const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, Path().c_str(), sizeof(address.sun_path) - 1);
        ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        ::close(socket);
    }
    ASSERT_TRUE(test::Exists(Path()));
    Start();
    EXPECT_EQ(Ask("power\tio/1\n"), "+on\nok\n");
}

TEST_F(ControlServerTest, SocketInUse_IsRefusedAndLeftAlone) {
    Start();
    EXPECT_EQ(StartError(Path()), "control socket " + Path() + ": in use by another process");
    EXPECT_EQ(Ask("power\tio/1\n"), "+on\nok\n") << "the first one still serves";
}

TEST_F(ControlServerTest, BadPath_IsRefused) {
    const std::string longPath = m_folder.Path(std::string(200, 'x'));
    EXPECT_EQ(StartError(longPath), "control socket " + longPath + ": the path has " + std::to_string(longPath.size()) +
                                        " bytes, the limit is 107");
    const std::string nowhere = m_folder.Path("no/s");
    EXPECT_EQ(StartError(nowhere), "control socket " + nowhere + ": No such file or directory");
    const std::string file = m_folder.Path("file");
    test::WriteFile(file, "precious");
    EXPECT_EQ(StartError(file), "control socket " + file + ": exists and is not a socket");
    EXPECT_EQ(test::ReadFile(file), "precious");
}

TEST_F(ControlServerTest, ServerThread_IsNotSentSignals) {
    Start();
    ASSERT_EQ(Ask("power\tio/1\n"), "+on\nok\n") << "now the thread has its name";
    sigset_t mask{};
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &mask), 0);
    EXPECT_EQ(sigismember(&mask, SIGTERM), 0) << "the caller's mask is as before";
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        const std::string status = test::ReadFile(task.path().string() + "/status");
        if (status.find("sim-control") != std::string::npos) {
            const std::size_t blocked = status.find("SigBlk:") + 8;
            const auto signals = std::stoull(status.substr(blocked, 16), nullptr, 16);
            for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGCHLD, SIGPIPE}) {
                EXPECT_NE(signals & (1ULL << (signal - 1)), 0U) << signal;
            }
            return;
        }
    }
    FAIL() << "no thread of that name";
}

TEST(ControlServer, OutOfDescriptors_WaitsWithoutSpinningAndThenServes) {
    SimChassis chassis;
    const test::TempFolder folder;
    const ControlServer server(chassis.backend, folder.Path("s"), ControlServer::Limits{});
    const auto cpuTime = [] {
        timespec used{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
        return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
    };
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    Client client(folder.Path("s-not-there"));  // its descriptor, before there are none
    rlimit none = before;
    none.rlim_cur = 3;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const auto begin = cpuTime();
    client.Connect(folder.Path("s"));
    client.Send("power\ticb/0\n");
    client.SetPatience(milliseconds(300));
    EXPECT_EQ(client.ReadLine(), "");
    const auto used = cpuTime() - begin;
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_LT(used, milliseconds(100));
    client.SetPatience(milliseconds(30000));
    EXPECT_EQ(client.ReadLine(), "+on\n");
}

}  // namespace
