#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "qcfg/document.h"
#include "tools/chassisctl/board_writer.h"
#include "tools/chassisctl/sensor_table.h"

// Any bytes whatever as a sensor table: the reader must not fail, and what the writer makes of it must be well-formed
// XML with one element for each sensor.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const chassisctl::SensorTable table = chassisctl::ReadSensorTable(text);
    chassisctl::BoardOptions options;
    options.name = table.board;
    if (size % 2 == 1) {
        options.live = 2.0;
    }
    const auto board = qcfg::ReadXmlText(chassisctl::WriteBoard(table, options), "board");
    if (board->GetChildren().size() != table.sensors.size()) {
        std::abort();
    }
    return 0;
}
