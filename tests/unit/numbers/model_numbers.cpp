// Readings of the simulated chassis.

#include <fmt/format.h>

#include "bmc/sim/fan_bank.h"
#include "bmc/sim/thermal_model.h"
#include "bmc/sim/wave_model.h"
#include "number_table.h"
#include "qnode/value.h"

namespace test {

std::string ModelNumbers() {
    using bmc::sim::FanBank;
    NumberSection readings("readings of the simulated chassis by time", 1000);
    FanBank fans(3000);
    bmc::sim::ThermalModel body({40, 0.6, 30}, 25, &fans);
    bmc::sim::WaveModel wave({12, 0.1, 20, 0.05}, 12345);
    for (int i = 0; i < 10000; ++i) {
        const double time = i * 0.37;
        if (i % 500 == 100) {
            fans.Write(FanBank::c_addresses.at(static_cast<std::size_t>(i / 500 % FanBank::c_fanCount)),
                       static_cast<std::uint16_t>(250 + i % 600), time);
        }
        readings.Add(fmt::format("{} {} {} {} {}", i, qnode::ToText(body.At(time).Converted()),
                                 qnode::ToText(wave.At(time).Converted()), qnode::ToText(fans.MeasuredRpm(i % 6, time)),
                                 fans.Read(0x42, time).value_or(0)));
    }
    return readings.Text();
}

}  // namespace test
