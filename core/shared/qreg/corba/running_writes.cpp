#include "qreg/corba/running_writes.h"

#include "qreg/error.h"

namespace qreg::corba {

RunningWrites::Write::Write(RunningWrites& writes) : m_writes(writes) {
    const std::lock_guard<std::mutex> guard(m_writes.m_mutex);
    if (m_writes.m_isClosed) {
        throw RegistryError(ErrorCode_e::stopping, {}, "The server is about to end");
    }
    ++m_writes.m_running;
}

RunningWrites::Write::~Write() {
    const std::lock_guard<std::mutex> guard(m_writes.m_mutex);
    --m_writes.m_running;
    m_writes.m_ended.notify_all();
}

std::size_t RunningWrites::Close(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_isClosed = true;
    m_ended.wait_for(lock, limit, [this] { return m_running == 0; });
    return m_running;
}

}  // namespace qreg::corba
