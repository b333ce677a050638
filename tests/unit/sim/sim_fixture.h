#pragma once

#include <string>
#include <vector>

#include "bmc/sim/control_commands.h"
#include "bmc/sim/description.h"
#include "bmc/sim/sim_backend.h"
#include "qstd/exception.h"

namespace test {

constexpr const char* c_chassis = R"(<chassis>
  <board uri="icb/0" type="icb" name="ICB" clock="1.5">
    <fans rpm="3000"/>
    <sensor id="12" name="Intake" type="temperature" units="C" value="48" nominal="30"
            lnr="-10" lc="-5" lnc="0" unc="75" uc="85" unr="95"/>
    <sensor id="3" name="V12" type="voltage" value="na" unc="13"/>
  </board>
  <board uri="io/1" type="io" name="IO1" prefix="IO" status="degraded" red_light="on" firmware_type="backup"
         fw_revision="12" fpga_revision="7" ipmi_version="2">
    <sensor id="16" type="temperature"><thermal power="40" resistance="0.6" tau="30"/></sensor>
    <sensor id="17" type="fan"><tachometer fan="0"/></sensor>
  </board>
</chassis>)";

/// A simulated chassis and its operator.
struct SimChassis {
    SimChassis() : backend(bmc::sim::ReadChassisText(c_chassis, "test")), commands(backend) {}

    bmc::Board& Board(const std::string& uri) { return *backend.GetBoard(bmc::Uri::Parse(uri)); }
    bmc::Sensor& Sensor(const std::string& uri, int id) { return *Board(uri).GetSensor(bmc::SensorId(id)); }

    /// The body of the reply, or "error: " and its text.
    std::string Do(const std::vector<std::string>& request) {
        try {
            return commands.Execute(request);
        } catch (const qstd::Exception& error) {
            return std::string("error: ") + error.what();
        }
    }

    bmc::sim::SimBackend backend;
    bmc::sim::ControlCommands commands;
};

/// The text of the exception that @p action raises, "" when it raises none.
template <class Action>
std::string ErrorOf(Action action) {
    try {
        action();
    } catch (const qstd::Exception& error) {
        return error.what();
    }
    return {};
}

}  // namespace test
