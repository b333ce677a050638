#include "qstd/time.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <limits>
#include <ostream>

#include "qstd/clock.h"
#include "qstd/exception.h"

namespace qstd {

namespace {

constexpr std::int64_t c_microsecondsPerSecond = 1000000;
constexpr std::int32_t c_microsecondsPerMillisecond = 1000;
constexpr int c_tmYearBase = 1900;

using Limits = std::numeric_limits<std::int64_t>;

std::int64_t Saturated(std::uint64_t number) {
    return static_cast<std::int64_t>(std::min(number, static_cast<std::uint64_t>(Limits::max())));
}

/// The sum, or the nearest number that there is.
std::int64_t SaturatedSum(std::int64_t left, std::int64_t right) {
    std::int64_t sum = 0;
    return __builtin_add_overflow(left, right, &sum) ? (left < 0 ? Limits::min() : Limits::max()) : sum;
}

/// The product with a positive number, or the nearest number that there is.
std::int64_t SaturatedProduct(std::int64_t left, std::int64_t right) {
    std::int64_t product = 0;
    return __builtin_mul_overflow(left, right, &product) ? (left < 0 ? Limits::min() : Limits::max()) : product;
}

}  // namespace

Time::Time(int kind) : m_seconds(0), m_microseconds(0) {
    if (kind == c_current) {
        UpdateToCurrent();
    } else if (kind != c_zero) {
        throw Exception(fmt::format("Unknown kind of time: {} (known: {} zero, {} current)", kind, c_zero, c_current));
    }
}

Time::Time(std::uint64_t seconds, std::uint64_t microseconds)
    : m_seconds(SaturatedSum(Saturated(seconds), Saturated(microseconds / c_microsecondsPerSecond))),
      m_microseconds(static_cast<std::int32_t>(microseconds % c_microsecondsPerSecond)) {}

Time Time::FromMicroseconds(std::int64_t microseconds) {
    std::int64_t seconds = microseconds / c_microsecondsPerSecond;
    std::int64_t rest = microseconds % c_microsecondsPerSecond;
    if (rest < 0) {
        --seconds;
        rest += c_microsecondsPerSecond;
    }
    return {seconds, static_cast<std::int32_t>(rest), true};
}

Time Time::Now(int kind) {
    return Time(kind);
}

void Time::UpdateToCurrent() const {
    const auto now = Clock::Get().SystemNow().time_since_epoch();
    const Time current = FromMicroseconds(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
    m_seconds = current.m_seconds;
    m_microseconds = current.m_microseconds;
}

std::int64_t Time::ToMicroseconds() const noexcept {
    return SaturatedSum(SaturatedProduct(m_seconds, c_microsecondsPerSecond), m_microseconds);
}

std::string Time::ToString() const {
    const auto seconds = static_cast<std::time_t>(m_seconds);
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) {
        return fmt::format("{} s", m_seconds);
    }
    return fmt::format("{:04}/{:02}/{:02} {:02}:{:02}:{:02}.{:03}", local.tm_year + c_tmYearBase, local.tm_mon + 1,
                       local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                       m_microseconds / c_microsecondsPerMillisecond);
}

Time operator+(Time left, const Time& right) {
    left.m_seconds = SaturatedSum(left.m_seconds, right.m_seconds);
    left.m_microseconds += right.m_microseconds;
    if (left.m_microseconds >= c_microsecondsPerSecond) {
        left.m_microseconds -= static_cast<std::int32_t>(c_microsecondsPerSecond);
        left.m_seconds = SaturatedSum(left.m_seconds, 1);
    }
    return left;
}

Time operator-(Time left, const Time& right) {
    // Minus one second more, which is exact for every count (the complement) and comes back as a million microseconds.
    left.m_seconds = SaturatedSum(left.m_seconds, ~right.m_seconds);
    left.m_microseconds += static_cast<std::int32_t>(c_microsecondsPerSecond) - right.m_microseconds;
    if (left.m_microseconds >= c_microsecondsPerSecond) {
        left.m_microseconds -= static_cast<std::int32_t>(c_microsecondsPerSecond);
        left.m_seconds = SaturatedSum(left.m_seconds, 1);
    }
    return left;
}

bool operator==(const Time& left, const Time& right) noexcept {
    return left.m_seconds == right.m_seconds && left.m_microseconds == right.m_microseconds;
}

bool operator<(const Time& left, const Time& right) noexcept {
    return left.m_seconds < right.m_seconds ||
           (left.m_seconds == right.m_seconds && left.m_microseconds < right.m_microseconds);
}

std::ostream& operator<<(std::ostream& out, const Time& time) {
    return out << time.ToString();
}

}  // namespace qstd
