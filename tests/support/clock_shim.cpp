// Stands before the C library and answers in its place what time it is, as if somebody had set the host's clock. The
// kernel's own clock stays the true one, so moments of the calendar that are waited for are put back by the step.

#include "tests/support/clock_shim.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

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

}  // namespace

std::int64_t test::GetClockStep() {
    return __atomic_load_n(g_step, __ATOMIC_SEQ_CST);
}

void test::SetClockStep(std::int64_t seconds) {
    __atomic_store_n(&g_ownStep, seconds, __ATOMIC_SEQ_CST);
}
