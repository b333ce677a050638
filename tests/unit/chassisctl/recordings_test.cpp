#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "tools/chassisctl/board_writer.h"
#include "tools/chassisctl/sensor_table.h"

// The recordings of real machines, every one of them.

namespace {

using chassisctl::ReadSensorTable;
using chassisctl::SensorTable;
using chassisctl::WriteBoard;

const std::string c_recordings = std::string(ZELKOR_TEST_DATA) + "/recordings/";

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << path;
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// Counted in the file: analog rows, and rows that are discrete or no row at all.
struct Recording {
    const char* name;
    std::size_t sensors;
    std::size_t leftOut;
};

void PrintTo(const Recording& recording, std::ostream* out) {
    *out << recording.name;
}

class TableRecording : public testing::TestWithParam<Recording> {};

TEST_P(TableRecording, EveryAnalogRowBecomesASensor) {
    const SensorTable table = ReadSensorTable(ReadText(c_recordings + "ipmitool/" + GetParam().name + ".txt"));
    EXPECT_EQ(table.sensors.size(), GetParam().sensors);
    EXPECT_EQ(table.CountLeftOut(), GetParam().leftOut);
}

TEST_P(TableRecording, TableAndCsvGiveTheSameBoard) {
    // But for the name, which only the CSV has inside: it is given to both here.
    const SensorTable table = ReadSensorTable(ReadText(c_recordings + "ipmitool/" + GetParam().name + ".txt"));
    const SensorTable csv = ReadSensorTable(ReadText(c_recordings + "csv/" + GetParam().name + ".csv"));
    EXPECT_EQ(csv.CountLeftOut(), 0U);
    EXPECT_EQ(csv.board, std::string(GetParam().name).substr(3));
    chassisctl::BoardOptions options;
    options.name = csv.board;
    EXPECT_EQ(WriteBoard(table, options), WriteBoard(csv, options));
    options.live = 2.0;
    EXPECT_EQ(WriteBoard(table, options), WriteBoard(csv, options));
}

INSTANTIATE_TEST_SUITE_P(
    Recordings, TableRecording,
    testing::Values(Recording{"01-dell-c6100", 19, 15}, Recording{"02-hp-g6", 20, 9}, Recording{"03-hp-gen8", 39, 3},
                    Recording{"04-supermicro-x8", 37, 2}, Recording{"05-hp-gen8-small", 14, 4},
                    Recording{"06-amd-sr5650-off", 27, 2}, Recording{"07-hp-proliant-ml110-g5", 12, 0},
                    Recording{"08-hp-proliant-dl160", 1, 0}, Recording{"12-sonic-switch", 5, 0},
                    Recording{"13-intel-s2600-standby", 37, 6}, Recording{"14-cmm-chassis", 19, 8},
                    Recording{"15-dell-comma", 15, 5}, Recording{"16-openpower", 11, 0},
                    Recording{"17-asrock-ep2c602", 28, 2}, Recording{"19-ibm-x3650", 13, 5},
                    Recording{"20-nec-express5800", 55, 7}, Recording{"21-gpu-server-epyc", 70, 5},
                    Recording{"23-switch-psu-pulled", 21, 2}, Recording{"24-hpe-gen10-edge", 53, 9},
                    Recording{"26-cisco-ucs-standby", 68, 7}, Recording{"28-supermicro-comma", 16, 0},
                    Recording{"32-megarac-partial", 5, 3}, Recording{"34-power-rainier-partial", 9, 0}));

class NominalRecording : public testing::TestWithParam<Recording> {};

TEST_P(NominalRecording, EveryRowBecomesASensor) {
    for (const char* folder : {"csv/", "nominal/"}) {
        const SensorTable table = ReadSensorTable(ReadText(c_recordings + folder + GetParam().name + ".csv"));
        EXPECT_EQ(table.sensors.size(), GetParam().sensors) << folder;
        EXPECT_EQ(table.CountLeftOut(), GetParam().leftOut) << folder;
    }
}

INSTANTIATE_TEST_SUITE_P(Recordings, NominalRecording,
                         testing::Values(Recording{"40-v-ibm-planar", 30, 0}, Recording{"41-v-intel-bb", 13, 0},
                                         Recording{"42-v-dell-fanmod", 4, 0}, Recording{"43-v-excerpts", 5, 0}));

TEST(Recordings, NominalColumn_IsTheNominalReading) {
    const SensorTable table = ReadSensorTable(ReadText(c_recordings + "nominal/40-v-ibm-planar.csv"));
    EXPECT_EQ(table.sensors.at(0).nominal, 16.0);
    EXPECT_EQ(table.sensors.at(11).nominal, std::nullopt);
    EXPECT_EQ(table.sensors.at(29).nominal, 4.995);
}

TEST(Recordings, PoweredOffMachine_HasNoReadingAtAll) {
    const SensorTable table = ReadSensorTable(ReadText(c_recordings + "ipmitool/06-amd-sr5650-off.txt"));
    for (const auto& sensor : table.sensors) {
        EXPECT_EQ(sensor.value, std::nullopt) << sensor.name;
    }
}

TEST(Recordings, InfiniteThreshold_IsTheOnlyRemarkOfItsFile) {
    const SensorTable table = ReadSensorTable(ReadText(c_recordings + "ipmitool/08-hp-proliant-dl160.txt"));
    ASSERT_EQ(table.remarks.size(), 1U);
    EXPECT_EQ(table.remarks[0].line, 2U);
    EXPECT_EQ(table.remarks[0].reason, "lc \"inf\" left out, not finite");
}

TEST(Recordings, ErrorLine_IsLeftOut) {
    const SensorTable table = ReadSensorTable(ReadText(c_recordings + "ipmitool/32-megarac-partial.txt"));
    EXPECT_EQ(table.remarks.at(0).line, 2U);
    EXPECT_EQ(table.remarks.at(0).reason, "no table row");
    EXPECT_EQ(table.remarks.at(0).name, "IANA PEN registry open failed: No such file or directory");
}

TEST(Recordings, SeriesInTime_IsNoSensorTable) {
    const SensorTable table = ReadSensorTable(ReadText(c_recordings + "series/desktop.csv"));
    EXPECT_TRUE(table.sensors.empty());
    EXPECT_EQ(table.CountLeftOut(), 1123U);
}

TEST(Recordings, EveryFileOfTheFolder_IsTestedHere) {
    std::size_t files = 0;
    for (const char* folder : {"ipmitool", "csv", "nominal", "series"}) {
        for (const auto& entry : std::filesystem::directory_iterator(c_recordings + folder)) {
            files += entry.is_regular_file() ? 1 : 0;
        }
    }
    EXPECT_EQ(files, 23U + 27U + 4U + 1U);
}

TEST(Recordings, Readme_NamesEveryFile) {
    const std::string readme = ReadText(c_recordings + "README.md");
    for (const char* folder : {"ipmitool", "csv", "nominal", "series"}) {
        for (const auto& entry : std::filesystem::directory_iterator(c_recordings + folder)) {
            const std::string name = std::string(folder) + "/" + entry.path().filename().string();
            EXPECT_NE(readme.find("`" + name + "`"), std::string::npos) << name;
        }
    }
}

}  // namespace
