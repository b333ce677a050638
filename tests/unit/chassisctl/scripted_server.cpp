#include "tests/unit/chassisctl/scripted_server.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

TemporaryFolder::TemporaryFolder() : m_path((std::filesystem::temp_directory_path() / "chassisctl-XXXXXX").string()) {
    if (mkdtemp(m_path.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

ScriptedServer::ScriptedServer(std::string answer, After_e after) : m_path(m_folder.Path() + "/socket") {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::copy(m_path.begin(), m_path.end(), std::begin(address.sun_path));
    m_listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(m_listener, 1) != 0) {
        throw std::runtime_error("cannot listen at " + m_path);
    }
    m_thread = std::thread([this, answer = std::move(answer), after] { Serve(answer, after); });
}

ScriptedServer::~ScriptedServer() {
    shutdown(m_listener, SHUT_RDWR);  // ends an accept that still waits
    if (m_thread.joinable()) {
        m_thread.join();
    }
    close(m_listener);
}

std::string ScriptedServer::Request() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
    return m_request;
}

void ScriptedServer::Serve(const std::string& answer, After_e after) {
    const int connection = accept(m_listener, nullptr, nullptr);
    if (connection < 0) {
        return;
    }
    std::array<char, 8192> chunk{};
    while (m_request.find('\n') == std::string::npos) {
        const ssize_t got = recv(connection, chunk.data(), chunk.size(), 0);
        if (got <= 0) {
            break;
        }
        m_request.append(chunk.data(), static_cast<std::size_t>(got));
    }
    std::size_t done = 0;
    while (done < answer.size()) {
        const ssize_t sent = send(connection, answer.data() + done, answer.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) {
            break;
        }
        done += static_cast<std::size_t>(sent);
    }
    while (after == After_e::stay && recv(connection, chunk.data(), chunk.size(), 0) > 0) {
    }
    close(connection);
}
