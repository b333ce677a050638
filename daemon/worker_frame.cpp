#include "worker_frame.h"

#include <exception>

#include "bmc/broken_off.h"
#include "qapp/zelkor_application.h"
#include "qstd/clock.h"
#include "qstd/log.h"
#include "qstd/trace_fnc.h"

void WorkerFrame::Stop() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (!m_stopRequested) {
        m_stopRequested = true;
        m_cond.notify_one();
    }
}

void WorkerFrame::SetDisabled(bool isDisabled) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_isDisabled = isDisabled;
}

bool WorkerFrame::IsStopped() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return IsStoppedLocked();
}

void WorkerFrame::Sleep(std::unique_lock<std::mutex>& lock, std::chrono::seconds period) {
    qstd::Clock::Get().Sleep(m_cond, lock, period);
}

void WorkerFrame::AwaitStop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cond.wait(lock, [this] { return m_stopRequested; });
}

std::string LogCaught(const std::string& prefix, const std::string& unknown, const std::string& tracePrefix,
                      qstd::SourceLocation where) {
    try {
        throw;
    } catch (const std::exception& error) {
        qstd::LogError(prefix + error.what());
        qstd::TraceHere(1, tracePrefix + error.what(), where);
        return error.what();
    } catch (...) {
        qstd::LogError(unknown);
        qstd::TraceHere(1, "Unknown Exception", where);
        return "Unknown Exception";
    }
}

void TellOfEnd(const std::string& worker, const std::string& why, qapp::Health::Need_e need) {
    qapp::ZelkorApplication::Instance().GetHealth().PartEnded(worker, why, need);
}

void LogAndGoOn(const std::string& subject) {
    try {
        throw;
    } catch (const bmc::BrokenOff&) {
        throw;
    } catch (const std::exception& error) {
        qstd::LogError(subject + ". Exception: " + error.what());
    } catch (...) {
        qstd::LogError(subject + ". Unknown exception.");
    }
}
