#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace qapp {

/// Looks, while the main thread starts the service and takes no signals, whether a stop is asked for: a start that
/// waits for boards must not keep the stop waiting. Takes no signal itself. For the main thread.
class StartWatch {
public:
    /// @pre the signals of qapp::Signals are blocked in every thread
    /// @param onStop called at most once, by a thread of this object, within 20 ms of the signal
    explicit StartWatch(std::function<void()> onStop);

    /// The start is over. Waits for the end of @p onStop if it is called just now.
    ~StartWatch();

    StartWatch(const StartWatch&) = delete;
    StartWatch& operator=(const StartWatch&) = delete;

private:
    void Run();

    const std::function<void()> m_onStop;
    std::mutex m_mutex;  ///< guards m_isOver
    std::condition_variable m_over;
    bool m_isOver = false;
    std::thread m_thread;  ///< uses all above
};

}  // namespace qapp
