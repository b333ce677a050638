#include "bmc/sim/fan_bank.h"

#include <algorithm>
#include <cmath>

#include "qstd/portable_math.h"

namespace bmc::sim {

namespace {

/// Where a speed that follows @p to with the lag has got after @p elapsed seconds.
double Follow(double from, double to, double elapsed) {
    return elapsed <= 0 || from == to ? from : to + (from - to) * qstd::Exp(-elapsed / FanBank::c_lag);
}

double ToRpm(std::uint16_t raw) {
    return raw == 0 ? 0.0 : FanBank::c_rawTimesRpm / raw;
}

/// The nearest raw value; 0 for a speed too slow to be told.
std::uint16_t ToRaw(double rpm) {
    return rpm < FanBank::c_minRpm ? std::uint16_t{0}
                                   : static_cast<std::uint16_t>(std::lround(FanBank::c_rawTimesRpm / rpm));
}

/// The index of the fan whose register is at @p address, with @p offset between base and register; nothing when none
/// is.
std::optional<std::size_t> FindFan(std::uint16_t address, std::uint16_t offset) {
    for (std::size_t fan = 0; fan < FanBank::c_addresses.size(); ++fan) {
        if (FanBank::c_addresses.at(fan) + offset == address) {
            return fan;
        }
    }
    return std::nullopt;
}

}  // namespace

FanBank::FanBank(double rpm) {
    const std::uint16_t raw = ToRaw(rpm);
    m_fans.fill(Fan{0, ToRpm(raw), ToRpm(raw), raw, std::nullopt});
    m_history.push_back(Segment{0, ToRpm(raw), ToRpm(raw)});
}

std::optional<std::uint16_t> FanBank::Read(std::uint16_t address, double now) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_failing.count(address) != 0) {
        return std::nullopt;
    }
    if (const auto reference = FindFan(address, 0)) {
        return m_fans.at(*reference).raw;
    }
    const auto measured = FindFan(address, c_measuredOffset);
    if (!measured) {
        return std::nullopt;
    }
    const Fan& fan = m_fans.at(*measured);
    return fan.held ? *fan.held : ToRaw(Follow(fan.from, fan.to, now - fan.since));
}

bool FanBank::Write(std::uint16_t address, std::uint16_t value, double now) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto index = FindFan(address, 0);
    if (!index || m_failing.count(address) != 0) {
        return false;
    }
    Fan& fan = m_fans.at(*index);
    if (fan.raw == value) {
        return true;
    }
    const Segment last = m_history.back();
    const double time = std::max(now, last.since);  // two threads may come in the other order
    fan.from = Follow(fan.from, fan.to, time - fan.since);
    fan.since = time;
    fan.to = ToRpm(value);
    fan.raw = value;

    double reference = 0;
    for (const Fan& each : m_fans) {
        reference += each.to / c_fanCount;
    }
    if (time == last.since) {
        m_history.back().to = reference;
    } else {
        m_history.push_back(Segment{time, Follow(last.from, last.to, time - last.since), reference});
        if (m_history.size() > c_maxSegments) {
            m_history.pop_front();
        }
    }
    return true;
}

bool FanBank::Hold(std::uint16_t address, std::uint16_t value) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto index = FindFan(address, c_measuredOffset);
    if (index) {
        m_fans.at(*index).held = value;
    }
    return index.has_value();
}

void FanBank::Fail(std::uint16_t address) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_failing.insert(address);
}

void FanBank::Heal(std::uint16_t address) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_failing.erase(address);
    if (const auto index = FindFan(address, c_measuredOffset)) {
        m_fans.at(*index).held.reset();
    }
}

double FanBank::MeasuredRpm(int fan, double now) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const Fan& found = m_fans.at(static_cast<std::size_t>(fan));
    return Follow(found.from, found.to, now - found.since);
}

void FanBank::MeanRpm(double first, double step, std::span<double> out) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto later = std::upper_bound(m_history.begin(), m_history.end(), first,
                                        [](double time, const Segment& segment) { return time < segment.since; });
    auto segment = later == m_history.begin() ? later : std::prev(later);
    for (std::size_t i = 0; i < out.size(); ++i) {
        const double time = first + step * static_cast<double>(i);
        while (std::next(segment) != m_history.end() && std::next(segment)->since <= time) {
            ++segment;
        }
        out[i] = Follow(segment->from, segment->to, time - segment->since);
    }
}

}  // namespace bmc::sim
