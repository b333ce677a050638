#pragma once

#include <string>
#include <thread>

/// A folder below the system's temporary one that is removed at the end.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

/// A daemon's control socket that answers as it is told: it takes one connection, keeps what is asked and sends what it
/// was given. In a folder of its own, which goes with it.
class ScriptedServer {
public:
    enum class After_e {
        close,  ///< closes the connection, as a daemon does
        stay,   ///< keeps it open until the client closes it
    };

    /// @param answer sent as it is once the request's newline has come
    explicit ScriptedServer(std::string answer, After_e after = After_e::close);
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();

    const std::string& Path() const { return m_path; }

    /// What the client sent, newline included. Waits until the connection is over.
    std::string Request();

private:
    void Serve(const std::string& answer, After_e after);

    TemporaryFolder m_folder;
    std::string m_path;
    std::string m_request;
    int m_listener = -1;
    std::thread m_thread;
};
