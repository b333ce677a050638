#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "bmc/ipmi/sensor_record.h"

// Any bytes whatever as a sensor data record: what is made of it must have a name that can be printed and conversions
// that give numbers.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (const auto& sensor : bmc::ipmi::DecodeRecord({data, data + size})) {
        if (sensor.name.empty()) {
            std::abort();
        }
        for (const char character : sensor.name) {
            if (character < ' ' || character > '~') {
                std::abort();
            }
        }
        for (unsigned int count = 0; count < 256; ++count) {
            const auto value = bmc::ipmi::Convert(sensor.factors, static_cast<std::uint8_t>(count));
            if (value && !(*value - *value == 0.0)) {
                std::abort();
            }
        }
    }
    return 0;
}
