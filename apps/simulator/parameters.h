#pragma once

#include "apps/controller/addresses.h"

#include <cstddef>
#include <cstdint>

/// A parameter of the simulated controller.
struct Parameter
{
    std::int32_t address;
    bool writable;
    std::int64_t first, last; ///< the range that a "SET" accepts
    std::int32_t initial;
};

// clang-format off
/// In ascending order of address.
constexpr Parameter parameters[] = {
    // address                      writable first         last         initial
    {controller::outputVoltage,     true,   -10000,        10000,       0},
    {controller::frequency,         true,    1,            50000000,    1000000},
    {controller::exposureTime,      true,    1,            10000000,    100},
    {controller::xPosition,         true,   -2147483648LL, 2147483647,  0},
    {controller::attenuator,        true,    0,            4095,        0},
    {controller::counter,           false,   0,            0,           0},
    {controller::voltageReadBack,   false,   0,            0,           0},
    {controller::acquisition,       true,    0,            3,           0},
    {controller::xPixels,           true,    1,            4096,        128},
    {controller::yPixels,           true,    1,            4096,        96},
    {controller::frameMode,         true,    2,            6,           4},
    {controller::lineRate,          true,    1,            100000,      500},
    {controller::samplePosition,    true,    0,            2147483647,  0},
    {controller::timeStampFormat,   true,    0,            5,           0},
    {controller::eventRate,         true,    1,            5000000,     100000},
    {controller::firmwareProduct,   false,   0,            0,           1},
    {controller::firmwareVersion,   false,   0,            0,           141},
    {controller::sweepPoint,        true,    0,            2147483647,  0},
    {controller::sweepStart,        true,   -2147483648LL, 2147483647,  0},
    {controller::sweepEnd,          true,   -2147483648LL, 2147483647,  0},
    {controller::sweepSteps,        true,    2,            2147483647,  2},
    {controller::sweepUnit,         true,    0,            65535,       0x80},
    {controller::sweepBothWays,     true,    0,            1,           0},
};
// clang-format on

constexpr std::size_t parameterCount = sizeof parameters / sizeof *parameters;

/// What an operator sets, and neither a scan nor a sweep.
constexpr bool isOperatorsValue(std::int32_t address)
{
    return address >= controller::outputVoltage && address <= controller::attenuator;
}

/// Place of an address in `parameters`; -1: no such parameter.
constexpr int findParameter(std::int32_t address)
{
    for (std::size_t i = 0; i < parameterCount; ++i)
        if (parameters[i].address == address) return int(i);
    return -1;
}
