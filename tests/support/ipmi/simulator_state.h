#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace test {

// What the simulator's module and the test that runs the simulator share: a file that both map. The test sets, the
// module obeys and counts; what is set holds at once and outlives the simulator's process. Single values only are
// exchanged, by Load, Store and Add.

/// @return the value as the other process left it last.
template <typename T>
T Load(const T& value) {
    return __atomic_load_n(&value, __ATOMIC_SEQ_CST);
}

template <typename T>
void Store(T& place, T value) {
    __atomic_store_n(&place, value, __ATOMIC_SEQ_CST);
}

template <typename T>
void Add(T& place, T value) {
    __atomic_fetch_add(&place, value, __ATOMIC_SEQ_CST);
}

struct SensorState {
    std::uint8_t isUnavailable;
    std::uint8_t isNotScanned;
    std::uint8_t completionCode;  ///< 0 = none forced
    /// Reading factors of a non-linear sensor for raw values below 0x80 and from there on, as Get Sensor Reading
    /// Factors lays them out; all zero for other sensors.
    std::uint8_t factors[2][6];
};

struct CommandState {
    std::uint32_t count;
    std::uint8_t completionCode;  ///< 0 = none forced
    std::uint16_t replyLength;    ///< 0 = whole
};

struct ControllerState {
    std::uint8_t address;  ///< 0 = the end of the list
    std::uint8_t isPowerOn;
    std::uint8_t obeysShutdown;
    std::uint8_t identify;
    std::uint8_t isIdentifySupported;
    std::uint8_t isUpdating;
    std::uint8_t selfTest[2];
    std::uint32_t serviceMicroseconds;
    alignas(8) std::uint64_t busyNanoseconds;
    SensorState sensors[256];
    CommandState commands[32][256];  ///< by half of the network function and command
    std::uint16_t registers[65536];
};

struct WriteState {
    std::uint8_t controller;
    std::uint8_t netFunction;
    std::uint8_t command;
    std::uint8_t length;
    std::uint8_t data[16];
};

struct FpgaState {
    std::uint8_t netFunction;
    std::uint8_t readCommand;
    std::uint8_t writeCommand;
    std::uint8_t isLowByteFirst;
    std::uint8_t prefixLength;
    std::uint8_t prefix[4];
};

struct SimulatorState {
    static constexpr std::size_t c_maxControllers = 16;
    static constexpr std::size_t c_maxWrites = 4096;

    FpgaState fpga;
    std::uint8_t hasCipherSuite17;
    alignas(8) std::uint64_t executedCommand;  ///< number of the last console command that is done
    std::uint32_t sessionCount;                ///< when it was last counted
    std::uint32_t writeCount;                  ///< may exceed what is kept
    std::array<WriteState, c_maxWrites> writes;
    std::array<ControllerState, c_maxControllers> controllers;
};

/// A flag as the shared memory holds it.
inline std::uint8_t ToByte(bool value) {
    return value ? 1 : 0;
}

}  // namespace test
