#include "bmc_sensor_node.h"

#include "bmc/sensor_reading.h"
#include "qstd/exception.h"
#include "qstd/trace_fnc.h"

namespace qstd {

using SensorDatum = BmcSensorNode::SensorData_e;

template <>
const BiMap<SensorDatum> EnumMap<SensorDatum>::items{
    {SensorDatum::value, "value"}, {SensorDatum::name, "name"}, {SensorDatum::hnc, "hnc"},    {SensorDatum::hc, "hc"},
    {SensorDatum::hnr, "hnr"},     {SensorDatum::lnc, "lnc"},   {SensorDatum::lc, "lc"},      {SensorDatum::lnr, "lnr"},
    {SensorDatum::nom, "nom"},     {SensorDatum::type, "type"}, {SensorDatum::units, "units"}};

}  // namespace qstd

std::string BmcSensorNode::SensorDataTypeToStr(const SensorData_e& data) {
    const char* const name = qstd::EnumMap<SensorData_e>::items.FindName(data);
    return name == nullptr ? "invalid value" : name;
}

BmcSensorNode::BmcSensorNode(SensorData_e type, bmc::Sensor* sensor)
    : RegNode(SensorDataTypeToStr(type), c_readable), m_sensor(sensor), m_data(type) {}

qnode::enums::ValueType_e BmcSensorNode::OnGetValueType(const std::string& /*path*/) const {
    using qnode::enums::ValueType_e;
    switch (m_data) {
        case SensorData_e::name:
        case SensorData_e::type:
        case SensorData_e::units:
            return ValueType_e::text;
        case SensorData_e::value:
        case SensorData_e::hnc:
        case SensorData_e::hc:
        case SensorData_e::hnr:
        case SensorData_e::lnc:
        case SensorData_e::lc:
        case SensorData_e::lnr:
        case SensorData_e::nom:
            return ValueType_e::real;
    }
    return ValueType_e::empty;
}

std::size_t BmcSensorNode::OnGetSize(const std::string& /*path*/) const {
    return 1;
}

bool BmcSensorNode::OnGet(std::string* out, std::size_t /*position*/, std::size_t /*count*/) const {
    if (m_sensor == nullptr) {
        return false;
    }
    switch (m_data) {
        case SensorData_e::name:
            *out = m_sensor->GetName();
            return true;
        case SensorData_e::units:
            *out = m_sensor->GetUnits();
            return true;
        case SensorData_e::type:
            *out = qstd::EnumMap<bmc::SensorType_e>::items.GetName(m_sensor->GetType());
            return true;
        default:
            throw qstd::Exception("Unsupported type: " + GetName() + " in method " + qstd::ThisFncName());
    }
}

bool BmcSensorNode::OnGet(double* out, std::size_t /*position*/, std::size_t /*count*/) const {
    if (m_sensor == nullptr) {
        return false;
    }
    bmc::SensorReading reading;
    switch (m_data) {
        case SensorData_e::value:
            reading = m_sensor->Read();
            break;
        case SensorData_e::hnc:
            reading = m_sensor->GetUpperNonCritical();
            break;
        case SensorData_e::hc:
            reading = m_sensor->GetUpperCritical();
            break;
        case SensorData_e::hnr:
            reading = m_sensor->GetUpperNonRecoverable();
            break;
        case SensorData_e::lnc:
            reading = m_sensor->GetLowerNonCritical();
            break;
        case SensorData_e::lc:
            reading = m_sensor->GetLowerCritical();
            break;
        case SensorData_e::lnr:
            reading = m_sensor->GetLowerNonRecoverable();
            break;
        case SensorData_e::nom:
            reading = m_sensor->GetNominal();
            break;
        default:
            throw qstd::Exception("Unsupported type: " + GetName() + " in method " + qstd::ThisFncName());
    }
    if (!reading.IsValid()) {
        return false;
    }
    *out = reading.Converted();
    return true;
}
