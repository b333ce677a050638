// The tree of nodes that the daemon builds at its start.

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "prepared_daemon.h"
#include "qnode/factory.h"
#include "qnode/node.h"
#include "qreg/reg_node.h"
#include "qstd/exception.h"
#include "tests/support/log_capture.h"
#include "tests/support/mock_boards.h"
#include "tests/support/trace_capture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;
using testing::Throw;

class RegistryTree : public testing::Test {
protected:
    void Build() { m_daemon = std::make_unique<test::PreparedDaemon>(); }

    qnode::TreeNode& At(const std::string& path) const {
        qnode::TreeNode* const node = m_daemon->GetRegistry()->FindBelow(path);
        if (node == nullptr) {
            throw qstd::Exception("no node " + path);
        }
        return *node;
    }

    std::vector<std::string> Children(const std::string& path) const {
        std::vector<std::string> names;
        for (const auto& child : At(path).GetChildren()) {
            names.push_back(child->GetName());
        }
        return names;
    }

    void ExpectWholeBoard(const std::string& board) const {
        EXPECT_THAT(Children("boards/" + board), ElementsAre("board_info", "sensors"));
        EXPECT_THAT(Children("boards/" + board + "/board_info"),
                    ElementsAre("device", "type", "firmware_type", "status", "power_status", "fpga_revision",
                                "red_light", "fw_version", "fw_revision", "fw_flash_id", "ipmi_version"));
        const std::string sensors = "boards/" + board + "/sensors";
        for (const std::string& sensor : Children(sensors)) {
            EXPECT_THAT(Children(std::string(sensors).append("/").append(sensor)),
                        ElementsAre("value", "name", "hnc", "hc", "hnr", "lnc", "lc", "lnr", "nom", "type", "units"));
        }
    }

    test::ThreeBoards m_boards;
    test::LogCapture m_log;
    std::unique_ptr<test::PreparedDaemon> m_daemon;
};

TEST_F(RegistryTree, HoldsEveryBoardAndSensorInTheOrderOfThePool) {
    Build();
    EXPECT_THAT(Children(""), ElementsAre("boards", "fans"));
    EXPECT_THAT(Children("boards"), ElementsAre("host", "slot2", "icb"));
    for (const std::string board : {"host", "slot2", "icb"}) {
        ExpectWholeBoard(board);
    }
    EXPECT_THAT(Children("boards/host/sensors"), ElementsAre("ID_7"));
    EXPECT_THAT(Children("boards/slot2/sensors"), ElementsAre("ID_5"));
    EXPECT_THAT(Children("boards/icb/sensors"), ElementsAre("ID_3", "ID_12"));
    EXPECT_THAT(Children("fans"),
                ElementsAre("left_front", "left_middle", "left_rear", "right_front", "right_middle", "right_rear"));
    EXPECT_THAT(m_log.Messages(), IsEmpty());
}

TEST_F(RegistryTree, Sensors_StandInTheOrderInWhichTheBoardNamesThem) {
    ON_CALL(m_boards.icb, GetSensorsIds)
        .WillByDefault(Return(std::vector{bmc::SensorId(12), bmc::SensorId(-1), bmc::SensorId(3)}));
    Build();
    EXPECT_THAT(Children("boards/icb/sensors"), ElementsAre("ID_12", "ID_-1", "ID_3"));
}

TEST_F(RegistryTree, Flags_TellFoldersLeavesAndFansApart) {
    Build();
    for (const std::string folder :
         {"boards", "boards/icb", "boards/icb/board_info", "boards/icb/sensors", "boards/icb/sensors/ID_12"}) {
        EXPECT_EQ(At(folder).OnGetFlags(), 0U) << folder;
        EXPECT_NE(dynamic_cast<qreg::RegNode*>(&At(folder)), nullptr) << folder;
    }
    for (const std::string folder : {"boards/icb/board_info", "boards/icb/sensors/ID_12"}) {
        for (const auto& leaf : At(folder).GetChildren()) {
            EXPECT_EQ(leaf->OnGetFlags(), 2U) << leaf->GetPath();
        }
    }
    EXPECT_EQ(At("fans").OnGetFlags(), 6U);
    EXPECT_EQ(At("fans/right_rear").OnGetFlags(), 6U);
}

