#include "tools/chassisctl/sensor_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/chassisctl/sensor_text.h"

namespace {

using bmc::SensorType_e;
using chassisctl::Cell_e;
using chassisctl::ReadNumber;
using chassisctl::ReadSensorTable;
using chassisctl::SensorRow;
using chassisctl::SensorTable;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;
using testing::SizeIs;

/// A row of the ten-column table with no threshold.
std::string Row(const std::string& name, const std::string& value, const std::string& units) {
    return name + " | " + value + " | " + units + " | ok | na | na | na | na | na | na\n";
}

const std::string c_csvHeader = "board,sensor_id,name,type,units,value,lnr,lc,lnc,unc,uc,unr\n";

/// The only remark of a table that has no sensor.
std::string OnlyReason(const std::string& text) {
    const SensorTable table = ReadSensorTable(text);
    EXPECT_THAT(table.sensors, IsEmpty());
    EXPECT_THAT(table.remarks, SizeIs(1));
    return table.remarks.empty() ? std::string() : table.remarks[0].reason;
}

TEST(SensorTable, PlainRow_EveryColumnIsTaken) {
    const SensorTable table = ReadSensorTable(
        "PS 12V           | 12.152     | Volts      | ok    | 10.602    | 10.850    | 11.160    | 12.834    | 13.144   "
        " "
        "| 13.392    \n");
    ASSERT_THAT(table.sensors, SizeIs(1));
    const SensorRow& row = table.sensors[0];
    EXPECT_EQ(row.id, 1);
    EXPECT_EQ(row.name, "PS 12V");
    EXPECT_EQ(row.type, SensorType_e::voltage);
    EXPECT_EQ(row.units, "Volts");
    EXPECT_EQ(row.value, 12.152);
    EXPECT_THAT(row.thresholds, ElementsAre(10.602, 10.85, 11.16, 12.834, 13.144, 13.392));
    EXPECT_EQ(row.nominal, std::nullopt);
    EXPECT_THAT(table.remarks, IsEmpty());
}

TEST(SensorTable, Units_GiveTheTypeInAnyCase) {
    const SensorTable table = ReadSensorTable(Row("a", "1", "degrees C") + Row("b", "1", "Volts") +
                                              Row("c", "1", "Amps") + Row("d", "1", "RPM") + Row("e", "1", "Watts") +
                                              Row("f", "1", "watts") + Row("g", "1", "percent") + Row("h", "1", "CFM") +
                                              Row("i", "1", "feet") + Row("j", "1", "unspecified") + Row("k", "1", ""));
    std::vector<SensorType_e> types;
    for (const SensorRow& row : table.sensors) {
        types.push_back(row.type);
    }
    EXPECT_THAT(
        types, ElementsAre(SensorType_e::temperature, SensorType_e::voltage, SensorType_e::current, SensorType_e::fan,
                           SensorType_e::power_unit, SensorType_e::power_unit, SensorType_e::other, SensorType_e::other,
                           SensorType_e::other, SensorType_e::other, SensorType_e::other));
    EXPECT_EQ(table.sensors[5].units, "watts");
}

TEST(SensorTable, ReadingMissing_SensorStays) {
    for (const char* value : {"na", "NA", "Disabled", "disabled", "n/a", ""}) {
        const SensorTable table = ReadSensorTable(Row("Fan4", value, "RPM"));
        ASSERT_THAT(table.sensors, SizeIs(1)) << value;
        EXPECT_EQ(table.sensors[0].value, std::nullopt) << value;
        EXPECT_THAT(table.remarks, IsEmpty()) << value;
    }
}

TEST(SensorTable, DecimalComma_IsAPoint) {
    const SensorTable table =
        ReadSensorTable("Inlet Temp | 23,000 | degrees C | ok | na | -7,000 | 3,000 | 42,000 | 47,500 | na\n");
    EXPECT_EQ(table.sensors[0].value, 23.0);
    EXPECT_THAT(table.sensors[0].thresholds, ElementsAre(std::nullopt, -7.0, 3.0, 42.0, 47.5, std::nullopt));
}

TEST(SensorTable, ThresholdsOutOfOrderOrEqual_AreKeptAsTheyAre) {
    const SensorTable table = ReadSensorTable(
        "CPU FAN | 1434.309 | RPM | ok | 5537.099 | 4960.317 | 4859.086 | na | 937.383 | na\n"
        "-12V | -11.9 | Volts | ok | -13.5 | -13 | -12.5 | -11 | -10.5 | -10\n"
        "02-CPU 1 | 40.000 | degrees C | ok | na | na | na | na | 70.000 | 0.000\n");
    EXPECT_THAT(table.sensors[0].thresholds,
                ElementsAre(5537.099, 4960.317, 4859.086, std::nullopt, 937.383, std::nullopt));
    EXPECT_THAT(table.sensors[1].thresholds, ElementsAre(-13.5, -13.0, -12.5, -11.0, -10.5, -10.0));
    EXPECT_EQ(table.sensors[1].value, -11.9);
    EXPECT_THAT(table.sensors[2].thresholds[5], Optional(0.0));
}

TEST(SensorTable, NoneWrittenAsANumber_IsThatNumber) {
    const SensorTable table = ReadSensorTable("a | 1 | Volts | ok | 0 | -64 | 0.000 | 2.55 | 127.000 | 255.000\n");
    EXPECT_THAT(table.sensors[0].thresholds, ElementsAre(0.0, -64.0, 0.0, 2.55, 127.0, 255.0));
}

TEST(SensorTable, ThresholdNotFinite_IsLeftOutWithARemark) {
    for (const char* threshold : {"inf", "-inf", "nan", "1e999"}) {
        const SensorTable table = ReadSensorTable("FAN1 ROTOR1 | 7680.492 | RPM | ok | na | " + std::string(threshold) +
                                                  " | na | na | 1000.400 | na\n");
        ASSERT_THAT(table.sensors, SizeIs(1));
        EXPECT_EQ(table.sensors[0].thresholds[1], std::nullopt);
        ASSERT_THAT(table.remarks, SizeIs(1));
        EXPECT_EQ(table.remarks[0].reason, "lc \"" + std::string(threshold) + "\" left out, not finite");
        EXPECT_EQ(table.remarks[0].name, "FAN1 ROTOR1");
        EXPECT_EQ(table.remarks[0].line, 1U);
        EXPECT_EQ(table.CountLeftOut(), 0U);
    }
}

TEST(SensorTable, ThresholdThatIsNoNumber_IsLeftOutWithARemark) {
    const SensorTable table = ReadSensorTable("a | 1 | Volts | ok | na | na | na | na | high | na\n");
    EXPECT_EQ(table.sensors[0].thresholds[4], std::nullopt);
    EXPECT_EQ(table.remarks[0].reason, "uc \"high\" left out, not a number");
}

TEST(SensorTable, ValueNotFinite_IsNotAvailableWithARemark) {
    const SensorTable table = ReadSensorTable(Row("a", "inf", "Volts"));
    EXPECT_EQ(table.sensors[0].value, std::nullopt);
    EXPECT_EQ(table.remarks[0].reason, "value \"inf\" is not finite, taken as not available");
    EXPECT_EQ(table.CountLeftOut(), 0U);
}

TEST(SensorTable, NamesWithSignsBlanksAndUtf8_AreKept) {
    const SensorTable table = ReadSensorTable(Row("PS1 Curr Out %", "0", "percent") + Row("ATX+5VSB", "5", "Volts") +
                                              Row("VCCMA/B", "1.5", "Volts") + Row("Zul\u00fcfter \u2103", "1", "RPM") +
                                              Row("<\"&'>", "1", "RPM"));
    std::vector<std::string> names;
    for (const SensorRow& row : table.sensors) {
        names.push_back(row.name);
    }
    EXPECT_THAT(names, ElementsAre("PS1 Curr Out %", "ATX+5VSB", "VCCMA/B", "Zul\u00fcfter \u2103", "<\"&'>"));
}

TEST(SensorTable, SameNameTwice_TwoSensors) {
    const SensorTable table = ReadSensorTable(Row("Temp", "33", "degrees C") + Row("Temp", "35", "degrees C"));
    ASSERT_THAT(table.sensors, SizeIs(2));
    EXPECT_EQ(table.sensors[0].id, 1);
    EXPECT_EQ(table.sensors[1].id, 2);
}

TEST(SensorTable, DiscreteRow_IsLeftOutAndNotCounted) {
    const SensorTable table = ReadSensorTable("CPU1Status | 0x0 | discrete | 0x0080| na | na | na | na | na | na\n" +
                                              Row("Temp", "33", "degrees C"));
    ASSERT_THAT(table.sensors, SizeIs(1));
    EXPECT_EQ(table.sensors[0].id, 1);
    ASSERT_THAT(table.remarks, SizeIs(1));
    EXPECT_EQ(table.remarks[0].reason, "discrete");
    EXPECT_EQ(table.remarks[0].name, "CPU1Status");
    EXPECT_TRUE(table.remarks[0].isLeftOut);
}

TEST(SensorTable, ErrorLineBetweenRows_IsLeftOutWithItsLine) {
    const SensorTable table =
        ReadSensorTable(Row("a", "1", "RPM") + "Get SDR 0034 command failed\n" + Row("b", "2", "RPM"));
    EXPECT_THAT(table.sensors, SizeIs(2));
    EXPECT_EQ(table.sensors[1].id, 2);
    ASSERT_THAT(table.remarks, SizeIs(1));
    EXPECT_EQ(table.remarks[0].line, 2U);
    EXPECT_EQ(table.remarks[0].reason, "no table row");
    EXPECT_EQ(table.remarks[0].name, "Get SDR 0034 command failed");
}

TEST(SensorTable, WrongNumberOfColumns_IsLeftOut) {
    EXPECT_EQ(OnlyReason("Fan | 1 | RPM | ok\n"), "malformed, 4 columns instead of 10");
    EXPECT_EQ(OnlyReason("Fan | 1 | RPM | ok | na | na | na | na | na | na | na\n"),
              "malformed, 11 columns instead of 10");
    EXPECT_EQ(ReadSensorTable(c_csvHeader + "b,1,n,fan,RPM,1,,,,,\n").remarks[0].reason,
              "malformed, 11 columns instead of 12");
}

TEST(SensorTable, ValueThatIsNoNumber_IsLeftOut) {
    EXPECT_EQ(OnlyReason(Row("a", "0x0", "Volts")), "malformed, value \"0x0\" is not a number");
    EXPECT_EQ(OnlyReason(Row("a", "12 V", "Volts")), "malformed, value \"12 V\" is not a number");
    EXPECT_EQ(OnlyReason(Row("a", "1,234.5", "Volts")), "malformed, value \"1,234.5\" is not a number");
}

TEST(SensorTable, NameThatCannotBeWritten_IsLeftOutAndShownWithQuestionMarks) {
    EXPECT_EQ(OnlyReason(Row("", "1", "RPM")), "name missing");
    const SensorTable table = ReadSensorTable(Row("a\x1b[31m", "1", "RPM") + Row("b\xff", "1", "RPM") +
                                              Row("c\xc0\xaf", "1", "RPM") + Row("d\xed\xa0\x80", "1", "RPM") +
                                              Row("e\xef\xbf\xbf", "1", "RPM") + Row("f\xe2\x84", "1", "RPM"));
    EXPECT_THAT(table.sensors, IsEmpty());
    std::vector<std::string> said;
    for (const auto& remark : table.remarks) {
        said.push_back(remark.reason + ": " + remark.name);
    }
    EXPECT_THAT(said, ElementsAre("name holds a control character: a?[31m", "name not valid UTF-8: b?",
                                  "name not valid UTF-8: c??", "name not valid UTF-8: d???",
                                  "name holds a character that XML does not have: e?", "name not valid UTF-8: f??"));
}

TEST(SensorTable, AnalogRowLeftOut_KeepsItsNumber) {
    const SensorTable table = ReadSensorTable(Row("a", "?", "RPM") + Row("b", "2", "RPM"));
    ASSERT_THAT(table.sensors, SizeIs(1));
    EXPECT_EQ(table.sensors[0].id, 2);
}

TEST(SensorTable, CommentsEmptyLinesAndCarriageReturns_ArePassedOver) {
    const SensorTable table =
        ReadSensorTable("\xef\xbb\xbf# machine and origin\r\n\r\n   \n# a | b\r\n" + Row("#1 Fan", "1", "RPM"));
    ASSERT_THAT(table.sensors, SizeIs(1));
    EXPECT_EQ(table.sensors[0].name, "#1 Fan");
    EXPECT_THAT(table.remarks, IsEmpty());
}

TEST(SensorTable, LastLineWithoutNewline_IsRead) {
    std::string text = Row("a", "1", "RPM");
    text.pop_back();
    EXPECT_THAT(ReadSensorTable(text).sensors, SizeIs(1));
}

TEST(SensorTable, Empty_NothingAtAll) {
    EXPECT_THAT(ReadSensorTable("").sensors, IsEmpty());
    EXPECT_THAT(ReadSensorTable("").remarks, IsEmpty());
}

TEST(SensorTable, Csv_IdsTypesAndBoardAreTaken) {
    const SensorTable table = ReadSensorTable(c_csvHeader +
                                              "psu,16,Output,power,Watts,12.5,,,,,100,\r\n"
                                              "psu,-3,Battery,battery,,,,,,,,\r\n");
    EXPECT_EQ(table.board, "psu");
    ASSERT_THAT(table.sensors, SizeIs(2));
    EXPECT_EQ(table.sensors[0].id, 16);
    EXPECT_EQ(table.sensors[0].type, SensorType_e::power_unit);
    EXPECT_THAT(table.sensors[0].thresholds[4], Optional(100.0));
    EXPECT_EQ(table.sensors[1].id, -3);
    EXPECT_EQ(table.sensors[1].type, SensorType_e::battery);
    EXPECT_EQ(table.sensors[1].units, "");
    EXPECT_EQ(table.sensors[1].value, std::nullopt);
}

TEST(SensorTable, CsvColumnsInAnyOrder_OnlyThreeAreNeeded) {
    const SensorTable table =
        ReadSensorTable("value,nominal,name,sensor_id,units,entity\n\"1,5\",2,\"a, \"\"b\"\"\",7,Volts,x\n");
    ASSERT_THAT(table.sensors, SizeIs(1));
    EXPECT_EQ(table.sensors[0].name, "a, \"b\"");
    EXPECT_EQ(table.sensors[0].value, 1.5);
    EXPECT_EQ(table.sensors[0].nominal, 2.0);
    EXPECT_EQ(table.sensors[0].type, SensorType_e::voltage);
}

TEST(SensorTable, CsvRowsThatCannotBeTaken_AreLeftOut) {
    const SensorTable table = ReadSensorTable(c_csvHeader +
                                              "b,1,a,fan,RPM,1,,,,,,\n"
                                              "b,1,twice,fan,RPM,1,,,,,,\n"
                                              "b,x,word,fan,RPM,1,,,,,,\n"
                                              "b,99999999999,large,fan,RPM,1,,,,,,\n"
                                              "b,2,odd,heat,RPM,1,,,,,,\n"
                                              "b,3,state,discrete,,0x1,,,,,,\n"
                                              "c,4,other,fan,RPM,1,,,,,,\n");
    EXPECT_THAT(table.sensors, SizeIs(1));
    std::vector<std::string> said;
    for (const auto& remark : table.remarks) {
        said.push_back(std::to_string(remark.line) + ": " + remark.reason + ": " + remark.name);
    }
    EXPECT_THAT(said, ElementsAre("3: duplicate sensor id 1: twice",
                                  "4: malformed, sensor_id \"x\" is not a whole number that fits: word",
                                  "5: malformed, sensor_id \"99999999999\" is not a whole number that fits: large",
                                  "6: malformed, unknown sensor type \"heat\": odd", "7: discrete: state",
                                  "8: of another board, \"c\" instead of \"b\": other"));
    EXPECT_EQ(table.CountLeftOut(), 6U);
}

TEST(SensorText, Numbers_AreReadWhole) {
    EXPECT_EQ(ReadNumber(" 5600.000 ").number, 5600.0);
    EXPECT_EQ(ReadNumber("+3.5").number, 3.5);
    EXPECT_EQ(ReadNumber("-0,5").number, -0.5);
    EXPECT_EQ(ReadNumber("374").kind, Cell_e::number);
    for (const char* text : {"1.2.3", "1,2,3", "1 2", "--1", "+-1", "+", ".", "0x10", "12V", "na1"}) {
        EXPECT_EQ(ReadNumber(text).kind, Cell_e::malformed) << text;
    }
    for (const char* text : {"inf", "-inf", "nan", "1e400"}) {
        EXPECT_EQ(ReadNumber(text).kind, Cell_e::notFinite) << text;
    }
}

TEST(SensorText, ShortestNumber_ReadsBackToTheSameDouble) {
    EXPECT_EQ(chassisctl::ShortestNumber(5600.0), "5600");
    EXPECT_EQ(chassisctl::ShortestNumber(0.1), "0.1");
    EXPECT_EQ(chassisctl::ShortestNumber(-12.031), "-12.031");
    EXPECT_EQ(ReadNumber(chassisctl::ShortestNumber(1.0 / 3.0)).number, 1.0 / 3.0);
}

TEST(SensorTable, RemarkOfAHugeLine_ShowsItsBegin) {
    const SensorTable table = ReadSensorTable(std::string(199, 'x') + "\u00b0" + std::string(100000, 'y'));
    ASSERT_THAT(table.remarks, SizeIs(1));
    EXPECT_EQ(table.remarks[0].name, std::string(199, 'x') + "...");
}

}  // namespace
