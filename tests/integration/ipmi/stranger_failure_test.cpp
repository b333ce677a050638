// Packets from somebody who has no business there, at the ports of this host's sessions and at the controller's.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <random>
#include <thread>

#include "tests/integration/ipmi/failure_fixture.h"

namespace test {

namespace {

using Bytes = std::vector<std::uint8_t>;

/// Sends packets to UDP ports on loopback.
class Stranger {
public:
    Stranger() : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
    Stranger(const Stranger&) = delete;
    Stranger& operator=(const Stranger&) = delete;
    ~Stranger() { ::close(m_socket); }

    int GetSocket() const { return m_socket; }

    void Send(std::uint16_t port, const Bytes& packet) const {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::sendto(m_socket, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                 sizeof address);
    }

    /// Noise, or a header as a controller would send it with noise behind it.
    Bytes Draw() {
        static const std::array<Bytes, 7> c_beginnings{
            Bytes{},
            Bytes{0x06, 0x00, 0xff, 0x07},                          // RMCP, class IPMI
            Bytes{0x06, 0x00, 0xff, 0x06},                          // RMCP, class ASF
            Bytes{0x06, 0x00, 0xff, 0x07, 0x00, 0, 0, 0, 0, 0, 0},  // no session, IPMI 1.5
            Bytes{0x06, 0x00, 0xff, 0x07, 0x06, 0x11},              // open session response
            Bytes{0x06, 0x00, 0xff, 0x07, 0x06, 0x13},              // RAKP message 2
            Bytes{0x06, 0x00, 0xff, 0x07, 0x06, 0xc0},              // IPMI message, encrypted
        };
        Bytes packet = c_beginnings.at(m_random() % c_beginnings.size());
        const std::size_t length = m_random() % 8 == 0 ? m_random() % 2000 : m_random() % 64;
        for (std::size_t i = 0; i < length; ++i) {
            packet.push_back(static_cast<std::uint8_t>(m_random()));
        }
        return packet;
    }

private:
    const int m_socket;
    std::mt19937 m_random{7};
};

class StrangerTest : public IpmiFailureTest {
protected:
    /// The ports of this process's sessions: its UDP sockets that are neither the relays' nor the stranger's.
    std::vector<std::uint16_t> SessionPorts(const Stranger& stranger) const {
        std::vector<std::uint16_t> ports;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const int file = std::stoi(entry.path().filename());
            sockaddr_in own{};
            sockaddr_in peer{};
            socklen_t length = sizeof own;
            socklen_t peerLength = sizeof peer;
            if (file == stranger.GetSocket() || ::getsockname(file, reinterpret_cast<sockaddr*>(&own), &length) != 0 ||
                own.sin_family != AF_INET ||
                ::getpeername(file, reinterpret_cast<sockaddr*>(&peer), &peerLength) == 0) {
                continue;
            }
            const std::uint16_t port = ntohs(own.sin_port);
            const bool isRelay = std::any_of(m_sites.begin(), m_sites.end(),
                                             [&](const Site& site) { return site.relay->GetPort() == port; });
            if (port != 0 && !isRelay) {
                ports.push_back(port);
            }
        }
        return ports;
    }
};

TEST_F(StrangerTest, PacketsAtTheSessionsPort_ChangeNoValueAndRaiseNoError) {
    StartControllers();
    OpenBackend();
    Stranger stranger;
    const auto ports = SessionPorts(stranger);
    ASSERT_EQ(ports.size(), 1U);
    std::atomic<bool> isOver{false};
    std::atomic<int> sent{0};
    std::thread thread([&] {
        for (; !isOver; ++sent) {
            stranger.Send(ports.front(), stranger.Draw());
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    const auto end = Clock::now() + std::chrono::seconds(1);
    int failed = 0;
    int right = 0;
    // For a second, and on a busy machine until there was enough of both.
    while (Clock::now() < end || ((sent <= 100 || right <= 100) && Clock::now() < end + std::chrono::seconds(60))) {
        for (int id = 1; id <= 20; ++id) {
            const std::string error = ErrorOf([&] { EXPECT_EQ(Read(0, id), id * 8); });
            ++(error.empty() ? right : failed);
        }
        EXPECT_EQ(Board().FpgaSpiWrite(0x40, 297).failed, 0);
    }
    isOver = true;
    thread.join();
    std::printf("%d packets of a stranger, %d readings right, %d failed, %d sessions\n", sent.load(), right, failed,
                m_openings.opened.load());
    EXPECT_GT(sent, 100);
    EXPECT_GT(right, 100);
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(CountMessages(" does not answer: "), 0);
}

TEST_F(StrangerTest, PacketsAtTheControllersPort_AreTheControllersBusinessAndCostAReadingAtMost) {
    StartControllers();
    OpenBackend();
    Stranger stranger;
    for (int i = 0; i < 500; ++i) {
        stranger.Send(Relay().GetPort(), stranger.Draw());
        if (i % 10 == 0) {
            ErrorOf([&] { EXPECT_EQ(Read(0, 1 + i % 20), (1 + i % 20) * 8); });
        }
    }
    EXPECT_TRUE(AwaitAnswer(0));
    EXPECT_EQ(Read(0, 4), 32);
}

TEST_F(StrangerTest, TwoBackendsOnOneController_BothReadAndWrite) {
    StartControllers();
    OpenBackend();
    const auto first = std::move(m_backend);
    OpenBackend();
    bmc::Board& other = *first->GetBoard(m_sites[0].uri);
    std::thread thread([&] {
        for (int round = 0; round < 50; ++round) {
            for (int id = 1; id <= 20; ++id) {
                EXPECT_EQ(other.GetSensor(bmc::SensorId(id))->Read().Converted(), id * 8);
            }
            EXPECT_EQ(other.FpgaSpiWrite(0x40, 297).failed, 0);
        }
    });
    for (int round = 0; round < 50; ++round) {
        for (int id = 1; id <= 20; ++id) {
            EXPECT_EQ(Read(0, id), id * 8);
        }
        EXPECT_EQ(Board().FpgaSpiWrite(0x48, 297).failed, 0);
    }
    thread.join();
    EXPECT_EQ(Simulator().GetWrites().size(), 100U);
    EXPECT_EQ(m_openings.opened, 2);
}

}  // namespace

}  // namespace test
