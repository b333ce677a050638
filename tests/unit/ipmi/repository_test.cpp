#include "bmc/ipmi/repository.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fake_link.h"
#include "record_builder.h"
#include "tests/support/expect_text.h"

namespace {

using bmc::ipmi::RawRecord;
using bmc::ipmi::ReadRepository;
using bmc::ipmi::ReadStamp;
using bmc::ipmi::RepositoryKind_e;
using test::TextOf;

class RepositoryTest : public testing::Test {
protected:
    RepositoryTest() {
        m_controller.m_main.emplace();
        for (std::uint8_t number = 1; number <= 3; ++number) {
            FullRecord record;
            record.number = number;
            m_controller.m_main->Add(record.Bytes());
        }
    }

    std::vector<RawRecord> Read() {
        const auto repository = ReadRepository(m_controller, RepositoryKind_e::main, "io/1");
        return repository ? repository->records : std::vector<RawRecord>{{0xbad & 0xff}};
    }
    std::string Problem() {
        return TextOf([this] { Read(); });
    }
    FakeRepository& Main() { return *m_controller.m_main; }

    FakeLink m_controller;
};

TEST_F(RepositoryTest, WholeRecords_OneTransactionEach) {
    EXPECT_EQ(Read(), Main().m_records);
    EXPECT_EQ(Main().m_gets, 3U);
    EXPECT_EQ(m_controller.m_requests.size(), 6U) << "stamp, reservation, records, stamp";
}

TEST_F(RepositoryTest, WholeRecordsRefused_PartsOf32) {
    for (const int refusal : {0xca, 0xc8, 0xc9, 0xcc, 0xff}) {
        Main().m_refusal = static_cast<std::uint8_t>(refusal);
        Main().m_mostBytes = 32;
        Main().m_gets = 0;
        EXPECT_EQ(Read(), Main().m_records);
        EXPECT_EQ(Main().m_gets, 1 + 3 * 2U) << refusal;
    }
}

TEST_F(RepositoryTest, PartsOf32Refused_PartsOf16) {
    Main().m_mostBytes = 22;
    EXPECT_EQ(Read(), Main().m_records);
    EXPECT_LE(Main().m_gets, 3 + 3 * 5U);
}

TEST_F(RepositoryTest, RecordCutShort_RestInParts) {
    Main().m_bytesGiven = 20;
    EXPECT_EQ(Read(), Main().m_records);
    Main().m_bytesGiven = 3;
    EXPECT_EQ(Read(), Main().m_records);
}

TEST_F(RepositoryTest, EndOfTheRecordMustNotBePassed_StillRead) {
    Main().Add({0, 0, 0x51, 0xc0, 3, 1, 2, 3});  // shorter than a part
    Main().m_mostBytes = 32;
    Main().m_isEndStrict = true;
    EXPECT_EQ(Read(), Main().m_records);
}

TEST_F(RepositoryTest, MoreThanTheRecord_CutToItsLength) {
    const RawRecord record = Main().m_records[1];
    Main().m_records[1].insert(Main().m_records[1].end(), {1, 2, 3});
    EXPECT_EQ(Read()[1], record);
}

TEST_F(RepositoryTest, EvenSmallPartsRefused_Error) {
    Main().m_mostBytes = 4;
    EXPECT_EQ(Problem(), "io/1: sensor record 0x0000: 0xCA (cannot return so many bytes)");
}

TEST_F(RepositoryTest, NothingOfARecord_Error) {
    Main().m_bytesGiven = 0;
    EXPECT_EQ(Problem(), "io/1: sensor record 0x0000 ends after 0 bytes");
}

TEST_F(RepositoryTest, ReservationLost_ThatRecordAgain) {
    Main().m_lostReservations = 3;
    EXPECT_EQ(Read(), Main().m_records);
    Main().m_mostBytes = 32;
    int gets = 0;
    Main().m_beforeGet = [&] { Main().m_lostReservations = ++gets == 5 ? 1 : 0; };
    EXPECT_EQ(Read(), Main().m_records) << "in the middle of a record";
}

TEST_F(RepositoryTest, ReservationsNeverHold_Error) {
    Main().m_lostReservations = 1000;
    EXPECT_EQ(Problem(), "io/1: sensor record 0x0000: the reservation was cancelled 16 times");
    EXPECT_EQ(Main().m_gets, 16U);
}

TEST_F(RepositoryTest, NoReservations_ReadWithoutOne) {
    Main().m_knowsReservations = false;
    Main().m_needsReservation = false;
    Main().m_mostBytes = 32;
    EXPECT_EQ(Read(), Main().m_records);
}

TEST_F(RepositoryTest, Loop_Error) {
    Main().m_nextOf[3] = 2;
    EXPECT_EQ(Problem(), "io/1: the sensor records never end: record 0x0002 comes twice");
    Main().m_nextOf[3] = 3;
    EXPECT_EQ(Problem(), "io/1: the sensor records never end: record 0x0003 comes twice");
}

TEST_F(RepositoryTest, TooManyRecords_Error) {
    while (Main().m_records.size() < 4097) {
        Main().Add({0, 0, 0x51, 0xc0, 1, 1});
    }
    EXPECT_EQ(Problem(), "io/1: there are more than 4096 sensor records");
}

TEST_F(RepositoryTest, Empty_NoRecords) {
    Main().Clear();
    EXPECT_TRUE(Read().empty());
}

TEST_F(RepositoryTest, ChangedWhileItIsRead_ReadAgain) {
    int gets = 0;
    Main().m_beforeGet = [&] {
        if (++gets == 2) {
            Main().Add(FullRecord().Bytes());
        }
    };
    EXPECT_EQ(Read(), Main().m_records);
    EXPECT_EQ(Main().m_records.size(), 4U);
    Main().m_beforeGet = [&] { ++Main().m_changes; };
    EXPECT_EQ(Problem(), "io/1: the sensor records changed each of 3 times that they were read");
}

TEST_F(RepositoryTest, ControllerWithoutRepository_None) {
    m_controller.m_main.reset();
    EXPECT_FALSE(ReadRepository(m_controller, RepositoryKind_e::main, "io/1"));
    EXPECT_FALSE(ReadStamp(m_controller, RepositoryKind_e::device, "io/1"));
}

TEST_F(RepositoryTest, BadAnswers_Errors) {
    m_controller.m_fixed[{0x0a, 0x20}] = {0xd0, {}};
    EXPECT_EQ(Problem(), "io/1: Get SDR Repository Info: 0xD0 (sensor records are being updated)");
    m_controller.m_fixed[{0x0a, 0x20}] = {0, {0x51, 3, 0, 0, 0}};
    EXPECT_EQ(Problem(), "io/1: Get SDR Repository Info: the reply has 5 bytes instead of 13");
    m_controller.m_fixed.clear();
    m_controller.m_fixed[{0x0a, 0x22}] = {0, {1}};
    EXPECT_EQ(Problem(), "io/1: Reserve SDR Repository: the reply has 1 bytes instead of 2");
    m_controller.m_fixed.clear();
    m_controller.m_fixed[{0x0a, 0x23}] = {0, {}};
    EXPECT_EQ(Problem(), "io/1: Get SDR: the reply has 0 bytes instead of 2");
    m_controller.m_fixed[{0x0a, 0x23}] = {0xc0, {}};
    EXPECT_EQ(Problem(), "io/1: sensor record 0x0000: 0xC0 (busy)");
}

TEST_F(RepositoryTest, DeviceRecords_TheirOwnCommands) {
    m_controller.m_device.emplace();
    m_controller.m_device->Add(CompactRecord().Bytes());
    const auto repository = ReadRepository(m_controller, RepositoryKind_e::device, "io/1");
    ASSERT_TRUE(repository);
    EXPECT_EQ(repository->records, m_controller.m_device->m_records);
    EXPECT_EQ(Main().m_gets, 0U);
}

TEST_F(RepositoryTest, DeviceRecordsOfSeveralUnits_EachOnce) {
    FakeRepository& device = m_controller.m_device.emplace();
    device.Add(CompactRecord().Bytes());
    device.Add(FullRecord().Bytes());
    device.m_deviceFlags = 0x83;
    const auto units = [&] { return ReadRepository(m_controller, RepositoryKind_e::device, "io/1")->records; };
    EXPECT_EQ(units(), device.m_records) << "both units give all";
    m_controller.m_secondDevice.emplace();
    EXPECT_EQ(units(), device.m_records) << "the second one has none";
    FullRecord record;
    record.lun = 1;
    m_controller.m_secondDevice->Add(record.Bytes());
    EXPECT_EQ(units(), (std::vector<RawRecord>{device.m_records[0], device.m_records[1],
                                               m_controller.m_secondDevice->m_records[0]}));
}

TEST_F(RepositoryTest, Stamp_ChangesWithTheRecordsOnly) {
    const auto stamp = ReadStamp(m_controller, RepositoryKind_e::main, "io/1");
    ASSERT_TRUE(stamp);
    auto info = Main().Info();
    info.data[3] = 0x12;  // free space
    m_controller.m_fixed[{0x0a, 0x20}] = info;
    EXPECT_EQ(ReadStamp(m_controller, RepositoryKind_e::main, "io/1"), stamp);
    for (const std::size_t byte : {0, 1, 2, 5, 8, 9, 12}) {
        auto changed = Main().Info();
        ++changed.data[byte];
        m_controller.m_fixed[{0x0a, 0x20}] = changed;
        EXPECT_NE(ReadStamp(m_controller, RepositoryKind_e::main, "io/1"), stamp) << byte;
    }
}

TEST_F(RepositoryTest, Store_ReadsOnceUntilItChanges) {
    bmc::ipmi::RepositoryStore store(m_controller, "10.0.0.10:623");
    const auto first = store.Read();
    ASSERT_TRUE(first);
    EXPECT_EQ(store.Read(), first);
    EXPECT_EQ(Main().m_gets, 3U);
    Main().Add(FullRecord().Bytes());
    const auto second = store.Read();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->records.size(), 4U);
    EXPECT_EQ(first->records.size(), 3U) << "who holds the former one keeps it";
    m_controller.m_main.reset();
    EXPECT_FALSE(store.Read());
}

}  // namespace
