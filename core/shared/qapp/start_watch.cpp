#include "qapp/start_watch.h"

#include <chrono>
#include <utility>

#include "qapp/signals.h"
#include "qstd/thread_name.h"

namespace qapp {

StartWatch::StartWatch(std::function<void()> onStop) : m_onStop(std::move(onStop)), m_thread([this] { Run(); }) {}

StartWatch::~StartWatch() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isOver = true;
    }
    m_over.notify_one();
    m_thread.join();
}

void StartWatch::Run() {
    constexpr std::chrono::milliseconds c_period{20};
    qstd::SetThreadName("start_watch");
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_over.wait_for(lock, c_period, [this] { return m_isOver; })) {
        if (Signals::IsStopPending()) {
            m_onStop();
            return;
        }
    }
}

}  // namespace qapp
