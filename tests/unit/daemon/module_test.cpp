#include "module.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "qcfg/document.h"
#include "qstd/exception.h"
#include "sensor_list_helper.h"
#include "tests/support/log_capture.h"
#include "tests/support/mock_boards.h"

namespace {

using testing::_;
using testing::ElementsAre;
using testing::Pair;
using testing::Return;
using testing::Throw;

/// The selection as text: "u:a [3 12] u:b [5]", boards by uri.
std::string Text(const Module::Selection& selection) {
    std::map<std::string, std::string> byUri;
    for (const auto& [board, ids] : selection) {
        std::string& text = byUri[board->GetUri().ToString()];
        for (const bmc::SensorId& id : ids) {
            text += (text.empty() ? "" : " ") + bmc::ToString(id);
        }
    }
    std::string all;
    for (const auto& [uri, ids] : byUri) {
        all += (all.empty() ? "" : " ") + uri + " [" + ids + "]";
    }
    return all;
}

class SensorSelection : public testing::Test {
protected:
    Module::Selection All() const {
        Module::Selection all;
        Module::GetAllSensors(all);
        return all;
    }

    /// What the entries leave of all sensors.
    std::string Select(const std::string& entries) const { return Select(entries, All(), All()); }

    static std::string Select(const std::string& entries, const Module::Selection& available,
                              const Module::Selection& starting) {
        const auto section = qcfg::ReadXmlText("<monitor><sensors>" + entries + "</sensors></monitor>", "test");
        return Text(Module::HandleSensorsList(section, available, starting));
    }

    test::ThreeBoards m_boards;
    test::LogCapture m_log;
};

TEST_F(SensorSelection, NoSensorsElement_KeepsTheStartingSelection) {
    const auto section = qcfg::ReadXmlText("<monitor enabled='true'/>", "test");
    EXPECT_EQ(Text(Module::HandleSensorsList(section, All(), All())), "u:a [3 12] u:b [5] u:c [7]");
}

TEST_F(SensorSelection, NoSensorsElement_DropsBoardsWithoutSensors) {
    Module::Selection starting = All();
    starting[&m_boards.slot2].clear();
    const auto section = qcfg::ReadXmlText("<monitor enabled='true'/>", "test");
    EXPECT_EQ(Text(Module::HandleSensorsList(section, All(), starting)), "u:a [3 12] u:c [7]");
}

TEST_F(SensorSelection, ExcludeAll_LeavesNothing) {
    EXPECT_EQ(Select("<exclude>all</exclude>"), "");
}

TEST_F(SensorSelection, IncludedIdThatTheBoardLacks_IsPassedOverSilently) {
    m_boards.slot2.Add(test::ThreeBoards::Temperature(27, "Edge", 40, 80, 90, 100), 40);
    EXPECT_EQ(Select("<exclude>all</exclude><include board='u:b'>0x1A,27</include>"), "u:b [27]");
    EXPECT_THAT(m_log.Messages(), testing::IsEmpty());
}

TEST_F(SensorSelection, LaterEntryOverridesEarlierOne) {
    EXPECT_EQ(Select("<include>all</include><exclude>0xC</exclude>"), "u:a [3] u:b [5] u:c [7]");
    EXPECT_EQ(Select("<exclude>0xC</exclude><include>all</include>"), "u:a [3 12] u:b [5] u:c [7]");
}

TEST_F(SensorSelection, ExcludeAllOfOneBoard_LeavesTheOthers) {
    EXPECT_EQ(Select("<exclude board='u:a'>all</exclude>"), "u:b [5] u:c [7]");
}

TEST_F(SensorSelection, IncludeAllOfOneBoard_BringsItBack) {
    EXPECT_EQ(Select("<exclude>all</exclude><include board='u:a'>all</include>"), "u:a [3 12]");
}

TEST_F(SensorSelection, BoardTypeGiven_BoardIsNotLookedAt) {
    EXPECT_EQ(Select("<exclude boardType='icb' board='u:b'>all</exclude>"), "u:b [5] u:c [7]");
    EXPECT_EQ(Select("<exclude boardType='44' board='u:b'>all</exclude>"), "u:b [5] u:c [7]");
}

TEST_F(SensorSelection, BoardUriInOtherCase_MatchesNothingAndSaysNothing) {
    EXPECT_EQ(Select("<exclude board='u:B'>all</exclude>"), "u:a [3 12] u:b [5] u:c [7]");
    EXPECT_EQ(Select("<exclude board='u:'>all</exclude>"), "u:a [3 12] u:b [5] u:c [7]");
    EXPECT_THAT(m_log.Messages(), testing::IsEmpty());
}

TEST_F(SensorSelection, IncludeOutsideTheAvailableOnes_AddsNothing) {
    Module::Selection temperatures;
    Module::GetTemperatureSensors(temperatures);
    EXPECT_EQ(Select("<include board='u:a'>3</include>", temperatures, temperatures), "u:a [12] u:b [5] u:c [7]");
    EXPECT_EQ(Select("<include board='u:a'>3</include>", All(), temperatures), "u:a [3 12] u:b [5] u:c [7]");
}

TEST_F(SensorSelection, ElementsWithOtherNames_AreIgnored) {
    EXPECT_EQ(Select("<Exclude>all</Exclude><sensor>all</sensor>"), "u:a [3 12] u:b [5] u:c [7]");
}

TEST_F(SensorSelection, UnknownBoardType_CostsItsEntryOnly) {
    EXPECT_EQ(Select("<exclude boardType='ICB'>all</exclude><exclude>5</exclude>"), "u:a [3 12] u:c [7]");
    EXPECT_EQ(Select("<exclude boardType='9999'>all</exclude>"), "u:a [3 12] u:b [5] u:c [7]");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("E: Unknown board type used in the include/exclude list. Invalid integer value",
                            "E: Unknown board type used in the include/exclude list. Invalid enum value"));
}

