#pragma once

#include <ctime>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "chassis_fixture.h"

namespace test {

/// A worker.
enum class Worker { monitor, protection, control, clocks };

/// The daemon with its trace on, which tells the workers apart: each message there has the thread that logged it.
class WorkersTest : public ChassisTest {
protected:
    static constexpr Worker c_workers[] = {Worker::monitor, Worker::protection, Worker::control, Worker::clocks};

    /// What this worker and no other thread logs, whatever its settings are.
    static const char* MarkOf(Worker worker) {
        switch (worker) {
            case Worker::monitor:
                return "*Monitor process started.";
            case Worker::protection:
                return "*Damage Protection process started.";
            case Worker::control:
                return "*Temperature Control process started.";
            case Worker::clocks:
                break;
        }
        return "Time Synchronization settings:";
    }

    /// Times are those of UTC, so that tests can calculate with them.
    void StartTraced() { Start({"--trace-level", "3"}, {{"TZ", "UTC0"}}); }

    /// Starts with @p sections of the configuration and waits until every worker has reported its settings.
    void StartWith(const std::string& sections, const std::string& chassis = c_chassis) {
        Configure(sections, chassis);
        StartTraced();
        AwaitReports();
    }

    void AwaitReports() {
        ASSERT_TRUE(Await([this] {
            const std::string log = Log();
            return log.find("Monitor settings:") != std::string::npos &&
                   log.find("Damage Protection settings:") != std::string::npos &&
                   log.find("Temperature Control settings:") != std::string::npos &&
                   log.find("Time Synchronization settings:") != std::string::npos;
        })) << Log();
    }

    /// Starts a daemon that waits for Release() before it reaches the first board. Commands to the chassis work
    /// already.
    void StartHeld(const std::string& sections, const std::string& chassis = c_chassis) {
        Configure(sections, chassis);
        WriteFile(m_folder.Path("held"), "");
        std::vector<std::string> command = Command({"--trace-level", "3"});
        command[0] = Program("held_daemon");
        m_daemon = std::make_unique<Process>(
            command, m_folder.Path("out"), m_folder.Path("err"),
            std::map<std::string, std::string>{{"TZ", "UTC0"}, {"HELD_UNTIL_GONE", m_folder.Path("held")}});
        ASSERT_TRUE(Await([this] { return Chassis({"list"}).status == 0; })) << ReadFile(m_folder.Path("err"));
    }
    void Release() { std::filesystem::remove(m_folder.Path("held")); }

    /// What the worker has logged, oldest first: "I: text", W, E and C; the text without a newline at its end.
    std::vector<std::string> MessagesOf(Worker worker) const { return MessagesOfWhoLogged(MarkOf(worker)); }

    /// What the thread has logged that was the first to log a message that begins with @p mark.
    std::vector<std::string> MessagesOfWhoLogged(const std::string& mark) const {
        const std::vector<Message> messages = TracedMessages();
        const auto own = std::find_if(messages.begin(), messages.end(), [&](const Message& message) {
            return message.text.compare(3, mark.size(), mark) == 0;
        });
        std::vector<std::string> texts;
        for (const Message& message : messages) {
            if (own != messages.end() && message.thread == own->thread) {
                texts.push_back(message.text);
            }
        }
        return texts;
    }

    /// How many of the worker's messages are @p text.
    std::ptrdiff_t CountOf(Worker worker, const std::string& text) const {
        const std::vector<std::string> messages = MessagesOf(worker);
        return std::count(messages.begin(), messages.end(), text);
    }

    /// Waits until the worker has logged @p text at least @p count times.
    bool AwaitMessage(Worker worker, const std::string& text, std::ptrdiff_t count = 1) const {
        return Await([&] { return CountOf(worker, text) >= count; });
    }

    /// The worker's report of its settings; empty when there is none yet.
    std::string ReportOf(Worker worker) const {
        for (const std::string& message : MessagesOf(worker)) {
            if (message.find(" settings:\n") != std::string::npos) {
                return message;
            }
        }
        return {};
    }

    std::vector<std::string> Trace() const { return ReadLines(m_folder.Path("log/zelkor-platformd.trace")); }

    std::vector<std::string> SensorLog(const std::string& label) const {
        return ReadLines(m_folder.Path("log/sensors/" + label + ".log"));
    }

    static constexpr const char* c_boardIndent = "                                     ";  ///< 37 blanks
    static constexpr const char* c_keyIndent = "                                   ";      ///< 35 blanks

private:
    struct Message {
        std::string thread;
        std::string text;
    };

    /// The messages among the records of the trace, "[time] 3 (thread) source:line function: text".
    std::vector<Message> TracedMessages() const {
        static const std::string c_source = ") core/shared/qstd/log:";
        static const std::string c_function = " void qstd::Log";
        static const std::string c_arguments = "(const std::string&): ";
        std::vector<Message> messages;
        bool isContinued = false;
        for (const std::string& line : Trace()) {
            if (line.empty() || line[0] != '[') {
                if (isContinued && !line.empty()) {
                    messages.back().text += "\n" + line;
                }
                continue;
            }
            const std::size_t thread = line.find('(') + 1;
            const std::size_t source = line.find(c_source);
            const std::size_t function = line.find(c_function);
            const std::size_t arguments = line.find(c_arguments);
            isContinued =
                source != std::string::npos && function != std::string::npos && arguments != std::string::npos;
            if (isContinued) {
                messages.push_back(
                    {line.substr(thread, source - thread), line.substr(function + c_function.size(), 1) + ": " +
                                                               line.substr(arguments + c_arguments.size())});
            }
        }
        return messages;
    }
};

}  // namespace test
