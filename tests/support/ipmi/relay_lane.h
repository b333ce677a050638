#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <random>
#include <vector>

#include "tests/support/ipmi/udp_relay.h"

namespace test {

struct RelayClient;

/// A packet on its way, and the client that it comes from or goes to.
struct RelayPacket {
    std::shared_ptr<RelayClient> client;
    std::vector<std::uint8_t> data;
    std::chrono::steady_clock::time_point due;
};

/// What happens to the packets of one direction of a relay. Not locked.
class RelayLane {
public:
    explicit RelayLane(std::uint64_t seed) : m_generator(seed) {}

    void SetFaults(const RelayFaults& faults);
    RelayCounts& GetCounts() noexcept { return m_counts; }

    /// Takes a packet in, which may then wait to be sent once, twice or not at all.
    void Take(RelayPacket packet);
    /// @return the packets that are due, in the order in which they are to be sent
    std::vector<RelayPacket> TakeDue(std::chrono::steady_clock::time_point now);
    /// @return when the next packet is due
    std::optional<std::chrono::steady_clock::time_point> NextDue() const;

private:
    bool Happens(double share);
    std::size_t Draw(std::size_t from, std::size_t to);
    void Spoil(std::vector<std::uint8_t>& data);

    RelayFaults m_faults;
    RelayCounts m_counts;
    std::uint64_t m_number = 0;
    std::mt19937_64 m_generator;
    std::deque<RelayPacket> m_waiting;
    std::optional<RelayPacket> m_held;
};

}  // namespace test
