#include "bmc/board_pool.h"

#include <utility>

namespace bmc {

BoardPool& BoardPool::Instance() {
    static BoardPool pool;
    return pool;
}

std::unique_ptr<Backend> BoardPool::Open(std::unique_ptr<Backend> backend) {
    return std::exchange(m_backend, std::move(backend));
}

std::vector<Uri> BoardPool::GetAllLocalBoardUris() const {
    return m_backend == nullptr ? std::vector<Uri>() : m_backend->GetAllLocalBoardUris();
}

Board* BoardPool::GetBoard(const Uri& uri) const {
    return m_backend == nullptr ? nullptr : m_backend->GetBoard(uri);
}

std::unique_ptr<Sweep> BoardPool::StartSweep(const SensorIds& sensors) const {
    if (m_backend == nullptr) {
        return std::make_unique<Sweep>();
    }
    return m_backend->StartSweep(sensors);
}

void BoardPool::LimitAccesses(std::chrono::steady_clock::time_point deadline) const {
    if (m_backend != nullptr) {
        m_backend->LimitAccesses(deadline);
    }
}

}  // namespace bmc
