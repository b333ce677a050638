#include "tests/support/ipmi/udp_relay.h"
#include "tests/support/ipmi/loopback.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/ipmi/ipmi_simulator.h"
#include "tests/support/ipmi/ipmitool.h"

namespace test {

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Optional;
using Clock = std::chrono::steady_clock;

constexpr int c_patience = 100'000;  // ms

// One end of a conversation over UDP.
class Peer {
public:
    Peer() : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_in any = Loopback(0);
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<const sockaddr*>(&any), sizeof any), 0);
    }
    explicit Peer(std::uint16_t port) : Peer() { Connect(port); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() { ::close(m_socket); }

    std::uint16_t GetPort() const {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }
    void Connect(std::uint16_t port) {
        const sockaddr_in address = Loopback(port);
        ASSERT_EQ(::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    bool Send(const std::string& text) { return ::send(m_socket, text.data(), text.size(), 0) >= 0; }
    // Takes the sender as the peer to answer.
    std::string Receive() {
        pollfd source{m_socket, POLLIN, 0};
        if (::poll(&source, 1, c_patience) != 1) {
            return "nothing came";
        }
        std::array<char, 2048> buffer{};
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        const ssize_t size =
            ::recvfrom(m_socket, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&sender), &length);
        if (size < 0) {
            return errno == ECONNREFUSED ? "refused" : "error";
        }
        m_sender = ntohs(sender.sin_port);
        return {buffer.data(), static_cast<std::size_t>(size)};
    }
    void Answer(const std::string& text) {
        const sockaddr_in address = Loopback(m_sender);
        ::sendto(m_socket, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }

private:
    const int m_socket;
    std::uint16_t m_sender = 0;
};

class UdpRelayTest : public testing::Test {
protected:
    // What arrives of packets "0", "1" .. after which an untouched "end" follows.
    std::vector<std::string> Pass(int count, const std::string& text = "") {
        for (int i = 0; i < count; ++i) {
            client.Send(text.empty() ? std::to_string(i) : text);
        }
        while (relay.GetCounts(RelayDirection_e::to_server).received < static_cast<std::uint64_t>(count)) {
        }
        relay.SetFaults({});
        client.Send("end");
        std::vector<std::string> arrived;
        for (std::string packet = server.Receive(); packet != "end"; packet = server.Receive()) {
            arrived.push_back(packet);
            if (packet == "nothing came") {
                break;
            }
        }
        return arrived;
    }

    Peer server;
    UdpRelay relay{server.GetPort(), 42};
    Peer client{relay.GetPort()};
};

}  // namespace

TEST_F(UdpRelayTest, NoFaults_PacketsPassBothWaysInOrder) {
    EXPECT_THAT(Pass(3), ElementsAre("0", "1", "2"));
    server.Answer("reply");
    EXPECT_EQ(client.Receive(), "reply");
    Peer other(relay.GetPort());
    other.Send("other");
    EXPECT_EQ(server.Receive(), "other");
    server.Answer("to the other");
    EXPECT_EQ(other.Receive(), "to the other");
    EXPECT_EQ(relay.GetCounts(RelayDirection_e::to_server).sent, 5U);
    EXPECT_EQ(relay.GetCounts(RelayDirection_e::to_client).sent, 2U);
}

TEST_F(UdpRelayTest, DropNth_OnlyThatOneIsMissing) {
    relay.SetFaults(RelayDirection_e::to_server, {.dropped = {2}});
    EXPECT_THAT(Pass(3), ElementsAre("0", "2"));
    EXPECT_EQ(relay.GetCounts(RelayDirection_e::to_server).dropped, 1U);
}

TEST_F(UdpRelayTest, DropAll_NothingPasses) {
    relay.SetFaults({.drop = 1});
    EXPECT_THAT(Pass(5), ElementsAre());
}

TEST_F(UdpRelayTest, DropShare_IsAboutThatMany) {
    relay.SetFaults(RelayDirection_e::to_server, {.drop = 0.5});
    EXPECT_NEAR(static_cast<double>(Pass(200).size()), 100, 40) << relay.Describe();
}

TEST_F(UdpRelayTest, Duplicate_PacketsComeTwice) {
    relay.SetFaults({.duplicate = 1});
    EXPECT_THAT(Pass(2), ElementsAre("0", "0", "1", "1"));
}

TEST_F(UdpRelayTest, Truncate_PacketsAreShorter) {
    relay.SetFaults({.truncate = 1});
    const std::vector<std::string> arrived = Pass(20, "0123456789");
    EXPECT_EQ(arrived.size(), 20U);
    for (const std::string& packet : arrived) {
        EXPECT_LT(packet.size(), 10U);
        EXPECT_EQ(packet, std::string("0123456789").substr(0, packet.size()));
    }
}

TEST_F(UdpRelayTest, Corrupt_PacketsDifferInBitsOnly) {
    relay.SetFaults({.corrupt = 1});
    const std::vector<std::string> arrived = Pass(20, std::string(64, 'x'));
    EXPECT_THAT(arrived, testing::SizeIs(20));
    EXPECT_THAT(arrived, Each(testing::SizeIs(64)));
    // The same bit may be turned twice, but hardly in most packets.
    EXPECT_LT(std::count(arrived.begin(), arrived.end(), std::string(64, 'x')), 5) << relay.Describe();
}

TEST_F(UdpRelayTest, Reorder_EveryOtherPacketComesAfterTheNext) {
    relay.SetFaults(RelayDirection_e::to_server, {.reorder = 1, .reorderLimit = std::chrono::minutes(1)});
    EXPECT_THAT(Pass(4), ElementsAre("1", "0", "3", "2"));
}

TEST_F(UdpRelayTest, SameSeed_SpoilsAlike) {
    UdpRelay twin(server.GetPort(), 42);
    relay.SetFaults({.corrupt = 1});
    twin.SetFaults({.corrupt = 1});
    client.Send("a packet of some length");
    const std::string first = server.Receive();
    Peer another(twin.GetPort());
    another.Send("a packet of some length");
    EXPECT_EQ(server.Receive(), first);
    EXPECT_NE(first, "a packet of some length");
}

TEST_F(UdpRelayTest, Delay_IsWaited) {
    relay.SetFaults(RelayDirection_e::to_server, {.delay = std::chrono::milliseconds(30)});
    const auto start = Clock::now();
    client.Send("late");
    EXPECT_EQ(server.Receive(), "late");
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));
}

TEST_F(UdpRelayTest, Closed_RefusesUntilItIsOpenAgain) {
    relay.Close();
    EXPECT_TRUE(client.Send("nobody"));
    EXPECT_EQ(client.Receive(), "refused");
    relay.Open();
    client.Send("again");
    EXPECT_EQ(server.Receive(), "again");
}

TEST(UdpRelayToSimulator, LossBothWays_IpmitoolGetsThrough) {
    const IpmiSimulator simulator;
    UdpRelay relay(simulator.GetPort());
    relay.SetFaults(RelayDirection_e::to_client, {.dropped = {3}});
    const Result result = Ipmitool(simulator, {"mc", "info"}, {.port = relay.GetPort()});
    EXPECT_THAT(result.status, Optional(0)) << result.error << relay.Describe();
    EXPECT_THAT(result.output, testing::HasSubstr("Firmware Revision         : 2.45"));
    EXPECT_EQ(relay.GetCounts(RelayDirection_e::to_client).dropped, 1U);
}

}  // namespace test
