// The tool as a process of its own, against a server as another one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/integration/registry/server_process.h"

namespace {

using testing::HasSubstr;

class ToolTest : public testing::Test {
protected:
    std::vector<std::string> Command(const std::vector<std::string>& words) const {
        std::vector<std::string> command{ZELKOR_BIN "/zelkor-regctl", "--server", Where()};
        command.insert(command.end(), words.begin(), words.end());
        return command;
    }
    test::Result Run(const std::vector<std::string>& words) const { return test::RunProgram(Command(words)); }
    std::string Where() const { return "127.0.0.1:" + std::to_string(m_server.GetPort()); }

    /// Starts the tool and waits until it has printed @p lines lines.
    std::unique_ptr<test::Process> Begin(const std::vector<std::string>& words, int lines) {
        auto process = std::make_unique<test::Process>(Command(words), m_folder.Path("out"), m_folder.Path("err"));
        while (std::ssize(test::ReadLines(m_folder.Path("out"))) < lines) {
            EXPECT_EQ(process->Wait(std::chrono::milliseconds(5)), std::nullopt);
            if (HasFailure()) {
                break;
            }
        }
        return process;
    }

    test::TempFolder m_folder;
    test::ServerProcess m_server{{ZELKOR_BIN "/old_registry_server"}};
};

TEST_F(ToolTest, ReadsAndWrites) {
    EXPECT_EQ(Run({"ls"}).output, "box\nspeed\nmany\n");
    EXPECT_EQ(Run({"set", "speed", "-100.25"}).status, 0);
    EXPECT_EQ(Run({"get", "speed", "box/label"}).output,
              "-100.25\nGr\xC3\xBC\xC3\x9F"
              "e \xE2\x84\xA6\n");
    EXPECT_THAT(Run({"tree"}).output, HasSubstr("box\n  reading = 48.1\n"));
}

TEST_F(ToolTest, ExitStatusAndTextOfEveryFailure) {
    const auto expect = [&](const std::vector<std::string>& words, int status, const std::string& error) {
        const test::Result result = Run(words);
        EXPECT_EQ(result.status, status) << words.back();
        EXPECT_EQ(result.error, error);
        EXPECT_EQ(result.output, "");
    };
    expect({"get", "box/broken"}, 1, "bus\n");
    expect({"set", "speed", "fast"}, 1, "Bad cast from fast to double\n");
    expect({"get", "box/absent"}, 3, "no value\n");
    expect({"get", "none"}, 4, "no such node: none\n");
    expect({"fly"}, 1, "zelkor-regctl: unknown command \"fly\", see zelkor-regctl --help\n");
    const test::Result result = test::RunProgram({ZELKOR_BIN "/zelkor-regctl", "--server", "127.0.0.1:1", "ls"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.error, "zelkor-regctl: no registry server at 127.0.0.1:1: Connection refused\n");
}

TEST_F(ToolTest, Watch_LinesComeAtOnce_InterruptEndsWithZero) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const auto process = Begin({"watch", "box"}, 3);
        process->Signal(signal);
        EXPECT_EQ(process->Wait(), 0);
        EXPECT_EQ(test::ReadFile(m_folder.Path("err")), "zelkor-regctl: 2 notifications were lost\n");
        ::unlink(m_folder.Path("out").c_str());
        ::unlink(m_folder.Path("err").c_str());
    }
}

TEST_F(ToolTest, Watch_InterruptEndsItThoughTheServerHangs) {
    const auto process = Begin({"watch"}, 3);
    m_server.Get().Signal(SIGSTOP);
    process->Signal(SIGINT);
    EXPECT_EQ(process->Wait(std::chrono::seconds(25)), 0);
}

TEST_F(ToolTest, Watch_ServerEnds_IsNoServer) {
    const auto process = Begin({"watch"}, 3);
    m_server.Get().Signal(SIGKILL);
    EXPECT_EQ(process->Wait(), 2);
    EXPECT_THAT(test::ReadFile(m_folder.Path("err")), HasSubstr("registry server at " + Where()));
}

TEST_F(ToolTest, PipeThatNobodyReads_EndsItTheUsualWay) {
    const test::Result result =
        test::RunProgram({"/bin/bash", "-c", R"(exec 3> >(:); wait $!; "$@" >&3; echo "$?" >&2)", "bash",
                          ZELKOR_BIN "/zelkor-regctl", "--server", Where(), "watch", "--timeout", "90"});
    EXPECT_THAT(result.error, testing::EndsWith(std::to_string(128 + SIGPIPE) + "\n"));
}

TEST_F(ToolTest, FullDisk_IsSaid) {
    const test::Result result = test::RunProgram(
        {"/bin/sh", "-c", R"("$@" >/dev/full)", "sh", ZELKOR_BIN "/zelkor-regctl", "--server", Where(), "ls"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, "zelkor-regctl: standard output cannot be written\n");
}

TEST_F(ToolTest, ClientFromTheIdlAlone_ReadsANumber) {
    const auto run = [&](const std::string& path) {
        return test::RunProgram({ZELKOR_BIN "/registry_client_example", Where(), path});
    };
    EXPECT_EQ(run("box/reading").output, "48.1\n");
    EXPECT_EQ(run("none").error, "no such node: none\n");
    EXPECT_EQ(run("box/label").error, "not a number\n");
    EXPECT_EQ(run("box/label").status, 1);
}

}  // namespace
