#include "time_sync.h"

#include <chrono>
#include <cstdint>

#include "bmc/board.h"
#include "bmc/board_pool.h"
#include "bmc/broken_off.h"
#include "bmc/enums.h"
#include "qapp/zelkor_application.h"
#include "qstd/exception.h"
#include "qstd/log.h"
#include "qstd/thread_name.h"
#include "qstd/time.h"
#include "qstd/trace_fnc.h"

namespace {

/// A duration of whole seconds, which may be negative.
qstd::Time Seconds(int seconds) {
    constexpr std::int64_t c_microseconds = 1000000;
    return qstd::Time::FromMicroseconds(seconds * c_microseconds);
}

/// What the whole seconds differ by. Unsigned: for a board that is ahead the number wraps.
std::uint32_t DifferenceInSeconds(const qstd::Time& now, const qstd::Time& old) {
    return static_cast<std::uint32_t>(now.GetSeconds()) - static_cast<std::uint32_t>(old.GetSeconds());
}

/// Sets the board's clock when it is off by @p delta or more.
void SyncronizeBoard(bmc::Board& board, const std::string& label, const qstd::Time& delta) {
    const qstd::Time old = board.GetTime();
    const qstd::Time now = qstd::Time::Now(qstd::Time::c_current);
    if (old < now + delta && now - delta < old) {
        return;
    }
    board.SetTime(now);
    qstd::LogInfo("Synchronizing time on board " + label + " - difference is " +
                  std::to_string(DifferenceInSeconds(now, old)) + " seconds. (Old time " + old.ToString() +
                  "; New time " + now.ToString() + ").");
}

}  // namespace

TimeSync& TimeSync::GetInstance() {
    static TimeSync instance;
    return instance;
}

TimeSync::TimeSync() {
    m_frame.Start(*this);
}

TimeSync::~TimeSync() {
    StopThread();
    m_frame.Join();
}

void TimeSync::StopThread() {
    m_frame.Stop();
}

std::string TimeSync::GetClassName() {
    return "timesync";
}

void TimeSync::operator()() {
    const std::string problem = "Problem in time synchronization process - ";
    const std::string unknown = "Problem in time synchronization process - Unknown Exception";
    const std::string tracePrefix = " .Error: ";
    qstd::SetThreadName("timesync");
    try {
        if (!qapp::ZelkorApplication::Instance().GetConfig().Read(*this)) {
            qstd::LogInfo("Configuration for time synchronization is not available. Using default values");
        }
        LogProperties();
        std::unique_lock<std::mutex> lock = m_frame.Lock();
        if (m_frame.IsStoppedLocked()) {
            return;
        }
        qstd::LogInfo("*Time synchronization process started.");
        UpdateUris();
        while (!m_frame.IsStoppedLocked()) {
            try {
                SyncronizeBoards();
            } catch (const bmc::BrokenOff&) {
                throw;
            } catch (const qstd::Exception&) {
                LogCaught(problem, unknown, tracePrefix);
            } catch (...) {  // of a pass, only the system's own exceptions show their text
                qstd::LogError(unknown);
                qstd::TraceHere(1, "Unknown Exception");
            }
            m_frame.Sleep(lock, std::chrono::seconds(m_frequency));
        }
    } catch (const bmc::BrokenOff&) {
        m_frame.AwaitStop();
    } catch (...) {
        TellOfEnd("Time synchronization", LogCaught(problem, unknown, tracePrefix), qapp::Health::Need_e::useful);
    }
    qstd::LogInfo("*Time synchronization process stopped");
}

bool TimeSync::Deserialize(const std::vector<std::shared_ptr<qcfg::Element>>& elements) {
    if (elements.size() != 1) {
        qstd::LogInfo("No settings found for Time Synchronization module");
        return false;
    }
    const std::shared_ptr<qcfg::Element>& section = elements.front();
    bool enabled = false;
    if (section->GetAttrValue("enabled", enabled)) {
        m_frame.SetDisabled(!enabled);
    }
    section->GetValue("frequency", m_frequency);
    section->GetValue("delta", m_delta);
    return true;
}

void TimeSync::LogProperties() const {
    std::string text = "Time Synchronization settings:\n";
    text += std::string("                                   enabled   = ") + (m_frame.IsStopped() ? "false" : "true") +
            "\n";
    text += "                                   frequency = " + std::to_string(m_frequency) + " seconds\n";
    text += "                                   delta     = " + std::to_string(m_delta) + " seconds";
    qstd::LogInfo(text);
}

void TimeSync::UpdateUris() {
    m_uris = bmc::BoardPool::Instance().GetAllLocalBoardUris();
    if (!m_uris.empty()) {
        auto reference = m_uris.end() - 1;  // one board is always taken for the reference
        for (auto uri = m_uris.begin(); uri != m_uris.end(); ++uri) {
            const std::string label = bmc::BoardLabel(*uri);
            const bmc::Board* const board = bmc::BoardPool::Instance().GetBoard(*uri);
            if (board == nullptr) {
                qstd::LogError("Problem accessing board: " + label);
            } else if (board->GetType() == bmc::BoardType_e::os) {
                qstd::LogInfo("Reference for time synchronization is board " + label + ".");
                reference = uri;
            } else {
                qstd::LogInfo("Board " + label + " will be synchronized.");
            }
        }
        m_uris.erase(reference);
    }
    if (m_uris.empty()) {
        qstd::LogWarning("Cannot find boards for time synchronization - stopping the synchronization process.");
        m_frame.DisableLocked();
    }
}

void TimeSync::SyncronizeBoards() const {
    const qstd::Time delta = Seconds(m_delta);
    for (const bmc::Uri& uri : m_uris) {
        const std::string label = bmc::BoardLabel(uri);
        bmc::Board* const board = bmc::BoardPool::Instance().GetBoard(uri);
        if (board == nullptr) {
            qstd::LogError("Problem accessing board: " + label);
            continue;
        }
        SyncronizeBoard(*board, label, delta);
    }
}
