#include "qcfg/suggestion.h"

#include <gtest/gtest.h>

namespace {

const std::vector<std::string> c_known{"frequency", "filter", "sensors", "fans", "port"};

TEST(Suggestion, OneLetterOff_Found) {
    EXPECT_EQ(qcfg::FindSimilar("frequenzy", c_known), "frequency");
    EXPECT_EQ(qcfg::FindSimilar("sensor", c_known), "sensors");
    EXPECT_EQ(qcfg::FindSimilar("fanss", c_known), "fans");
}

TEST(Suggestion, NeighboursExchanged_CountOnce) {
    EXPECT_EQ(qcfg::FindSimilar("prot", c_known), "port");
    EXPECT_EQ(qcfg::FindSimilar("fitler", c_known), "filter");
}

TEST(Suggestion, OtherCase_IsNear) {
    EXPECT_EQ(qcfg::FindSimilar("FREQUENCY", c_known), "frequency");
}

TEST(Suggestion, NothingNear_Empty) {
    EXPECT_EQ(qcfg::FindSimilar("voltage", c_known), "");
    EXPECT_EQ(qcfg::FindSimilar("x", c_known), "");
    EXPECT_EQ(qcfg::FindSimilar("", c_known), "");
    EXPECT_EQ(qcfg::FindSimilar("port", {}), "");
}

TEST(Suggestion, EndlessWord_Empty) {
    EXPECT_EQ(qcfg::FindSimilar(std::string(1'000'000, 'f'), c_known), "");
}

TEST(Suggestion, NearestWins) {
    EXPECT_EQ(qcfg::FindSimilar("boardTyp", {"board", "boardType"}), "boardType");
}

}  // namespace
