#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/file.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

namespace test {

/// A program that prints the number of its port in its first line, and runs until it is killed.
class ServerProcess {
public:
    explicit ServerProcess(const std::vector<std::string>& command)
        : m_process(command, m_folder.Path("out"), m_folder.Path("err")) {
        const auto end = std::chrono::steady_clock::now() + c_waitLimit;
        std::string output;
        while ((output = ReadFile(m_folder.Path("out"))).find('\n') == std::string::npos) {
            if (m_process.Wait(std::chrono::milliseconds(5)) || std::chrono::steady_clock::now() > end) {
                throw std::runtime_error("the server does not run: " + ReadFile(m_folder.Path("err")));
            }
        }
        m_port = std::stoi(output);
    }

    int GetPort() const noexcept { return m_port; }
    Process& Get() noexcept { return m_process; }
    std::string Output() const { return ReadFile(m_folder.Path("out")); }
    std::string Errors() const { return ReadFile(m_folder.Path("err")); }

private:
    TempFolder m_folder;
    Process m_process;
    int m_port = 0;
};

}  // namespace test
