#include "bmc/ipmi/sensor_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bmc/broken_off.h"
#include "fake_link.h"
#include "record_builder.h"
#include "tests/support/expect_text.h"
#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace {

using bmc::SensorId;
using bmc::ipmi::RecordCache;
using bmc::ipmi::RepositoryStore;
using bmc::ipmi::SensorSet;
using bmc::ipmi::Target;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

bmc::ipmi::RawRecord Record(std::uint8_t number, const std::string& name, std::uint8_t owner = 0x20,
                            std::uint8_t channel = 0) {
    FullRecord record;
    record.number = number;
    record.owner = owner;
    record.channel = channel;
    record.nameCode = static_cast<std::uint8_t>(0xc0U | name.size());
    record.name = name;
    return record.Bytes();
}

class SensorSetTest : public testing::Test {
protected:
    SensorSetTest() {
        m_controller.m_main.emplace();
        m_controller.m_main->Add(Record(16, "Inlet"));
        m_controller.m_main->Add(Record(3, "Outlet"));
        m_controller.m_thresholds[16] = {0, {0x3f, 10, 5, 1, 60, 70, 80}};
        m_controller.m_thresholds[3] = {0, {0x3f, 10, 5, 1, 61, 71, 81}};
    }

    std::unique_ptr<SensorSet> Make(FakeLink& own, Target target = {}, const std::string& label = "io/1") {
        return std::make_unique<SensorSet>(
            bmc::ipmi::SensorSetPlace{label, "10.0.0.11:623", target}, own, m_store, m_cache,
            [this](qstd::LogLevel_e, const std::string& text) { m_log.push_back(text); });
    }
    std::unique_ptr<SensorSet> Make() { return Make(m_controller); }
    std::unique_ptr<SensorSet> Loaded() {
        auto set = Make();
        set->Load();
        return set;
    }

    static std::vector<int> Ids(const SensorSet& set) {
        std::vector<int> ids;
        for (const SensorId& id : set.Ids()) {
            ids.push_back(id.GetValue());
        }
        return ids;
    }

    test::TempFolder m_folder;
    std::vector<std::string> m_log;
    FakeLink m_controller;
    RepositoryStore m_store{m_controller, "10.0.0.11:623"};
    RecordCache m_cache{m_folder.Path(), [this](qstd::LogLevel_e, const std::string& text) { m_log.push_back(text); }};
};

TEST_F(SensorSetTest, Loaded_SensorsInTheOrderOfTheRecords_WithThresholds) {
    auto set = Make();
    EXPECT_THAT(Ids(*set), IsEmpty());
    EXPECT_EQ(set->Find(SensorId(16)), nullptr);
    EXPECT_FALSE(set->IsComplete());
    set->Load();
    EXPECT_THAT(Ids(*set), ElementsAre(16, 3));
    ASSERT_NE(set->Find(SensorId(3)), nullptr);
    EXPECT_EQ(set->Find(SensorId(3))->GetName(), "Outlet");
    EXPECT_EQ(set->Find(SensorId(3))->GetUpperNonRecoverable().Converted(), 81.0);
    EXPECT_EQ(set->Find(SensorId(4)), nullptr);
    EXPECT_TRUE(set->IsComplete());
    EXPECT_THAT(m_log, IsEmpty());
    m_controller.Forget();
    set->Load();
    EXPECT_THAT(m_controller.m_requests, IsEmpty()) << "once";
}

TEST_F(SensorSetTest, RecordsOfOthers_NotTheBoards) {
    m_controller.m_main->Add(Record(20, "Satellite", 0x84));
    m_controller.m_main->Add(Record(21, "Software", 0x41));
    EXPECT_THAT(Ids(*Loaded()), ElementsAre(16, 3));
}

