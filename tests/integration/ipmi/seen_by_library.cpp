#include "tests/integration/ipmi/seen_by_library.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

namespace {

std::atomic<long> g_offset = 0;  // s
std::atomic<long> g_step = 0;    // s
std::atomic<long> g_looks = 0;
std::atomic<int> g_sent = 0;
std::atomic<int> g_toLose = 0;
std::atomic<int> g_sendError = 0;

}  // namespace

extern "C" int gettimeofday(timeval* time, void* /*zone*/) noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    time->tv_sec = now.tv_sec + g_offset.fetch_add(g_step);
    time->tv_usec = now.tv_nsec / 1000;
    ++g_looks;
    return 0;
}

extern "C" ssize_t sendto(int socket, const void* packet, size_t size, int flags, const sockaddr* address,
                          socklen_t addressSize) {
    if (g_sendError != 0) {
        errno = g_sendError;
        return -1;
    }
    ++g_sent;
    if (g_toLose > 0) {
        --g_toLose;
        return static_cast<ssize_t>(size);
    }
    return ::syscall(SYS_sendto, socket, packet, size, flags, address, addressSize);
}

namespace test {

void SeenByLibrary::SetClockOffset(std::chrono::seconds offset) {
    g_offset = offset.count();
}

void SeenByLibrary::SetStepAtEachLook(std::chrono::seconds step) {
    g_step = step.count();
}

long SeenByLibrary::CountLooks() {
    return g_looks;
}

int SeenByLibrary::TakeSentPackets() {
    return g_sent.exchange(0);
}

void SeenByLibrary::LosePackets(int count) {
    g_toLose = count;
}

void SeenByLibrary::SetSendError(int error) {
    g_sendError = error;
}

void SeenByLibrary::Reset() {
    g_offset = 0;
    g_step = 0;
    g_sent = 0;
    g_toLose = 0;
    g_sendError = 0;
}

}  // namespace test
