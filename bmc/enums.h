#pragma once

#include <optional>

#include "qstd/enum_map.h"

namespace bmc {

// Enumerations of board management. Each has its name table in qstd::EnumMap<E>::items; an enumerator is called like
// its name there. The numbers are fixed: configurations may use them.

/// What a board is. Numbers and names follow the entity ids of the IPMI v2.0 specification (table 43-13), but for 44,
/// the chassis controller board of this chassis, 45, which stands for every I/O board, and the OEM numbers 243 and 255.
enum class BoardType_e {
    unspecified = 0,
    other = 1,
    unknown = 2,
    processor = 3,
    disk = 4,
    peripheral_bay = 5,
    management_module = 6,
    system_board = 7,
    memory_module = 8,
    processor_module = 9,
    power_supply = 10,
    add_in_card = 11,
    front_panel = 12,
    back_panel = 13,
    power_system = 14,
    drive_backplane = 15,
    expansion = 16,
    other_system_board = 17,
    processor_board = 18,
    power_unit = 19,
    power_module = 20,
    power_distribution = 21,
    chassis_back_panel = 22,
    system_chassis = 23,
    sub_chassis = 24,
    other_chassis_board = 25,
    disk_drive_bay = 26,
    peripheral_bay_2 = 27,
    device_bay = 28,
    fan = 29,
    cooling = 30,
    cable = 31,
    memory_device = 32,
    management_software = 33,
    system_firmware = 34,
    operating_system = 35,
    system_bus = 36,
    group = 37,
    remote_management = 38,
    environment = 39,
    battery = 40,
    blade = 41,
    connectivity_switch = 42,
    processor_memory_module = 43,
    icb = 44,  ///< chassis controller board
    io = 45,   ///< I/O board
    controller_firmware = 46,
    ipmi_channel = 47,
    pci_bus = 48,
    pcie_bus = 49,
    scsi_bus = 50,
    sata_bus = 51,
    front_side_bus = 52,
    clock = 53,
    air_inlet = 55,
    air_inlet_dcmi = 64,
    processor_dcmi = 65,
    baseboard_dcmi = 66,
    os = 243,    ///< the host operating system as a source of sensors
    none = 255,  ///< no type given; no board has it
};

/// What a sensor measures. Numbers follow the sensor type codes of the IPMI v2.0 specification (table 42-3), but for
/// voltage and temperature, whose numbers are exchanged: temperature is 2 here. See SensorTypeFromIpmi.
enum class SensorType_e {
    unspecified = 0,
    voltage = 1,      ///< IPMI code 0x02
    temperature = 2,  ///< IPMI code 0x01
    current = 3,
    fan = 4,
    physical_security = 5,
    platform_security = 6,
    processor = 7,
    power_supply = 8,
    power_unit = 9,
    cooling_device = 10,
    other = 11,
    memory = 12,
    drive_slot = 13,
    post_memory_resize = 14,
    system_firmware = 15,
    event_logging = 16,
    watchdog_1 = 17,
    system_event = 18,
    critical_interrupt = 19,
    button = 20,
    module = 21,
    microcontroller = 22,
    add_in_card = 23,
    chassis = 24,
    chip_set = 25,
    other_fru = 26,
    cable = 27,
    terminator = 28,
    boot_initiated = 29,
    boot_error = 30,
    os_boot = 31,
    os_stop = 32,
    slot = 33,
    acpi_power_state = 34,
    watchdog_2 = 35,
    platform_alert = 36,
    entity_presence = 37,
    monitor_ic = 38,
    lan = 39,
    management_health = 40,
    battery = 41,
    session_audit = 42,
    version_change = 43,
    fru_state = 44,
};

/// Whether a board works.
enum class BoardStatus_e {
    unknown = 0,         ///< not asked yet, or an answer that says nothing
    ok = 1,              ///< works, self-test passed
    degraded = 2,        ///< works, but its self-test found a fault
    failed = 3,          ///< its self-test says it cannot work
    not_responding = 4,  ///< its controller does not answer
    updating = 5,        ///< its firmware is being written
};

/// Whether a board has power.
enum class BoardPowerStatus_e {
    off = 0,      ///< the board has no power
    on = 1,       ///< the board has power
    unknown = 2,  ///< the controller cannot say
    fault = 3,    ///< power was asked for and did not come, or was cut by a fault
};

/// The red light on a board's front.
enum class RedLedStatus_e {
    off = 0,       ///< nothing to report
    on = 1,        ///< a fault that needs a hand
    blinking = 2,  ///< identification asked for by an operator
    unknown = 3,   ///< the controller cannot say
};

/// Which firmware image a board's controller runs.
enum class FirmwareType_e {
    unknown = 0,      ///< the controller cannot say
    active = 1,       ///< the ordinary firmware runs
    backup = 2,       ///< the fall-back image runs, because the ordinary one did not start
    boot_loader = 3,  ///< nothing but the boot loader runs
};

/// The sensor type of an IPMI sensor type code (0x00..0x2c); nothing for a reserved or OEM code.
std::optional<SensorType_e> SensorTypeFromIpmi(unsigned int code);

/// The IPMI sensor type code of a sensor type.
unsigned int SensorTypeToIpmi(SensorType_e type);

}  // namespace bmc

namespace qstd {

template <>
const BiMap<bmc::BoardType_e> EnumMap<bmc::BoardType_e>::items;
template <>
const BiMap<bmc::SensorType_e> EnumMap<bmc::SensorType_e>::items;
template <>
const BiMap<bmc::BoardStatus_e> EnumMap<bmc::BoardStatus_e>::items;
template <>
const BiMap<bmc::BoardPowerStatus_e> EnumMap<bmc::BoardPowerStatus_e>::items;
template <>
const BiMap<bmc::RedLedStatus_e> EnumMap<bmc::RedLedStatus_e>::items;
template <>
const BiMap<bmc::FirmwareType_e> EnumMap<bmc::FirmwareType_e>::items;

}  // namespace qstd
