#include "tests/support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace test {

namespace {

constexpr int c_cannotStart = 127;
constexpr mode_t c_fileMode = 0600;

int ToStatus(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? -WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

void Redirect(const std::string& file, int stream) {
    const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND, c_fileMode);
    ::dup2(descriptor, stream);
}

[[noreturn]] void Become(const std::vector<std::string>& command, const std::string& outputFile,
                         const std::string& errorFile, const std::map<std::string, std::string>& environment,
                         std::optional<int> input) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    ::dup2(input ? *input : ::open("/dev/null", O_RDONLY), STDIN_FILENO);
    Redirect(outputFile, STDOUT_FILENO);
    Redirect(errorFile, STDERR_FILENO);
    for (const auto& [name, value] : environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char*> words;
    for (const std::string& word : command) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    ::execv(words[0], words.data());
    ::_exit(c_cannotStart);
}

}  // namespace

Process::Process(const std::vector<std::string>& command, const std::string& outputFile, const std::string& errorFile,
                 const std::map<std::string, std::string>& environment, std::optional<int> input)
    : m_pid(::fork()) {
    if (m_pid < 0) {
        throw std::runtime_error("cannot fork");
    }
    if (m_pid == 0) {
        Become(command, outputFile, errorFile, environment, input);
    }
}

Process::~Process() {
    if (!m_status) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
}

void Process::Signal(int signal) const {
    ::kill(m_pid, signal);
}

std::optional<int> Process::Wait(std::chrono::milliseconds limit) {
    if (m_status) {
        return m_status;
    }
    const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0));
    pollfd source{descriptor, POLLIN, 0};
    ::poll(&source, 1, static_cast<int>(limit.count()));
    ::close(descriptor);
    int status = 0;
    if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
        m_status = ToStatus(status);
    }
    return m_status;
}

Result RunProgram(const std::vector<std::string>& command, const std::map<std::string, std::string>& environment) {
    const TempFolder folder;
    Process process(command, folder.Path("out"), folder.Path("err"), environment);
    Result result;
    result.status = process.Wait();
    result.output = ReadFile(folder.Path("out"));
    result.error = ReadFile(folder.Path("err"));
    return result;
}

}  // namespace test
