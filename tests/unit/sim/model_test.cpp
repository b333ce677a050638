#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "bmc/sim/fan_bank.h"
#include "bmc/sim/tachometer_model.h"
#include "bmc/sim/thermal_model.h"
#include "bmc/sim/wave_model.h"

namespace {

using bmc::sim::FanBank;
using bmc::sim::ThermalDescription;
using bmc::sim::ThermalModel;
using bmc::sim::WaveModel;

constexpr double c_ambient = 25;
const ThermalDescription c_thermal{40, 0.6, 30};

double ValueAt(bmc::sim::ReadingModel& model, double time) {
    return model.At(time).Converted();
}

void SetAll(FanBank& fans, std::uint16_t raw, double time) {
    for (const std::uint16_t address : FanBank::c_addresses) {
        ASSERT_TRUE(fans.Write(address, raw, time));
    }
}

TEST(ThermalModel, Start_IsAmbientAndWarmsUpWithTau) {
    const FanBank fans(FanBank::c_ratedRpm);
    ThermalModel model(c_thermal, c_ambient, &fans);
    EXPECT_EQ(ValueAt(model, 0), c_ambient);
    EXPECT_NEAR(ValueAt(model, 30), c_ambient + 24 * (1 - std::exp(-1.0)), 0.01);
    EXPECT_NEAR(ValueAt(model, 3000), c_ambient + 24, 0.01) << "power times resistance at the rated speed";
}

TEST(ThermalModel, MoreFanSpeed_Cools) {
    double last = 1e9;
    for (const double rpm : {0.0, 1000.0, 2500.0, 3000.0, 4000.0, 6500.0}) {
        const FanBank fans(rpm);
        ThermalModel model(c_thermal, c_ambient, &fans);
        const double value = ValueAt(model, 1e5);
        EXPECT_LT(value, last) << rpm;
        EXPECT_GT(value, c_ambient) << rpm;
        last = value;
    }
}

TEST(ThermalModel, FansAtRestOrNone_TemperatureIsBounded) {
    const FanBank fans(0);
    ThermalModel still(c_thermal, c_ambient, &fans);
    ThermalModel none(c_thermal, c_ambient, nullptr);
    EXPECT_NEAR(ValueAt(still, 1e6), c_ambient + 48, 1e-6);
    EXPECT_EQ(ValueAt(still, 1e6), ValueAt(none, 1e6));
}

TEST(ThermalModel, FanSpeedRaised_TemperatureFallsSlowly) {
    FanBank fans(FanBank::c_ratedRpm);
    ThermalModel model(c_thermal, c_ambient, &fans);
    const double before = ValueAt(model, 1000);
    SetAll(fans, 297, 1000);
    const double soon = ValueAt(model, 1001);
    const double later = ValueAt(model, 2000);
    EXPECT_NEAR(soon, before, 0.2);
    EXPECT_LT(later, before - 5);
}

TEST(ThermalModel, Readings_DoNotDependOnHowOftenItIsRead) {
    FanBank fans(FanBank::c_ratedRpm);
    ThermalModel often(c_thermal, c_ambient, &fans);
    ThermalModel seldom(c_thermal, c_ambient, &fans);
    for (int i = 0; i < 3000; ++i) {
        if (i == 700) {
            SetAll(fans, 297, i * 0.1);
        }
        if (i == 1700) {
            SetAll(fans, 0, i * 0.1);
        }
        often.At(i * 0.1);
    }
    EXPECT_EQ(ValueAt(often, 300), ValueAt(seldom, 300));
}

TEST(ThermalModel, LongUnread_IsRightAndQuick) {
    FanBank fans(FanBank::c_ratedRpm);
    ThermalModel model({40, 0.6, 0.001}, c_ambient, &fans);
    EXPECT_NEAR(ValueAt(model, 1e9), c_ambient + 24, 0.01);
}

TEST(WaveModel, WithoutNoise_IsASine) {
    WaveModel model({12, 0.5, 20, 0}, 1);
    EXPECT_NEAR(ValueAt(model, 0), 12, 1e-9);
    EXPECT_NEAR(ValueAt(model, 5), 12.5, 1e-9);
    EXPECT_NEAR(ValueAt(model, 15), 11.5, 1e-9);
    EXPECT_NEAR(ValueAt(model, 20000005), 12.5, 1e-6) << "after a long time too";
}

TEST(WaveModel, SameSeed_SameNoise) {
    WaveModel first({0, 0, 1, 1}, 7);
    WaveModel again({0, 0, 1, 1}, 7);
    WaveModel other({0, 0, 1, 1}, 8);
    int equal = 0;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(ValueAt(first, i), ValueAt(again, i));
        equal += ValueAt(first, i) == ValueAt(other, i) ? 1 : 0;
    }
    EXPECT_LT(equal, 3);
}

TEST(WaveModel, Noise_FillsItsRangeEvenly) {
    WaveModel model({100, 0, 1, 2}, 1);
    double sum = 0;
    double least = 1000;
    double most = 0;
    constexpr int c_count = 10000;
    for (int i = 0; i < c_count; ++i) {
        const double value = ValueAt(model, i);
        sum += value;
        least = std::min(least, value);
        most = std::max(most, value);
    }
    EXPECT_GE(least, 98);
    EXPECT_LE(most, 102);
    EXPECT_LT(least, 98.1);
    EXPECT_GT(most, 101.9);
    EXPECT_NEAR(sum / c_count, 100, 0.05);
}

TEST(TachometerModel, Reading_IsTheFansMeasuredSpeed) {
    FanBank fans(0);
    ASSERT_TRUE(fans.Write(0x68, 645, 0));
    bmc::sim::TachometerModel model(5, fans);
    EXPECT_EQ(ValueAt(model, 3), fans.MeasuredRpm(5, 3));
    EXPECT_GT(ValueAt(model, 3), 1000);
}

}  // namespace