TEST_F(SensorSetTest, Satellite_ItsRecordsInTheControllersRepository) {
    m_controller.m_main->Add(Record(20, "Satellite", 0x84));
    m_controller.m_main->Add(Record(21, "Other bus", 0x84, 1));
    FakeLink satellite;
    satellite.m_readings[20] = {0, {33, 0x40}};
    auto set = Make(satellite, {0x84, 0});
    set->Load();
    EXPECT_THAT(Ids(*set), ElementsAre(20));
    EXPECT_EQ(set->Find(SensorId(20))->Read().Converted(), 33.0) << "asked through its own link";
    auto other = Make(satellite, {0x84, 1}, "io/2");
    other->Load();
    EXPECT_THAT(Ids(*other), ElementsAre(21));
    EXPECT_EQ(m_controller.m_main->m_gets, 4U) << "one reading for both";
}

TEST_F(SensorSetTest, SatelliteWithoutRecordsThere_ItsDeviceRecords) {
    FakeLink satellite;
    satellite.m_deviceId[1] |= 0x80U;
    satellite.m_device.emplace();
    satellite.m_device->Add(Record(30, "Device", 0x84));
    satellite.m_main.emplace();
    satellite.m_main->Add(Record(31, "Main", 0x84));
    auto set = Make(satellite, {0x84, 0});
    set->Load();
    EXPECT_THAT(Ids(*set), ElementsAre(30));
}

TEST_F(SensorSetTest, SatelliteThatProvidesNoDeviceRecords_ItsOwnMainRepository) {
    FakeLink satellite;
    satellite.m_main.emplace();
    satellite.m_main->Add(Record(31, "Main", 0x84));
    satellite.m_main->Add(Record(32, "Self", 0x20));
    satellite.m_main->Add(Record(33, "Another", 0x86));
    auto set = Make(satellite, {0x84, 0});
    set->Load();
    EXPECT_THAT(Ids(*set), ElementsAre(31, 32));
}

TEST_F(SensorSetTest, ControllerWithDeviceRecordsOnly_TheyAreItsSensors) {
    m_controller.m_main.reset();
    m_controller.m_deviceId[1] |= 0x80U;
    m_controller.m_device.emplace();
    m_controller.m_device->Add(Record(30, "Device", 0x82));
    EXPECT_THAT(Ids(*Loaded()), ElementsAre(30));
}

TEST_F(SensorSetTest, NoRepositoryAnywhere_NoSensors) {
    m_controller.m_main.reset();
    EXPECT_THAT(Ids(*Loaded()), IsEmpty());
    EXPECT_THAT(m_log, IsEmpty());
}

TEST_F(SensorSetTest, SecondStart_RecordsFromTheCache) {
    m_controller.m_guid = std::vector<std::uint8_t>(16, 7);
    Loaded();
    m_controller.Forget();
    auto set = Loaded();
    EXPECT_THAT(Ids(*set), ElementsAre(16, 3));
    EXPECT_TRUE(set->IsComplete());
    EXPECT_EQ(m_controller.Count(0x0a, 0x23), 0U);
    EXPECT_THAT(m_controller.m_requests, SizeIs(3 + 2)) << "device id, GUID and stamp; thresholds";
}

TEST_F(SensorSetTest, SecondStart_AnythingChanged_RecordsReadAnew) {
    m_controller.m_guid = std::vector<std::uint8_t>(16, 7);
    const std::vector<std::function<void()>> changes{
        [&] { m_controller.m_main->Add(Record(4, "New")); },
        [&] { m_controller.m_deviceId[9] = 9; },
        [&] { m_controller.m_deviceId[3] = 0x46; },
        [&] { (*m_controller.m_guid)[3] = 1; },
        [&] { m_controller.m_guid.reset(); },
        [&] { test::WriteFile(m_folder.Path("io_1.sdr"), "rubbish"); },
    };
    Loaded();
    for (std::size_t i = 0; i < changes.size(); ++i) {
        changes[i]();
        RepositoryStore store(m_controller, "10.0.0.11:623");  // of another start
        m_controller.Forget();
        SensorSet set({"io/1", "10.0.0.11:623", {}}, m_controller, store, m_cache, {});
        set.Load();
        EXPECT_EQ(m_controller.Count(0x0a, 0x23), m_controller.m_main->m_records.size()) << i;
    }
}

