#include "bmc/sim/description.h"

#include <limits>
#include <map>
#include <memory>

#include "bmc/sim/control_protocol.h"
#include "bmc/sim/fan_bank.h"
#include "qcfg/document.h"
#include "qcfg/element_reader.h"
#include "qstd/exception.h"

namespace bmc::sim {

namespace {

using qcfg::ElementReader;
using qcfg::Range;

constexpr double c_largest = std::numeric_limits<double>::max();
constexpr long long c_largestInt = std::numeric_limits<int>::max();
constexpr Range c_notNegative{0, c_largest, "0 or greater"};
constexpr Range c_timeSpan{0.001, 1e9, "from 0.001 to 1e9 seconds"};
constexpr Range c_speed{0.001, 1e6, "from 0.001 to 1e6"};
constexpr Range c_clockOffset{-1e9, 1e9, "from -1e9 to 1e9 seconds"};
constexpr Range c_fanSpeed{0, FanBank::c_maxRpm, "0, or from 30 to 1935483"};

/// Reads one description: what has been seen so far makes duplicates known.
class DescriptionReader {
public:
    explicit DescriptionReader(const std::string& fileName) : m_fileName(fileName) {}

    ChassisDescription ReadChassis(const qcfg::Element& element);

private:
    BoardDescription ReadBoard(const qcfg::Element& element);
    double ReadFans(const qcfg::Element& element);
    SensorDescription ReadSensor(const qcfg::Element& element) const;
    SensorSource ReadSource(const qcfg::Element& element, const SensorDescription& sensor) const;
    SensorSource ReadModel(const qcfg::Element& element) const;