TEST_F(SensorSelection, BadSensorId_EndsTheSection) {
    const auto textOf = [this](const std::string& ids) -> std::string {
        try {
            Select("<exclude>" + ids + "</exclude>");
        } catch (const qstd::Exception& error) {
            return error.what();
        }
        return "accepted";
    };
    EXPECT_EQ(textOf("x"), "Bad cast from x to int");
    EXPECT_EQ(textOf("0x"), "Bad cast from 0x to int");
    EXPECT_EQ(textOf("3, 12"), "Bad cast from  12 to int");
    EXPECT_EQ(textOf("0xG"), "Bad hex cast from 0xG to unsigned int");
    EXPECT_EQ(textOf("All"), "Bad cast from All to int");
    EXPECT_EQ(textOf("3,,12,"), "accepted");
}

TEST_F(SensorSelection, BadSensorId_AppliesNothingOfItsEntry) {
    SensorListHelper helper(All(), All());
    EXPECT_THROW(helper.AddToSensorList("all", SensorListHelper::c_noBoardType, "3,x", false), qstd::Exception);
    EXPECT_EQ(Text(helper.GetSensors()), "u:a [3 12] u:b [5] u:c [7]");
}

TEST_F(SensorSelection, SensorGoneWhileLookingForTemperatures_IsLoggedAndLeftOut) {
    EXPECT_CALL(m_boards.slot2, GetSensor(bmc::SensorId(5))).WillRepeatedly(Return(nullptr));
    Module::Selection temperatures;
    Module::GetTemperatureSensors(temperatures);
    EXPECT_EQ(Text(temperatures), "u:a [12] u:c [7]");
    EXPECT_EQ(temperatures.count(&m_boards.slot2), 0U);
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing sensor id: 5 on board SLOT_2"));
    EXPECT_EQ(Text(All()), "u:a [3 12] u:b [5] u:c [7]");
}

TEST_F(SensorSelection, BoardWithoutTemperatureSensors_GetsNoEntry) {
    EXPECT_CALL(m_boards.core, GetType).WillRepeatedly(Return(bmc::SensorType_e::voltage));
    Module::Selection temperatures;
    Module::GetTemperatureSensors(temperatures);
    EXPECT_EQ(temperatures.count(&m_boards.slot2), 0U);
    EXPECT_EQ(temperatures.size(), 2U);
}

TEST_F(SensorSelection, BoardThatRaises_IsLoggedAndTheOthersAreKept) {
    EXPECT_CALL(m_boards.slot2, GetSensorsIds)
        .WillOnce(Throw(qstd::Exception("bus")))
        .WillOnce(Throw(std::runtime_error("link")))
        .WillOnce(Throw(42));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Text(All()), "u:a [3 12] u:c [7]");
    }
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board SLOT_2. Exception: bus",
                                              "E: Problem accessing board SLOT_2. Unknown exception.",
                                              "E: Problem accessing board SLOT_2. Unknown exception."));
}

TEST_F(SensorSelection, BoardThatRaisesHalfWay_KeepsWhatWasAdded) {
    m_boards.slot2.Add(test::ThreeBoards::Temperature(6, "Edge", 40, 80, 90, 100), 40);
    EXPECT_CALL(m_boards.slot2, GetSensor(bmc::SensorId(5))).Times(1);
    EXPECT_CALL(m_boards.slot2, GetSensor(bmc::SensorId(6))).WillOnce(Throw(qstd::Exception("bus")));
    Module::Selection temperatures;
    Module::GetTemperatureSensors(temperatures);
    EXPECT_EQ(Text(temperatures), "u:a [12] u:b [5] u:c [7]");
}

TEST_F(SensorSelection, BoardGone_IsLoggedAndLeftOut) {
    EXPECT_CALL(m_boards.backend, GetBoard(_)).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.backend, GetBoard(bmc::Uri("u:b", "SLOT", "2"))).WillRepeatedly(Return(nullptr));
    EXPECT_EQ(Text(All()), "u:a [3 12] u:c [7]");
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board: SLOT_2"));
}

TEST_F(SensorSelection, NegativeAndLargeIds_KeepSignedOrder) {
    m_boards.slot2.Add({200, bmc::SensorType_e::other, "A", ""}, 0);
    m_boards.slot2.Add({-1, bmc::SensorType_e::other, "B", ""}, 0);
    m_boards.slot2.Add({0, bmc::SensorType_e::other, "C", ""}, 0);
    EXPECT_EQ(Select("<exclude board='u:a'>all</exclude><exclude board='u:c'>all</exclude>"), "u:b [-1 0 5 200]");
}

}  // namespace
