#include "tools/chassisctl/board_writer.h"

#include <cmath>
#include <cstdlib>
#include <string_view>

#include "tools/chassisctl/sensor_text.h"

namespace chassisctl {

namespace {

constexpr double c_ambient = 25.0;    // degrees C, of a chassis description that does not say otherwise
constexpr double c_resistance = 0.5;  // degrees C per watt at 4000 RPM
constexpr double c_noiseShare = 0.1;  // of the amplitude
constexpr double c_percent = 100.0;

std::string Escape(std::string_view text) {
    std::string escaped;
    for (const char letter : text) {
        switch (letter) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += letter;
        }
    }
    return escaped;
}

void AppendAttribute(std::string& xml, std::string_view name, std::string_view value) {
    xml.append(" ").append(name).append("=\"").append(Escape(value)).append("\"");
}

void AppendAttribute(std::string& xml, std::string_view name, double value) {
    AppendAttribute(xml, name, ShortestNumber(value));
}

/// To four significant digits, so that derived numbers read well.
double Rounded(double number) {
    constexpr double c_digits = 4.0;
    if (number == 0.0) {
        return 0.0;
    }
    const double scale = std::pow(10.0, c_digits - 1.0 - std::floor(std::log10(std::fabs(number))));
    const double rounded = std::round(number * scale) / scale;
    return std::isfinite(rounded) ? rounded : number;
}

/// base, base + step, ... by the id, over a number of places that has no common factor with most boards' layouts.
double Spread(int id, double base, double step) {
    constexpr int c_places = 7;
    return base + step * std::abs(id % c_places);
}

/// The element that moves the sensor.
std::string Movement(const SensorRow& sensor, double percent) {
    const double value = *sensor.value;
    const double power = (value - c_ambient) / c_resistance;
    std::string xml;
    if (sensor.type == bmc::SensorType_e::temperature && value > c_ambient && std::isfinite(power)) {
        xml = "<thermal";
        AppendAttribute(xml, "power", power);
        AppendAttribute(xml, "resistance", c_resistance);
        AppendAttribute(xml, "tau", Spread(sensor.id, 20.0, 5.0));
    } else {
        const double amplitude = Rounded(std::fabs(value) / c_percent * percent);
        xml = "<wave";
        AppendAttribute(xml, "mean", value);
        AppendAttribute(xml, "amplitude", amplitude);
        AppendAttribute(xml, "period", Spread(sensor.id, 30.0, 10.0));
        AppendAttribute(xml, "noise", Rounded(amplitude * c_noiseShare));
    }
    return xml + "/>";
}

void AppendSensor(std::string& xml, const SensorRow& sensor, const std::optional<double>& live) {
    xml += "    <sensor";
    AppendAttribute(xml, "id", std::to_string(sensor.id));
    AppendAttribute(xml, "name", sensor.name);
    AppendAttribute(xml, "type", qstd::EnumMap<bmc::SensorType_e>::items.GetName(sensor.type));
    AppendAttribute(xml, "units", sensor.units);
    const bool isMoving = live && sensor.value;
    if (!isMoving) {
        AppendAttribute(xml, "value", sensor.value ? ShortestNumber(*sensor.value) : "na");
    }
    if (sensor.nominal) {
        AppendAttribute(xml, "nominal", *sensor.nominal);
    }
    for (std::size_t i = 0; i < sensor.thresholds.size(); ++i) {
        if (sensor.thresholds[i]) {
            AppendAttribute(xml, c_thresholdNames[i], *sensor.thresholds[i]);
        }
    }
    xml += isMoving ? ">\n      " + Movement(sensor, *live) + "\n    </sensor>\n" : "/>\n";
}

}  // namespace

std::string WriteBoard(const SensorTable& table, const BoardOptions& options) {
    std::string xml = "  <board";
    AppendAttribute(xml, "uri", options.uri);
    AppendAttribute(xml, "type", options.type);
    AppendAttribute(xml, "name", options.name);
    xml += ">\n";
    for (const SensorRow& sensor : table.sensors) {
        AppendSensor(xml, sensor, options.live);
    }
    return xml + "  </board>\n";
}

}  // namespace chassisctl
