#pragma once

#include <cstddef>
#include <string>

#include "bmc/sensor.h"
#include "qreg/reg_node.h"
#include "qstd/bi_map.h"
#include "qstd/enum_map.h"

/// Registry leaf that shows one datum of one sensor. It holds no copy: every read asks the sensor. Any thread may call
/// any operation.
class BmcSensorNode : public qreg::RegNode {
public:
    /// What a leaf shows. The names in the table below are those of the leaves.
    enum class SensorData_e {
        value = 0,   ///< a fresh reading
        name = 1,    ///< the sensor's name
        hnc = 2,     ///< upper non-critical threshold
        hc = 3,      ///< upper critical threshold
        hnr = 4,     ///< upper non-recoverable threshold
        lnc = 5,     ///< lower non-critical threshold
        lc = 6,      ///< lower critical threshold
        lnr = 7,     ///< lower non-recoverable threshold
        nom = 8,     ///< nominal reading
        type = 9,    ///< name of the sensor's type
        units = 10,  ///< the sensor's units
    };

    /// The leaf's name, "invalid value" for a number that is no datum.
    static std::string SensorDataTypeToStr(const SensorData_e& data);

    /// @param sensor lives longer than the node; null: the leaf never has a value
    BmcSensorNode(SensorData_e type, bmc::Sensor* sensor);

    /// Text for name, type and units, else real; empty for a number that is no datum.
    qnode::enums::ValueType_e OnGetValueType(const std::string& path) const override;
    /// One value.
    std::size_t OnGetSize(const std::string& path) const override;

    using RegNode::OnGet;
    /// name, type, units. @throws qstd::Exception for another datum, for a type without a name, and what the sensor
    /// throws.
    bool OnGet(std::string* out, std::size_t position, std::size_t count) const override;
    /// The reading or threshold in the sensor's units. @return false, with @p out untouched, while it is not available.
    /// @throws qstd::Exception for another datum, and what the sensor throws.
    bool OnGet(double* out, std::size_t position, std::size_t count) const override;

private:
    bmc::Sensor* const m_sensor;
    const SensorData_e m_data;
};

namespace qstd {

template <>
const BiMap<BmcSensorNode::SensorData_e> EnumMap<BmcSensorNode::SensorData_e>::items;

}  // namespace qstd
