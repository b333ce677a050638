// Speeds to register values and back.

#include <fmt/format.h>

#include <cstdint>

#include "fan_node.h"
#include "number_table.h"
#include "qnode/factory.h"
#include "qnode/value.h"
#include "qstd/exception.h"
#include "tests/support/mock_boards.h"

namespace test {

namespace {

constexpr std::uint16_t c_register = 0x40;

std::string RawText(double rpm) {
    try {
        return std::to_string(FanNode::RpmToRaw(rpm));
    } catch (const qstd::Exception& exception) {
        return exception.what();
    }
}

}  // namespace

std::string FanNumbers() {
    NumberSection speeds("a speed in RPM to the register's value", 4000);
    for (int rpm = 0; rpm < 70000; ++rpm) {
        speeds.Add(fmt::format("{} {}", rpm, RawText(rpm)));
    }
    NumberSource source;
    for (int i = 0; i < 50000; ++i) {
        const double rpm = static_cast<double>(source.Next() % 4000000000U) / 1000;
        speeds.Add(qnode::ToText(rpm) + " " + RawText(rpm));
    }
    for (const double rpm : {-1.0, -0.0, 1e-300, 4.5e-4, 4.6e-4, 29.0, 29.6, 1935483.0, 1935484.0, 1e300}) {
        speeds.Add(qnode::ToText(rpm) + " " + RawText(rpm));
    }

    NumberSection registers("all values of a register to RPM and back", 4096);
    ThreeBoards boards;
    bmc::FpgaReadResult answer{0, 0};
    ON_CALL(boards.icb, FpgaSpiRead(c_register)).WillByDefault([&answer](std::uint16_t) { return answer; });
    const auto node = qnode::factory::Create<qnode::LocalNodeStructure, FanNode>(&boards.icb, c_register);
    const auto& fan = dynamic_cast<const FanNode&>(*node);
    for (unsigned int raw = 0; raw <= 0xFFFF; ++raw) {
        answer.value = static_cast<std::uint16_t>(raw);
        double rpm = -1;
        const bool isRead = fan.GetReferenceSpeed(rpm);
        registers.Add(fmt::format("{} {} {} {}", raw, isRead, qnode::ToText(rpm), RawText(rpm)));
    }
    return speeds.Text() + registers.Text();
}

}  // namespace test
