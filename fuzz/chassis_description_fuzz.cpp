#include <cstddef>
#include <cstdint>
#include <string>

#include "bmc/sim/description.h"
#include "bmc/sim/sim_backend.h"
#include "qstd/exception.h"

/// Whatever the text: a chassis that can be read, or qstd::Exception; nothing else.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        bmc::sim::SimBackend backend(
            bmc::sim::ReadChassisText(std::string(reinterpret_cast<const char*>(data), size), "fuzz"));
        for (const auto& board : backend.Boards()) {
            for (const auto& sensor : board->Sensors()) {
                static_cast<void>(sensor->ReadingLimit(sensor->Read()));
            }
        }
    } catch (const qstd::Exception&) {
        return 0;
    }
    return 0;
}
