#include "bmc/ipmi/sensor_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "record_builder.h"

namespace {

using bmc::ipmi::ConversionFactors;
using bmc::ipmi::Convert;
using bmc::ipmi::DecodeRecord;
using bmc::ipmi::RawRecord;
using bmc::ipmi::SensorRecord;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

SensorRecord Only(const RawRecord& record) {
    const std::vector<SensorRecord> sensors = DecodeRecord(record);
    EXPECT_THAT(sensors, SizeIs(1));
    return sensors.empty() ? SensorRecord() : sensors.front();
}

std::vector<std::string> Names(const RawRecord& record) {
    std::vector<std::string> names;
    for (const SensorRecord& sensor : DecodeRecord(record)) {
        names.push_back(std::to_string(sensor.id) + " " + sensor.name);
    }
    return names;
}

TEST(SensorRecord, FullRecord_AllThatItTells) {
    FullRecord full;
    full.owner = 0x84;
    full.lun = 2;
    full.channel = 7;
    full.type = 2;
    full.units1 = 0x80;
    full.baseUnit = 4;
    full.linearization = 7;
    full.m = -100;
    full.b = 511;
    full.bExponent = -8;
    full.rExponent = 7;
    full.isNominalSpecified = true;
    full.nominal = 0xc3;
    full.readableMask = 0x29;
    const SensorRecord sensor = Only(full.Bytes());
    EXPECT_EQ(sensor.id, 16 + 512);
    EXPECT_EQ(sensor.number, 16);
    EXPECT_EQ(sensor.lun, 2);
    EXPECT_EQ(sensor.owner, 0x84);
    EXPECT_EQ(sensor.channel, 7);
    EXPECT_EQ(sensor.type, bmc::SensorType_e::voltage);
    EXPECT_EQ(sensor.name, "Inlet");
    EXPECT_EQ(sensor.units, "Volts");
    EXPECT_EQ(sensor.factors, (ConversionFactors{-100, 511, -8, 7, 7, 2}));
    EXPECT_EQ(sensor.nominalCount, 0xc3);
    EXPECT_THAT(sensor.isReadable, ElementsAre(true, false, false, true, false, true));
}

TEST(SensorRecord, NominalThatIsNotSpecified_None) {
    FullRecord full;
    full.nominal = 40;
    EXPECT_FALSE(Only(full.Bytes()).nominalCount);
}

TEST(SensorRecord, FactorsAtTheirLimits_SignsRight) {
    for (const int m : {-512, -1, 0, 1, 255, 256, 511}) {
        FullRecord full;
        full.m = m;
        full.b = -m - 1;
        const SensorRecord sensor = Only(full.Bytes());
        EXPECT_EQ(sensor.factors.m, m);
        EXPECT_EQ(sensor.factors.b, -m - 1);
    }
    for (int exponent = -8; exponent < 8; ++exponent) {
        FullRecord full;
        full.bExponent = exponent;
        full.rExponent = -exponent - 1;
        const SensorRecord sensor = Only(full.Bytes());
        EXPECT_EQ(sensor.factors.bExponent, exponent);
        EXPECT_EQ(sensor.factors.rExponent, -exponent - 1);
    }
}

TEST(SensorRecord, Units_OfTheirCodes) {
    FullRecord full;
    full.units1 = 0x01;
    full.baseUnit = 0;
    EXPECT_EQ(Only(full.Bytes()).units, "percent");
    full.units1 = 0x28;
    full.baseUnit = 7;
    EXPECT_EQ(Only(full.Bytes()).units, "Joules per hour");
    full.units1 = 0x02;
    full.modifierUnit = 22;
    EXPECT_EQ(Only(full.Bytes()).units, "Joules/second");
}

TEST(SensorRecord, TypeOfTheVendor_Unspecified) {
    FullRecord full;
    full.type = 0xc1;
    EXPECT_EQ(Only(full.Bytes()).type, bmc::SensorType_e::unspecified);
}

TEST(SensorRecord, SoftwareOwner_Odd) {
    FullRecord full;
    full.owner = 0x41;
    EXPECT_EQ(Only(full.Bytes()).owner, 0x41);
}

TEST(SensorRecord, NoName_SensorAndItsId) {
    FullRecord full;
    full.nameCode = 0xc0;
    EXPECT_EQ(Only(full.Bytes()).name, "Sensor 16");
    full.name = "";
    full.lun = 1;
    EXPECT_EQ(Only(full.Bytes()).name, "Sensor 272");
}

TEST(SensorRecord, ResidueAfterTheName_NotPartOfIt) {
    FullRecord full;
    full.name = "Inlet\x01\x02 rubbish that is longer than any name may be";
    EXPECT_EQ(Only(full.Bytes()).name, "Inlet");
    RawRecord bytes = FullRecord().Bytes();
    bytes.insert(bytes.end(), {'X', 'Y', 'Z'});  // beyond the record's own length
    bytes[47] = 0xc8;
    EXPECT_EQ(Only(bytes).name, "Inlet");
}

TEST(SensorRecord, NotOfAThresholdBasedAnalogSensor_None) {
    FullRecord full;
    full.eventType = 0x6f;
    EXPECT_THAT(DecodeRecord(full.Bytes()), IsEmpty());
    full.eventType = 1;
    full.units1 = 0xc0;
    EXPECT_THAT(DecodeRecord(full.Bytes()), IsEmpty()) << "gives no analog reading";
    CompactRecord compact;
    compact.eventType = 3;
    EXPECT_THAT(DecodeRecord(compact.Bytes()), IsEmpty());
    for (const int type : {0x03, 0x08, 0x11, 0x12, 0xc0, 0xff}) {
        RawRecord record = FullRecord().Bytes();
        record[3] = static_cast<std::uint8_t>(type);
        EXPECT_THAT(DecodeRecord(record), IsEmpty()) << type;
    }
}

TEST(SensorRecord, CompactRecord_CountsAreValues_NoThresholds) {
    const SensorRecord sensor = Only(CompactRecord().Bytes());
    EXPECT_EQ(sensor.id, 32);
    EXPECT_EQ(sensor.type, bmc::SensorType_e::fan);
    EXPECT_EQ(sensor.name, "Fan");
    EXPECT_EQ(sensor.units, "RPM");
    EXPECT_EQ(sensor.factors, ConversionFactors());
    EXPECT_FALSE(sensor.nominalCount);
    EXPECT_THAT(sensor.isReadable, testing::Each(false));
}

TEST(SensorRecord, CompactRecordOfSeveral_OneForEach) {
    CompactRecord compact;
    compact.sharing = 3;
    compact.modifierOffset = 5;
    EXPECT_THAT(Names(compact.Bytes()), ElementsAre("32 Fan 5", "33 Fan 6", "34 Fan 7"));
    compact.sharing = 0x13;
    compact.modifierOffset = 25;
    EXPECT_THAT(Names(compact.Bytes()), ElementsAre("32 Fan Z", "33 Fan AA", "34 Fan AB"));
    compact.number = 254;
    EXPECT_THAT(Names(compact.Bytes()), ElementsAre("254 Fan Z", "255 Fan AA")) << "there is no sensor 256";
}

TEST(SensorRecord, Cut_NoneOrAllButTheName) {
    for (const RawRecord& whole : {FullRecord().Bytes(), CompactRecord().Bytes()}) {
        const std::size_t fixedSize = whole[3] == 1 ? 48 : 32;
        for (std::size_t size = 0; size < whole.size(); ++size) {
            const RawRecord cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_THAT(DecodeRecord(cut), SizeIs(size < fixedSize ? 0 : 1)) << size;
            RawRecord shorter = whole;  // the same by what the header says
            shorter[4] = static_cast<std::uint8_t>(size);
            EXPECT_THAT(DecodeRecord(shorter), SizeIs(size + 5 < fixedSize ? 0 : 1)) << size;
        }
    }
}

TEST(SensorRecord, AnyBytes_NoHarmAndNamesThatCanBePrinted) {
    std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same bytes in every run
    std::uniform_int_distribution<int> byte(0, 255);
    std::size_t decoded = 0;
    for (int i = 0; i < 5000; ++i) {
        RawRecord record(static_cast<std::size_t>(byte(random) % 80));
        for (std::uint8_t& each : record) {
            each = static_cast<std::uint8_t>(byte(random));
        }
        if (record.size() > 13) {
            record[3] = static_cast<std::uint8_t>(1 + i % 2);
            record[4] = static_cast<std::uint8_t>(40 + i % 60);
            record[13] = 1;
        }
        for (const SensorRecord& sensor : DecodeRecord(record)) {
            ++decoded;
            EXPECT_FALSE(sensor.name.empty());
            for (const char character : sensor.name) {
                EXPECT_TRUE(character >= ' ' && character <= '~');
            }
            Convert(sensor.factors, 0x80);
        }
    }
    EXPECT_GT(decoded, 100U);
}

double FromSigned(int count) {
    return count < 128 ? count : count - 256;
}
double FromOnes(int count) {
    return count < 128 ? count : count - 255;
}
double FromUnsigned(int count) {
    return count;
}

TEST(SensorConversion, LinearCounts_AllOfThem) {
    const std::vector<std::pair<std::uint8_t, std::function<double(int)>>> formats{
        {0, FromUnsigned}, {1, FromOnes}, {2, FromSigned}};
    for (const auto& [format, number] : formats) {
        for (int count = 0; count < 256; ++count) {
            // (M * count + B * 10^1) * 10^-2
            const ConversionFactors factors{-25, 30, 1, -2, 0, format};
            const auto value = Convert(factors, static_cast<std::uint8_t>(count));
            ASSERT_TRUE(value);
            EXPECT_DOUBLE_EQ(*value, (-25 * number(count) + 300) / 100) << int{format} << " " << count;
        }
    }
}

TEST(SensorConversion, ElevenFunctions_AllCounts) {
    const std::vector<std::function<double(double)>> functions{
        [](double x) { return x; },
        [](double x) { return std::log(x); },
        [](double x) { return std::log10(x); },
        [](double x) { return std::log2(x); },
        [](double x) { return std::exp(x); },
        [](double x) { return std::pow(10.0, x); },
        [](double x) { return std::exp2(x); },
        [](double x) { return 1.0 / x; },
        [](double x) { return x * x; },
        [](double x) { return x * x * x; },
        [](double x) { return std::sqrt(x); },
        [](double x) { return std::cbrt(x); },
    };
    for (std::size_t function = 0; function < functions.size(); ++function) {
        for (int count = 0; count < 256; ++count) {
            const ConversionFactors factors{5, 10, 0, -1, static_cast<std::uint8_t>(function), 2};
            const double expected = functions[function]((5 * FromSigned(count) + 10) / 10);
            const auto value = Convert(factors, static_cast<std::uint8_t>(count));
            ASSERT_EQ(value.has_value(), std::isfinite(expected)) << function << " " << count;
            if (value) {
                EXPECT_NEAR(*value, expected, 1e-12 * std::max(1.0, std::abs(expected))) << function << " " << count;
            }
        }
    }
}

TEST(SensorConversion, ByHand) {
    EXPECT_DOUBLE_EQ(*Convert({1, 0, 0, 0, 0, 0}, 200), 200.0);
    EXPECT_DOUBLE_EQ(*Convert({1, 0, 0, 0, 0, 2}, 200), -56.0);
    EXPECT_DOUBLE_EQ(*Convert({1, 0, 0, 0, 0, 1}, 200), -55.0);
    EXPECT_DOUBLE_EQ(*Convert({1, 0, 0, 0, 0, 1}, 255), 0.0) << "the other zero of ones' complement";
    EXPECT_DOUBLE_EQ(*Convert({59, 0, 0, -3, 0, 0}, 204), 12.036);
    EXPECT_DOUBLE_EQ(*Convert({75, 0, 0, 0, 0, 0}, 100), 7500.0);
    EXPECT_EQ(*Convert({11, 0, 0, -2, 0, 0}, 120), 13.2) << "to the last bit";
    EXPECT_EQ(*Convert({1, 5, -1, -2, 0, 2}, 0xf3), -0.125) << "to the last bit";
    EXPECT_DOUBLE_EQ(*Convert({511, 511, -8, -8, 0, 0}, 255), 0.0013030500000511);
}

TEST(SensorConversion, CountWithoutAValue_None) {
    EXPECT_FALSE(Convert({1, 0, 0, 0, 1, 0}, 0)) << "ln 0";
    EXPECT_FALSE(Convert({1, 0, 0, 0, 1, 2}, 255)) << "ln -1";
    EXPECT_FALSE(Convert({1, 0, 0, 0, 7, 0}, 0)) << "1/0";
    EXPECT_FALSE(Convert({1, 0, 0, 0, 10, 2}, 255)) << "square root of -1";
    EXPECT_FALSE(Convert({511, 0, 0, 7, 5, 0}, 255)) << "10 to a power that no number reaches";
    EXPECT_FALSE(Convert({1, 0, 0, 0, 0, 3}, 1)) << "no such format";
    EXPECT_FALSE(Convert({1, 0, 0, 0, 12, 0}, 1)) << "no such function";
    EXPECT_FALSE(Convert({1, 0, 0, 0, 0x70, 0}, 1)) << "factors differ by count";
}

}  // namespace
