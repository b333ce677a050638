#include "tools/regctl/threshold.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using regctl::FindCrossing;

const regctl::Thresholds c_all{{"lnr", -20}, {"lc", -10}, {"lnc", 0}, {"hnc", 70}, {"hc", 80}, {"hnr", 90}};

std::string TextAt(double reading, const regctl::Thresholds& thresholds = c_all) {
    const auto crossing = FindCrossing(reading, thresholds);
    return crossing ? regctl::CrossingText(*crossing) + (crossing->isCritical ? "!" : "") : "";
}

TEST(Threshold, TheMostSevereOneIsNamed) {
    EXPECT_EQ(TextAt(35), "");
    EXPECT_EQ(TextAt(70.5), "above hnc 70");
    EXPECT_EQ(TextAt(81), "above hc 80!");
    EXPECT_EQ(TextAt(INFINITY), "above hnr 90!");
    EXPECT_EQ(TextAt(-0.1), "below lnc 0");
    EXPECT_EQ(TextAt(-11), "below lc -10!");
    EXPECT_EQ(TextAt(-21), "below lnr -20!");
}

TEST(Threshold, ReachingItIsNotBeyondIt) {
    EXPECT_EQ(TextAt(70), "");
    EXPECT_EQ(TextAt(90), "above hc 80!");
    EXPECT_EQ(TextAt(0), "");
}

TEST(Threshold, MissingOnesAndReadingsThatAreNoNumbersAreBeyondNothing) {
    EXPECT_EQ(TextAt(1000, {}), "");
    EXPECT_EQ(TextAt(85, {{"hnc", 70}}), "above hnc 70");
    EXPECT_EQ(TextAt(NAN), "");
    EXPECT_EQ(TextAt(5, {{"hnc", NAN}}), "");
    EXPECT_TRUE(regctl::IsThreshold("hnr"));
    EXPECT_FALSE(regctl::IsThreshold("nom"));
}

}  // namespace
