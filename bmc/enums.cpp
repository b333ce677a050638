#include "bmc/enums.h"

namespace bmc {

std::optional<SensorType_e> SensorTypeFromIpmi(unsigned int code) {
    constexpr unsigned int c_temperatureCode = 0x01;
    constexpr unsigned int c_voltageCode = 0x02;
    if (code == c_temperatureCode) {
        return SensorType_e::temperature;
    }
    if (code == c_voltageCode) {
        return SensorType_e::voltage;
    }
    return qstd::EnumMap<SensorType_e>::items.FindNumber(code);
}

unsigned int SensorTypeToIpmi(SensorType_e type) {
    constexpr unsigned int c_exchanged = 0x03;  // 1 for 2 and 2 for 1
    const auto number = static_cast<unsigned int>(type);
    return type == SensorType_e::temperature || type == SensorType_e::voltage ? c_exchanged - number : number;
}

}  // namespace bmc

namespace qstd {

template <>
const BiMap<bmc::BoardType_e> EnumMap<bmc::BoardType_e>::items{
    {bmc::BoardType_e::unspecified, "unspecified"},
    {bmc::BoardType_e::other, "other"},
    {bmc::BoardType_e::unknown, "unknown"},
    {bmc::BoardType_e::processor, "processor"},
    {bmc::BoardType_e::disk, "disk"},
    {bmc::BoardType_e::peripheral_bay, "peripheral_bay"},
    {bmc::BoardType_e::management_module, "management_module"},
    {bmc::BoardType_e::system_board, "system_board"},
    {bmc::BoardType_e::memory_module, "memory_module"},
    {bmc::BoardType_e::processor_module, "processor_module"},
    {bmc::BoardType_e::power_supply, "power_supply"},
    {bmc::BoardType_e::add_in_card, "add_in_card"},
    {bmc::BoardType_e::front_panel, "front_panel"},
    {bmc::BoardType_e::back_panel, "back_panel"},
    {bmc::BoardType_e::power_system, "power_system"},
    {bmc::BoardType_e::drive_backplane, "drive_backplane"},
    {bmc::BoardType_e::expansion, "expansion"},
    {bmc::BoardType_e::other_system_board, "other_system_board"},
    {bmc::BoardType_e::processor_board, "processor_board"},
    {bmc::BoardType_e::power_unit, "power_unit"},
    {bmc::BoardType_e::power_module, "power_module"},
    {bmc::BoardType_e::power_distribution, "power_distribution"},
    {bmc::BoardType_e::chassis_back_panel, "chassis_back_panel"},
    {bmc::BoardType_e::system_chassis, "system_chassis"},
    {bmc::BoardType_e::sub_chassis, "sub_chassis"},
    {bmc::BoardType_e::other_chassis_board, "other_chassis_board"},
    {bmc::BoardType_e::disk_drive_bay, "disk_drive_bay"},
    {bmc::BoardType_e::peripheral_bay_2, "peripheral_bay_2"},
    {bmc::BoardType_e::device_bay, "device_bay"},
    {bmc::BoardType_e::fan, "fan"},
    {bmc::BoardType_e::cooling, "cooling"},
    {bmc::BoardType_e::cable, "cable"},
    {bmc::BoardType_e::memory_device, "memory_device"},
    {bmc::BoardType_e::management_software, "management_software"},
    {bmc::BoardType_e::system_firmware, "system_firmware"},
    {bmc::BoardType_e::operating_system, "operating_system"},
    {bmc::BoardType_e::system_bus, "system_bus"},
    {bmc::BoardType_e::group, "group"},
    {bmc::BoardType_e::remote_management, "remote_management"},
    {bmc::BoardType_e::environment, "environment"},
    {bmc::BoardType_e::battery, "battery"},
    {bmc::BoardType_e::blade, "blade"},
    {bmc::BoardType_e::connectivity_switch, "connectivity_switch"},
    {bmc::BoardType_e::processor_memory_module, "processor_memory_module"},
    {bmc::BoardType_e::icb, "icb"},
    {bmc::BoardType_e::io, "io"},
    {bmc::BoardType_e::controller_firmware, "controller_firmware"},
    {bmc::BoardType_e::ipmi_channel, "ipmi_channel"},
    {bmc::BoardType_e::pci_bus, "pci_bus"},
    {bmc::BoardType_e::pcie_bus, "pcie_bus"},
    {bmc::BoardType_e::scsi_bus, "scsi_bus"},
    {bmc::BoardType_e::sata_bus, "sata_bus"},
    {bmc::BoardType_e::front_side_bus, "front_side_bus"},
    {bmc::BoardType_e::clock, "clock"},
    {bmc::BoardType_e::air_inlet, "air_inlet"},
    {bmc::BoardType_e::air_inlet_dcmi, "air_inlet_dcmi"},
    {bmc::BoardType_e::processor_dcmi, "processor_dcmi"},
    {bmc::BoardType_e::baseboard_dcmi, "baseboard_dcmi"},
    {bmc::BoardType_e::os, "os"},
    {bmc::BoardType_e::none, "none"},
};

template <>
const BiMap<bmc::SensorType_e> EnumMap<bmc::SensorType_e>::items{
    {bmc::SensorType_e::unspecified, "unspecified"},
    {bmc::SensorType_e::voltage, "voltage"},
    {bmc::SensorType_e::temperature, "temperature"},
    {bmc::SensorType_e::current, "current"},
    {bmc::SensorType_e::fan, "fan"},
    {bmc::SensorType_e::physical_security, "physical_security"},
    {bmc::SensorType_e::platform_security, "platform_security"},
    {bmc::SensorType_e::processor, "processor"},
    {bmc::SensorType_e::power_supply, "power_supply"},
    {bmc::SensorType_e::power_unit, "power_unit"},
    {bmc::SensorType_e::cooling_device, "cooling_device"},
    {bmc::SensorType_e::other, "other"},
    {bmc::SensorType_e::memory, "memory"},
    {bmc::SensorType_e::drive_slot, "drive_slot"},
    {bmc::SensorType_e::post_memory_resize, "post_memory_resize"},
    {bmc::SensorType_e::system_firmware, "system_firmware"},
    {bmc::SensorType_e::event_logging, "event_logging"},
    {bmc::SensorType_e::watchdog_1, "watchdog_1"},
    {bmc::SensorType_e::system_event, "system_event"},
    {bmc::SensorType_e::critical_interrupt, "critical_interrupt"},
    {bmc::SensorType_e::button, "button"},
    {bmc::SensorType_e::module, "module"},
    {bmc::SensorType_e::microcontroller, "microcontroller"},
    {bmc::SensorType_e::add_in_card, "add_in_card"},
    {bmc::SensorType_e::chassis, "chassis"},
    {bmc::SensorType_e::chip_set, "chip_set"},
    {bmc::SensorType_e::other_fru, "other_fru"},
    {bmc::SensorType_e::cable, "cable"},
    {bmc::SensorType_e::terminator, "terminator"},
    {bmc::SensorType_e::boot_initiated, "boot_initiated"},
    {bmc::SensorType_e::boot_error, "boot_error"},
    {bmc::SensorType_e::os_boot, "os_boot"},
    {bmc::SensorType_e::os_stop, "os_stop"},
    {bmc::SensorType_e::slot, "slot"},
    {bmc::SensorType_e::acpi_power_state, "acpi_power_state"},
    {bmc::SensorType_e::watchdog_2, "watchdog_2"},
    {bmc::SensorType_e::platform_alert, "platform_alert"},
    {bmc::SensorType_e::entity_presence, "entity_presence"},
    {bmc::SensorType_e::monitor_ic, "monitor_ic"},
    {bmc::SensorType_e::lan, "lan"},
    {bmc::SensorType_e::management_health, "management_health"},
    {bmc::SensorType_e::battery, "battery"},
    {bmc::SensorType_e::session_audit, "session_audit"},
    {bmc::SensorType_e::version_change, "version_change"},
    {bmc::SensorType_e::fru_state, "fru_state"},
};

template <>
const BiMap<bmc::BoardStatus_e> EnumMap<bmc::BoardStatus_e>::items{
    {bmc::BoardStatus_e::unknown, "unknown"},
    {bmc::BoardStatus_e::ok, "ok"},
    {bmc::BoardStatus_e::degraded, "degraded"},
    {bmc::BoardStatus_e::failed, "failed"},
    {bmc::BoardStatus_e::not_responding, "not_responding"},
    {bmc::BoardStatus_e::updating, "updating"},
};

template <>
const BiMap<bmc::BoardPowerStatus_e> EnumMap<bmc::BoardPowerStatus_e>::items{
    {bmc::BoardPowerStatus_e::off, "off"},
    {bmc::BoardPowerStatus_e::on, "on"},
    {bmc::BoardPowerStatus_e::unknown, "unknown"},
    {bmc::BoardPowerStatus_e::fault, "fault"},
};

template <>
const BiMap<bmc::RedLedStatus_e> EnumMap<bmc::RedLedStatus_e>::items{
    {bmc::RedLedStatus_e::off, "off"},
    {bmc::RedLedStatus_e::on, "on"},
    {bmc::RedLedStatus_e::blinking, "blinking"},
    {bmc::RedLedStatus_e::unknown, "unknown"},
};

template <>
const BiMap<bmc::FirmwareType_e> EnumMap<bmc::FirmwareType_e>::items{
    {bmc::FirmwareType_e::unknown, "unknown"},
    {bmc::FirmwareType_e::active, "active"},
    {bmc::FirmwareType_e::backup, "backup"},
    {bmc::FirmwareType_e::boot_loader, "boot_loader"},
};

}  // namespace qstd
