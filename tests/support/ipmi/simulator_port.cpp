#include "tests/support/ipmi/simulator_port.h"
#include "tests/support/ipmi/loopback.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace test {

namespace {

// Get Channel Authentication Capabilities.
constexpr std::array<std::uint8_t, 23> c_question{0x06, 0x00, 0xff, 0x07, 0x00, 0x00, 0x00, 0x00,
                                                  0x00, 0x00, 0x00, 0x00, 0x00, 0x09, 0x20, 0x18,
                                                  0xc8, 0x81, 0x00, 0x38, 0x8e, 0x04, 0xb5};
constexpr int c_answerLimit = 1000;  // ms

int OpenSocket() {
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        throw std::runtime_error("cannot open a socket to look at the simulator's port");
    }
    return socket;
}

}  // namespace

bool IsFreePort(std::uint16_t port) {
    const int socket = OpenSocket();
    const sockaddr_in address = Loopback(port);
    const bool isFree = ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(socket);
    return isFree;
}

bool AnswersOnPort(std::uint16_t port) {
    const int socket = OpenSocket();
    const sockaddr_in address = Loopback(port);
    std::array<char, 256> answer{};
    pollfd source{socket, POLLIN, 0};
    const bool isAnswered = ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                            ::send(socket, c_question.data(), c_question.size(), 0) > 0 &&
                            ::poll(&source, 1, c_answerLimit) > 0 &&
                            ::recv(socket, answer.data(), answer.size(), MSG_DONTWAIT) > 0;
    ::close(socket);
    return isAnswered;
}

}  // namespace test
