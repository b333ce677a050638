#include "tests/integration/ipmi/seen_by_library.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <random>
#include <vector>

namespace {

std::atomic<std::int64_t> g_offset = 0;  // s
std::atomic<std::int64_t> g_step = 0;    // s
std::atomic<long> g_looks = 0;
std::atomic<int> g_sent = 0;
std::atomic<int> g_toLose = 0;
std::atomic<int> g_sendError = 0;

/// Spoils what comes in. Any thread.
class Spoiler {
public:
    void Set(const test::SeenByLibrary::Spoiling& spoiling, unsigned int seed) {
        const std::lock_guard lock(m_mutex);
        m_spoiling = spoiling;
        m_random.seed(seed);
        m_again.clear();
        m_count = 0;
    }
    long Count() {
        const std::lock_guard lock(m_mutex);
        return m_count;
    }

    /// @return the new length of the packet
    ssize_t Spoil(std::uint8_t* packet, ssize_t length) {
        const std::lock_guard lock(m_mutex);
        if (!m_again.empty()) {
            std::copy(m_again.begin(), m_again.end(), packet);
            length = static_cast<ssize_t>(m_again.size());
            m_again.clear();
            ++m_count;
            return length;
        }
        if (Happens(m_spoiling.repeated)) {
            m_again.assign(packet, packet + length);
        }
        if (Happens(m_spoiling.turned)) {
            ++m_count;
            for (long turns = Below(8); turns >= 0; --turns) {
                packet[Below(length)] ^= static_cast<std::uint8_t>(1U << Below(8));
            }
        }
        if (Happens(m_spoiling.truncated)) {
            ++m_count;
            length = 1 + Below(length);
        }
        return length;
    }

private:
    bool Happens(double share) { return std::bernoulli_distribution(share)(m_random); }
    long Below(long limit) { return std::uniform_int_distribution<long>(0, limit - 1)(m_random); }

    std::mutex m_mutex;  ///< guards all that follows
    test::SeenByLibrary::Spoiling m_spoiling{};
    std::mt19937 m_random;
    std::vector<std::uint8_t> m_again;  ///< comes in the place of the next packet
    long m_count = 0;
};

Spoiler g_spoiler;

}  // namespace

extern "C" int gettimeofday(timeval* time, void* /*zone*/) noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    time->tv_sec = static_cast<time_t>(now.tv_sec + g_offset.fetch_add(g_step));
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

extern "C" ssize_t recvfrom(int socket, void* packet, size_t size, int flags, sockaddr* address,
                            socklen_t* addressSize) {
    const ssize_t length = ::syscall(SYS_recvfrom, socket, packet, size, flags, address, addressSize);
    return length <= 0 ? length : g_spoiler.Spoil(static_cast<std::uint8_t*>(packet), length);
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

void SeenByLibrary::SpoilReceivedPackets(const Spoiling& spoiling, unsigned int seed) {
    g_spoiler.Set(spoiling, seed);
}

long SeenByLibrary::CountSpoiled() {
    return g_spoiler.Count();
}

void SeenByLibrary::Reset() {
    g_spoiler.Set({}, 0);
    g_offset = 0;
    g_step = 0;
    g_sent = 0;
    g_toLose = 0;
    g_sendError = 0;
}

}  // namespace test
