#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace test {

/// The time zone of the process for the life of the object.
class TimeZone {
public:
    explicit TimeZone(const char* name) {
        if (const char* const before = std::getenv("TZ")) {
            m_before = before;
        }
        Set(name);
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
    ~TimeZone() { Set(m_before ? m_before->c_str() : nullptr); }

private:
    static void Set(const char* name) {
        name != nullptr ? ::setenv("TZ", name, 1) : ::unsetenv("TZ");
        ::tzset();
    }
    std::optional<std::string> m_before;
};

}  // namespace test
