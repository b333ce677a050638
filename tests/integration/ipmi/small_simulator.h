#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include <fmt/format.h>
#include "tests/support/file.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

namespace test {

/// A UDP socket on 127.0.0.1, with a port that was free. Reads nothing by itself: a port where nobody answers.
class UdpSocket {
public:
    UdpSocket() : m_descriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof m_address;
        if (::bind(m_descriptor, reinterpret_cast<sockaddr*>(&m_address), size) != 0 ||
            ::getsockname(m_descriptor, reinterpret_cast<sockaddr*>(&m_address), &size) != 0) {
            throw std::runtime_error("cannot bind a UDP socket");
        }
    }
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;
    ~UdpSocket() { ::close(m_descriptor); }

    int GetDescriptor() const noexcept { return m_descriptor; }
    std::uint16_t GetPort() const noexcept { return ntohs(m_address.sin_port); }

    /// How many packets have come and were not read yet; reads them.
    int TakePackets() const {
        std::array<char, 1500> packet{};
        int count = 0;
        while (::recv(m_descriptor, packet.data(), packet.size(), MSG_DONTWAIT) >= 0) {
            ++count;
        }
        return count;
    }

private:
    int m_descriptor;
    sockaddr_in m_address{};
};

/// The simulator of management controllers of Debian's package openipmi: a controller with a LAN interface on loopback,
/// one more behind it at 0x82 on the IPMB, nobody at 0x84. Users "ops" (administrator) and "guest" (user).
class SmallSimulator {
public:
    static constexpr const char* c_program = "/usr/bin/ipmi_sim";

    static bool IsInstalled() { return Exists(c_program); }

    SmallSimulator() : m_port(UdpSocket().GetPort()) {
        WriteFile(m_folder.Path("lan.conf"), fmt::format("name \"one\"\n"
                                                         "set_working_mc 0x20\n"
                                                         "  startlan 1\n"
                                                         "    addr 127.0.0.1 {}\n"
                                                         "    priv_limit admin\n"
                                                         "    allowed_auths_callback md5\n"
                                                         "    allowed_auths_user md5\n"
                                                         "    allowed_auths_operator md5\n"
                                                         "    allowed_auths_admin md5\n"
                                                         "    guid a123456789abcdefa123456700002454\n"
                                                         "  endlan\n"
                                                         "  user 2 true \"ops\" \"ops-secret\" admin 15 md5\n"
                                                         "  user 3 true \"guest\" \"guest-secret\" user 15 md5\n",
                                                         m_port));
        std::string commands =
            "mc_setbmc 0x20\n"
            "mc_add 0x20 0x20 no-device-sdrs 1 2 0x45 0xbf 0x1291 0x0f02\n"
            "mc_add 0x82 0x21 no-device-sdrs 3 4 0x56 0x3d 0x1291 0x0f03\n";
        for (int sensor = 1; sensor <= 60; ++sensor) {
            commands += fmt::format("sensor_add 0x20 0 {0} 1 1\nsensor_set_value 0x20 0 {0} {0} 0\n", sensor);
        }
        WriteFile(m_folder.Path("commands"), commands + "mc_enable 0x20\nmc_enable 0x82\n");
        Start();
    }

    std::uint16_t GetPort() const noexcept { return m_port; }
    void Freeze() { m_process->Signal(SIGSTOP); }
    void Thaw() { m_process->Signal(SIGCONT); }
    void Stop() { m_process.reset(); }
    /// On the same port, with all sessions lost.
    void Restart() {
        Stop();
        Start();
    }

private:
    void Start() {
        m_process =
            std::make_unique<Process>(std::vector<std::string>{c_program, "-n", "-p", "-c", m_folder.Path("lan.conf"),
                                                               "-f", m_folder.Path("commands"), "-s", m_folder.Path()},
                                      m_folder.Path("output"), m_folder.Path("output"));
        for (int i = 0; i < 200; ++i) {
            if (IsAnswering()) {
                return;
            }
        }
        throw std::runtime_error("the simulator does not answer:\n" + ReadFile(m_folder.Path("output")));
    }

    /// Sends Get Channel Authentication Capabilities, outside of a session.
    bool IsAnswering() const {
        constexpr std::array<std::uint8_t, 23> c_request{0x06, 0x00, 0xff, 0x07, 0x00, 0x00, 0x00, 0x00,
                                                         0x00, 0x00, 0x00, 0x00, 0x00, 0x09, 0x20, 0x18,
                                                         0xc8, 0x81, 0x04, 0x38, 0x0e, 0x04, 0x31};
        const UdpSocket client;
        sockaddr_in server{};
        server.sin_family = AF_INET;
        server.sin_port = htons(m_port);
        server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::sendto(client.GetDescriptor(), c_request.data(), c_request.size(), 0,
                 reinterpret_cast<const sockaddr*>(&server), sizeof server);
        pollfd source{client.GetDescriptor(), POLLIN, 0};
        return ::poll(&source, 1, 50) == 1;
    }

    TempFolder m_folder;
    std::uint16_t m_port;
    std::unique_ptr<Process> m_process;
};

}  // namespace test
