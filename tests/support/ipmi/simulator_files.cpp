#include "tests/support/ipmi/simulator_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <bitset>

#include "tests/support/ipmi/sensor_record.h"

namespace test {

namespace {

constexpr int c_maxSessions = 15;

std::string Hexadecimal(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += fmt::format(" {:#04x}", byte);
    }
    return text;
}

std::string ComposeLan(const SimulatedController& controller, std::uint16_t port) {
    std::string text = fmt::format(
        "  startlan 1\n"
        "    addr 127.0.0.1 {}\n"
        "    priv_limit admin\n"
        "    allowed_auths_callback md5\n"
        "    allowed_auths_user md5\n"
        "    allowed_auths_operator md5\n"
        "    allowed_auths_admin md5\n"
        "    guid a123456789abcdefa1234567000024{:02x}\n"
        "  endlan\n",
        port, controller.address);
    int number = 2;
    for (const SimulatedUser& user : controller.users) {
        text += fmt::format("  user {} true \"{}\" \"{}\" {} {} md5\n", number++, user.name, user.password,
                            user.privilege, c_maxSessions);
    }
    return text;
}

std::string ComposeController(const SimulatedController& controller) {
    const bool hasDeviceRecords = controller.records == Records_e::device_records;
    // Sensors, repository, log, FRU, both sides of the IPMB and chassis; a satellite has no repository.
    const int support = controller.records == Records_e::own_repository ? 0xbf : 0xbd;
    return fmt::format("mc_add {:#x} {:#x} {} {:#x} {:#x} {:#x} {:#x} {:#x} {:#x}{}\nsel_enable {:#x} 100 0x0a\n",
                       controller.address, controller.deviceId, hasDeviceRecords ? "has-device-sdrs" : "no-device-sdrs",
                       controller.deviceRevision, controller.firmwareMajor, controller.firmwareMinor, support,
                       controller.manufacturer, controller.product, hasDeviceRecords ? " dynsens" : "",
                       controller.address);
}

std::string ComposeRecords(const SimulatedController& controller, std::uint16_t& id) {
    std::string text;
    for (const SimulatedSensor& sensor : controller.sensors) {
        const std::string record = Hexadecimal(ComposeRecord(sensor, controller.address, id++));
        switch (controller.records) {
            case Records_e::own_repository:
                text += fmt::format("main_sdr_add {:#x}{}\n", controller.address, record);
                break;
            case Records_e::shared_repository:
                text += fmt::format("main_sdr_add {:#x}{}\n", c_bmc, record);
                break;
            case Records_e::device_records:
                text += fmt::format("device_sdr_add {:#x} {}{}\n", controller.address, sensor.lun, record);
                break;
        }
    }
    return text;
}

std::string ComposeSensor(std::uint8_t controller, const SimulatedSensor& sensor) {
    const std::string subject = fmt::format("{:#x} {} {:#x}", controller, sensor.lun, sensor.number);
    std::string text = fmt::format("sensor_add {} {:#x} {:#x}\n", subject, sensor.type, sensor.eventType);
    if (sensor.eventType != 1) {
        return text;
    }
    const std::uint8_t readable = ReadableThresholds(sensor);
    const auto& t = sensor.thresholds;
    text += fmt::format("sensor_set_threshold {} {} {}", subject, readable != 0 ? "readable" : "none",
                        std::bitset<6>(readable).to_string());
    for (const std::size_t i : {5U, 4U, 3U, 0U, 1U, 2U}) {
        text += fmt::format(" {:#04x}", t[i].value_or(0));
    }
    text += fmt::format(
        "\nsensor_set_event_support {} enable scanning none 000000000000000 000000000000000 000000000000000 "
        "000000000000000\n",
        subject);
    text += fmt::format("sensor_set_value {} {:#04x} 0\n", subject, sensor.raw);
    return text;
}

}  // namespace

std::string ComposeConfiguration(const SimulatedChassis& chassis, const std::map<std::uint8_t, std::uint16_t>& ports,
                                 const std::string& module, const std::string& stateFile) {
    std::string text = "name \"chassis\"\n";
    for (const SimulatedController& controller : chassis.controllers) {
        text += fmt::format("set_working_mc {:#x}\n", controller.address);
        if (controller.hasLan) {
            text += ComposeLan(controller, ports.at(controller.address));
        }
    }
    return text + fmt::format("loadlib \"{}\" \"{}\"\n", module, stateFile);
}

std::string ComposeCommands(const SimulatedChassis& chassis, const std::set<std::uint8_t>& absent) {
    std::string text = fmt::format("mc_setbmc {:#x}\n", c_bmc);
    // Sensors take part of what they are from the records, so all records come first.
    std::uint16_t id = 1;
    std::string records;
    std::string sensors;
    for (const SimulatedController& controller : chassis.controllers) {
        text += ComposeController(controller);
        records += ComposeRecords(controller, id);
        for (const SimulatedSensor& sensor : controller.sensors) {
            sensors += ComposeSensor(controller.address, sensor);
        }
    }
    text += records + sensors;
    for (const SimulatedController& controller : chassis.controllers) {
        if (!absent.contains(controller.address)) {
            text += fmt::format("mc_enable {:#x}\n", controller.address);
        }
    }
    return text;
}

}  // namespace test