TEST_F(SensorSetTest, FirmwareBeingWritten_SameBoard) {
    Loaded();
    m_controller.Forget();
    m_controller.m_deviceId[2] |= 0x80U;
    Loaded();
    EXPECT_EQ(m_controller.Count(0x0a, 0x23), 0U);
}

TEST_F(SensorSetTest, SilentAtTheStart_SensorsOfTheCache_ProvedLater) {
    Loaded();
    m_controller.m_isSilent = true;
    auto set = Loaded();
    EXPECT_THAT(m_log, ElementsAre("The sensors of board io/1 are those that it had when it was last asked, without "
                                   "thresholds: io/1: no answer"));
    EXPECT_THAT(Ids(*set), ElementsAre(16, 3));
    EXPECT_FALSE(set->IsComplete());
    EXPECT_THROW(set->Find(SensorId(16))->Read(), bmc::ipmi::NoAnswer);
    EXPECT_FALSE(set->Find(SensorId(16))->GetUpperCritical().IsValid());
    EXPECT_THROW(set->Refresh(false), bmc::ipmi::NoAnswer);

    m_controller.m_isSilent = false;
    m_controller.Forget();
    set->Refresh(false);
    EXPECT_TRUE(set->IsComplete());
    EXPECT_EQ(set->Find(SensorId(16))->GetUpperCritical().Converted(), 70.0);
    EXPECT_EQ(m_controller.Count(0x0a, 0x20), 1U) << "looked whether they are still true";
}

TEST_F(SensorSetTest, SilentAtTheStart_NoCache_RaisesAndMayBeLoadedAgain) {
    m_controller.m_isSilent = true;
    auto set = Make();
    EXPECT_THROW(set->Load(), bmc::ipmi::NoAnswer);
    EXPECT_THROW(set->Refresh(true), bmc::ipmi::NoAnswer);
    EXPECT_THAT(Ids(*set), IsEmpty());
    m_controller.m_isSilent = false;
    set->Refresh(false);
    EXPECT_THAT(Ids(*set), ElementsAre(16, 3));
}

TEST_F(SensorSetTest, ThresholdsThatCannotBeRead_OthersAreAndTheSensorsStay) {
    m_controller.m_thresholds[16] = {0xc0, {}};
    auto set = Loaded();
    EXPECT_THAT(m_log, ElementsAre("Not all thresholds of board io/1 could be read: io/1 sensor 16 (Inlet): Get Sensor "
                                   "Thresholds: 0xC0 (busy)"));
    EXPECT_FALSE(set->IsComplete());
    EXPECT_FALSE(set->Find(SensorId(16))->GetUpperCritical().IsValid());
    EXPECT_EQ(set->Find(SensorId(3))->GetUpperCritical().Converted(), 71.0);
    EXPECT_EQ(test::TextOf([&] { set->Refresh(false); }), "io/1 sensor 16 (Inlet): Get Sensor Thresholds: 0xC0 (busy)");
    m_controller.m_thresholds[16] = {0, {0x3f, 10, 5, 1, 60, 70, 80}};
    set->Refresh(false);
    EXPECT_TRUE(set->IsComplete());
    EXPECT_EQ(set->Find(SensorId(16))->GetUpperCritical().Converted(), 70.0);
}

TEST_F(SensorSetTest, Thresholds_RefreshedWithoutLookingAtTheRecords) {
    auto set = Loaded();
    m_controller.m_thresholds[16] = {0, {0x3f, 10, 5, 1, 60, 75, 80}};
    m_controller.Forget();
    set->Refresh(false);
    EXPECT_EQ(set->Find(SensorId(16))->GetUpperCritical().Converted(), 75.0);
    EXPECT_THAT(m_controller.m_requests, SizeIs(2));
}

TEST_F(SensorSetTest, ManySensors_BatchesOf64) {
    for (std::uint8_t number = 100; number < 200; ++number) {
        m_controller.m_main->Add(Record(number, "Many"));
    }
    Loaded();
    EXPECT_THAT(m_controller.m_batchSizes, ElementsAre(64, 38));
}

