#include "platform_daemon.h"

#include <gtest/gtest.h>

#include "qapp/zelkor_board.h"
#include "qstd/ver_info.h"
#include "tests/support/mock_boards.h"
#include "tests/support/trace_capture.h"

namespace {

TEST(PlatformDaemon, NamesItselfAndItsPort) {
    const PlatformDaemon daemon;
    EXPECT_EQ(daemon.ApplicationName(), "zelkor-platformd");
    EXPECT_EQ(daemon.DefaultPort(), 5678);
}

TEST(PlatformDaemon, CreateBoard_GivesNullForEveryBoardAndTracesEntryAndExit) {
    const test::ThreeBoards boards;
    PlatformDaemon daemon;
    for (const bmc::Board* const board :
         {static_cast<const bmc::Board*>(&boards.host), static_cast<const bmc::Board*>(&boards.slot2),
          static_cast<const bmc::Board*>(&boards.icb), static_cast<const bmc::Board*>(nullptr)}) {
        const test::TraceCapture trace(4);
        EXPECT_EQ(daemon.CreateBoard(board), nullptr);
        const auto records = trace.Records();
        ASSERT_EQ(records.size(), 2U);
        EXPECT_EQ(records[0].text, "entry");
        EXPECT_EQ(records[1].text, "exit");
        for (const auto& record : records) {
            EXPECT_EQ(record.function, "virtual qapp::ZelkorBoard* PlatformDaemon::CreateBoard(const bmc::Board*)");
            EXPECT_EQ(record.source, "platform_daemon");
        }
    }
}

TEST(PlatformDaemon, Version_IsSetBeforeMain) {
    EXPECT_EQ(qstd::VerInfo::Get().ToString(), "2.8.167.20437");
    EXPECT_THAT(qstd::VerInfo::Get().m_builtAt, testing::ContainsRegex("^[0-9]{4}/[0-9]{2}/[0-9]{2} "));
    EXPECT_FALSE(qstd::VerInfo::Get().m_compiler.empty());
}

}  // namespace
