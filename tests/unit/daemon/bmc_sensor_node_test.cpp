#include "bmc_sensor_node.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>

#include "qnode/factory.h"
#include "qnode/node.h"
#include "qstd/exception.h"
#include "tests/support/expect_text.h"
#include "tests/support/mock_boards.h"

namespace {

using Data = BmcSensorNode::SensorData_e;
using qnode::enums::ValueType_e;
using testing::Return;
using testing::Throw;

constexpr double c_untouched = -1234.5;

std::shared_ptr<qnode::TreeNode> LeafOf(bmc::Sensor* sensor, Data data) {
    return qnode::factory::Create<qnode::LocalNodeStructure, BmcSensorNode>(data, sensor);
}

/// The leaves of the sensor Intake.
class SensorLeaf : public testing::Test {
protected:
    std::shared_ptr<qnode::TreeNode> Leaf(Data data) { return LeafOf(&m_boards.intake, data); }

    double Number(Data data) {
        double value = c_untouched;
        EXPECT_TRUE(qnode::Node(Leaf(data)).GetValue(value));
        return value;
    }
    std::string Text(Data data) {
        std::string value;
        EXPECT_TRUE(qnode::Node(Leaf(data)).GetValue(value));
        return value;
    }
    void ExpectNoNumber(Data data) {
        double value = c_untouched;
        EXPECT_FALSE(qnode::Node(Leaf(data)).GetValue(value));
        EXPECT_EQ(value, c_untouched);
    }

