#include "tests/support/ipmi/factor_fit.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>

namespace test {

namespace {

constexpr int c_finestExponent = -5;
constexpr int c_coarsestExponent = 5;
constexpr int c_maxFactor = 511;
constexpr double c_steps = 255;
// Errors below this share of the step are of the arithmetic only.
constexpr double c_exact = 1e-6;

// A candidate without its exponent of ten: readings are multiples of the unit.
struct Scale {
    RawFormat_e format;
    int m;
    int b;
};

double ErrorOf(const Scale& scale, const std::vector<double>& multiples) {
    const double lowest = scale.format == RawFormat_e::unsigned_number ? 0 : -128;
    double sum = 0;
    for (const double value : multiples) {
        const double raw = std::clamp(std::round((value - scale.b) / scale.m), lowest, lowest + c_steps);
        const double error = std::abs(raw * scale.m + scale.b - value);
        sum += error < c_exact * scale.m ? 0 : error;
    }
    return sum;
}

// No offset, and those that make the least value exact and let all fit in from raw byte 0 on or up to 255, if possible
// with room for what lies beyond.
std::vector<int> Offsets(const std::vector<double>& multiples, int m) {
    constexpr double c_room = 10;
    std::vector<int> offsets{0};
    const double least = std::round(multiples.front());
    const double rest = least - m * std::floor(least / m);
    const double below = std::min(0.0, std::floor(least / m));
    const double above = std::max(0.0, std::ceil((multiples.back() - rest) / m) - c_steps);
    for (const double offset :
         {rest, rest + m * (below - c_room), rest + m * (above + c_room), rest + m * below, rest + m * above}) {
        if (std::abs(offset) <= c_maxFactor) {
            offsets.push_back(static_cast<int>(offset));
        }
    }
    return offsets;
}

struct Search {
    const std::vector<double>& values;  // sorted
    double error = std::numeric_limits<double>::infinity();
    Scale best{RawFormat_e::unsigned_number, 1, 0};
    int exponent = 0;

    // A later candidate must be better: the plainest ones come first.
    void Try(const Scale& scale, int exponentOfIt, const std::vector<double>& multiples) {
        const double found = ErrorOf(scale, multiples) * std::pow(10, exponentOfIt);
        if (found < error * (1 - c_exact)) {
            error = found;
            best = scale;
            exponent = exponentOfIt;
        }
    }

    void TryExponent(int candidate) {
        std::vector<double> multiples;
        for (const double value : values) {
            multiples.push_back(value / std::pow(10, candidate));
        }
        const double range = multiples.back() - std::min(0.0, multiples.front());
        const double narrowest = multiples.back() - multiples.front();
        if (range > c_maxFactor * c_steps) {
            return;
        }
        const auto first = std::max(1, static_cast<int>(std::ceil(narrowest / c_steps)));
        const int last = std::min(c_maxFactor, std::max(first, static_cast<int>(std::ceil(range / c_steps))) * 4);
        for (int m = first; m <= last && error > 0; ++m) {
            for (const int b : Offsets(multiples, m)) {
                Try({RawFormat_e::unsigned_number, m, b}, candidate, multiples);
            }
            Try({RawFormat_e::twos_complement, m, 0}, candidate, multiples);
        }
    }
};

}  // namespace

void FitFactors(SimulatedSensor& sensor, const std::vector<double>& values) {
    sensor.format = RawFormat_e::unsigned_number;
    sensor.factors = Factors{};
    if (values.empty()) {
        return;
    }
    std::vector<double> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    Search search{sorted};
    for (int distance = 0; distance <= c_coarsestExponent; ++distance) {
        for (const int exponent : {-distance, distance}) {
            if (exponent >= c_finestExponent && search.error > 0) {
                search.TryExponent(exponent);
            }
        }
    }
    sensor.format = search.best.format;
    sensor.factors = {search.best.m, search.best.b, 0, search.exponent};
}

}  // namespace test
