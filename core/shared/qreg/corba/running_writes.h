#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace qreg::corba {

/// The writes of clients that are under way, so that a stop can wait for them. Any thread.
class RunningWrites {
public:
    /// One write, from its construction to its end. @throws RegistryError stopping when none may begin any more.
    class Write {
    public:
        explicit Write(RunningWrites& writes);
        Write(const Write&) = delete;
        Write& operator=(const Write&) = delete;
        ~Write();

    private:
        RunningWrites& m_writes;
    };

    /// Lets no write begin from now on and waits until none runs. @return how many still do after @p limit.
    std::size_t Close(std::chrono::milliseconds limit);

private:
    std::mutex m_mutex;  ///< guards all below
    std::condition_variable m_ended;
    std::size_t m_running = 0;
    bool m_isClosed = false;
};

}  // namespace qreg::corba
