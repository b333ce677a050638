#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <registry.hh>

#include <chrono>
#include <csignal>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "qreg/error.h"
#include "tests/support/file.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

namespace test {

/// The ORB of the tests' clients, which also takes calls of a server to a listener.
inline CORBA::ORB_ptr ClientOrb() {
    static const CORBA::ORB_var orb = [] {
        int count = 0;
        // A client that asks for what a server refuses must be able to.
        const char* options[][2] = {{"traceLevel", "0"},
                                    {"clientCallTimeOutPeriod", "30000"},
                                    {"endPoint", "giop:tcp:127.0.0.1:0"},
                                    {nullptr, nullptr}};
        return CORBA::ORB_init(count, nullptr, "omniORB4", options);
    }();
    return orb.in();
}

/// A registry server in a process of its own, and a client that is generated from the wire contract.
class RegistryServerTest : public testing::Test {
protected:
    ~RegistryServerTest() override {
        if (m_server != nullptr) {
            EXPECT_EQ(Stop(), 0) << Errors();
        }
    }

    /// Starts the server and connects. @param settings as registry_server takes them
    void Start(const std::vector<std::string>& settings = {},
               const std::map<std::string, std::string>& environment = {}) {
        std::vector<std::string> command{std::string(ZELKOR_BIN) + "/registry_server"};
        command.insert(command.end(), settings.begin(), settings.end());
        m_server = std::make_unique<Process>(command, m_folder.Path("out"), m_folder.Path("err"), environment);
        ASSERT_TRUE(AwaitOutput("\n")) << Errors();
        m_port = std::stoi(Output());
        m_registry = Connect();
    }

    /// @param protocol "iiop:1.2", "iiop:1.0" for the oldest
    reg::Registry_1_1_ptr Connect(const std::string& protocol = "iiop:1.2") const {
        const std::string url = "corbaloc:" + protocol + "@127.0.0.1:" + std::to_string(m_port) + "/Registry";
        const CORBA::Object_var object = ClientOrb()->string_to_object(url.c_str());
        return reg::Registry_1_1::_narrow(object);
    }

    bool AwaitOutput(const std::string& text) const { return AwaitText("out", text); }
    bool AwaitErrors(const std::string& text) const { return AwaitText("err", text); }
    std::string Output() const { return ReadFile(m_folder.Path("out")); }
    std::string Errors() const { return ReadFile(m_folder.Path("err")); }

    /// @return the server's exit status.
    std::optional<int> Stop() {
        m_server->Signal(SIGTERM);
        const std::optional<int> status = m_server->Wait();
        m_server.reset();
        return status;
    }

    /// How long the server says that its stop took.
    int StopMilliseconds() const {
        const std::string output = Output();
        const std::string before = "stopped after ";
        return std::stoi(output.substr(output.find(before) + before.size()));
    }

    TempFolder m_folder;
    std::unique_ptr<Process> m_server;
    int m_port = 0;
    reg::Registry_1_1_var m_registry;

private:
    bool AwaitText(const std::string& file, const std::string& text) const {
        const auto end = std::chrono::steady_clock::now() + c_waitLimit;
        while (std::chrono::steady_clock::now() < end) {
            std::error_code none;
            if (std::filesystem::exists(m_folder.Path(file), none) &&
                ReadFile(m_folder.Path(file)).find(text) != std::string::npos) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return false;
    }
};

/// The code and the text of the error that @p call raises: "1: No node ...", empty when it raises none.
template <class Call>
std::string ErrorOf(Call&& call) {
    try {
        call();
    } catch (const reg::Error& error) {
        return std::to_string(error.code) + ": " + error.text.in();
    } catch (const CORBA::SystemException& exception) {
        return exception._name();
    }
    return {};
}

inline reg::PathSeq Paths(const std::vector<std::string>& paths) {
    reg::PathSeq sequence;
    sequence.length(static_cast<CORBA::ULong>(paths.size()));
    for (CORBA::ULong i = 0; i < sequence.length(); ++i) {
        sequence[i] = paths[i].c_str();
    }
    return sequence;
}

inline reg::NewValue Number(double number) {
    reg::NewValue value;
    value.number(number);
    return value;
}

inline reg::NewValue Whole(CORBA::LongLong whole) {
    reg::NewValue value;
    value.whole(whole);
    return value;
}

inline reg::NewValue Characters(const std::string& text) {
    reg::NewValue value;
    value.characters(text.c_str());
    return value;
}

}  // namespace test
