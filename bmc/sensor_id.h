#pragma once

#include <ostream>
#include <string>

namespace bmc {

/// Identifies a sensor on its board: a small number, ordered and printed as a signed decimal integer.
class SensorId {
public:
    constexpr SensorId() = default;
    constexpr explicit SensorId(int value) noexcept : m_value(value) {}
    constexpr int GetValue() const noexcept { return m_value; }

private:
    int m_value = 0;
};

constexpr bool operator<(const SensorId& left, const SensorId& right) noexcept {
    return left.GetValue() < right.GetValue();
}
constexpr bool operator==(const SensorId& left, const SensorId& right) noexcept {
    return left.GetValue() == right.GetValue();
}
inline std::ostream& operator<<(std::ostream& out, const SensorId& id) {
    return out << id.GetValue();
}
inline std::string ToString(const SensorId& id) {
    return std::to_string(id.GetValue());
}

}  // namespace bmc