TEST_F(SensorSetTest, RecordsChanged_SameStay_OthersGo_NewOnesWait) {
    auto set = Loaded();
    auto* const inlet = set->Find(SensorId(16));
    auto* const outlet = set->Find(SensorId(3));
    m_controller.m_main->Clear();
    m_controller.m_main->Add(Record(7, "New"));
    m_controller.m_main->Add(Record(16, "Inlet"));
    m_controller.m_main->Add(Record(3, "Outlet 2"));
    set->Refresh(false);
    EXPECT_THAT(Ids(*set), ElementsAre(16, 3)) << "nobody looked";
    set->Refresh(true);
    EXPECT_THAT(m_log,
                ElementsAre("The sensor records of board io/1 have changed; gone or another one now: 3 (Outlet); "
                            "new, used after a restart of the service: 7 (New), 3 (Outlet 2)"));
    EXPECT_THAT(Ids(*set), ElementsAre(16));
    EXPECT_EQ(set->Find(SensorId(16)), inlet);
    EXPECT_EQ(set->Find(SensorId(3)), nullptr);
    EXPECT_EQ(set->Find(SensorId(7)), nullptr);
    EXPECT_THROW(outlet->Read(), qstd::Exception) << "who holds it is told";
    set->Refresh(true);
    EXPECT_THAT(m_log, SizeIs(1)) << "once";

    m_controller.m_main->Clear();
    m_controller.m_main->Add(Record(16, "Inlet"));
    m_controller.m_main->Add(Record(3, "Outlet"));
    set->Refresh(true);
    EXPECT_EQ(set->Find(SensorId(3)), outlet);
    EXPECT_THAT(m_log.back(), HasSubstr("; back: 3 (Outlet)"));
    EXPECT_THAT(Ids(*Loaded()), ElementsAre(16, 3)) << "the next start has the new records";
}

TEST_F(SensorSetTest, ManyChanges_FirstOnesNamed) {
    auto set = Loaded();
    for (std::uint8_t number = 100; number < 150; ++number) {
        m_controller.m_main->Add(Record(number, "S"));
    }
    set->Refresh(true);
    EXPECT_THAT(m_log, ElementsAre(testing::EndsWith("119 (S) and 30 more")));
}

TEST_F(SensorSetTest, NumberTwice_FirstHolds_WarningNamesTheOther) {
    m_controller.m_main->Add(Record(16, "Again"));
    auto set = Loaded();
    EXPECT_THAT(Ids(*set), ElementsAre(16, 3));
    EXPECT_EQ(set->Find(SensorId(16))->GetName(), "Inlet");
    EXPECT_THAT(m_log, ElementsAre("Sensor numbers come twice in the records of board io/1, the second one is not "
                                   "used: 16 (Again)"));
    ++m_controller.m_main->m_changes;
    set->Refresh(true);
    EXPECT_THAT(m_log, SizeIs(1)) << "it is not a new one";
}

TEST_F(SensorSetTest, ServiceStops_NoProblemOfTheBoard) {
    Loaded();
    class Stopping : public FakeLink {
    public:
        Response Execute(const Request&, bmc::ipmi::Purpose_e) override { throw bmc::BrokenOff("io/1"); }
    } stopping;
    auto set = Make(stopping);
    EXPECT_THROW(set->Load(), bmc::BrokenOff);
    EXPECT_THAT(m_log, IsEmpty());
    EXPECT_THAT(Ids(*set), IsEmpty());
}

TEST_F(SensorSetTest, ManyThreads_OneSetOfSensors) {
    auto set = Make();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 20; ++round) {
                if (i % 2 == 0) {
                    set->Refresh(round % 5 == 0);
                }
                for (const SensorId& id : set->Ids()) {
                    if (const auto* const sensor = set->Find(id)) {
                        sensor->GetUpperCritical();
                    }
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(Ids(*set), ElementsAre(16, 3));
    EXPECT_EQ(m_controller.m_main->m_gets, 2U);
}

}  // namespace
