#pragma once

#include <cstdint>
#include <optional>

namespace bmc::ipmi {

/// How counts become values: value = L((M * count + B * 10^K1) * 10^K2) (IPMI v2.0 specification, 36.3).
struct ConversionFactors {
    std::int16_t m = 1;
    std::int16_t b = 0;
    std::int8_t bExponent = 0;       ///< K1
    std::int8_t rExponent = 0;       ///< K2
    std::uint8_t linearization = 0;  ///< 0..11: L; 0x70..0x7f: factors differ from count to count, ask for them
    std::uint8_t format = 0;         ///< 0 unsigned, 1 ones' complement, 2 two's complement

    bool DifferByCount() const noexcept { return linearization >= 0x70; }
    friend bool operator==(const ConversionFactors&, const ConversionFactors&) = default;
};

/// The value of @p count, nothing when it has none: the logarithm of a negative number, the inverse of 0, an analog
/// format or a function that does not exist, factors that differ by count.
std::optional<double> Convert(const ConversionFactors& factors, std::uint8_t count);

}  // namespace bmc::ipmi
