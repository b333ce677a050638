#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <set>
#include <span>

namespace bmc::sim {

/// The fan controller: six fans, each with a reference register (base address) and a measured register (base + 2). A
/// register holds 1935483 / RPM, 0 for a fan at rest. The measured speed follows the reference with a first-order lag.
/// Times are model seconds. All operations may be called from any thread.
class FanBank {
public:
    static constexpr int c_fanCount = 6;
    static constexpr std::array<std::uint16_t, c_fanCount> c_addresses = {0x40, 0x48, 0x50, 0x58, 0x60, 0x68};
    /// From a fan's reference register to its measured one.
    static constexpr std::uint16_t c_measuredOffset = 2;
    static constexpr double c_rawTimesRpm = 1935483;
    static constexpr double c_minRpm = 30;  ///< the slowest speed a register can tell, but for rest
    static constexpr double c_maxRpm = c_rawTimesRpm;
    /// Time constant of the lag in seconds.
    static constexpr double c_lag = 2;
    /// The mean speed at which a <thermal> sensor's resistance holds.
    static constexpr double c_ratedRpm = 4000;

    /// @param rpm the speed that all fans run at and are told to run at, at time 0
    explicit FanBank(double rpm);

    /// The register's value; nothing when there is no such register or its transfers fail.
    std::optional<std::uint16_t> Read(std::uint16_t address, double now) const;

    /// Sets a reference register. @return false when it is none or its transfers fail.
    bool Write(std::uint16_t address, std::uint16_t value, double now);

    /// Holds a measured register at @p value (a tachometer that is stuck) until it is healed. @return false when it is
    /// none.
    bool Hold(std::uint16_t address, std::uint16_t value);

    /// Makes the transfers of a register fail, whether or not there is one at @p address.
    void Fail(std::uint16_t address);

    /// Undoes Fail and Hold.
    void Heal(std::uint16_t address);

    /// The measured speed of a fan in RPM, whatever its register tells.
    double MeasuredRpm(int fan, double now) const;

    /// The mean measured speed of the fans at @p first, @p first + @p step, ...
    void MeanRpm(double first, double step, std::span<double> out) const;

private:
    struct Fan {
        double since = 0;  ///< when the reference was written
        double from = 0;   ///< measured speed then
        double to = 0;     ///< reference speed
        std::uint16_t raw = 0;
        std::optional<std::uint16_t> held;
    };

    /// The mean speed from one change of a reference on until the next.
    struct Segment {
        double since = 0;
        double from = 0;
        double to = 0;
    };

    /// Changes kept. Readers that are further behind take the oldest one for what was before.
    static constexpr std::size_t c_maxSegments = 4096;

    mutable std::mutex m_mutex;  ///< guards all below
    std::array<Fan, c_fanCount> m_fans;
    std::deque<Segment> m_history;  ///< by time, never empty
    std::set<std::uint16_t> m_failing;
};

}  // namespace bmc::sim
