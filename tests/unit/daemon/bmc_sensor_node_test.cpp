#include "bmc_sensor_node.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>

#include "qnode/factory.h"
#include "qnode/node.h"
#include "qstd/exception.h"
#include "tests/support/expect_text.h"
#include "tests/support/mock_boards.h"
#include "tests/support/special_numbers.h"

namespace {

using SensorDatum = BmcSensorNode::SensorData_e;
using qnode::enums::ValueType_e;
using testing::Return;
using testing::Throw;

std::shared_ptr<qnode::TreeNode> LeafOf(bmc::Sensor* sensor, SensorDatum data) {
    return qnode::factory::Create<qnode::LocalNodeStructure, BmcSensorNode>(data, sensor);
}

/// The leaves of the sensor Intake.
class SensorLeaf : public testing::Test {
protected:
    std::shared_ptr<qnode::TreeNode> Leaf(SensorDatum data) { return LeafOf(&m_boards.intake, data); }

    double Number(SensorDatum data) {
        double value = c_untouched;
        EXPECT_TRUE(qnode::Node(Leaf(data)).GetValue(value));
        return value;
    }
    std::string Text(SensorDatum data) {
        std::string value;
        EXPECT_TRUE(qnode::Node(Leaf(data)).GetValue(value));
        return value;
    }
    void ExpectNoNumber(SensorDatum data) {
        double value = c_untouched;
        EXPECT_FALSE(qnode::Node(Leaf(data)).GetValue(value));
        EXPECT_EQ(value, c_untouched);
    }

