#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "bmc/ipmi/ipmi_sensor.h"
#include "bmc/ipmi/link.h"
#include "bmc/sweep.h"

namespace bmc::ipmi {

/// Readings of sensors of many boards: each board's requests are handed over as one batch, controllers work side by
/// side.
class IpmiSweep : public bmc::Sweep {
public:
    /// Hands over the requests to @p sensors of one board. @param link the board's
    void Add(Link& link, const std::vector<const IpmiSensor*>& sensors);

    SensorReading Read(const Sensor& sensor) override;

private:
    struct Place {
        const IpmiSensor* sensor;
        Batch* batch;
        std::size_t index;
    };

    std::vector<std::unique_ptr<Batch>> m_batches;
    std::unordered_map<const Sensor*, Place> m_places;  ///< of the readings that were not collected yet
};

}  // namespace bmc::ipmi
