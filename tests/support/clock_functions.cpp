// What stands in the place of the C library's functions. On 32 bits compiled twice: for this system's sources, which
// ask for 64-bit times, and for the libraries, which do not.

#include <dlfcn.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <ctime>

#include "tests/support/clock_shim.h"

namespace {

#if defined _TIME_BITS && _TIME_BITS == 64 && defined SYS_clock_gettime64
constexpr long c_clockGettime = SYS_clock_gettime64;
constexpr const char* c_timedwait = "__pthread_cond_timedwait64";
#else
constexpr long c_clockGettime = SYS_clock_gettime;
constexpr const char* c_timedwait = "pthread_cond_timedwait";
#endif

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto result = static_cast<int>(::syscall(c_clockGettime, clock, time));
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
        time->tv_sec += static_cast<time_t>(test::GetClockStep());
    }
    return result;
}

int gettimeofday(timeval* time, void* /*zone*/) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    time->tv_sec = now.tv_sec;
    time->tv_usec = now.tv_nsec / 1000;
    return 0;
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* moment) {
    using Function = int (*)(pthread_cond_t*, pthread_mutex_t*, const timespec*);
    static const auto s_next = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, c_timedwait));
    timespec kernels = *moment;
    kernels.tv_sec -= static_cast<time_t>(test::GetClockStep());
    return s_next(condition, mutex, &kernels);
}

time_t time(time_t* result) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}
}
