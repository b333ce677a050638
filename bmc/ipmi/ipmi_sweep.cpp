#include "bmc/ipmi/ipmi_sweep.h"

#include <utility>

namespace bmc::ipmi {

void IpmiSweep::Add(Link& link, const std::vector<const IpmiSensor*>& sensors) {
    std::vector<Request> requests;
    requests.reserve(sensors.size());
    for (const IpmiSensor* const sensor : sensors) {
        requests.push_back(sensor->ReadingRequest());
    }
    m_batches.push_back(link.Begin(std::move(requests)));
    for (std::size_t index = 0; index < sensors.size(); ++index) {
        m_places.insert_or_assign(sensors[index], Place{sensors[index], m_batches.back().get(), index});
    }
}

SensorReading IpmiSweep::Read(const Sensor& sensor) {
    const auto collected = m_places.extract(&sensor);
    if (collected.empty()) {
        return sensor.Read();
    }
    const Place& place = collected.mapped();
    return place.sensor->TakeReading(place.batch->Await(place.index));
}

}  // namespace bmc::ipmi
