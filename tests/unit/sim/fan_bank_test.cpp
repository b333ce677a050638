#include "bmc/sim/fan_bank.h"

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <span>
#include <vector>

namespace {

using bmc::sim::FanBank;

double MeanAt(const FanBank& fans, double time) {
    double mean = 0;
    fans.MeanRpm(time, 0, std::span<double>(&mean, 1));
    return mean;
}

TEST(FanBank, AtRest_AllRegistersAreZero) {
    const FanBank fans(0);
    for (const std::uint16_t address : FanBank::c_addresses) {
        EXPECT_EQ(fans.Read(address, 0), 0);
        EXPECT_EQ(fans.Read(static_cast<std::uint16_t>(address + 2), 1e6), 0);
    }
}

TEST(FanBank, InitialSpeed_IsReferenceAndMeasured) {
    const FanBank fans(4000);
    EXPECT_EQ(fans.Read(0x40, 0), 484) << "nearest to 483.87";
    EXPECT_EQ(fans.Read(0x42, 0), 484);
}

TEST(FanBank, UnknownRegister_Fails) {
    FanBank fans(0);
    for (const std::uint16_t address :
         std::initializer_list<std::uint16_t>{0x00, 0x3f, 0x41, 0x44, 0x46, 0x6b, 0xffff}) {
        EXPECT_EQ(fans.Read(address, 0), std::nullopt) << address;
        EXPECT_FALSE(fans.Write(address, 1, 0)) << address;
        EXPECT_FALSE(fans.Hold(address, 1)) << address;
    }
    EXPECT_FALSE(fans.Write(0x42, 1, 0)) << "measured registers are read only";
}

TEST(FanBank, MeasuredSpeed_FollowsWithALag) {
    FanBank fans(0);
    ASSERT_TRUE(fans.Write(0x48, 645, 10));
    const double reference = FanBank::c_rawTimesRpm / 645;
    EXPECT_EQ(fans.Read(0x48, 10), 645);
    EXPECT_EQ(fans.MeasuredRpm(1, 10), 0);
    EXPECT_NEAR(fans.MeasuredRpm(1, 10 + FanBank::c_lag), reference * (1 - std::exp(-1.0)), 1e-6);
    EXPECT_EQ(fans.Read(0x4a, 100), 645) << "and gets there";
    EXPECT_EQ(fans.MeasuredRpm(0, 100), 0) << "the others stand still";
    EXPECT_NEAR(MeanAt(fans, 100), reference / 6, 1e-6);
}

TEST(FanBank, ComingDown_ReachesTheReferenceExactly) {
    FanBank fans(6500);
    for (const std::uint16_t address : FanBank::c_addresses) {
        ASSERT_TRUE(fans.Write(address, 774, 1));
    }
    EXPECT_EQ(fans.Read(0x42, 200), 774);
    ASSERT_TRUE(fans.Write(0x40, 0, 200));
    EXPECT_EQ(fans.Read(0x42, 400), 0);
}

TEST(FanBank, MeanSpeed_KnowsThePast) {
    FanBank fans(3000);
    const double before = MeanAt(fans, 5);
    for (const std::uint16_t address : FanBank::c_addresses) {
        ASSERT_TRUE(fans.Write(address, 297, 10));
    }
    EXPECT_EQ(MeanAt(fans, 5), before);
    std::vector<double> means(3);
    fans.MeanRpm(9, 2, means);
    EXPECT_EQ(means[0], before);
    EXPECT_GT(means[1], before);
    EXPECT_GT(means[2], means[1]);
    for (int fan = 0; fan < FanBank::c_fanCount; ++fan) {
        EXPECT_NEAR(fans.MeasuredRpm(fan, 13), means[2], 1e-6) << "the mean of equal speeds";
    }
}

TEST(FanBank, History_IsBoundedAndStillRight) {
    FanBank fans(0);
    for (int i = 1; i <= 20000; ++i) {
        ASSERT_TRUE(fans.Write(0x40, static_cast<std::uint16_t>(500 + i % 7), i));
    }
    EXPECT_NEAR(MeanAt(fans, 21000), FanBank::c_rawTimesRpm / (500 + 20000 % 7) / 6, 1e-6);
    EXPECT_TRUE(std::isfinite(MeanAt(fans, 1)));
}

TEST(FanBank, FailingRegister_FailsUntilHealed) {
    FanBank fans(3000);
    fans.Fail(0x40);
    EXPECT_EQ(fans.Read(0x40, 0), std::nullopt);
    EXPECT_FALSE(fans.Write(0x40, 1, 0));
    EXPECT_EQ(fans.Read(0x42, 0), 645) << "the others work";
    fans.Heal(0x40);
    EXPECT_EQ(fans.Read(0x40, 0), 645);
}

TEST(FanBank, HeldTachometer_SticksUntilHealed) {
    FanBank fans(3000);
    ASSERT_TRUE(fans.Hold(0x42, 7));
    EXPECT_EQ(fans.Read(0x42, 50), 7);
    EXPECT_NEAR(fans.MeasuredRpm(0, 50), FanBank::c_rawTimesRpm / 645, 1e-9) << "the fan itself turns";
    fans.Heal(0x42);
    EXPECT_EQ(fans.Read(0x42, 50), 645);
}

}  // namespace