    const std::string& m_fileName;
    std::map<std::string, int> m_boardLines;
    std::map<std::string, int> m_labelLines;
    int m_fansLine = 0;
};

ChassisDescription DescriptionReader::ReadChassis(const qcfg::Element& element) {
    const ElementReader reader(element, m_fileName);
    if (element.GetName() != "chassis") {
        reader.Refuse("the root element is <" + element.GetName() + ">, must be <chassis>");
    }
    reader.CheckContent({"ambient", "seed", "speed"}, {"board"});
    ChassisDescription chassis;
    chassis.ambient = reader.Real("ambient").value_or(chassis.ambient);
    chassis.seed =
        static_cast<std::uint64_t>(reader.Integer("seed", 0, std::numeric_limits<long long>::max()).value_or(1));
    chassis.speed = reader.Real("speed", c_speed).value_or(chassis.speed);
    for (const auto& child : element.GetChildren()) {
        chassis.boards.push_back(ReadBoard(*child));
    }
    if (chassis.boards.empty()) {
        reader.Refuse("the chassis has no <board>");
    }
    for (const auto& child : element.GetChildren()) {
        for (const auto& sensor : child->GetChildren()) {
            if (m_fansLine == 0 && sensor->FindChild("tachometer") != nullptr) {
                ElementReader(*sensor->FindChild("tachometer"), m_fileName)
                    .Refuse("<tachometer> in a chassis without <fans/>");
            }
        }
    }
    return chassis;
}

BoardDescription DescriptionReader::ReadBoard(const qcfg::Element& element) {
    const ElementReader reader(element, m_fileName);
    reader.CheckContent({"uri", "type", "name", "prefix", "status", "power", "red_light", "firmware_type",
                         "fw_revision", "fpga_revision", "ipmi_version", "clock"},
                        {"fans", "sensor"});
    BoardDescription board;
    const std::string uri = reader.RequiredText("uri");
    try {
        board.uri = Uri::Parse(uri);
    } catch (const qstd::Exception& error) {
        reader.Refuse(error.what());
    }
    const auto [other, isNew] = m_boardLines.emplace(uri, element.GetLine());
    if (!isNew) {
        reader.Refuse("there is a board " + uri + " already, in line " + std::to_string(other->second));
    }
    const std::string label = BoardLabel(board.uri);
    const auto [sameLabel, isNewLabel] = m_labelLines.emplace(label, element.GetLine());
    if (!isNewLabel) {
        // Messages could not tell the two apart, and they would share one sensor log.
        reader.Refuse("board " + uri + " has the label " + label + ", as the one in line " +
                      std::to_string(sameLabel->second));
    }
    reader.RequiredText("type");
    board.type = reader.Enum("type", board.type);
    if (board.type == BoardType_e::none) {
        reader.Refuse("no board is of type \"none\"");
    }
    board.name = reader.Text("name", BoardLabel(board.uri));
    board.prefix = reader.Text("prefix", {});
    board.status = reader.Enum("status", board.status);
    board.power = reader.Enum("power", board.power);
    board.redLight = reader.Enum("red_light", board.redLight);
    board.firmwareType = reader.Enum("firmware_type", board.firmwareType);
    board.fwRevision = static_cast<int>(reader.Integer("fw_revision", 0, c_largestInt).value_or(board.fwRevision));
    board.fpgaRevision =
        static_cast<int>(reader.Integer("fpga_revision", 0, c_largestInt).value_or(board.fpgaRevision));
    board.ipmiVersion = static_cast<int>(reader.Integer("ipmi_version", 0, c_largestInt).value_or(board.ipmiVersion));
    board.clock = reader.Real("clock", c_clockOffset).value_or(board.clock);

    std::map<int, int> sensorLines;
    for (const auto& child : element.GetChildren()) {
        if (child->GetName() == "fans") {
            board.fans = ReadFans(*child);
            continue;
        }
        board.sensors.push_back(ReadSensor(*child));
        const int id = board.sensors.back().id;
        const auto [first, isNewSensor] = sensorLines.emplace(id, child->GetLine());
        if (!isNewSensor) {
            ElementReader(*child, m_fileName)
                .Refuse("board " + uri + " has a sensor " + std::to_string(id) + " already, in line " +
                        std::to_string(first->second));
        }
    }
    return board;
}

double DescriptionReader::ReadFans(const qcfg::Element& element) {
    const ElementReader reader(element, m_fileName);
    reader.CheckContent({"rpm"}, {});
    if (m_fansLine != 0) {
        reader.Refuse("there is a <fans> already, in line " + std::to_string(m_fansLine));
    }
    m_fansLine = element.GetLine();
    const double rpm = reader.Real("rpm", c_fanSpeed).value_or(0);
    if (rpm != 0 && rpm < FanBank::c_minRpm) {
        reader.Refuse("attribute \"rpm\" is " + reader.Text("rpm", {}) + ", must be " + c_fanSpeed.text);
    }
    return rpm;
}

SensorDescription DescriptionReader::ReadSensor(const qcfg::Element& element) const {
    const ElementReader reader(element, m_fileName);
    reader.CheckContent({"id", "name", "type", "units", "value", "nominal", "lnr", "lc", "lnc", "unc", "uc", "unr"},
                        {"thermal", "wave", "tachometer"});
    SensorDescription sensor;
    reader.RequiredText("id");
    sensor.id = static_cast<int>(*reader.Integer("id", std::numeric_limits<int>::min(), c_largestInt));
    sensor.name = reader.Text("name", "Sensor " + std::to_string(sensor.id));
    sensor.type = reader.Enum("type", sensor.type);
    sensor.units = reader.Text("units", {});
    for (std::size_t i = 0; i < c_limitCount; ++i) {
        sensor.limits.at(i) = reader.Real(c_limitNames.at(i));
    }
    sensor.source = ReadSource(element, sensor);
    return sensor;
}

SensorSource DescriptionReader::ReadSource(const qcfg::Element& element, const SensorDescription& sensor) const {
    const ElementReader reader(element, m_fileName);
    const std::size_t count = element.GetChildren().size() + (reader.Has("value") ? 1 : 0);
    if (count > 1) {
        reader.Refuse("sensor " + std::to_string(sensor.id) +
                      " has more than one of value, <thermal>, <wave> and <tachometer>");
    }
    if (!element.GetChildren().empty()) {
        return ReadModel(*element.GetChildren().front());
    }
    if (reader.Has("value")) {
        return reader.Text("value", {}) == c_notAvailableText ? SensorSource() : SensorSource(*reader.Real("value"));
    }
    const auto& nominal = sensor.limits.at(static_cast<std::size_t>(Limit_e::nominal));
    return nominal ? SensorSource(*nominal) : SensorSource();
}

SensorSource DescriptionReader::ReadModel(const qcfg::Element& element) const {
    const ElementReader reader(element, m_fileName);
    if (element.GetName() == "thermal") {
        reader.CheckContent({"power", "resistance", "tau"}, {});
        return ThermalDescription{reader.RequiredReal("power", c_notNegative),
                                  reader.RequiredReal("resistance", c_notNegative),
                                  reader.RequiredReal("tau", c_timeSpan)};
    }
    if (element.GetName() == "wave") {
        reader.CheckContent({"mean", "amplitude", "period", "noise"}, {});
        return WaveDescription{reader.RequiredReal("mean"), reader.Real("amplitude").value_or(0),
                               reader.RequiredReal("period", c_timeSpan),
                               reader.Real("noise", c_notNegative).value_or(0)};
    }
    reader.CheckContent({"fan"}, {});
    reader.RequiredText("fan");
    return TachometerDescription{static_cast<int>(*reader.Integer("fan", 0, FanBank::c_fanCount - 1))};
}

}  // namespace

ChassisDescription ReadChassisFile(const std::string& fileName) {
    return DescriptionReader(fileName).ReadChassis(*qcfg::ReadXmlFile(fileName));
}

ChassisDescription ReadChassisText(const std::string& text, const std::string& name) {
    return DescriptionReader(name).ReadChassis(*qcfg::ReadXmlText(text, name));
}

}  // namespace bmc::sim