    test::ThreeBoards m_boards;
};

TEST_F(SensorLeaf, ReadingThresholdsAndNominal_AreRealNumbers) {
    const std::map<Data, double> expected{{Data::value, 48}, {Data::hnc, 75}, {Data::hc, 85},   {Data::hnr, 95},
                                          {Data::lnc, 0},    {Data::lc, -5},  {Data::lnr, -10}, {Data::nom, 30}};
    for (const auto& [data, value] : expected) {
        EXPECT_EQ(Number(data), value) << BmcSensorNode::SensorDataTypeToStr(data);
        EXPECT_EQ(Leaf(data)->OnGetValueType({}), ValueType_e::real);
    }
}

TEST_F(SensorLeaf, NameTypeAndUnits_AreTexts) {
    const std::map<Data, std::string> expected{{Data::name, "Intake"}, {Data::type, "temperature"}, {Data::units, "C"}};
    for (const auto& [data, text] : expected) {
        EXPECT_EQ(Text(data), text);
        EXPECT_EQ(Leaf(data)->OnGetValueType({}), ValueType_e::text);
    }
}

TEST_F(SensorLeaf, EveryLeaf_IsOneReadableValueUnderTheNameOfItsDatum) {
    const std::vector<std::string> names{"value", "name", "hnc", "hc",   "hnr",  "lnc",
                                         "lc",    "lnr",  "nom", "type", "units"};
    for (std::size_t number = 0; number < names.size(); ++number) {
        const auto leaf = Leaf(static_cast<Data>(number));
        EXPECT_EQ(leaf->GetName(), names[number]);
        EXPECT_EQ(leaf->OnGetSize({}), 1U);
        EXPECT_EQ(leaf->OnGetFlags(), 2U);
    }
}

TEST_F(SensorLeaf, EveryRead_AsksTheSensor) {
    const auto leaf = Leaf(Data::value);
    double value = 0.0;
    EXPECT_TRUE(qnode::Node(leaf).GetValue(value));
    EXPECT_EQ(value, 48.0);
    m_boards.intake.Hold(49.5);
    EXPECT_TRUE(qnode::Node(leaf).GetValue(value));
    EXPECT_EQ(value, 49.5);
}

TEST_F(SensorLeaf, ThresholdOrReadingThatIsNotAvailable_HasNoValueAndTheOthersAnswer) {
    ON_CALL(m_boards.intake, GetUpperCritical).WillByDefault(Return(bmc::SensorReading::NotAvailable(77)));
    ExpectNoNumber(Data::hc);
    EXPECT_EQ(Number(Data::value), 48.0);
    EXPECT_EQ(Number(Data::hnr), 95.0);
    ON_CALL(m_boards.intake, Read).WillByDefault(Return(bmc::SensorReading::NotAvailable(1)));
    ExpectNoNumber(Data::value);
    EXPECT_EQ(Number(Data::nom), 30.0);
    EXPECT_EQ(Text(Data::name), "Intake");
}

TEST_F(SensorLeaf, DatumReadAsAnotherType_RaisesWithItsNameAndTheMethod) {
    double number = c_untouched;
    for (const Data data : {Data::name, Data::type, Data::units}) {
        EXPECT_EQ(test::TextOf([&] { qnode::Node(Leaf(data)).GetValue(number); }),
                  "Unsupported type: " + BmcSensorNode::SensorDataTypeToStr(data) +
                      " in method virtual bool BmcSensorNode::OnGet(double*, std::size_t, std::size_t) const");
    }
    EXPECT_EQ(number, c_untouched);
    std::string text;
    for (const Data data : {Data::value, Data::hnc, Data::hc, Data::hnr, Data::lnc, Data::lc, Data::lnr, Data::nom}) {
        EXPECT_EQ(test::TextOf([&] { qnode::Node(Leaf(data)).GetValue(text); }),
                  "Unsupported type: " + BmcSensorNode::SensorDataTypeToStr(data) +
                      " in method virtual bool BmcSensorNode::OnGet(std::string*, std::size_t, std::size_t) const");
    }
    int integer = 0;
    EXPECT_THROW(qnode::Node(Leaf(Data::value)).GetValue(integer), qstd::Exception);
}

TEST_F(SensorLeaf, TypeWithoutAName_Raises) {
    ON_CALL(m_boards.intake, GetType).WillByDefault(Return(static_cast<bmc::SensorType_e>(4711)));
    std::string text;
    EXPECT_EQ(test::TextOf([&] { qnode::Node(Leaf(Data::type)).GetValue(text); }), "invalid value");
}

TEST_F(SensorLeaf, SensorThatRaises_RaisesToTheReader) {
    ON_CALL(m_boards.intake, Read).WillByDefault(Throw(qstd::Exception("bus")));
    double value = c_untouched;
    EXPECT_EQ(test::TextOf([&] { qnode::Node(Leaf(Data::value)).GetValue(value); }), "bus");
    EXPECT_EQ(value, c_untouched);
}

TEST_F(SensorLeaf, WithoutASensor_NoDatumHasAValue) {
    for (int number = 0; number <= 10; ++number) {
        const auto leaf = LeafOf(nullptr, static_cast<Data>(number));
        qnode::Value value;
        EXPECT_FALSE(qnode::Node(leaf).GetValue(value)) << leaf->GetName();
    }
}

TEST_F(SensorLeaf, NumberThatIsNoDatum_HasNoNameAndNoType) {
    EXPECT_EQ(BmcSensorNode::SensorDataTypeToStr(static_cast<Data>(9)), "type");
    EXPECT_EQ(BmcSensorNode::SensorDataTypeToStr(static_cast<Data>(11)), "invalid value");
    const auto leaf = Leaf(static_cast<Data>(11));
    EXPECT_EQ(leaf->OnGetValueType({}), ValueType_e::empty);
    double number = 0.0;
    EXPECT_THROW(qnode::Node(leaf).GetValue(number), qstd::Exception);
    std::string text;
    EXPECT_THROW(qnode::Node(leaf).GetValue(text), qstd::Exception);
}

TEST_F(SensorLeaf, Flags_AreOnlyEverAdded) {
    const auto leaf = Leaf(Data::value);
    leaf->OnSetFlags(4);
    EXPECT_EQ(leaf->OnGetFlags(), 6U);
    leaf->OnSetFlags(0);
    EXPECT_EQ(leaf->OnGetFlags(), 6U);
}

TEST_F(SensorLeaf, Names_AreATwoWayTable) {
    const auto& items = qstd::EnumMap<Data>::items;
    EXPECT_EQ(items.FindValue("lnr"), Data::lnr);
    EXPECT_EQ(items.FindNumber(10), Data::units);
    EXPECT_EQ(test::TextOf([] {
                  const qstd::BiMap<Data> table{{Data::hc, "hc"}, {Data::hc, "lc"}};
              }),
              "invalid enum description table");
    EXPECT_EQ(test::TextOf([] {
                  const qstd::BiMap<Data> table{{Data::hc, "hc"}, {Data::lc, "hc"}};
              }),
              "invalid enum description table");
}

}  // namespace
