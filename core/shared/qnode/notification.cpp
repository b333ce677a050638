#include "qnode/notification.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <utility>
#include <vector>

#include "qstd/clock.h"

namespace qstd {

using qnode::enums::NotificationType_e;

template <>
const BiMap<NotificationType_e> EnumMap<NotificationType_e>::items{{NotificationType_e::value, "value"},
                                                                   {NotificationType_e::threshold, "threshold"}};

}  // namespace qstd

namespace qnode {

namespace {

/// All of the process. Never destroyed: a worker may emit until it is joined at the end of the process.
struct Listenings {
    std::shared_mutex mutex;  ///< shared while listeners are called, so that the end of a Listening waits for them
    std::vector<const Listening*> all;
    std::atomic<int> interested{0};
};

Listenings& TheListenings() {
    static auto* const listenings = new Listenings;
    return *listenings;
}

}  // namespace

Listening::Listening(std::shared_ptr<TreeNode> root, NotificationListener& listener)
    : m_root(std::move(root)), m_listener(listener) {
    Listenings& listenings = TheListenings();
    const std::lock_guard guard(listenings.mutex);
    listenings.all.push_back(this);
}

Listening::~Listening() {
    SetInterest(false);
    Listenings& listenings = TheListenings();
    const std::lock_guard guard(listenings.mutex);
    listenings.all.erase(std::find(listenings.all.begin(), listenings.all.end(), this));
}

void Listening::SetInterest(bool hasInterest) {
    Listenings& listenings = TheListenings();
    const std::lock_guard guard(listenings.mutex);
    if (m_hasInterest != hasInterest) {
        m_hasInterest = hasInterest;
        listenings.interested += hasInterest ? 1 : -1;
    }
}

bool Listening::IsAnyInterested() noexcept {
    return TheListenings().interested.load(std::memory_order_relaxed) > 0;
}

void Listening::Tell(const TreeNode& node, NotificationType type, const qstd::Any& value) {
    const TreeNode* root = nullptr;
    const Notification notification{node.GetPath(&root), type, qstd::Clock::Get().SystemNow(), value};
    Listenings& listenings = TheListenings();
    const std::shared_lock guard(listenings.mutex);
    for (const Listening* const listening : listenings.all) {
        if (listening->m_hasInterest && listening->m_root.get() == root) {
            listening->m_listener.OnNotification(notification);
        }
    }
}

}  // namespace qnode
