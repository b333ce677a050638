// Stands before the C library and answers in its place what time it is, as if somebody had set the host's clock. The
// kernel's own clock stays the true one, so moments of the calendar that are waited for are put back by the step.

#include "tests/support/clock_shim.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

namespace {

std::int64_t g_ownStep = 0;  // used before constructors run
std::int64_t* g_step = &g_ownStep;

__attribute__((constructor)) void MapStep() {
    const char* const path = std::getenv(test::c_clockStepFile);
    const int file = path == nullptr ? -1 : ::open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return;
    }
    void* const memory = ::mmap(nullptr, sizeof *g_step, PROT_READ, MAP_SHARED, file, 0);
    ::close(file);
    if (memory != MAP_FAILED) {
        g_step = static_cast<std::int64_t*>(memory);
    }
}

std::int64_t Step() {
    return __atomic_load_n(g_step, __ATOMIC_SEQ_CST);
}

}  // namespace

void test::SetClockStep(std::int64_t seconds) {
    __atomic_store_n(&g_ownStep, seconds, __ATOMIC_SEQ_CST);
}

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto result = static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
        time->tv_sec += Step();
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
    static const auto s_next = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "pthread_cond_timedwait"));
    timespec kernels = *moment;
    kernels.tv_sec -= Step();
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