    test::ThreeBoards m_boards;
};

TEST_F(SensorLeaf, ReadingThresholdsAndNominal_AreRealNumbers) {
    const std::map<SensorDatum, double> expected{
        {SensorDatum::value, 48}, {SensorDatum::hnc, 75}, {SensorDatum::hc, 85},   {SensorDatum::hnr, 95},
        {SensorDatum::lnc, 0},    {SensorDatum::lc, -5},  {SensorDatum::lnr, -10}, {SensorDatum::nom, 30}};
    for (const auto& [data, value] : expected) {
        EXPECT_EQ(Number(data), value) << BmcSensorNode::SensorDataTypeToStr(data);
        EXPECT_EQ(Leaf(data)->OnGetValueType({}), ValueType_e::real);
    }
}

TEST_F(SensorLeaf, NameTypeAndUnits_AreTexts) {
    const std::map<SensorDatum, std::string> expected{
        {SensorDatum::name, "Intake"}, {SensorDatum::type, "temperature"}, {SensorDatum::units, "C"}};
    for (const auto& [data, text] : expected) {
        EXPECT_EQ(Text(data), text);
        EXPECT_EQ(Leaf(data)->OnGetValueType({}), ValueType_e::text);
    }
}

TEST_F(SensorLeaf, EveryLeaf_IsOneReadableValueUnderTheNameOfItsDatum) {
    const std::vector<std::string> names{"value", "name", "hnc", "hc",   "hnr",  "lnc",
                                         "lc",    "lnr",  "nom", "type", "units"};
    for (std::size_t number = 0; number < names.size(); ++number) {
        const auto leaf = Leaf(static_cast<SensorDatum>(number));
        EXPECT_EQ(leaf->GetName(), names[number]);
        EXPECT_EQ(leaf->OnGetSize({}), 1U);
        EXPECT_EQ(leaf->OnGetFlags(), 2U);
    }
}

TEST_F(SensorLeaf, EveryRead_AsksTheSensor) {
    const auto leaf = Leaf(SensorDatum::value);
    double value = 0.0;
    EXPECT_TRUE(qnode::Node(leaf).GetValue(value));
    EXPECT_EQ(value, 48.0);
    m_boards.intake.Hold(49.5);
    EXPECT_TRUE(qnode::Node(leaf).GetValue(value));
    EXPECT_EQ(value, 49.5);
}

TEST_F(SensorLeaf, ThresholdOrReadingThatIsNotAvailable_HasNoValueAndTheOthersAnswer) {
    ON_CALL(m_boards.intake, GetUpperCritical).WillByDefault(Return(bmc::SensorReading::NotAvailable(77)));
    ExpectNoNumber(SensorDatum::hc);
    EXPECT_EQ(Number(SensorDatum::value), 48.0);
    EXPECT_EQ(Number(SensorDatum::hnr), 95.0);
    ON_CALL(m_boards.intake, Read).WillByDefault(Return(bmc::SensorReading::NotAvailable(1)));
    ExpectNoNumber(SensorDatum::value);
    EXPECT_EQ(Number(SensorDatum::nom), 30.0);
    EXPECT_EQ(Text(SensorDatum::name), "Intake");
}

TEST_F(SensorLeaf, DatumReadAsAnotherType_RaisesWithItsNameAndTheMethod) {
    double number = c_untouched;
    for (const SensorDatum data : {SensorDatum::name, SensorDatum::type, SensorDatum::units}) {
        EXPECT_EQ(test::TextOf([&] { qnode::Node(Leaf(data)).GetValue(number); }),
                  "Unsupported type: " + BmcSensorNode::SensorDataTypeToStr(data) +
                      " in method virtual bool BmcSensorNode::OnGet(double*, std::size_t, std::size_t) const");
    }
    EXPECT_EQ(number, c_untouched);
    std::string text;
    for (const SensorDatum data : {SensorDatum::value, SensorDatum::hnc, SensorDatum::hc, SensorDatum::hnr,
                                   SensorDatum::lnc, SensorDatum::lc, SensorDatum::lnr, SensorDatum::nom}) {
        EXPECT_EQ(test::TextOf([&] { qnode::Node(Leaf(data)).GetValue(text); }),
                  "Unsupported type: " + BmcSensorNode::SensorDataTypeToStr(data) +
                      " in method virtual bool BmcSensorNode::OnGet(std::string*, std::size_t, std::size_t) const");
    }
    int integer = 0;
    EXPECT_THROW(qnode::Node(Leaf(SensorDatum::value)).GetValue(integer), qstd::Exception);
}

TEST_F(SensorLeaf, TypeWithoutAName_Raises) {
    ON_CALL(m_boards.intake, GetType).WillByDefault(Return(static_cast<bmc::SensorType_e>(4711)));
    std::string text;
    EXPECT_EQ(test::TextOf([&] { qnode::Node(Leaf(SensorDatum::type)).GetValue(text); }), "invalid value");
}

TEST_F(SensorLeaf, SensorThatRaises_RaisesToTheReader) {
    ON_CALL(m_boards.intake, Read).WillByDefault(Throw(qstd::Exception("bus")));
    double value = c_untouched;
    EXPECT_EQ(test::TextOf([&] { qnode::Node(Leaf(SensorDatum::value)).GetValue(value); }), "bus");
    EXPECT_EQ(value, c_untouched);
}

TEST_F(SensorLeaf, WithoutASensor_NoDatumHasAValue) {
    for (int number = 0; number <= 10; ++number) {
        const auto leaf = LeafOf(nullptr, static_cast<SensorDatum>(number));
        qnode::Value value;
        EXPECT_FALSE(qnode::Node(leaf).GetValue(value)) << leaf->GetName();
    }
}

TEST_F(SensorLeaf, NumberThatIsNoDatum_HasNoNameAndNoType) {
    EXPECT_EQ(BmcSensorNode::SensorDataTypeToStr(static_cast<SensorDatum>(9)), "type");
    EXPECT_EQ(BmcSensorNode::SensorDataTypeToStr(static_cast<SensorDatum>(11)), "invalid value");
    const auto leaf = Leaf(static_cast<SensorDatum>(11));
    EXPECT_EQ(leaf->OnGetValueType({}), ValueType_e::empty);
    double number = 0.0;
    EXPECT_THROW(qnode::Node(leaf).GetValue(number), qstd::Exception);
    std::string text;
    EXPECT_THROW(qnode::Node(leaf).GetValue(text), qstd::Exception);
}

TEST_F(SensorLeaf, Flags_AreOnlyEverAdded) {
    const auto leaf = Leaf(SensorDatum::value);
    leaf->OnSetFlags(4);
    EXPECT_EQ(leaf->OnGetFlags(), 6U);
    leaf->OnSetFlags(0);
    EXPECT_EQ(leaf->OnGetFlags(), 6U);
}

TEST_F(SensorLeaf, Names_AreATwoWayTable) {
    const auto& items = qstd::EnumMap<SensorDatum>::items;
    EXPECT_EQ(items.FindValue("lnr"), SensorDatum::lnr);
    EXPECT_EQ(items.FindNumber(10), SensorDatum::units);
    EXPECT_EQ(test::TextOf([] {
                  const qstd::BiMap<SensorDatum> table{{SensorDatum::hc, "hc"}, {SensorDatum::hc, "lc"}};
              }),
              "invalid enum description table");
    EXPECT_EQ(test::TextOf([] {
                  const qstd::BiMap<SensorDatum> table{{SensorDatum::hc, "hc"}, {SensorDatum::lc, "hc"}};
              }),
              "invalid enum description table");
}

}  // namespace
