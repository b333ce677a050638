#include "qapp/detacher.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <utility>

#include "qstd/exception.h"

namespace qapp {

namespace {

[[noreturn]] void WaitForReady(int pipe) {
    // This process has no signals to take in order: whoever waits may interrupt it.
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    char status = 0;
    ssize_t size = 0;
    do {
        size = ::read(pipe, &status, 1);
    } while (size < 0 && errno == EINTR);
    ::_exit(size == 1 ? 0 : 1);
}

}  // namespace

Detacher::~Detacher() {
    if (m_readyPipe >= 0) {
        ::close(m_readyPipe);
    }
}

void Detacher::Detach() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw qstd::Exception(std::string("Cannot detach: ") + std::strerror(errno));
    }
    const pid_t child = ::fork();
    if (child < 0) {
        throw qstd::Exception(std::string("Cannot detach: ") + std::strerror(errno));
    }
    if (child > 0) {
        ::close(ends[1]);
        WaitForReady(ends[0]);
    }
    ::close(ends[0]);
    m_readyPipe = ends[1];
    ::setsid();
}

void Detacher::Ready() {
    if (m_readyPipe < 0) {
        return;
    }
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        ::dup2(null, stream);
    }
    ::close(null);
    [[maybe_unused]] const int changed = ::chdir("/");
    const char ready = 1;
    [[maybe_unused]] const auto written = ::write(m_readyPipe, &ready, 1);
    ::close(std::exchange(m_readyPipe, -1));
}

}  // namespace qapp
