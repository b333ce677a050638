#include "bmc/ipmi/board_sensors.h"

#include <utility>

#include <fmt/format.h>

#include "bmc/broken_off.h"
#include "qstd/exception.h"

namespace bmc::ipmi {

BoardSensors::BoardSensors(std::string label, std::unique_ptr<SensorSet> sensors, const Link& link, LogFunction log,
                           SensorsTiming timing)
    : m_label(std::move(label)),
      m_sensors(std::move(sensors)),
      m_link(link),
      m_log(std::move(log)),
      m_timing(timing),
      m_reason(m_label + ": its sensor records are still being read") {}

std::vector<SensorId> BoardSensors::AwaitIds() {
    std::unique_lock lock(m_mutex);
    m_settled.wait_for(lock, m_timing.idsPatience, [this] { return m_wasTried; });
    if (!m_isLoaded && m_isGivenUp) {
        throw BrokenOff(m_label);
    }
    if (!m_isLoaded) {
        m_wasMissed = true;
        throw qstd::Exception(m_reason);
    }
    return m_sensors->Ids();
}

Sensor* BoardSensors::Find(const SensorId& id) {
    const std::lock_guard lock(m_mutex);
    return m_isLoaded ? m_sensors->Find(id) : nullptr;
}

void BoardSensors::GiveUp() {
    {
        const std::lock_guard lock(m_mutex);
        m_wasTried = m_isGivenUp = true;
    }
    m_settled.notify_all();
}

void BoardSensors::Settle(const std::string& reason) {
    {
        const std::lock_guard lock(m_mutex);
        m_wasTried = true;
        m_reason = reason;
    }
    m_settled.notify_all();
}

void BoardSensors::Attend() {
    const unsigned long returns = m_link.GetReturns();
    const bool isBack = returns != m_seenReturns;
    m_seenReturns = returns;
    const auto now = Clock::now();
    try {
        if (m_repositoryRead == Clock::time_point{}) {
            // A board that did not answer is not asked again before it answers a probe.
            if (!m_isTried || isBack || m_link.IsAnswering().value_or(false)) {
                m_isTried = true;
                Load();
                m_thresholdsRead = m_repositoryRead = now;
            }
        } else if (isBack || IsOverdue(now) || now - m_repositoryRead >= m_timing.repository) {
            m_thresholdsRead = m_repositoryRead = now;
            m_sensors->Refresh(true);
        } else if (now - m_thresholdsRead >= m_timing.thresholds) {
            m_thresholdsRead = now;
            m_sensors->Refresh(false);
        }
    } catch (const BrokenOff&) {
        throw;
    } catch (const std::exception& error) {
        // Whether the board answers is told by its controller; anything else is worth a line.
        Settle(error.what());
        Tell(error.what());
    }
}

bool BoardSensors::IsOverdue(Clock::time_point now) const {
    return !m_sensors->IsComplete() && m_link.IsAnswering().value_or(false) &&
           now - m_thresholdsRead >= m_timing.incomplete;
}

void BoardSensors::Load() {
    m_sensors->Load();
    bool wasMissed = false;
    {
        const std::lock_guard lock(m_mutex);
        m_wasTried = m_isLoaded = true;
        wasMissed = m_wasMissed;
    }
    m_settled.notify_all();
    if (wasMissed) {
        m_log(qstd::LogLevel_e::warning,
              fmt::format("{}: its {} sensors are known only now; restart the service to have them watched", m_label,
                          m_sensors->Ids().size()));
    }
}

void BoardSensors::Tell(const std::string& reason) {
    if (m_told != reason && m_link.IsAnswering().value_or(false)) {
        m_log(qstd::LogLevel_e::warning, "Sensors of " + m_label + ": " + reason);
        m_told = reason;
    }
}

}  // namespace bmc::ipmi
