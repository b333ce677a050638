#include "bmc/uri.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include <set>
#include <sstream>
#include <string>

#include "bmc/sensor_id.h"
#include "bmc/sensor_reading.h"
#include "qstd/exception.h"

namespace {

TEST(Uri, Parsed_GivesTextSubsystemAndId) {
    const bmc::Uri uri = bmc::Uri::Parse("io/1");
    EXPECT_EQ(uri.ToString(), "io/1");
    EXPECT_EQ(uri.GetSubSystemStr(), "io");
    EXPECT_EQ(uri.GetId(), "1");
    EXPECT_EQ(bmc::BoardLabel(uri), "io_1");
}

TEST(Uri, TextFormOfTheBackend_IsKept) {
    const bmc::Uri uri("u:a", "ICB", "1");
    EXPECT_EQ(uri.ToString(), "u:a");
    EXPECT_EQ(bmc::BoardLabel(uri), "ICB_1");
}

TEST(Uri, BadText_IsRefusedByName) {
    for (const std::string text : {"", "io", "io/", "/1", "/", "io/1/2", "i o/1", "io/..", "../1", "io/\n", ".io/1"}) {
        try {
            bmc::Uri::Parse(text);
            ADD_FAILURE() << "taken: " << text;
        } catch (const qstd::Exception& error) {
            EXPECT_EQ(std::string(error.what()), "Bad board uri \"" + text + "\": not of the form SUBSYSTEM/ID");
        }
    }
}

TEST(Uri, Order_IsByBytesAndAPrefixComesFirst) {
    const std::set<bmc::Uri> uris = {bmc::Uri("io", "2"), bmc::Uri("io", "10"), bmc::Uri("io", "1"),
                                     bmc::Uri("Z", "1")};
    std::string order;
    for (const bmc::Uri& uri : uris) {
        order += uri.ToString() + " ";
    }
    EXPECT_EQ(order, "Z/1 io/1 io/10 io/2 ");
    EXPECT_FALSE(bmc::Uri("io", "1") < bmc::Uri("io", "1"));
    EXPECT_TRUE(bmc::Uri("io", "1") == bmc::Uri::Parse("io/1"));
}

TEST(Uri, ControllerBoardOfTheChassis_IsIcb0) {
    EXPECT_EQ(bmc::c_localIcbUri.ToString(), "icb/0");
}

TEST(SensorId, Order_IsSigned) {
    std::string order;
    for (const bmc::SensorId& id : std::set<bmc::SensorId>{bmc::SensorId(200), bmc::SensorId(-1), bmc::SensorId(0)}) {
        order += bmc::ToString(id) + " ";
    }
    EXPECT_EQ(order, "-1 0 200 ");
}

TEST(SensorId, Printed_IsDecimal) {
    std::ostringstream out;
    out << bmc::SensorId(200) << bmc::SensorId(-1) << bmc::SensorId();
    EXPECT_EQ(out.str(), "200-10");
    EXPECT_TRUE(bmc::SensorId(7) == bmc::SensorId(7));
}

TEST(SensorReading, NotAvailable_IsNotANumber) {
    EXPECT_FALSE(bmc::SensorReading().IsValid());
    EXPECT_TRUE(std::isnan(bmc::SensorReading().Converted()));
}

TEST(SensorReading, MissingLimits_AreNeverPassed) {
    EXPECT_FALSE(bmc::SensorReading::NoUpperLimit().IsValid());
    EXPECT_EQ(bmc::SensorReading::NoUpperLimit().Converted(), std::numeric_limits<double>::infinity());
    EXPECT_FALSE(bmc::SensorReading::NoLowerLimit().IsValid());
    EXPECT_EQ(bmc::SensorReading::NoLowerLimit().Converted(), -std::numeric_limits<double>::infinity());
}

TEST(SensorReading, Valid_HasItsValue) {
    EXPECT_TRUE(bmc::SensorReading(-3.5).IsValid());
    EXPECT_EQ(bmc::SensorReading(-3.5).Converted(), -3.5);
    EXPECT_FALSE(bmc::SensorReading::NotAvailable(48).IsValid());
    EXPECT_EQ(bmc::SensorReading::NotAvailable(48).Converted(), 48);
}

}  // namespace
