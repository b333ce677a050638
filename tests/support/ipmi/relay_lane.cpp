#include "tests/support/ipmi/relay_lane.h"

#include <algorithm>
#include <utility>

namespace test {

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

constexpr int c_maxBitsTurned = 8;

}  // namespace

void RelayLane::SetFaults(const RelayFaults& faults) {
    m_faults = faults;
    m_number = 0;
}

void RelayLane::Take(RelayPacket packet) {
    ++m_counts.received;
    ++m_number;
    const auto now = Clock::now();
    if (m_faults.dropped.contains(m_number) || Happens(m_faults.drop)) {
        ++m_counts.dropped;
        return;
    }
    Spoil(packet.data);
    packet.due = now + m_faults.delay;
    const bool isDuplicated = Happens(m_faults.duplicate);
    const bool isHeld = Happens(m_faults.reorder) && !m_held;
    if (isHeld) {
        ++m_counts.reordered;
        m_held = std::move(packet);
        m_held->due += m_faults.reorderLimit;
        return;
    }
    if (isDuplicated) {
        ++m_counts.duplicated;
        m_waiting.push_back(packet);
    }
    m_waiting.push_back(packet);
    if (m_held) {
        m_held->due = packet.due;
        m_waiting.push_back(*std::exchange(m_held, std::nullopt));
    }
}

std::vector<RelayPacket> RelayLane::TakeDue(Clock::time_point now) {
    std::vector<RelayPacket> due;
    if (m_held && m_held->due <= now) {
        m_waiting.push_back(*std::exchange(m_held, std::nullopt));
    }
    // A delay that was made shorter must not keep later packets behind earlier ones.
    for (auto packet = m_waiting.begin(); packet != m_waiting.end();) {
        if (packet->due <= now) {
            due.push_back(std::move(*packet));
            packet = m_waiting.erase(packet);
        } else {
            ++packet;
        }
    }
    m_counts.sent += due.size();
    return due;
}

std::optional<std::chrono::steady_clock::time_point> RelayLane::NextDue() const {
    std::optional<Clock::time_point> next;
    if (m_held) {
        next = m_held->due;
    }
    for (const RelayPacket& packet : m_waiting) {
        next = next ? std::min(*next, packet.due) : packet.due;
    }
    return next;
}

bool RelayLane::Happens(double share) {
    return std::uniform_real_distribution<>(0, 1)(m_generator) < share;
}

std::size_t RelayLane::Draw(std::size_t from, std::size_t to) {
    return std::uniform_int_distribution<std::size_t>(from, to)(m_generator);
}

void RelayLane::Spoil(Bytes& data) {
    const bool isTruncated = Happens(m_faults.truncate);
    const bool isCorrupted = Happens(m_faults.corrupt);
    if (isTruncated && !data.empty()) {
        ++m_counts.truncated;
        data.resize(Draw(0, data.size() - 1));
    }
    if (isCorrupted && !data.empty()) {
        ++m_counts.corrupted;
        for (std::size_t bits = Draw(1, c_maxBitsTurned); bits > 0; --bits) {
            data[Draw(0, data.size() - 1)] ^= static_cast<std::uint8_t>(1U << Draw(0, 7));
        }
    }
}

}  // namespace test
