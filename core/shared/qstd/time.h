#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

namespace qstd {

/// A point in time (since 1970-01-01 UTC) or a duration: whole seconds and microseconds, the latter always 0..999999.
/// Sums and differences that no 64-bit count of seconds can hold stay at the nearest one that it can.
/// A value type: distinct objects may be used from distinct threads.
class Time {
public:
    /// Kind of a time that is nothing but zero.
    static constexpr int c_zero = 0;
    /// Kind of a time that is the host's current one.
    static constexpr int c_current = 7;

    /// @param kind c_current or c_zero. @throws Exception for any other kind, naming it.
    explicit Time(int kind);

    /// @param seconds whole seconds
    /// @param microseconds sub-second part; a million and more is carried into the seconds
    Time(std::uint64_t seconds, std::uint64_t microseconds);

    /// A time from a signed count of microseconds, for example one before 1970 or a negative duration.
    static Time FromMicroseconds(std::int64_t microseconds);

    /// The host's current time. @param kind as for the constructor.
    static Time Now(int kind);

    /// Sets this object, const or not, to the host's current time: it is a cache of it.
    void UpdateToCurrent() const;

    /// Whole seconds, rounded down.
    std::int64_t GetSeconds() const noexcept { return m_seconds; }
    /// Microseconds past the whole second, 0..999999.
    std::int32_t GetMicroseconds() const noexcept { return m_microseconds; }
    /// All of it in microseconds; the nearest count that there is beyond some 292,000 years.
    std::int64_t ToMicroseconds() const noexcept;

    /// Local time as "YYYY/MM/DD hh:mm:ss.mmm"; the milliseconds are cut, not rounded.
    std::string ToString() const;

    friend Time operator+(Time left, const Time& right);
    friend Time operator-(Time left, const Time& right);
    friend bool operator==(const Time& left, const Time& right) noexcept;
    friend bool operator<(const Time& left, const Time& right) noexcept;

private:
    Time(std::int64_t seconds, std::int32_t microseconds, bool) noexcept
        : m_seconds(seconds), m_microseconds(microseconds) {}

    mutable std::int64_t m_seconds;
    mutable std::int32_t m_microseconds;
};

// Exact to the microsecond; the other comparisons follow from these two.
bool operator==(const Time& left, const Time& right) noexcept;
bool operator<(const Time& left, const Time& right) noexcept;
inline bool operator!=(const Time& left, const Time& right) noexcept {
    return !(left == right);
}
inline bool operator>(const Time& left, const Time& right) noexcept {
    return right < left;
}
inline bool operator<=(const Time& left, const Time& right) noexcept {
    return !(right < left);
}
inline bool operator>=(const Time& left, const Time& right) noexcept {
    return !(left < right);
}

/// Writes Time::ToString().
std::ostream& operator<<(std::ostream& out, const Time& time);

}  // namespace qstd
