// Times to text, sums and differences of them, beyond what 32 bits hold.

#include <fmt/format.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "number_table.h"
#include "qstd/time.h"
#include "tests/support/time_zone.h"

namespace test {

namespace {

using qstd::Time;

constexpr std::int64_t c_second = 1000000;

std::string Parts(const Time& time) {
    return fmt::format("{}.{:06} {}", time.GetSeconds(), time.GetMicroseconds(), time.ToMicroseconds());
}

}  // namespace

std::string TimeNumbers() {
    const std::vector<std::int64_t> moments{0,
                                            1,
                                            -1,
                                            999999,
                                            951782400 * c_second,          // the leap day of 2000
                                            2147483647 * c_second,         // the last second in 32 bits, with a sign
                                            2147483648 * c_second,         // and the one after
                                            2147483648 * c_second + 7500,  // with milliseconds
                                            -2147483648 * c_second,
                                            -2147483649 * c_second,
                                            2224972800 * c_second,  // the summer of 2040
                                            4102444800 * c_second,  // 2100
                                            4294967295 * c_second,  // the last second in 32 bits, without a sign
                                            4294967296 * c_second,
                                            253402300799 * c_second,  // the end of 9999
                                            253402300800 * c_second,
                                            std::numeric_limits<std::int64_t>::max(),
                                            std::numeric_limits<std::int64_t>::min()};
    NumberSection texts("times as text");
    for (const char* const zone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0"}) {
        const TimeZone place(zone);
        for (const std::int64_t moment : moments) {
            texts.Add(fmt::format("{} {} {}", zone, moment, Time::FromMicroseconds(moment).ToString()));
        }
    }

    NumberSection arithmetic("sums and differences of times");
    for (const std::int64_t left : moments) {
        for (const std::int64_t right : moments) {
            const Time one = Time::FromMicroseconds(left);
            const Time other = Time::FromMicroseconds(right);
            arithmetic.Add(
                fmt::format("{} {}: {}, {}, {}", left, right, Parts(one + other), Parts(one - other), one < other));
        }
    }
    for (const std::uint64_t seconds : {std::uint64_t{0}, std::uint64_t{4294967295}, std::uint64_t{4294967296},
                                        std::numeric_limits<std::uint64_t>::max()}) {
        for (const std::uint64_t microseconds : {std::uint64_t{0}, std::uint64_t{2500001}, std::uint64_t{4294967296},
                                                 std::numeric_limits<std::uint64_t>::max()}) {
            arithmetic.Add(fmt::format("{} {}: {}", seconds, microseconds, Parts(Time(seconds, microseconds))));
        }
    }
    return texts.Text() + arithmetic.Text();
}

}  // namespace test
