#include "qstd/thread_name.h"

#include <pthread.h>

namespace qstd {

void SetThreadName(const std::string& name) {
    constexpr std::size_t c_longest = 15;  // the kernel's bound
    pthread_setname_np(pthread_self(), name.substr(0, c_longest).c_str());
}

}  // namespace qstd