TEST_F(RegistryTree, Leaves_ShowTheirOwnBoardAndSensor) {
    ON_CALL(m_boards.slot2, GetFwRevision).WillByDefault(Return(17));
    Build();
    double value = 0.0;
    EXPECT_TRUE(qnode::Node(m_daemon->GetRegistry()).Find("boards/icb/sensors/ID_3/value").GetValue(value));
    EXPECT_EQ(value, 12.0);
    EXPECT_TRUE(qnode::Node(m_daemon->GetRegistry()).Find("boards/host/sensors/ID_7/hnr").GetValue(value));
    EXPECT_EQ(value, 105.0);
    int revision = 0;
    EXPECT_TRUE(qnode::Node(m_daemon->GetRegistry()).Find("boards/slot2/board_info/fw_revision").GetValue(revision));
    EXPECT_EQ(revision, 17);
}

TEST_F(RegistryTree, EmptyPool_HasAnEmptyFolderOfBoards) {
    ON_CALL(m_boards.backend, GetAllLocalBoardUris).WillByDefault(Return(std::vector<bmc::Uri>{}));
    Build();
    EXPECT_THAT(Children(""), ElementsAre("boards", "fans"));
    EXPECT_THAT(Children("boards"), IsEmpty());
    EXPECT_THAT(Children("fans"), IsEmpty());
}

TEST_F(RegistryTree, BoardThatIsGone_IsReportedAndLeftOut) {
    ON_CALL(m_boards.backend, GetBoard(m_boards.slot2.GetUri())).WillByDefault(Return(nullptr));
    Build();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board: SLOT_2"));
    EXPECT_THAT(Children("boards"), ElementsAre("host", "icb"));
}

TEST_F(RegistryTree, BoardThatRaises_IsReportedAndLeftOutAltogether) {
    ON_CALL(m_boards.slot2, GetSensorsIds).WillByDefault(Throw(qstd::Exception("bus")));
    Build();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board SLOT_2. Exception: bus"));
    EXPECT_THAT(Children("boards"), ElementsAre("host", "icb"));
    ExpectWholeBoard("host");
    ExpectWholeBoard("icb");
    EXPECT_THAT(Children("boards/icb/sensors"), ElementsAre("ID_3", "ID_12"));
}

TEST_F(RegistryTree, BoardThatRaisesSomethingElse_IsReportedAsUnknown) {
    ON_CALL(m_boards.slot2, GetSensor).WillByDefault(Throw(42));
    Build();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board SLOT_2. Unknown exception."));
    EXPECT_THAT(Children("boards"), ElementsAre("host", "icb"));
}

TEST_F(RegistryTree, PoolThatRaisesForABoard_IsReportedForThatBoard) {
    EXPECT_CALL(m_boards.backend, GetBoard).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.backend, GetBoard(m_boards.slot2.GetUri()))
        .WillOnce(Throw(qstd::Exception("bus")))
        .WillRepeatedly(Return(&m_boards.slot2));
    Build();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board SLOT_2. Exception: bus"));
    EXPECT_THAT(Children("boards"), ElementsAre("host", "icb"));
}

TEST_F(RegistryTree, TwoBoardsOfOneShortName_TheSecondIsReportedAndLeftOut) {
    ON_CALL(m_boards.icb, GetShortName).WillByDefault(Return("slot2"));
    Build();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board ICB_1. Exception: Node \"boards\" already "
                                              "has a child \"slot2\""));
    EXPECT_THAT(Children("boards/slot2/sensors"), ElementsAre("ID_5"));
}

TEST_F(RegistryTree, ShortNameThatIsNoNodeName_IsReportedAndTheBoardLeftOut) {
    ON_CALL(m_boards.slot2, GetShortName).WillByDefault(Return("psu/2"));
    ON_CALL(m_boards.icb, GetShortName).WillByDefault(Return(""));
    Build();
    EXPECT_THAT(m_log.Messages(),
                ElementsAre(testing::StartsWith("E: Problem accessing board SLOT_2. Exception: Bad node name"),
                            testing::StartsWith("E: Problem accessing board ICB_1. Exception: Node \"\"")));
    EXPECT_THAT(Children("boards"), ElementsAre("host"));
}

