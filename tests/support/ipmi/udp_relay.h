#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>

namespace test {

/// What a relay does to the packets of one direction. Shares are probabilities from 0 to 1, drawn for each packet.
struct RelayFaults {
    double drop = 0;  ///< 1 = a black hole
    double duplicate = 0;
    double truncate = 0;  ///< cut to a random shorter length
    double corrupt = 0;   ///< one to eight random bits turned
    double reorder = 0;   ///< sent after the next packet of this direction, or after a time without one
    /// These packets alone are dropped, counted from 1 since the faults were set.
    std::set<std::uint64_t> dropped{};
    std::chrono::microseconds delay{0};
    std::chrono::microseconds reorderLimit{20000};  ///< how long a packet is held for a next one
};

/// Which way a packet goes.
enum class RelayDirection_e { to_server, to_client };

/// What became of the packets of one direction.
struct RelayCounts {
    std::uint64_t received = 0;
    std::uint64_t sent = 0;
    std::uint64_t dropped = 0;
    std::uint64_t duplicated = 0;
    std::uint64_t truncated = 0;
    std::uint64_t corrupted = 0;
    std::uint64_t reordered = 0;
};

/// Passes UDP packets between clients and a server on loopback and spoils them as told. One thread of its own; all
/// functions may be called from any thread. The faults follow from the seed and the order of packets alone. At most 64
/// clients at a time; that the server's port is closed shows to clients as silence only.
class UdpRelay {
public:
    /// Relays to 127.0.0.1:@p serverPort.
    explicit UdpRelay(std::uint16_t serverPort, std::uint64_t seed = 1);
    UdpRelay(const UdpRelay&) = delete;
    UdpRelay& operator=(const UdpRelay&) = delete;
    ~UdpRelay();

    /// The port on 127.0.0.1 that clients send to; it stays the same.
    std::uint16_t GetPort() const noexcept;

    void SetFaults(RelayDirection_e direction, const RelayFaults& faults);
    /// The same faults for both directions.
    void SetFaults(const RelayFaults& faults);
    /// From now on the port looks like one that nobody listens on (ICMP "port unreachable").
    void Close();
    /// Undoes Close.
    void Open();

    RelayCounts GetCounts(RelayDirection_e direction) const;
    void ResetCounts();
    /// Seed and counts, for SCOPED_TRACE: what is needed to see a failure again.
    std::string Describe() const;

private:
    class Engine;
    std::unique_ptr<Engine> m_engine;
};

}  // namespace test
