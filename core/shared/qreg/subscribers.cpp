#include "qreg/subscribers.h"

namespace qreg {

const Subscribers::Audience& Subscribers::FindAudience(const std::string& path, Audience& buffer) const {
    {
        const std::lock_guard guard(m_mutex);
        if (const auto found = m_audience.find(path); found != m_audience.end()) {
            return *found->second;
        }
    }
    buffer.clear();
    for (const auto& subscription : m_all) {
        if (subscription->Wants(path)) {
            buffer.push_back(subscription.get());
        }
    }
    const std::lock_guard guard(m_mutex);
    if (m_audience.size() >= c_mostPaths) {
        return buffer;
    }
    return *m_audience.emplace(path, &*m_audiences.insert(buffer).first).first->second;
}

}  // namespace qreg
