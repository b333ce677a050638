#pragma once

#include <atomic>
#include <csignal>
#include <functional>
#include <mutex>
#include <thread>

namespace regctl {

/// SIGINT and SIGTERM as a request to end in order. Begins on a thread that has started no other one yet, so that all
/// of the process leave the signals to this object; a second signal ends the process the usual way.
class Interruption {
public:
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    bool Came() const noexcept { return m_came; }

    /// What is done, once and on another thread, when the signal comes; null for nothing. When this returns the former
    /// action does not run any more.
    void SetAction(std::function<void()> action);

private:
    void AwaitSignal(int signals);

    std::atomic<bool> m_came{false};
    std::mutex m_mutex;
    std::function<void()> m_action;  // guarded by m_mutex, also while it runs
    sigset_t m_formerMask{};
    int m_end;  // event: the object ends
    std::thread m_thread;
};

}  // namespace regctl
