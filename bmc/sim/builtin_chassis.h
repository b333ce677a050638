#pragma once

namespace bmc::sim {

/// The text of examples/chassis/small.xml, put into the program when it is built.
extern const char* const c_builtinChassis;

/// What stands for its file name in messages.
constexpr const char* c_builtinChassisName = "built-in chassis";

}  // namespace bmc::sim