TEST_F(RegistryTree, SensorThatTheBoardDoesNotHave_HasLeavesWithoutValue) {
    ON_CALL(m_boards.slot2, GetSensor).WillByDefault(Return(nullptr));
    Build();
    EXPECT_THAT(m_log.Messages(), IsEmpty());
    ExpectWholeBoard("slot2");
    for (const auto& leaf : At("boards/slot2/sensors/ID_5").GetChildren()) {
        qnode::Value value;
        EXPECT_FALSE(qnode::Node(leaf).GetValue(value)) << leaf->GetName();
    }
}

TEST_F(RegistryTree, BoardWithoutSensors_HasAnEmptyFolderOfSensors) {
    ON_CALL(m_boards.slot2, GetSensorsIds).WillByDefault(Return(std::vector<bmc::SensorId>{}));
    Build();
    EXPECT_THAT(Children("boards/slot2"), ElementsAre("board_info", "sensors"));
    EXPECT_THAT(Children("boards/slot2/sensors"), IsEmpty());
}

TEST_F(RegistryTree, BoardThatComesLater_DoesNotAppear) {
    Build();
    m_boards.backend.Add(bmc::Uri("u:d", "SLOT", "3"), "slot3", bmc::BoardType_e::power_supply);
    EXPECT_THAT(Children("boards"), ElementsAre("host", "slot2", "icb"));
}

TEST_F(RegistryTree, FansThatCannotBeAdded_AreTracedAtLevel2Only) {
    PlatformDaemon daemon;
    daemon.AddRegNode(qnode::factory::Create<qreg::RegNode>("fans"));  // the name is taken
    const test::TraceCapture trace(2);
    daemon.AddRegistryNodes();
    const auto records = trace.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, 2);
    EXPECT_EQ(records[0].source, "platform_daemon");
    EXPECT_EQ(records[0].text, "Can't add fans nodes. Ignoring.");
    EXPECT_THAT(m_log.Messages(), IsEmpty());
    EXPECT_EQ(daemon.GetRegistry()->GetChildren().size(), 2U);
    EXPECT_TRUE(daemon.GetRegistry()->FindChild("boards")->FindChild("icb"));
}

TEST_F(RegistryTree, FansThatCannotBeAdded_AreNotTracedAtLevel1) {
    PlatformDaemon daemon;
    daemon.AddRegNode(qnode::factory::Create<qreg::RegNode>("fans"));
    const test::TraceCapture trace(1);
    daemon.AddRegistryNodes();
    EXPECT_THAT(trace.Records(), IsEmpty());
}

TEST_F(RegistryTree, PoolThatRaises_RaisesToTheStart) {
    PlatformDaemon daemon;
    ON_CALL(m_boards.backend, GetAllLocalBoardUris).WillByDefault(Throw(qstd::Exception("bus")));
    EXPECT_THROW(daemon.AddRegistryNodes(), qstd::Exception);
}

TEST_F(RegistryTree, Dump_ShowsEveryLeafEvenThoseThatRaise) {
    ON_CALL(m_boards.slot2, GetStatus).WillByDefault(Throw(qstd::Exception("bus")));
    Build();
    const std::string dump = qnode::Node(m_daemon->GetRegistry()).DumpSubTree(-1, 0, qnode::Node::c_defMaxValueLen);
    EXPECT_THAT(dump, testing::HasSubstr("        status = bus\n"));
    EXPECT_THAT(dump, testing::HasSubstr("        fw_version = Unsupported type: fw_version in method "));
    EXPECT_THAT(dump, testing::HasSubstr("        ID_12\n          value = 48\n          name = Intake\n"));
    EXPECT_THAT(dump, testing::HasSubstr("  fans = 0\n    left_front = 0\n"));
}

}  // namespace
